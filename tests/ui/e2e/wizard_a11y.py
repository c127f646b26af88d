#!/usr/bin/python3
# The wizard as a screen reader and a keyboard user meet it: the real program
# on a private X server, in a private D-Bus session, found and driven through
# the accessibility tree (AT-SPI) by role and name; buttons are pressed
# through their actions, keys through the X server. Run with the system's
# python3 (pyatspi) under tests/with-xvfb.sh and dbus-run-session.
import gettext, os, subprocess, unittest, warnings

warnings.simplefilter("ignore", DeprecationWarning)  # pyatspi's own calls
import pyatspi

from installer_e2e import TEXTS, InstallerE2E, wait_until, write, xdotool

EN = TEXTS["en"]


def xprop(*args):
    return subprocess.run(["xprop", *map(str, args)], capture_output=True, text=True, timeout=10).stdout


def showing(root, role=None, name=None):
    """Showing descendants of `root` (pages once shown stay in the tree)."""
    found = []
    try:  # an object going away while the tree is read is not on show
        for child in root:
            if child is None or not child.getState().contains(pyatspi.STATE_SHOWING):
                continue
            if (role is None or child.getRoleName() == role) and (name is None or child.name == name):
                found.append(child)
            found += showing(child, role, name)
    except Exception:
        pass
    return found


def one(root, role, name=None):
    return wait_until(lambda: (showing(root, role, name) or [None])[0], f"{role} {name!r}")


def focused(root):
    return [o for o in showing(root) if o.getState().contains(pyatspi.STATE_FOCUSED)]


def labelled_by(o):
    return [r.getTarget(0) for r in o.getRelationSet() if r.getRelationType() == pyatspi.RELATION_LABELLED_BY]


def rect(o):  # (left, top, right, bottom) of the control
    e = o.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    return e.x, e.y, e.x + e.width, e.y + e.height


def text_rect(t):  # the same of a text
    x, y, w, h = t.getRangeExtents(0, t.characterCount, pyatspi.DESKTOP_COORDS)[:4]
    return x, y, x + w, y + h


def inside(a, b):
    return a[0] >= b[0] and a[1] >= b[1] and a[2] <= b[2] and a[3] <= b[3]


def overlap(a, b):
    return a[0] < b[2] and b[0] < a[2] and a[1] < b[3] and b[1] < a[3]


class WizardA11y(InstallerE2E):
    def env(self, **extra):
        # The accessibility bridge, loaded as on a desktop with assistive
        # technology switched on.
        return super().env(GTK_MODULES="gail:atk-bridge", **extra)

    def start(self, *args, **extra):
        super().start(*args, **extra)
        pid = self.proc.pid
        self.app = wait_until(lambda: next((a for a in pyatspi.Registry.getDesktop(0)
                                            if a is not None and a.get_process_id() == pid), None),
                              "the program in the accessibility tree")
        self.frame = one(self.app, "frame")

    def press(self, name, root=None):  # through the button's action
        one(root or self.frame, "push button", name).queryAction().doAction(0)

    def alert(self):
        return one(self.app, "alert")

    def assert_focus(self, *expected):
        """Role, name and description of the focused controls, once the
        focus has moved (it reaches the tree a little later)."""
        now = lambda: [(o.getRoleName(), o.name, o.description) for o in focused(self.app)]
        try:
            wait_until(lambda: now() == list(expected), "the focus to settle", timeout=5)
        except AssertionError:
            pass
        self.assertEqual(now(), list(expected))

    def answer(self, name, says=None):
        """Presses the button `name` of the box on show, which says `says`;
        waits for it to close."""
        if says is not None:
            self.assertEqual([o.name for o in showing(self.alert(), "label")], [says])
        self.press(name, self.alert())
        wait_until(lambda: not showing(self.app, "alert"), "the box to close")

    def test_screen_reader(self):
        self.package("en:Demo Templates:Demo Vendor:/docs/about it.html", files=12)
        self.starter(self.dest)
        self.start(E2E_STATE_DELAY_MS="150")
        # Welcome: the default button has the focus and carries the page's
        # text; the side picture is passed over.
        self.wait_trace("page=welcome")
        welcome = one(self.frame, "label").name
        self.assertTrue(welcome.startswith(EN["IDS_WELCOME_TITLE"] + " Demo Templates"))
        self.assert_focus(("push button", EN["IDS_WIZARD_NEXT"], welcome))
        self.assertEqual(len(showing(self.frame, "redundant object")), 1)
        self.press(EN["IDS_WIZARD_NEXT"])

        # Directory: the entry is named and labelled by its caption, carries
        # the prompt and has the focus; the browse button has a name.
        self.wait_trace("page=directory")
        entry = wait_until(lambda: next((o for o in focused(self.app) if o.getRoleName() == "text"), None),
                           "the focused entry")
        caption = one(self.frame, "label", EN["IDS_TEMPLATE_CATALOG"])
        self.assertEqual((entry.name, entry.description),
                         (EN["IDS_TEMPLATE_CATALOG"], EN["IDS_DESTINATION_PROMPT"]))
        self.assertEqual(labelled_by(entry), [caption])
        self.assertEqual(len(showing(self.frame, "push button", EN["IDS_CHOOSEDIR_TITLE"])), 1)

        # "~/..." is the home folder. The progress page: Cancel has the focus,
        # the bar is named by the status text and tells its value.
        entry.queryEditableText().setTextContents("~/mytemplates")
        self.press(EN["IDS_WIZARD_NEXT"])
        self.wait_trace("page=progress")
        bar = one(self.frame, "progress bar")
        self.assertEqual([o.name for o in labelled_by(bar)], [EN["IDS_PROGRESS_START"]])
        value = wait_until(lambda: 0 < bar.queryValue().currentValue < 100 and bar.queryValue().currentValue,
                           "progress under way")
        self.assertIn(value, [i * 100 // 12 for i in range(1, 12)])
        self.assert_focus(("push button", EN["IDS_WIZARD_CANCEL"], EN["IDS_PROGRESS_START"]))

        # Success: Finish has the focus and reads the page's text, which names
        # the folder; the folder is recorded as it is.
        self.wait_trace("page=success")
        target = os.path.join(self.home, "mytemplates")
        done = EN["IDS_SUCCESS_FINISH"] + "\n\n" + target
        self.assertEqual([o.name for o in showing(self.frame, "label")], [done])
        self.assert_focus(("push button", EN["IDS_WIZARD_FINISH"], done))
        self.assertEqual(len(showing(self.frame, "check box", EN["IDS_SUCCESS_OPENDESCR"])), 1)
        # Escape asks; Finish ends it.
        self.key("Escape")
        self.answer("No", says=EN["IDS_ACCEPT_CANCEL"])
        self.press(EN["IDS_WIZARD_FINISH"])
        self.assertEqual(self.proc.wait(20), 0)

    def check_texts(self, where, container):
        """Every text on show in `container` lies inside its control and the
        window, and no two texts cover each other."""
        area = rect(container)
        texts = []
        for o in showing(container):
            try:
                text = o.queryText()
            except NotImplementedError:
                continue
            if text.characterCount == 0 or o.getRoleName() == "text":
                continue
            r = text_rect(text)
            self.assertTrue(inside(r, rect(o)), f"{where}: cut off: {o.name!r} {r} in {rect(o)}")
            self.assertTrue(inside(r, area), f"{where}: off the window: {o.name!r}")
            texts.append((o.name, r))
        self.assertGreaterEqual(len(texts), 2, where)
        for i, (name, r) in enumerate(texts):
            for other, s in texts[i + 1:]:
                self.assertFalse(overlap(r, s), f"{where}: {name!r} on {other!r}")

    def large_fonts(self, points):
        # The pages are checked in-process (in English at 15 and 20 points
        # too); here the boxes, as a screen reader finds them.
        self.points = points
        write(os.path.join(self.dest, "blocker"), "a file where a folder must go\n")
        self.package("en:Demo Templates:Demo Vendor:/docs/about it.html")
        self.starter(os.path.join(self.dest, "blocker/templates"))
        self.start()
        self.press(EN["IDS_WIZARD_NEXT"])
        self.wait_trace("page=directory")
        entry = one(self.frame, "text")
        blocked = entry.queryText().getText(0, -1)
        for where, typed, reply in (("empty target box", "", "OK"), ("cancel question", None, "No"),
                                    ("error box", blocked, "OK")):
            if typed is None:
                self.key("Escape")
            else:
                entry.queryEditableText().setTextContents(typed)
                self.press(EN["IDS_WIZARD_NEXT"])
            self.check_texts(where, self.alert())
            self.answer(reply)
        self.wait_trace("page=error")
        self.press(EN["IDS_WIZARD_FINISH"])
        self.assertEqual(self.proc.wait(20), 0)

    def test_font_15(self):
        self.large_fonts(15)

    def test_font_20(self):
        self.large_fonts(20)

    def assert_over_wizard(self):  # the program's second window is transient for the wizard
        out = xprop("-id", self.wait_box(), "WM_TRANSIENT_FOR")
        self.assertEqual(int(out.split("#")[1], 16) if "#" in out else None, self.main)

    def test_language(self):
        # A German desktop, the wizard asked for Russian: the toolkit's own
        # texts are Russian too, and its boxes and chooser stay above it.
        locales = os.path.join(self.root, "locales")
        os.makedirs(locales)
        subprocess.run(["localedef", "-i", "de_DE", "-f", "UTF-8", os.path.join(locales, "de_DE.UTF-8")],
                       check=True, timeout=60, capture_output=True)
        gtk = gettext.translation("gtk20", languages=["ru"])
        stock = lambda label: gtk.pgettext("Stock label", label).replace("_", "")
        ru = TEXTS["ru"]
        self.package("ru:Шаблоны:Поставщик:/docs/about it.html")
        os.makedirs(os.path.join(self.dest, "alpha"))
        self.starter(self.dest)
        self.start("-Lru", LOCPATH=locales, LANG="de_DE.UTF-8", LC_ALL="de_DE.UTF-8")
        self.assertEqual(self.frame.name, ru["IDR_MAINFRAME"])
        self.key("Escape")
        box = self.alert()
        self.assertEqual(sorted(o.name for o in showing(box, "push button")),
                         sorted([stock("_Yes"), stock("_No")]))
        self.assert_over_wizard()
        self.answer(stock("_No"))
        self.press(ru["IDS_WIZARD_NEXT"])
        self.wait_trace("page=directory")
        # The chooser: titled, in Russian, showing the entry's folder.
        self.press(ru["IDS_CHOOSEDIR_TITLE"])
        chooser = one(self.app, "dialog", ru["IDS_CHOOSEDIR_TITLE"])
        self.assert_over_wizard()
        one(chooser, "table cell", "alpha")
        one(chooser, "push button", stock("_Open"))
        self.press(stock("_Cancel"), chooser)
        wait_until(lambda: not showing(self.app, "dialog"), "the chooser to close")

    def under_window_manager(self, command):
        # The window manager runs on the test's own display; it has taken
        # over once the root window names it.
        wm = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              env=self.env())
        self.addCleanup(wm.wait, 10)
        self.addCleanup(wm.terminate)
        wait_until(lambda: "window id" in xprop("-root", "_NET_SUPPORTING_WM_CHECK"),
                   f"{command[0]} to manage the screen")
        self.package("en:Demo Templates:Demo Vendor:/docs/about it.html", files=40)
        write(os.path.join(self.dest, "mine.txt"), "mine\n")
        self.starter(self.dest)
        self.start(E2E_STATE_DELAY_MS="100")
        # The window manager gives the wizard the focus: its default button
        # is the focused control, and the keyboard alone goes on.
        wait_until(lambda: self.frame.getState().contains(pyatspi.STATE_ACTIVE), "the wizard to be active")
        self.assert_focus(("push button", EN["IDS_WIZARD_NEXT"], one(self.frame, "label").name))
        xdotool("key", "Return")
        self.wait_trace("page=directory")
        # A box comes up above the wizard with the focus on its safe answer,
        # and stays above it when the wizard is clicked.
        xdotool("key", "Escape")
        box = self.alert()
        wait_until(lambda: box.getState().contains(pyatspi.STATE_ACTIVE), "the box to be active")
        self.assertEqual(wait_until(lambda: focused(box), "the focused answer")[0].name, "No")
        xdotool("mousemove", "--window", self.main, 20, 20, "click", 1)
        order = [int(w, 16) for w in xprop("-root", "_NET_CLIENT_LIST_STACKING").split("#")[1].split(",")]
        self.assertGreater(order.index(self.wait_box()), order.index(self.main), "the box is above the wizard")
        xdotool("key", "Return")
        wait_until(lambda: not showing(self.app, "alert"), "the box to close")
        # The installation, cancelled from the keyboard, puts the folder back.
        wait_until(lambda: self.frame.getState().contains(pyatspi.STATE_ACTIVE), "the wizard active again")
        xdotool("key", "Return")  # the entry presses Next
        wait_until(lambda: len(os.listdir(self.dest)) > 1, "the first installed file")
        xdotool("key", "Escape")
        self.alert()
        xdotool("key", "alt+y")
        self.wait_trace("page=cancelled")
        self.assertEqual(os.listdir(self.dest), ["mine.txt"])
        xdotool("key", "Return")  # Finish
        self.assertEqual(self.proc.wait(20), 0)
        self.assertEqual(os.listdir(self.tmp), [], "no working file or backup is left")

    def test_metacity(self):
        self.under_window_manager(["metacity", "--replace"])

    def test_openbox(self):
        self.under_window_manager(["openbox", "--replace"])

    def test_xfwm4(self):
        self.under_window_manager(["xfwm4", "--replace", "--compositor=off"])


if __name__ == "__main__":
    unittest.main()

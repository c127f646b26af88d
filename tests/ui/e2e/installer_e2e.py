#!/usr/bin/env python3
"""Black-box tests of the installer binary, driven like a user would drive it.

Run under a private X server (tests/with-xvfb.sh); the headless cases take the
display away from the installer themselves. Environment:
  INSTALLER_BIN   the installer program
  TPK_BUILD       the package builder (tpk-build)
  RESOURCES_CPP   app/resources.cpp, where the expected texts are read from
  E2E_ARTIFACTS   optional folder for screenshots
Every wait is for a condition (trace line, window, exit) with a time limit.
"""
import ctypes
import ctypes.util
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BIN = os.path.abspath(os.environ.get("INSTALLER_BIN", "build/app/installer"))
TPK_BUILD = os.path.abspath(os.environ.get("TPK_BUILD", "build/tools/tpk-build"))
RESOURCES_CPP = os.environ.get("RESOURCES_CPP", "app/resources.cpp")
ARTIFACTS = os.environ.get("E2E_ARTIFACTS")

# Centres of the buttons in the 500x360 window.
BACK, NEXT, CANCEL = (270, 335), (350, 335), (450, 335)

LANGUAGE_ARRAYS = {"kRussian": "ru", "kUkrainian": "uk", "kEnglish": "en", "kLatvian": "lv",
                   "kLithuanian": "lt", "kBulgarian": "bg", "kGerman": "de", "kRomanian": "ro",
                   "kGeorgian": "ka", "kKazakh": "kk", "kVietnamese": "vi", "kTurkish": "tr"}


def load_texts():
    """{code: {key: text}} from the string tables of the program."""
    texts, current = {}, None
    with open(RESOURCES_CPP, encoding="utf-8") as f:
        for line in f:
            m = re.match(r"constexpr ResourceText (k\w+)\[\]", line)
            if m:
                current = texts.setdefault(LANGUAGE_ARRAYS[m.group(1)], {})
                continue
            m = re.match(r'\s*\{"(ID[SR]_\w+)", "(.*)"\},', line)
            if m and current is not None:
                current[m.group(1)] = m.group(2)
    return texts


TEXTS = load_texts()


def xdotool(*args, timeout=10):
    r = subprocess.run(["xdotool", *map(str, args)], capture_output=True, text=True,
                       timeout=timeout)
    if r.returncode != 0 and args[0] != "search":
        raise RuntimeError(f"xdotool {args}: rc={r.returncode} {r.stderr.strip()}")
    return r.stdout.split()


def wait_until(cond, what, timeout=15.0):
    deadline = time.monotonic() + timeout
    while True:
        value = cond()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out after {timeout}s waiting for {what}")
        time.sleep(0.02)


def close_request(window):
    """What a window manager's close button sends: WM_DELETE_WINDOW."""
    x11 = ctypes.cdll.LoadLibrary(ctypes.util.find_library("X11"))
    x11.XOpenDisplay.restype = ctypes.c_void_p
    x11.XOpenDisplay.argtypes = [ctypes.c_char_p]
    x11.XInternAtom.restype = ctypes.c_ulong
    x11.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
    x11.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long,
                               ctypes.c_void_p]
    x11.XFlush.argtypes = [ctypes.c_void_p]
    x11.XCloseDisplay.argtypes = [ctypes.c_void_p]

    class ClientMessage(ctypes.Structure):
        _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong),
                    ("send_event", ctypes.c_int), ("display", ctypes.c_void_p),
                    ("window", ctypes.c_ulong), ("message_type", ctypes.c_ulong),
                    ("format", ctypes.c_int), ("data", ctypes.c_long * 5)]

    class Event(ctypes.Union):
        _fields_ = [("xclient", ClientMessage), ("pad", ctypes.c_long * 24)]

    display = x11.XOpenDisplay(None)
    event = Event()
    event.xclient.type = 33  # ClientMessage
    event.xclient.window = window
    event.xclient.message_type = x11.XInternAtom(display, b"WM_PROTOCOLS", 0)
    event.xclient.format = 32
    event.xclient.data[0] = x11.XInternAtom(display, b"WM_DELETE_WINDOW", 0)
    x11.XSendEvent(display, window, 0, 0, ctypes.byref(event))
    x11.XFlush(display)
    x11.XCloseDisplay(display)


def read(path):
    with open(path, encoding="utf-8") as f:
        return f.read()


def snapshot(root):
    """relative path -> 'd' or (mtime_ns, bytes) for everything below root."""
    out = {}
    for base, dirs, files in os.walk(root):
        for d in dirs:
            out[os.path.relpath(os.path.join(base, d), root)] = "d"
        for name in files:
            p = os.path.join(base, name)
            with open(p, "rb") as f:
                out[os.path.relpath(p, root)] = (os.stat(p).st_mtime_ns, f.read())
    return out


class World:
    """A private distribution kit, home and temporary folder for one run."""

    def __init__(self):
        self.root = tempfile.mkdtemp(prefix="installer-e2e-")
        self.kit = os.path.join(self.root, "kit")
        self.home = os.path.join(self.root, "home")
        self.tmp = os.path.join(self.root, "tmp")
        self.src = os.path.join(self.root, "src")
        self.bin = os.path.join(self.root, "bin")
        for d in (self.kit, os.path.join(self.home, ".local/share"), self.tmp, self.src, self.bin):
            os.makedirs(d)
        # The desktop opener: a stub that records what it was asked to open.
        opener = os.path.join(self.bin, "xdg-open")
        with open(opener, "w") as f:
            f.write(f"#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done >> "
                    f"'{self.root}/opened.log'\n")
        os.chmod(opener, 0o755)

    def source(self, name, data):
        path = os.path.join(self.src, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(data if isinstance(data, bytes) else data.encode())

    def package(self, *languages):
        args = [TPK_BUILD, self.src, "-o", os.path.join(self.kit, "plom8.tpk"), "-q"]
        for lang in languages:
            args += ["--lang", lang]
        subprocess.run(args, check=True, timeout=60)

    def starter(self, *dirs):
        path = os.path.join(self.home, ".Orvo/zelbrun/zelbrun.cfg")
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as f:
            f.write("".join(f"ConfigurationTemplatesLocation={d}\n" for d in dirs))
        return path

    def proposal(self):
        return os.path.join(self.home, ".plom8/Orvo/plom8//tmplts")

    def opened(self):
        return read(os.path.join(self.root, "opened.log")) if os.path.exists(
            os.path.join(self.root, "opened.log")) else ""

    def env(self, **extra):
        env = dict(os.environ, HOME=self.home, TMPDIR=self.tmp, LANG="C.UTF-8",
                   LC_ALL="C.UTF-8", TPL_TRACE="1", PATH=self.bin + ":" + os.environ["PATH"])
        env.pop("LANGUAGE", None)
        env.update(extra)
        return env

    def close(self):
        shutil.rmtree(self.root, ignore_errors=True)


class App:
    """The installer process with helpers to find its windows and send it input."""

    def __init__(self, world, *args, env=None, main_window=True):
        self.log_path = os.path.join(world.root, "trace.log")
        with open(self.log_path, "w") as log:
            self.proc = subprocess.Popen([BIN, "usecwd", *args], cwd=world.kit, stdout=log,
                                         stderr=subprocess.STDOUT, env=env or world.env())
        self.main = None
        if main_window:
            self.main = wait_until(lambda: self.windows(), "the main window")[0]

    def windows(self):
        return [int(w) for w in xdotool("search", "--onlyvisible", "--pid", self.proc.pid)]

    def wait_box(self):
        return wait_until(lambda: [w for w in self.windows() if w != self.main], "a message box")[0]

    def wait_box_gone(self, box):
        wait_until(lambda: box not in self.windows(), "the box to close")

    def key(self, window, *keys):
        xdotool("windowfocus", "--sync", window)
        xdotool("key", "--clearmodifiers", *keys)

    def type(self, window, text):
        xdotool("windowfocus", "--sync", window)
        xdotool("type", "--delay", "2", text)

    def click(self, window, xy):
        xdotool("mousemove", "--window", window, *xy, "click", 1)

    def trace(self):
        with open(self.log_path, encoding="utf-8", errors="replace") as f:
            return f.read()

    def wait_trace(self, line, timeout=15):
        wait_until(lambda: f"wizard: {line}\n" in self.trace(), f"'{line}' in the trace", timeout)

    def title(self, window):
        return subprocess.run(["xdotool", "getwindowname", str(window)], capture_output=True,
                              text=True, timeout=10).stdout.rstrip("\n")

    def wait_exit(self, timeout=20):
        return self.proc.wait(timeout=timeout)

    def screenshot(self, window, name):
        if not ARTIFACTS:
            return
        os.makedirs(ARTIFACTS, exist_ok=True)
        geo = dict(kv.split("=") for kv in xdotool("getwindowgeometry", "--shell", window))
        subprocess.run(["import", "-window", "root", "-crop",
                        f"{geo['WIDTH']}x{geo['HEIGHT']}+{geo['X']}+{geo['Y']}", "+repage",
                        os.path.join(ARTIFACTS, name + ".png")], check=True, timeout=20)

    def kill(self):
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()


class InstallerE2E(unittest.TestCase):
    def world(self, files=3):
        w = World()
        self.addCleanup(w.close)
        w.source("trade/retail/template.xml", '<template id="retail"/>\n')
        w.source("docs/about it.html", "<html>about</html>\n")
        for i in range(files - 2):
            w.source(f"trade/retail/forms/form{i:03}.xml", f"<form n='{i}'/>\n")
        return w

    def start(self, world, *args, **kw):
        app = App(world, *args, **kw)
        self.addCleanup(app.kill)
        return app

    def test_interactive_install_opens_the_description(self):
        w = self.world(files=6)
        w.package("en:Demo Templates:Demo Vendor:/docs/about it.html")
        # ASCII: xdotool drops the first character it has to remap the keyboard for.
        dest = os.path.join(w.root, "Templates 2024")
        # Each file takes a while; nothing but the worker wakes the window meanwhile.
        app = self.start(w, env=w.env(TPL_TEST_STATE_DELAY_MS="80"))
        en = TEXTS["en"]
        self.assertEqual(app.title(app.main), en["IDR_MAINFRAME"])
        app.wait_trace("page=welcome")
        app.key(app.main, "Return")
        app.wait_trace("page=directory")
        app.key(app.main, "ctrl+a", "BackSpace")
        app.type(app.main, dest)
        app.key(app.main, "Return")  # the entry presses the default button
        app.wait_trace("page=success")
        app.screenshot(app.main, "e2e-success")
        app.key(app.main, "Return")  # Finish
        self.assertEqual(app.wait_exit(), 0)
        self.assertTrue(os.path.isfile(os.path.join(dest, "trade/retail/forms/form003.xml")),
                        sorted(os.listdir(w.root)))
        self.assertEqual(w.opened(), dest + "/docs/about it.html\n")
        self.assertNotIn("box=", app.trace())

    def test_back_empty_path_and_escape(self):
        w = self.world()
        w.package("en:Demo Templates:Demo Vendor:/docs/about it.html")
        app = self.start(w)
        app.wait_trace("page=welcome")
        app.click(app.main, NEXT)
        app.wait_trace("page=directory")
        app.click(app.main, BACK)
        wait_until(lambda: app.trace().count("page=welcome") == 2, "the welcome page again")
        app.click(app.main, NEXT)
        wait_until(lambda: app.trace().count("page=directory") == 2, "the directory page again")
        app.key(app.main, "ctrl+a", "BackSpace", "Return")
        box = app.wait_box()
        app.wait_trace("box=" + TEXTS["en"]["IDS_SETUP_EMPTYTARGET"])
        app.key(app.main, "Return")  # OK
        app.wait_box_gone(box)
        # Escape asks; Return answers No and the wizard stays.
        app.key(app.main, "Escape")
        box = app.wait_box()
        self.assertEqual(app.title(box), TEXTS["en"]["IDR_MAINFRAME"])
        app.wait_trace("box=" + TEXTS["en"]["IDS_ACCEPT_CANCEL"])
        app.key(app.main, "Return")
        app.wait_box_gone(box)
        self.assertIsNone(app.proc.poll())
        # Cancel asks too; Yes ends the program.
        app.click(app.main, CANCEL)
        box = app.wait_box()
        app.key(app.main, "alt+y")
        self.assertEqual(app.wait_exit(), 0)
        self.assertFalse(os.path.exists(w.proposal()))

    def test_cancel_during_installation_restores_the_target(self):
        w = self.world(files=40)
        w.package("en:Demo Templates:Demo Vendor:/docs/about it.html")
        dest = os.path.join(w.root, "dest")
        os.makedirs(os.path.join(dest, "trade/retail/forms"))
        with open(os.path.join(dest, "mine.txt"), "w") as f:
            f.write("mine\n")
        with open(os.path.join(dest, "trade/retail/forms/form005.xml"), "w") as f:
            f.write("an old copy\n")
        os.utime(os.path.join(dest, "trade/retail/forms/form005.xml"), (1e9, 1e9))
        before = snapshot(dest)
        w.starter(dest)
        with open(os.path.join(w.home, ".Orvo/zelbrun/zelbrun.cfg")) as f:
            cfg_before = f.read()

        app = self.start(w, env=w.env(TPL_TEST_STATE_DELAY_MS="100"))
        app.key(app.main, "Return")
        app.wait_trace("page=directory")
        app.key(app.main, "Return")  # the proposal is the starter's directory
        app.wait_trace("page=progress")
        wait_until(lambda: os.path.exists(os.path.join(dest, "docs/about it.html")),
                   "the first installed file")
        # The window manager's close button asks first; No goes on.
        close_request(app.main)
        box = app.wait_box()
        app.key(app.main, "Return")
        app.wait_box_gone(box)
        self.assertNotIn("page=cancelled", app.trace())
        app.click(app.main, CANCEL)
        box = app.wait_box()
        app.screenshot(app.main, "e2e-cancel-question")
        app.key(app.main, "alt+y")
        app.wait_trace("page=cancelled")
        self.assertEqual(app.trace().count("box=" + TEXTS["en"]["IDS_ACCEPT_CANCEL"]), 2)
        app.screenshot(app.main, "e2e-cancelled")
        self.assertEqual(snapshot(dest), before)
        app.key(app.main, "Return")  # Finish
        self.assertEqual(app.wait_exit(), 0)
        self.assertEqual(w.opened(), "")
        with open(os.path.join(w.home, ".Orvo/zelbrun/zelbrun.cfg")) as f:
            self.assertEqual(f.read(), cfg_before)
        self.assertEqual(os.listdir(w.tmp), [], "no working file or backup is left")

    def test_failed_run_shows_the_error_page(self):
        w = self.world(files=5)
        w.package("en:Demo Templates:Demo Vendor:/docs/about it.html")
        dest = os.path.join(w.root, "dest")
        # The package's second file would land where a folder stands.
        os.makedirs(os.path.join(dest, "trade/retail/forms/form000.xml/inside"))
        before = snapshot(dest)
        app = self.start(w)
        app.key(app.main, "Return")
        app.wait_trace("page=directory")
        app.key(app.main, "ctrl+a", "BackSpace")
        app.type(app.main, dest)
        app.key(app.main, "Return")
        box = app.wait_box()
        app.wait_trace("box=" + TEXTS["en"]["IDS_INSTALL_ERROR"])
        app.key(app.main, "Return")
        app.wait_box_gone(box)
        app.wait_trace("page=error")
        app.screenshot(app.main, "e2e-error")
        app.key(app.main, "Return")  # Finish
        self.assertEqual(app.wait_exit(), 0)
        self.assertEqual(snapshot(dest), before)
        self.assertEqual(w.opened(), "")

    def test_silent_run_with_a_display(self):
        w = self.world()
        w.package("ru:Демо-шаблоны:Демо-поставщик:/docs/about it.html")
        dest = os.path.join(w.root, "каталог")
        os.makedirs(dest)
        cfg = w.starter(dest, "/other")
        app = self.start(w, "-S", "-Lru")
        self.assertEqual(app.title(app.main), TEXTS["ru"]["IDR_MAINFRAME"])
        self.assertEqual(app.wait_exit(), 0)
        self.assertIn("wizard: page=success\n", app.trace())
        self.assertNotIn("box=", app.trace())
        self.assertTrue(os.path.isfile(os.path.join(dest, "trade/retail/template.xml")))
        self.assertEqual(read(cfg), f"ConfigurationTemplatesLocation={dest}\n"
                                           "ConfigurationTemplatesLocation=/other\n")
        self.assertEqual(w.opened(), "")

    def run_headless(self, world, *args, extra=None, timeout=30):
        env = world.env(**(extra or {}))
        env.pop("DISPLAY", None)
        return subprocess.run([BIN, "usecwd", *args], cwd=world.kit, env=env,
                              capture_output=True, text=True, timeout=timeout)

    def test_headless_silent_mode(self):
        w = self.world()
        w.package("ru:Демо:Поставщик:/docs/about it.html")
        # Success: exit 0, the files and the starter's list.
        cfg = w.starter()
        r = self.run_headless(w, "-S", "-Lru")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stdout, TEXTS["ru"]["IDS_SUCCESS_FINISH"] + "\n" + w.proposal() + "\n")
        self.assertEqual(r.stderr, "")
        self.assertTrue(os.path.isfile(os.path.join(w.proposal(), "trade/retail/template.xml")))
        self.assertEqual(read(cfg), f"ConfigurationTemplatesLocation={w.proposal()}\n")
        self.assertEqual(os.listdir(w.tmp), [])

        # No usable target: nothing is written anywhere, exit 1, the reason in Russian.
        w.starter("http://example.org/templates")
        kit_before = snapshot(w.kit)
        r = self.run_headless(w, "-S", "-Lru")
        self.assertEqual(r.returncode, 1)
        self.assertIn(TEXTS["ru"]["IDS_SETUP_EMPTYTARGET"] + "\n", r.stderr)
        self.assertEqual(snapshot(w.kit), kit_before)

        # A damaged package, told in Georgian.
        with open(os.path.join(w.kit, "plom8.tpk"), "wb") as f:
            f.write(b"\xff" * 64)
        r = self.run_headless(w, "-S", "-Lka")
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stderr, TEXTS["ka"]["IDS_ERROR_DAMAGEDSOURCE"] + "\n")
        self.assertEqual(os.listdir(w.tmp), [])

        # Without -S there is nothing to show the wizard on.
        r = self.run_headless(w, "-Len")
        self.assertEqual(r.returncode, 1)
        self.assertIn("-S", r.stderr)

    def test_headless_interrupt_rolls_back(self):
        w = self.world(files=30)
        w.package("en:Demo:Vendor:/docs/about it.html")
        dest = os.path.join(w.root, "dest")
        os.makedirs(dest)
        w.starter(dest)
        env = w.env(TPL_TEST_STATE_DELAY_MS="100")
        env.pop("DISPLAY", None)
        proc = subprocess.Popen([BIN, "usecwd", "-S"], cwd=w.kit, env=env, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)
        self.addCleanup(lambda: proc.poll() is None and proc.kill())
        wait_until(lambda: os.path.exists(os.path.join(dest, "docs/about it.html")),
                   "the first installed file")
        proc.send_signal(signal.SIGINT)
        out, err = proc.communicate(timeout=20)
        self.assertEqual(proc.returncode, 1)
        self.assertEqual(err, TEXTS["en"]["IDS_CANCEL_FINISH"] + "\n")
        self.assertEqual(snapshot(dest), {})
        self.assertEqual(os.listdir(w.tmp), [])

    def test_languages_on_screen(self):
        w = self.world()
        w.package("en:Demo:Vendor:/docs/about it.html")
        for code in ("en", "ru", "ka"):
            with self.subTest(language=code):
                app = self.start(w, f"-L{code}")
                self.assertEqual(app.title(app.main), TEXTS[code]["IDR_MAINFRAME"])
                app.wait_trace("page=welcome")
                app.key(app.main, "Escape")
                box = app.wait_box()
                app.wait_trace("box=" + TEXTS[code]["IDS_ACCEPT_CANCEL"])
                self.assertEqual(app.title(box), TEXTS[code]["IDR_MAINFRAME"])
                app.screenshot(app.main, f"e2e-{code}-welcome")
                app.key(app.main, "alt+y")
                self.assertEqual(app.wait_exit(), 0)

    def test_missing_and_damaged_package(self):
        w = self.world()
        cases = (("en", None, "IDS_ERROR_NOSOURCE"), ("ka", b"\x00" * 10, "IDS_ERROR_DAMAGEDSOURCE"))
        for code, data, key in cases:
            with self.subTest(language=code, key=key):
                if data is not None:
                    with open(os.path.join(w.kit, "plom8.tpk"), "wb") as f:
                        f.write(data)
                app = self.start(w, f"-L{code}", main_window=False)
                box = wait_until(lambda: app.windows(), "the message box")[0]
                app.wait_trace("box=" + TEXTS[code][key])
                self.assertEqual(app.title(box), TEXTS[code]["IDR_MAINFRAME"])
                app.screenshot(box, f"e2e-{code}-package-box")
                app.key(box, "Return")
                self.assertEqual(app.wait_exit(), 0)
                self.assertNotIn("page=", app.trace())
                self.assertEqual(os.listdir(w.tmp), [])


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
# Black-box tests of the installer, driven as a user would on a private X server
# (tests/with-xvfb.sh); headless cases drop DISPLAY. Every wait has a time limit.
import os, re, shutil, signal, subprocess, tempfile, time, unittest

BIN = os.path.abspath(os.environ.get("INSTALLER_BIN", "build/app/installer"))
TPK_BUILD = os.path.abspath(os.environ.get("TPK_BUILD", "build/tools/tpk-build"))
with open(os.environ.get("RESOURCES_CPP", "texts/resources.cpp"), encoding="utf-8") as f:
    SOURCE = f.read()
TABLES = {name: dict(re.findall(r'\{"(ID[SR]_\w+)", "(.*)"\},', body)) for name, body in
          re.findall(r"constexpr ResourceText (k\w+)\[\] = \{(.*?)\n\};", SOURCE, re.S)}
# {code: {key: text}}: the program's string table of each interface language
TEXTS = {code: TABLES[table] for code, table in re.findall(r'\{kLang\w+, "(\w+)", (k\w+),', SOURCE)}
EN = TEXTS["en"]


def xdotool(*args):  # "search" fails when it finds nothing
    return subprocess.run(["xdotool", *map(str, args)], capture_output=True, text=True,
                          timeout=10, check=args[0] != "search").stdout


def wait_until(cond, what, timeout=15.0):
    deadline = time.monotonic() + timeout
    while not (value := cond()):
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out after {timeout}s waiting for {what}")
        time.sleep(0.02)
    return value


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data if isinstance(data, bytes) else data.encode())


def read(path):
    with open(path, encoding="utf-8") as f:
        return f.read()


class InstallerE2E(unittest.TestCase):
    points = 10  # the desktop font's size

    # A private kit, home and TMPDIR, and an xdg-open stub recording its arguments.
    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="installer-e2e-")
        self.addCleanup(shutil.rmtree, self.root, True)
        self.kit, self.home, self.tmp, self.src, self.dest, self.opened = (
            os.path.join(self.root, d) for d in ("kit", "home", "tmp", "src", "dest", "opened"))
        for d in (self.kit, os.path.join(self.home, ".local/share"), self.tmp):
            os.makedirs(d)
        self.cfg = os.path.join(self.home, ".Orvo/zelbrun/zelbrun.cfg")
        self.tpk = os.path.join(self.kit, "plom8.tpk")
        write(os.path.join(self.root, "bin/xdg-open"),
              f"#!/bin/sh\nprintf '%s\\n' \"$@\" >> '{self.opened}'\n")
        os.chmod(os.path.join(self.root, "bin/xdg-open"), 0o755)

    def package(self, language="en:Demo:Vendor:/docs/about it.html", files=3):
        write(os.path.join(self.src, "trade/retail/template.xml"), '<template id="retail"/>\n')
        write(os.path.join(self.src, "docs/about it.html"), "<html>about</html>\n")
        for i in range(files - 2):
            write(os.path.join(self.src, f"trade/retail/forms/form{i:03}.xml"), f"<form n='{i}'/>\n")
        self.pack("--lang", language)

    def pack(self, *args):
        subprocess.run([TPK_BUILD, self.src, "-o", self.tpk, "-q", *args], check=True, timeout=60)

    def starter(self, *dirs):
        write(self.cfg, "".join(f"ConfigurationTemplatesLocation={d}\n" for d in dirs))

    def env(self, **extra):  # DISPLAY="" runs headless
        # The desktop font at the common 96 dots per inch (Xvfb reports about 100).
        rc = os.path.join(self.root, "gtkrc")
        write(rc, f'gtk-xft-dpi = 98304\ngtk-font-name = "Sans {self.points}"\n')
        return {**os.environ, "HOME": self.home, "TMPDIR": self.tmp, "LANG": "C.UTF-8",
                "LC_ALL": "C.UTF-8", "PATH": os.path.join(self.root, "bin") + ":" + os.environ["PATH"],
                "GTK2_RC_FILES": rc, **extra}

    def start(self, *args, **extra):
        self.log = os.path.join(self.root, "trace.log")
        with open(self.log, "w") as log:
            self.proc = subprocess.Popen([BIN, "usecwd", *args], cwd=self.kit, stdout=log,
                                         stderr=subprocess.STDOUT, env=self.env(**extra))
        self.addCleanup(self.proc.kill)
        self.main = wait_until(self.windows, "the main window")[0]

    def windows(self):
        return [int(w) for w in xdotool("search", "--onlyvisible", "--pid", self.proc.pid).split()]

    def wait_box(self):
        return wait_until(lambda: [w for w in self.windows() if w != self.main], "a box")[0]

    def key(self, *keys):
        xdotool("windowfocus", "--sync", self.main)
        xdotool("key", "--clearmodifiers", *keys)

    def wait_trace(self, line):
        wait_until(lambda: f"wizard: {line}\n" in read(self.log), f"'{line}' in the trace")

    def run_headless(self, *args, cmd=(BIN, "usecwd"), stderr=subprocess.PIPE):
        return subprocess.run([*cmd, *args], cwd=self.kit, env=self.env(DISPLAY=""), text=True,
                              stdout=subprocess.PIPE, stderr=stderr, timeout=30)

    def spawn(self, *args, delay="100"):  # headless, each published state held `delay` ms
        proc = subprocess.Popen([BIN, "usecwd", *args], cwd=self.kit, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env=self.env(DISPLAY="", E2E_STATE_DELAY_MS=delay))
        self.addCleanup(proc.kill)
        return proc

    def test_silent_mode(self):
        ru = TEXTS["ru"]
        self.package("ru:Демо:Поставщик:/docs/about it.html", files=30)
        # Without a display: the outcome on standard error, in the asked language.
        self.starter()
        r = self.run_headless("-S", "-Lru")
        proposal = os.path.join(self.home, ".plom8/Orvo/plom8//tmplts")
        done = EN["IDS_SUCCESS_FINISH"] + "\n" + proposal + "\n"
        self.assertEqual((r.returncode, r.stdout, r.stderr),
                         (0, "", ru["IDS_SUCCESS_FINISH"] + "\n" + proposal + "\n"))
        self.assertTrue(os.path.isfile(os.path.join(proposal, "trade/retail/template.xml")))
        self.assertEqual(read(self.cfg), f"ConfigurationTemplatesLocation={proposal}\n")

        # A kit deep in the file system is found beside the program, however
        # long its path; --help anywhere but first is an unknown option.
        deep = os.path.join(self.root, *["kit-" + "d" * 60] * 5)
        os.makedirs(deep)
        for f in (BIN, self.tpk):
            shutil.copy(f, deep)
        r = self.run_headless("-S", "--help", cmd=[os.path.join(deep, os.path.basename(BIN))])
        self.assertEqual((r.returncode, r.stderr), (0, done))

        # Installed, but the starter file cannot be written (a folder in its
        # place): exit 2, and standard error says which file and why.
        os.remove(self.cfg)
        os.mkdir(self.cfg)
        r = self.run_headless("-S")
        self.assertEqual((r.returncode, r.stdout), (2, ""))
        self.assertEqual(r.stderr.splitlines(), [EN["IDS_SUCCESS_FINISH"], proposal, EN["IDS_INSTALL_ERROR"],
                                                 self.cfg, f"cannot write {self.cfg}: {os.strerror(21)}"])
        os.rmdir(self.cfg)

        # Standard error on a terminal: one progress line, rewritten in place.
        master, slave = os.openpty()
        self.assertEqual(self.run_headless("-S", stderr=slave).returncode, 0)
        os.close(slave)
        shown = b""
        try:
            while chunk := os.read(master, 65536):
                shown += chunk
        except OSError:  # EIO: the terminal's other side is closed
            pass
        os.close(master)
        self.assertIn(b"\r0% ", shown)
        self.assertIn(b"template.xml\x1b[K", shown)
        # cleared, then told
        self.assertTrue(shown.endswith(b"\r\x1b[K" + done.replace("\n", "\r\n").encode()), shown[-80:])

        # Interrupted: rolled back, exit 3.
        other = os.path.join(self.root, "other")
        os.makedirs(other)
        self.starter(other)
        proc = self.spawn("-S")
        wait_until(lambda: os.listdir(other), "the first installed file")
        proc.send_signal(signal.SIGINT)
        self.assertEqual((proc.communicate(timeout=20)[1], proc.returncode), (EN["IDS_CANCEL_FINISH"] + "\n", 3))
        self.assertEqual(os.listdir(other), [])

        # No usable target: exit 1, nothing written anywhere; without -S and
        # without a display, exit 1 and a hint at -S.
        self.starter("http://example.org/templates")
        r = self.run_headless("-S", "-Lru")
        self.assertEqual(r.returncode, 1)
        self.assertIn(ru["IDS_SETUP_EMPTYTARGET"] + "\n", r.stderr)
        self.assertEqual(os.listdir(self.kit), ["plom8.tpk"])
        r = self.run_headless("-Len")
        self.assertEqual(r.returncode, 1)
        self.assertIn("-S", r.stderr)
        self.assertEqual(os.listdir(self.tmp), [])

    def test_interrupts_and_causes(self):
        # A signal while the package is unpacked: exit 3, the target as it
        # was, no working file left.
        write(os.path.join(self.src, "big.bin"), bytes(96 << 20))
        self.package()
        target = os.path.join(self.root, "target")
        write(os.path.join(target, "mine.txt"), "mine\n")
        self.starter(target)
        proc = self.spawn("-S")
        wait_until(lambda: os.listdir(self.tmp), "the working file")
        proc.send_signal(signal.SIGTERM)
        proc.communicate(timeout=30)
        self.assertEqual((proc.returncode, os.listdir(target), os.listdir(self.tmp)), (3, ["mine.txt"], []))

        # Killed outright mid-run: the next start, even one with no package
        # beside it, puts the target back and says so.
        os.remove(os.path.join(self.src, "big.bin"))
        self.package(files=30)
        proc = self.spawn("-S")
        wait_until(lambda: os.path.exists(os.path.join(target, "trade/retail/forms")), "a new folder")
        proc.kill()
        proc.communicate(timeout=10)
        os.rename(self.tpk, os.path.join(self.root, "plom8.tpk"))
        r = self.run_headless("-S")
        self.assertEqual(r.returncode, 1)
        self.assertIn("restored " + target, r.stderr)
        self.assertIn(EN["IDS_ERROR_NOSOURCE"], r.stderr)
        self.assertEqual((os.listdir(target), os.listdir(self.tmp)), (["mine.txt"], []))
        os.rename(os.path.join(self.root, "plom8.tpk"), self.tpk)

        # The wizard ends cleanly on SIGTERM too, before any installation.
        self.start()
        self.wait_trace("page=welcome")
        self.proc.send_signal(signal.SIGTERM)
        self.assertEqual(self.proc.wait(20), 0)
        self.assertEqual(os.listdir(self.tmp), [])

        # A package that cannot be read: the system's reason is given (root
        # runs this without its power to read any file).
        os.chmod(self.tpk, 0)
        as_user = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
        r = self.run_headless("-S", cmd=[*as_user, BIN, "usecwd"])
        os.chmod(self.tpk, 0o644)
        self.assertEqual((r.returncode, r.stderr.splitlines()),
                         (1, [EN["IDS_ERROR_DAMAGEDSOURCE"], f"cannot unpack {self.tpk}: {os.strerror(13)}"]))

        # A disk that fills up while the package is unpacked is told as such:
        # TMPDIR is a 1 MB tmpfs in a mount namespace of the run's own, which
        # needs no root where user namespaces are allowed.
        if subprocess.run(["unshare", "-rm", "true"], capture_output=True).returncode:
            self.skipTest("no user namespace here for a small TMPDIR")
        write(os.path.join(self.src, "zeros.bin"), bytes(4 << 20))
        self.package()
        script = 'mount -t tmpfs -o size=1m tmpfs "$TMPDIR" && "$@"; s=$?; ls -A "$TMPDIR"; exit $s'
        r = self.run_headless("-S", cmd=["unshare", "-rm", "sh", "-c", script, "sh", BIN, "usecwd"])
        self.assertEqual((r.returncode, r.stdout), (1, ""), "exit 1, and nothing left in TMPDIR")
        described, cause = r.stderr.splitlines()
        self.assertEqual(described, EN["IDS_ERROR_NOSPACE"])
        self.assertIn(self.tmp, cause)
        self.assertIn(os.strerror(28), cause)  # ENOSPC

    def test_kept_backup(self):
        # The run fails, and its rollback finds the place of an old file taken:
        # exit 4, the backup folder named and kept, and no word that the
        # folder is unchanged.
        write(os.path.join(self.src, "a/old.txt"), "new\n")
        write(os.path.join(self.src, "z/deep/new.txt"), "new\n")
        self.pack()
        old = os.path.join(self.dest, "a/old.txt")
        write(old, "old\n")
        os.utime(old, (1, 1))
        self.starter(self.dest)
        proc = self.spawn("-S", delay="400")
        # The old file is moved aside; while the next file's state is held,
        # its place stands empty.
        wait_until(lambda: not os.path.exists(old), "the old file moved aside")
        os.mkdir(old)  # the place taken: neither the new file nor the old one fits
        _, err = proc.communicate(timeout=30)
        self.assertEqual(proc.returncode, 4, err)
        kept = [d for d in os.listdir(self.tmp) if d.startswith("zqstp")]
        self.assertEqual(len(kept), 1, os.listdir(self.tmp))
        self.assertIn(os.path.join(self.tmp, kept[0]), err)
        self.assertNotIn("has not been changed", err)


if __name__ == "__main__":
    unittest.main()

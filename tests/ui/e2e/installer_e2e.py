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


def read_pty(fd):  # b"" at the end (Linux reports EIO once the other side is closed)
    try:
        return os.read(fd, 65536)
    except OSError:
        return b""


def read(path):
    with open(path, encoding="utf-8") as f:
        return f.read()


class InstallerE2E(unittest.TestCase):
    # A private kit, home and TMPDIR, and an xdg-open stub recording its arguments.
    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="installer-e2e-")
        self.addCleanup(shutil.rmtree, self.root, True)
        self.kit, self.home, self.tmp, self.src, self.dest, self.opened = (
            os.path.join(self.root, d) for d in ("kit", "home", "tmp", "src", "dest", "opened"))
        for d in (self.kit, os.path.join(self.home, ".local/share"), self.tmp):
            os.makedirs(d)
        self.cfg = os.path.join(self.home, ".Orvo/zelbrun/zelbrun.cfg")
        write(os.path.join(self.root, "bin/xdg-open"),
              f"#!/bin/sh\nprintf '%s\\n' \"$@\" >> '{self.opened}'\n")
        os.chmod(os.path.join(self.root, "bin/xdg-open"), 0o755)

    def package(self, language, files=3):
        write(os.path.join(self.src, "trade/retail/template.xml"), '<template id="retail"/>\n')
        write(os.path.join(self.src, "docs/about it.html"), "<html>about</html>\n")
        for i in range(files - 2):
            write(os.path.join(self.src, f"trade/retail/forms/form{i:03}.xml"), f"<form n='{i}'/>\n")
        subprocess.run([TPK_BUILD, self.src, "-o", os.path.join(self.kit, "plom8.tpk"), "-q",
                        "--lang", language], check=True, timeout=60)

    def starter(self, *dirs):
        write(self.cfg, "".join(f"ConfigurationTemplatesLocation={d}\n" for d in dirs))

    points = 10  # the desktop font's size

    def env(self, **extra):  # DISPLAY="" runs headless
        # The desktop font at the common 96 dots per inch (Xvfb reports about 100).
        rc = os.path.join(self.root, "gtkrc")
        write(rc, f'gtk-xft-dpi = 98304\ngtk-font-name = "Sans {self.points}"\n')
        env = dict(os.environ, HOME=self.home, TMPDIR=self.tmp, LANG="C.UTF-8", LC_ALL="C.UTF-8",
                   PATH=os.path.join(self.root, "bin") + ":" + os.environ["PATH"], GTK2_RC_FILES=rc)
        env.update(extra)
        return env

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

    def run_headless(self, *args):
        return subprocess.run([BIN, "usecwd", *args], cwd=self.kit, env=self.env(DISPLAY=""),
                              capture_output=True, text=True, timeout=30)

    def spawn(self, *args, delay="100", out=subprocess.PIPE):  # headless, each state held `delay` ms
        proc = subprocess.Popen([BIN, "usecwd", *args], cwd=self.kit, text=True, stdout=out,
                                stderr=out, env=self.env(DISPLAY="", E2E_STATE_DELAY_MS=delay))
        self.addCleanup(proc.kill)
        return proc

    def test_silent_mode(self):
        self.package("ru:Демо:Поставщик:/docs/about it.html", files=30)
        # With a display: the window shows the run and closes by itself.
        self.starter(self.dest, "/other")
        self.start("-S", "-Lru")
        title = xdotool("getwindowname", self.main).rstrip()
        self.assertEqual(title, TEXTS["ru"]["IDR_MAINFRAME"])
        self.assertEqual(self.proc.wait(20), 0)
        self.assertIn("wizard: page=success\n", read(self.log))
        self.assertNotIn("box=", read(self.log))
        self.assertEqual(read(self.cfg), f"ConfigurationTemplatesLocation={self.dest}\n"
                                         "ConfigurationTemplatesLocation=/other\n")
        self.assertFalse(os.path.exists(self.opened), "the description is not opened")

        # Without one: the outcome on standard error, in the asked language.
        self.starter()
        r = self.run_headless("-S", "-Lru")
        proposal = os.path.join(self.home, ".plom8/Orvo/plom8//tmplts")
        self.assertEqual((r.returncode, r.stdout), (0, ""))
        self.assertEqual(r.stderr, TEXTS["ru"]["IDS_SUCCESS_FINISH"] + "\n" + proposal + "\n")
        self.assertTrue(os.path.isfile(os.path.join(proposal, "trade/retail/template.xml")))
        self.assertEqual(read(self.cfg), f"ConfigurationTemplatesLocation={proposal}\n")

        # A kit deep in the file system is found beside the program, however
        # long its path; --help anywhere but first is an unknown option.
        deep = os.path.join(self.root, *["kit-" + "d" * 60] * 5)
        os.makedirs(deep)
        for f in (BIN, os.path.join(self.kit, "plom8.tpk")):
            shutil.copy(f, deep)
        r = subprocess.run([os.path.join(deep, os.path.basename(BIN)), "-S", "--help"],
                           env=self.env(DISPLAY=""), capture_output=True, text=True, timeout=30)
        self.assertEqual((r.returncode, r.stderr), (0, TEXTS["en"]["IDS_SUCCESS_FINISH"] + "\n" +
                                                    proposal + "\n"))

        # Installed, but the starter file cannot be written (a folder in its
        # place): exit 2, and standard error says which file and why.
        os.remove(self.cfg)
        os.mkdir(self.cfg)
        r = self.run_headless("-S")
        self.assertEqual((r.returncode, r.stdout), (2, ""))
        self.assertEqual(r.stderr.splitlines()[:4],
                         [TEXTS["en"]["IDS_SUCCESS_FINISH"], proposal,
                          TEXTS["en"]["IDS_INSTALL_ERROR"], self.cfg])
        self.assertIn(self.cfg + ": " + os.strerror(21), r.stderr)  # EISDIR
        os.rmdir(self.cfg)

        # Standard error on a terminal: one progress line, rewritten in place.
        master, slave = os.openpty()
        r = subprocess.run([BIN, "usecwd", "-S"], cwd=self.kit, env=self.env(DISPLAY=""),
                           stdout=subprocess.PIPE, stderr=slave, timeout=30)
        os.close(slave)
        shown = b""
        while chunk := read_pty(master):
            shown += chunk
        os.close(master)
        self.assertEqual(r.returncode, 0)
        self.assertIn(b"\r0% ", shown)
        self.assertIn(b"template.xml\x1b[K", shown)
        done = (TEXTS["en"]["IDS_SUCCESS_FINISH"] + "\r\n" + proposal + "\r\n").encode()
        self.assertTrue(shown.endswith(b"\r\x1b[K" + done), shown[-80:])  # cleared, then told

        # Interrupted: rolled back, exit 3.
        other = os.path.join(self.root, "other")
        os.makedirs(other)
        self.starter(other)
        proc = self.spawn("-S", "-Len")
        wait_until(lambda: os.listdir(other), "the first installed file")
        proc.send_signal(signal.SIGINT)
        _, err = proc.communicate(timeout=20)
        self.assertEqual((proc.returncode, err), (3, TEXTS["en"]["IDS_CANCEL_FINISH"] + "\n"))
        self.assertEqual(os.listdir(other), [])

        # No usable target: exit 1, nothing written anywhere.
        self.starter("http://example.org/templates")
        r = self.run_headless("-S", "-Lru")
        self.assertEqual(r.returncode, 1)
        self.assertIn(TEXTS["ru"]["IDS_SETUP_EMPTYTARGET"] + "\n", r.stderr)
        self.assertEqual(os.listdir(self.kit), ["plom8.tpk"])

        write(os.path.join(self.kit, "plom8.tpk"), b"\xff" * 64)
        r = self.run_headless("-S", "-Lka")
        self.assertEqual(r.returncode, 1)
        described, cause = r.stderr.splitlines()  # the box's text, then the path and the reason
        self.assertEqual(described, TEXTS["ka"]["IDS_ERROR_DAMAGEDSOURCE"])
        self.assertIn(os.path.join(self.kit, "plom8.tpk"), cause)
        r = self.run_headless("-Len")  # no -S: nothing to show the wizard on
        self.assertEqual(r.returncode, 1)
        self.assertIn("-S", r.stderr)
        self.assertEqual(os.listdir(self.tmp), [])

    def test_interrupts_and_causes(self):
        # A signal while the package is unpacked or installed: exit 3, the
        # target as it was, no working file left.
        write(os.path.join(self.src, "big.bin"), bytes(96 << 20))
        self.package("en:Demo:Vendor:/docs/about it.html")
        target = os.path.join(self.root, "target")
        write(os.path.join(target, "mine.txt"), "mine\n")
        self.starter(target)
        proc = self.spawn("-S")
        wait_until(lambda: os.listdir(self.tmp), "the working file")
        proc.send_signal(signal.SIGTERM)
        proc.communicate(timeout=30)
        self.assertEqual(proc.returncode, 3)
        self.assertEqual(os.listdir(target), ["mine.txt"])
        self.assertEqual(os.listdir(self.tmp), [])

        # Killed outright mid-run: the next start, even one with no package
        # beside it, puts the target back and says so.
        os.remove(os.path.join(self.src, "big.bin"))
        self.package("en:Demo:Vendor:/docs/about it.html", files=30)
        write(os.path.join(target, "trade/retail/template.xml"), "older\n")
        os.utime(os.path.join(target, "trade/retail/template.xml"), (1, 1))
        before = {p: (os.stat(p).st_mtime_ns, open(p, "rb").read())
                  for p in (os.path.join(target, "mine.txt"),
                            os.path.join(target, "trade/retail/template.xml"))}
        proc = self.spawn("-S", out=subprocess.DEVNULL)
        wait_until(lambda: os.path.exists(os.path.join(target, "trade/retail/forms")), "a new folder")
        proc.kill()
        proc.wait(10)
        os.rename(os.path.join(self.kit, "plom8.tpk"), os.path.join(self.root, "plom8.tpk"))
        r = self.run_headless("-S")
        self.assertEqual(r.returncode, 1)
        self.assertIn("restored " + target, r.stderr)
        self.assertIn(TEXTS["en"]["IDS_ERROR_NOSOURCE"], r.stderr)
        self.assertEqual(sorted(os.listdir(target)), ["mine.txt", "trade"])
        self.assertEqual(os.listdir(os.path.join(target, "trade/retail")), ["template.xml"])
        for p, (mtime, data) in before.items():
            self.assertEqual((os.stat(p).st_mtime_ns, open(p, "rb").read()), (mtime, data))
        self.assertEqual(os.listdir(self.tmp), [])
        os.rename(os.path.join(self.root, "plom8.tpk"), os.path.join(self.kit, "plom8.tpk"))
        shutil.rmtree(os.path.join(target, "trade"))

        # The wizard ends cleanly on SIGTERM too, before any installation.
        self.start()
        self.wait_trace("page=welcome")
        self.proc.send_signal(signal.SIGTERM)
        self.assertEqual(self.proc.wait(20), 0)
        self.assertEqual(os.listdir(self.tmp), [])

        # A file where a folder must go: the described text, then the path and the reason.
        write(os.path.join(target, "trade"), "a file\n")
        r = self.run_headless("-S")
        self.assertEqual(r.returncode, 1)
        lines = r.stderr.splitlines()
        self.assertEqual(lines[0], TEXTS["en"]["IDS_INSTALL_ERROR"])
        self.assertIn(os.path.join(target, "trade"), lines[1])
        self.assertIn("Not a directory", lines[1])
        self.assertEqual(lines[-1], TEXTS["en"]["IDS_ERROR_FINISH"])
        self.assertEqual(sorted(os.listdir(target)), ["mine.txt", "trade"])
        self.assertEqual(os.listdir(self.tmp), [])

        # A package that cannot be read: the system's reason is given (root
        # runs this without its power to read any file).
        package = os.path.join(self.kit, "plom8.tpk")
        os.chmod(package, 0)
        as_user = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
        r = subprocess.run([*as_user, BIN, "usecwd", "-S"], cwd=self.kit, env=self.env(DISPLAY=""),
                           capture_output=True, text=True, timeout=30)
        os.chmod(package, 0o644)
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stderr.splitlines(), [TEXTS["en"]["IDS_ERROR_DAMAGEDSOURCE"],
                                                 f"cannot unpack {package}: {os.strerror(13)}"])

        # A disk that fills up while the package is unpacked is told as such:
        # TMPDIR is a 1 MB tmpfs in a mount namespace of the run's own, which
        # needs no root where user namespaces are allowed.
        if subprocess.run(["unshare", "-rm", "true"], capture_output=True).returncode:
            self.skipTest("no user namespace here for a small TMPDIR")
        write(os.path.join(self.src, "zeros.bin"), bytes(4 << 20))
        self.package("en:Demo:Vendor:/docs/about it.html")
        script = 'mount -t tmpfs -o size=1m tmpfs "$TMPDIR" && "$@"; s=$?; ls -A "$TMPDIR"; exit $s'
        r = subprocess.run(["unshare", "-rm", "sh", "-c", script, "sh", BIN, "usecwd", "-S"], cwd=self.kit,
                           env=self.env(DISPLAY=""), capture_output=True, text=True, timeout=30)
        self.assertEqual((r.returncode, r.stdout), (1, ""), "exit 1, and nothing left in TMPDIR")
        described, cause = r.stderr.splitlines()
        self.assertEqual(described, TEXTS["en"]["IDS_ERROR_NOSPACE"])
        self.assertIn(os.strerror(28), cause)  # ENOSPC
        self.assertIn(self.tmp, cause)

    def test_kept_backup(self):
        # The run fails, and its rollback finds the place of an old file taken:
        # exit 4, the backup folder named and kept, and no word that the
        # folder is unchanged. A later start never plays that backup again.
        shutil.rmtree(self.src, True)
        write(os.path.join(self.src, "a/old.txt"), "new\n")
        write(os.path.join(self.src, "z/deep/new.txt"), "new\n")
        subprocess.run([TPK_BUILD, self.src, "-o", os.path.join(self.kit, "plom8.tpk"), "-q"],
                       check=True, timeout=60)
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

        os.rmdir(old)
        write(os.path.join(self.dest, "z"), "in the way\n")  # a file where a folder must go
        r = self.run_headless("-S")
        self.assertNotIn("restored", r.stderr)
        self.assertEqual(r.returncode, 1)  # "z" is still in the way
        saved = os.path.join(self.tmp, kept[0], "a/old.txt")
        self.assertEqual(read(saved), "old\n")
        self.assertEqual(os.stat(saved).st_mtime, 1)
        self.assertEqual(os.listdir(self.tmp), kept)


if __name__ == "__main__":
    unittest.main()

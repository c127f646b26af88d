#!/usr/bin/env python3
"""Install-pipeline benchmark: our package load and installs side by side with
`tar -xzf` and `unzip -o -q` on the same content, and the headless
`installer -S` end to end. Normally started through bench/run.sh, which
builds the programs first; see bench/README.md.

Every extraction goes into a directory that was never used before, and
nothing is deleted until all timing of a shape is done: on this kind of file
system, creating many files soon after deleting many is several times slower.
"""

import argparse
import datetime
import json
import os
import platform
import shlex
import shutil
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
PACKAGE_NAME = "plom8.tpk"



def log(msg):
    print(msg, file=sys.stderr, flush=True)


# ---------------------------------------------------------------- running

class Outcome:
    def __init__(self, seconds, code, maxrss_kib, cpu, out, err):
        self.seconds, self.code, self.maxrss_kib, self.cpu, self.out, self.err = seconds, code, maxrss_kib, cpu, out, err


def run(cmd, cwd=None, env=None, scratch=None):
    """Runs `cmd` and returns its wall time, exit code, peak RSS (of the
    largest process in its tree, from wait4), CPU seconds (user + system of
    the process and the children it waited for) and output."""
    out_path = os.path.join(scratch, "last.out")
    err_path = os.path.join(scratch, "last.err")
    with open(out_path, "wb") as out, open(err_path, "wb") as err:
        start = time.perf_counter()
        proc = subprocess.Popen(cmd, cwd=cwd, env=env, stdout=out, stderr=err, stdin=subprocess.DEVNULL)
        _, status, usage = os.wait4(proc.pid, 0)
        seconds = time.perf_counter() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    with open(out_path, "rb") as f:
        out_text = f.read().decode("utf-8", "replace")
    with open(err_path, "rb") as f:
        err_text = f.read().decode("utf-8", "replace")
    return Outcome(seconds, proc.returncode, usage.ru_maxrss, usage.ru_utime + usage.ru_stime, out_text, err_text)


def must(outcome, what):
    if outcome.code != 0:
        raise SystemExit("%s failed (exit %d):\n%s%s" % (what, outcome.code, outcome.out[-2000:], outcome.err[-2000:]))
    return outcome


def driver_rows(outcome):
    rows = {}
    for line in outcome.out.splitlines():
        line = line.strip()
        if line.startswith("{"):
            r = json.loads(line)
            rows.setdefault(r["phase"], []).append(r)
    return rows


def count_processes(cmd, cwd, env, scratch):
    """Processes a command starts (not counting itself), from an strace of its
    execve calls; None when strace is missing."""
    if not shutil.which("strace"):
        return None
    trace = os.path.join(scratch, "strace.txt")
    o = run(["strace", "-f", "-qq", "-e", "trace=execve", "-e", "signal=none", "-o", trace] + cmd,
            cwd=cwd, env=env, scratch=scratch)
    if o.code != 0:
        return None
    pids = set()
    with open(trace, errors="replace") as f:
        for line in f:
            head = line.split(None, 1)
            if head and head[0].isdigit() and "execve(" in line and "= -1" not in line:
                pids.add(head[0])
    return max(0, len(pids) - 1)


# ---------------------------------------------------------------- corpus

def tool_path(name):
    return shutil.which(name)


def prepare_corpus(shape, args, tools):
    name = shape if args.scale == 1.0 else "%s-x%g" % (shape, args.scale)
    d = os.path.join(args.bench_dir, name)
    os.makedirs(d, exist_ok=True)
    o = run([sys.executable, os.path.join(HERE, "gen_corpus.py"), "--shape", shape, "--out", d,
             "--scale", str(args.scale)], scratch=d)
    must(o, "corpus generation")
    if o.out.strip():
        log(o.out.strip())
    with open(os.path.join(d, "tree.done")) as f:
        info = json.load(f)
    stamp = json.dumps({"tree": info, "level": args.level})
    stamp_path = os.path.join(d, "archives.stamp")
    old = open(stamp_path).read() if os.path.exists(stamp_path) else None
    tree = os.path.join(d, "tree")
    paths = {"tpk": os.path.join(d, PACKAGE_NAME), "tar": os.path.join(d, "content.tar.gz"),
             "zip": os.path.join(d, "content.zip")}
    if old != stamp or not os.path.exists(paths["tpk"]):
        log("%s: building %s (deflate level %d)" % (shape, PACKAGE_NAME, args.level))
        must(run([args.tpk_build, tree, "-o", paths["tpk"], "-q", "--level", str(args.level)], scratch=d),
             "tpk-build")
    if tools["tar"] and tools["gzip"] and (old != stamp or not os.path.exists(paths["tar"])):
        log("%s: building content.tar.gz" % shape)
        if args.level == 6:  # gzip's default level, the same as the package's
            cmd = ["tar", "-C", tree, "-czf", paths["tar"], "."]
        else:
            cmd = ["tar", "-C", tree, "--use-compress-program", "gzip -%d" % args.level, "-cf", paths["tar"], "."]
        must(run(cmd, scratch=d), "tar -c")
    if tools["zip"] and (old != stamp or not os.path.exists(paths["zip"])):
        log("%s: building content.zip" % shape)
        if os.path.exists(paths["zip"]):
            os.remove(paths["zip"])
        must(run(["zip", "-q", "-r", "-%d" % args.level, paths["zip"], "."], cwd=tree, scratch=d), "zip")
    with open(stamp_path, "w") as f:
        f.write(stamp)
    sizes = {k: os.path.getsize(p) if os.path.exists(p) else None for k, p in paths.items()}
    return d, tree, paths, info, sizes


def tree_listing(root):
    """relative path -> (size, mtime ns) for every regular file below root."""
    out = {}
    for base, dirs, files in os.walk(root):
        for n in files:
            p = os.path.join(base, n)
            st = os.lstat(p)
            out[os.path.relpath(p, root)] = (st.st_size, st.st_mtime_ns)
    return out


def same_names_and_sizes(reference, root):
    got = tree_listing(root)
    if set(got) != set(reference):
        missing = sorted(set(reference) - set(got))[:3]
        extra = sorted(set(got) - set(reference))[:3]
        return "names differ (missing %s, extra %s)" % (missing, extra)
    bad = [k for k in reference if reference[k][0] != got[k][0]]
    return "sizes differ: %s" % bad[:3] if bad else None


def find_installed_root(home, reference):
    """The directory below `home` that holds the installed tree, found by the
    full relative path of one reference file."""
    marker = sorted(reference)[0]
    for base, dirs, files in os.walk(home):
        for n in files:
            p = os.path.join(base, n)
            if p.endswith("/" + marker):
                return p[: -len(marker) - 1]
    return None


# ---------------------------------------------------------------- timing

class Shape:
    def __init__(self, name):
        self.name = name
        self.samples = {}  # row key -> list of seconds
        self.extra = {}    # row key -> dict of notes (rss, commands, ...)
        self.facts = {}
        self.notes = []

    def add(self, key, seconds, **extra):
        self.samples.setdefault(key, []).append(seconds)
        e = self.extra.setdefault(key, {})
        for k, v in extra.items():
            e.setdefault(k, []).append(v)


def bench_shape(shape, args, tools, scratch_root):
    d, tree, paths, info, sizes = prepare_corpus(shape, args, tools)
    res = Shape(shape)
    res.facts.update(info)
    res.facts["archive_bytes"] = sizes
    reference = tree_listing(tree)

    scratch = os.path.join(scratch_root, shape)
    tmpdir = os.path.join(scratch, "tmp")
    os.makedirs(tmpdir)
    env = dict(os.environ, LC_ALL="C.UTF-8", TMPDIR=tmpdir, HOME=os.path.join(scratch, "home"))
    env.pop("DISPLAY", None)
    env.pop("WAYLAND_DISPLAY", None)
    os.makedirs(env["HOME"])

    # Warm the page cache with the three archives, as a second run would find them.
    for p in paths.values():
        if os.path.exists(p):
            with open(p, "rb") as f:
                while f.read(1 << 24):
                    pass

    def target(kind, i):
        return os.path.join(scratch, "%s-%d" % (kind, i))

    def driver(*action):
        o = run([args.bench_install, paths["tpk"]] + list(action), env=env, scratch=scratch)
        rows = driver_rows(o)
        if o.code != 0 or "load" not in rows:
            raise SystemExit("bench_install %s failed (exit %d):\n%s%s" % (" ".join(action), o.code, o.out, o.err))
        if rows["load"][0].get("error"):
            raise SystemExit("package load failed: %s" % rows["load"][0]["error"])
        return o, rows

    def ours(kind, flag, i, where=None, before=()):
        o, rows = driver(*before, flag, target(where or kind, i))
        load, unload = rows["load"][0], rows["unload"][0]
        res.facts.setdefault("load_row", load)
        res.add("load", load["seconds"], cpu=load["cpu_seconds"], rss=load["rss_peak_kib"], heap=load["heap_peak_bytes"],
                commands=load["commands"], verbs=load["command_verbs"])
        phase = rows[{"--fresh": "fresh", "--floor": "floor", "--reinstall": "reinstall", "--older": "older"}[flag]][0]
        copy = phase.get("copy_seconds", phase["seconds"])
        total = load["seconds"] + copy + unload["seconds"]
        cpu = load["cpu_seconds"] + phase["cpu_seconds"] + unload["cpu_seconds"]
        res.add(kind, total, cpu=cpu, own_load=load["seconds"], copy=copy, pause=phase.get("pause_seconds", 0.0),
                rss=phase["rss_peak_kib"],
                heap=phase["heap_peak_bytes"], commands=phase["commands"], verbs=phase["command_verbs"],
                written=phase.get("files_written"), unload=unload["seconds"], process_rss=rows["process"][0]["max_rss_kib"],
                result=phase.get("result", 0), load_commands=load["commands"] + unload["commands"])
        if phase.get("result", 0) != 0:
            raise SystemExit("%s install failed with code %s" % (kind, phase["result"]))
        if "pause_seconds" in phase:
            res.add("pause", phase["pause_seconds"], measured=phase["pause_measured"])

    def peer(kind, cmd, i, pre=None):
        if pre:
            pre()
        o = run(cmd, env=env, scratch=scratch)
        must(o, " ".join(cmd))
        res.add(kind, o.seconds, cpu=o.cpu, rss=o.maxrss_kib)

    def tar_step(i):
        dest = target("tar", i)
        peer("tar", ["tar", "-xzf", paths["tar"], "-C", dest], i, pre=lambda: os.makedirs(dest))

    def unzip_step(i):
        peer("unzip", ["unzip", "-o", "-q", paths["zip"], "-d", target("unzip", i)], i)

    def e2e_dir(kind, i):
        run_dir = target(kind, i)
        os.makedirs(os.path.join(run_dir, "home"))
        os.link(paths["tpk"], os.path.join(run_dir, PACKAGE_NAME))
        e = dict(env, HOME=os.path.join(run_dir, "home"))
        return run_dir, e

    def e2e_step(i):
        run_dir, e = e2e_dir("e2e", i)
        o = run([args.installer, "usecwd", "-S"], cwd=run_dir, env=e, scratch=scratch)
        if o.code != 0:
            raise SystemExit("installer -S failed (exit %d): %s" % (o.code, o.err[-2000:]))
        res.add("e2e", o.seconds, cpu=o.cpu, rss=o.maxrss_kib)

    def settle():
        # Every timed step starts from the same memory state: written pages on
        # disk, the page cache emptied, the three archives read back into it.
        # Without this, the gigabytes of copies that pile up during a run make
        # the later steps pay for the kernel's reclaim of old pages.
        os.sync()
        if not args.drop_caches:
            return
        with open("/proc/sys/vm/drop_caches", "w") as f:
            f.write("1\n")
        for path in paths.values():
            if os.path.exists(path):
                with open(path, "rb") as f:
                    while f.read(1 << 20):
                        pass

    steps = [("fresh", lambda i: ours("fresh", "--fresh", i)),
             ("floor", lambda i: ours("floor", "--floor", i)),
             ("floorfull", lambda i: ours("floorfull", "--floor", i, before=("--floor-reads", "full"))),
             ("floorsmall", lambda i: ours("floorsmall", "--floor", i, before=("--floor-writes", "262144")))]
    if tools["tar"] and tools["gzip"]:
        steps.append(("tar", tar_step))
    else:
        res.notes.append("tar -xzf: not measured (%s missing)" % ("tar" if not tools["tar"] else "gzip"))
    if tools["unzip"] and tools["zip"]:
        steps.append(("unzip", unzip_step))
    else:
        res.notes.append("unzip -o -q: not measured (%s missing)" % ("unzip" if not tools["unzip"] else "zip"))
    if args.installer:
        steps.append(("e2e", e2e_step))
    else:
        res.notes.append("installer -S: not measured (no installer program built: %s)" % args.installer_note)

    # Round 1: fresh installs and the peers, one of each per run, the order
    # turned by one step each run so that no tool always follows the same one.
    for i in range(args.runs):
        order = steps[i % len(steps):] + steps[:i % len(steps)]
        for name, step in order:
            settle()
            step(i)
        log("%s run %d/%d: %s" % (shape, i + 1, args.runs, ", ".join(
            "%s %.3fs" % (n, res.samples[n][-1]) for n, _ in steps)))
    # Round 2: up-to-date reinstalls over the fresh copies.
    for i in range(args.runs):
        settle()
        ours("reinstall", "--reinstall", i, where="fresh")
    log("%s reinstall: %s" % (shape, " ".join("%.3f" % s for s in res.samples["reinstall"])))
    # Round 3: installs over older copies, all prepared first. Each of these
    # runs deletes the files it replaced when it ends (the journal's backup),
    # so the next one can wait for the file system to settle.
    for i in range(args.runs):
        driver("--prepare-older", target("older", i))
    for i in range(args.runs):
        settle()
        if i and args.settle:
            time.sleep(args.settle)
        ours("older", "--older", i)
    log("%s over older: %s" % (shape, " ".join("%.3f" % s for s in res.samples["older"])))

    # Checks, after all timing: our copies byte for byte, the others by name and size.
    o, rows = driver("--verify", target("fresh", 0), "--verify", target("older", 0), "--verify", target("floor", 0),
                     "--verify", target("floorfull", 0), "--verify", target("floorsmall", 0))
    bad = [r for r in rows["verify"] if r["mismatches"]]
    if bad:
        raise SystemExit("installed copies differ from the package: %s\n%s" % (bad, o.err))
    res.facts["verified"] = ["fresh", "older", "floor"]  # the second reference copy too
    for kind in ("tar", "unzip"):
        if kind in res.samples:
            why = same_names_and_sizes(reference, target(kind, 0))
            if why:
                raise SystemExit("%s extraction differs from the tree: %s" % (kind, why))
            res.facts["verified"].append(kind)
    if "e2e" in res.samples:
        home = os.path.join(target("e2e", 0), "home")
        root = find_installed_root(home, reference)
        why = "no installed tree found below %s" % home if root is None else same_names_and_sizes(reference, root)
        if why:
            raise SystemExit("installer -S: %s" % why)
        got = tree_listing(root)
        if any(got[k][1] // 100 != reference[k][1] // 100 for k in reference):
            raise SystemExit("installer -S: file times differ from the package")
        res.facts["verified"].append("e2e")
        res.facts["e2e_root"] = os.path.relpath(root, home)

    # Processes started by the peers and by the whole installer (strace, once each).
    procs = {}
    if tools["tar"] and tools["gzip"]:
        dest = target("tar-strace", 0)
        os.makedirs(dest)
        procs["tar"] = count_processes(["tar", "-xzf", paths["tar"], "-C", dest], None, env, scratch)
    if tools["unzip"] and tools["zip"]:
        procs["unzip"] = count_processes(["unzip", "-o", "-q", paths["zip"], "-d", target("unzip-strace", 0)],
                                         None, env, scratch)
    if args.installer:
        run_dir, e = e2e_dir("e2e-strace", 0)
        procs["e2e"] = count_processes([args.installer, "usecwd", "-S"], run_dir, e, scratch)
    res.facts["processes"] = procs
    if not shutil.which("strace"):
        res.notes.append("child processes of tar, unzip and installer -S: not counted (strace missing)")

    if not args.keep:
        start = time.perf_counter()
        shutil.rmtree(scratch)
        res.facts["cleanup_seconds"] = time.perf_counter() - start
    return res


# ---------------------------------------------------------------- report

def med(xs):
    return statistics.median(xs)


def fmt_s(x):
    return "%.3f" % x if x < 100 else "%.1f" % x


def mib(kib):
    return "%.0f MiB" % (kib / 1024.0) if kib >= 10240 else "%.1f MiB" % (kib / 1024.0)


def verbs_text(v):
    return ", ".join("%s %d" % (k, n) for k, n in sorted(v.items())) if v else "none"


def report(shape, args):
    s, x, f = shape.samples, shape.extra, shape.facts
    lines = []
    files, dirs = f["files"], f["directories"]
    lines.append("### %s: %d files, %d directories, %.1f MB (package %.1f MB, tar.gz %s, zip %s)" % (
        shape.name, files, dirs, f["bytes"] / 1e6, f["archive_bytes"]["tpk"] / 1e6,
        "%.1f MB" % (f["archive_bytes"]["tar"] / 1e6) if f["archive_bytes"]["tar"] else "-",
        "%.1f MB" % (f["archive_bytes"]["zip"] / 1e6) if f["archive_bytes"]["zip"] else "-"))
    lines.append("")
    tar_m = med(s["tar"]) if "tar" in s else None
    unzip_m = med(s["unzip"]) if "unzip" in s else None
    pause_m = med(s["pause"]) if "pause" in s else 0.0

    def ratio(v, base):
        return "%.2f" % (v / base) if base else "-"

    lines.append("| what (seconds, %d runs) | min | median | max | x tar | x unzip | CPU s | peak RSS | processes / shell commands | files written |" % args.runs)
    lines.append("|---|---:|---:|---:|---:|---:|---:|---:|---|---:|")

    def row(label, key, values=None, rss=None, cmds="", written="", ratios=True):
        vals = values if values is not None else s.get(key)
        if not vals:
            return
        m = med(vals)
        cpu = x.get(key, {}).get("cpu") if values is None else None
        lines.append("| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |" % (
            label, fmt_s(min(vals)), fmt_s(m), fmt_s(max(vals)), ratio(m, tar_m) if ratios else "",
            ratio(m, unzip_m) if ratios else "", fmt_s(med(cpu)) if cpu else "", rss or "", cmds, written))

    def ours_cmds(key):
        v = x[key]["verbs"][0]
        return "%d: %s (+%d for load/unload)" % (x[key]["commands"][0], verbs_text(v), x[key]["load_commands"][0])

    load_rss = max(x["load"]["rss"])
    row("package load (inflate into working file, read catalogue)", "load", rss=mib(load_rss),
        cmds="%d: %s" % (x["load"]["commands"][0], verbs_text(x["load"]["verbs"][0])))
    for key, label in (("fresh", "fresh install: load + copy (pause excluded)"),
                       ("older", "install over an older copy: load + copy (pause excluded)"),
                       ("reinstall", "up-to-date reinstall: load + copy (pause excluded)"),
                       ("floor", "reference: load + plain-syscall copy, no shell"),
                       ("floorfull", "  the same, each read asking for the whole 1 MiB buffer as the installer's do"),
                       ("floorsmall", "  the same, each 1 MiB written as four 256 KiB writes")):
        if key in s:
            written = x[key]["written"]
            wtext = ("%d" % written[0]) if written[0] is not None and len(set(written)) == 1 else (
                "%s" % "/".join(str(w) for w in written) if written[0] is not None else "")
            row(label, key, rss=mib(max(x[key]["process_rss"])), cmds=ours_cmds(key), written=wtext)
    if "fresh" in s:
        row("  of which copy only (fresh install)", None, values=x["fresh"]["copy"])
    row("  final pause of each install (not in the rows above)", "pause", ratios=False)
    procs = f.get("processes", {})

    def pcount(k):
        v = procs.get(k)
        return "%d processes" % v if v is not None else "not counted"
    if "tar" in s:
        row("`tar -xzf`", "tar", rss=mib(max(x["tar"]["rss"])), cmds=pcount("tar"), written=str(files))
    if "unzip" in s:
        row("`unzip -o -q`", "unzip", rss=mib(max(x["unzip"]["rss"])), cmds=pcount("unzip"), written=str(files))
    if "e2e" in s:
        row("`installer usecwd -S` end to end, headless (pause included)", "e2e", rss=mib(max(x["e2e"]["rss"])),
            cmds=pcount("e2e"), written=str(files))
        row("  the same less the measured pause", None, values=[v - pause_m for v in s["e2e"]])
    for n in shape.notes:
        lines.append("")
        lines.append("Note: " + n)
    lines.append("")

    # Memory.
    heap = {k: max(x[k]["heap"]) for k in ("load", "fresh", "older", "reinstall") if k in x}
    lines.append("Heap peak per phase (all allocations of the process): " + ", ".join(
        "%s %.2f MiB" % (k, v / 1048576.0) for k, v in heap.items()) +
        "; copy buffer %.2f MiB; package %.1f MB." % (f["load_row"]["copy_buffer_bytes"] / 1048576.0,
                                                      f["archive_bytes"]["tpk"] / 1e6))
    lines.append("")

    # Targets.
    checks = []
    fresh_m = med(s["fresh"]) if "fresh" in s else None
    if shape.name == "release" and fresh_m is not None:
        for peer_m, limit, name in ((tar_m, 0.8, "tar -xzf"), (unzip_m, 0.6, "unzip -o -q")):
            if peer_m is None:
                checks.append(("fresh install <= %.1f x %s" % (limit, name), None, "%s not measured" % name))
            else:
                checks.append(("fresh install <= %.1f x `%s`" % (limit, name), fresh_m <= limit * peer_m,
                               "%.3f s vs %.3f s (%.2f x)" % (fresh_m, limit * peer_m, fresh_m / peer_m)))
    if "fresh" in x:
        mk = max(v.get("mkdir", 0) for v in x["fresh"]["verbs"])
        others = max(sum(n for k, n in v.items() if k != "mkdir") for v in x["fresh"]["verbs"])
        if shape.name == "library" or args.all_targets:
            checks.append(("fresh: mkdir -p at most once per directory", mk <= dirs + 2,
                           "%d mkdir for %d directories (+ the target and the journal's backup directory)" % (mk, dirs)))
            checks.append(("fresh: no command for a file that does not exist yet", others <= 1,
                           "%d other commands for %d new files (%s)" % (others, files, verbs_text(x["fresh"]["verbs"][0]))))
            floor_m = med(s["floor"])
            limit = 1.3 * (floor_m + 0.003 * dirs)
            checks.append(("fresh install <= 1.3 x (own inflate-and-copy + 3 ms per directory)", fresh_m <= limit,
                           "%.3f s vs 1.3 x (%.3f + %.3f) = %.3f s (%.2f x the limit)" % (
                               fresh_m, floor_m, 0.003 * dirs, limit, fresh_m / limit)))
    if "reinstall" in s:
        written = max(w for w in x["reinstall"]["written"])
        cmds = max(x["reinstall"]["commands"])
        mv = max(v.get("mv", 0) for v in x["reinstall"]["verbs"])
        checks.append(("up-to-date: no file written", written == 0, "%d of %d files written" % (written, files)))
        checks.append(("up-to-date: no command for skipped files", mv == 0 and cmds <= 2,
                       "%d commands for %d skipped files (%s)" % (cmds, files, verbs_text(x["reinstall"]["verbs"][0]))))
        load_m = med(s["load"])
        allowance = 0.020 * files / 1000.0
        limit = 1.2 * load_m + allowance
        rm = med(s["reinstall"])
        # The same, each reinstall against the load inside it, which shares its
        # moment (and so the machine's other load) with it.
        own = med([(t - allowance) / l for t, l in zip(s["reinstall"], x["reinstall"]["own_load"])])
        checks.append(("up-to-date reinstall <= 1.2 x its load + 20 ms per 1,000 files", own <= 1.2,
                       "each run against the load in the same process: (total - %.3f) / load = %.2f, median; "
                       "medians of all runs: %.3f s vs 1.2 x %.3f + %.3f = %.3f s" % (
                           allowance, own, rm, load_m, allowance, limit)))
    for name, ok, detail in checks:
        mark = "n/a" if ok is None else ("met" if ok else "MISSED")
        lines.append("- %s: **%s** (%s)" % (name, mark, detail))
    shape.checks = checks
    lines.append("")
    if f.get("verified"):
        lines.append("Checked after timing: %s." % ", ".join(
            {"fresh": "fresh install byte for byte and time for time", "older": "install over older copy likewise",
             "floor": "both reference copies likewise", "tar": "tar by names and sizes", "unzip": "unzip by names and sizes",
             "e2e": "installer -S by names, sizes and times (in ~/%s)" % f.get("e2e_root", "?")}[v]
            for v in f["verified"]))
    if "cleanup_seconds" in f:
        lines.append("Deleting the %d extracted copies afterwards took %.1f s." % (
            sum(len(v) for k, v in s.items() if k in ("fresh", "floor", "floorfull", "floorsmall", "tar", "unzip", "e2e", "older")),
            f["cleanup_seconds"]))
    lines.append("")
    return lines


def machine_lines(args, loads, started):
    cpu = "?"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    fs = subprocess.run(["df", "--output=fstype", args.bench_dir], capture_output=True, text=True).stdout.split()[-1:]
    fs = fs[0] if fs else "?"
    dev = subprocess.run(["df", "--output=source", args.bench_dir], capture_output=True, text=True).stdout.split()[-1:]
    mem = "?"
    with open("/proc/meminfo") as f:
        mem = "%.0f GiB" % (int(f.readline().split()[1]) / 1048576.0)

    def first_line(cmd):
        try:
            r = subprocess.run(cmd, capture_output=True, text=True)
            return (r.stdout or r.stderr).splitlines()[0].strip()
        except (OSError, IndexError):
            return "missing"
    return [
        "- started: %s; commit %s" % (started.strftime("%Y-%m-%d %H:%M"), commit_id()),
        "- machine: %d cores (nproc), %s, %s memory; kernel %s; file system %s on %s" % (
            os.cpu_count() or 0, cpu, mem, platform.release(), fs, dev[0] if dev else "?"),
        "- load average before / after: %s / %s" % (loads[0], loads[1]),
        "- page cache: %s" % ("emptied before every timed step, the archives read back in (warm input, "
                              "no piled-up copies)" if args.drop_caches else "left as it is between steps"),
        "- peers: %s; %s; %s" % (first_line(["tar", "--version"]), first_line(["gzip", "--version"]),
                                 first_line(["unzip", "-v"])),
        "- command: `bench/run.sh --runs %d --shape %s%s`" % (
            args.runs, args.shape, "" if args.scale == 1.0 else " --scale %g" % args.scale),
    ]


def commit_id():
    r = subprocess.run(["git", "-C", ROOT, "log", "-1", "--format=%h"], capture_output=True, text=True)
    dirty = subprocess.run(["git", "-C", ROOT, "status", "--porcelain", "--untracked-files=no"],
                           capture_output=True, text=True).stdout.strip()
    return (r.stdout.strip() or "?") + (" with local changes" if dirty else "")


def loadavg():
    with open("/proc/loadavg") as f:
        return " ".join(f.read().split()[:3])


def main():
    ap = argparse.ArgumentParser(description="Install pipeline benchmark (see bench/README.md).")
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--shape", choices=["release", "library", "all"], default="all")
    ap.add_argument("--scale", type=float, default=1.0, help="shrink the corpora (quick trials)")
    ap.add_argument("--level", type=int, default=6, help="deflate level of all three archives")
    ap.add_argument("--settle", type=float, default=0.0,
                    help="seconds to wait before each install over an older copy after the first")
    ap.add_argument("--keep", action="store_true", help="keep the extracted copies")
    ap.add_argument("--no-drop-caches", dest="drop_caches", action="store_false",
                    help="do not empty the page cache before each timed step (it is emptied only "
                         "when /proc/sys/vm/drop_caches is writable, that is as root)")
    ap.add_argument("--all-targets", action="store_true", help="check the library targets on every shape")
    ap.add_argument("--bench-dir", default=os.environ.get("BENCH_DIR", os.path.join(HERE, "out")))
    ap.add_argument("--build-dir", required=True)
    ap.add_argument("--report", help="also write the report (markdown) to this file")
    args = ap.parse_args()
    args.drop_caches = args.drop_caches and os.access("/proc/sys/vm/drop_caches", os.W_OK)
    args.bench_dir = os.path.abspath(args.bench_dir)
    if args.runs < 1:
        ap.error("--runs must be at least 1")

    b = args.build_dir
    args.bench_install = os.path.join(b, "bench", "bench_install")
    args.tpk_build = os.path.join(b, "tools", "tpk-build")
    for p in (args.bench_install, args.tpk_build):
        if not os.access(p, os.X_OK):
            raise SystemExit("missing %s: build it first (bench/run.sh does)" % p)
    args.installer = os.path.join(b, "app", "installer")
    args.installer_note = ""
    if not os.access(args.installer, os.X_OK):
        args.installer_note = "%s does not exist" % args.installer
        args.installer = None
    tools = {t: tool_path(t) for t in ("tar", "gzip", "zip", "unzip")}

    os.makedirs(args.bench_dir, exist_ok=True)
    scratch_root = os.path.join(args.bench_dir, "scratch", "%s-%d" % (time.strftime("%Y%m%d-%H%M%S"), os.getpid()))
    os.makedirs(scratch_root)
    loads = [loadavg(), None]
    started = datetime.datetime.now()
    shapes = ["release", "library"] if args.shape == "all" else [args.shape]
    results = [bench_shape(sh, args, tools, scratch_root) for sh in shapes]
    loads[1] = loadavg()
    if not args.keep:
        shutil.rmtree(scratch_root, ignore_errors=True)

    out = ["## Install pipeline benchmark", ""] + machine_lines(args, loads, started) + [""]
    missing = [t for t, p in tools.items() if not p]
    if missing:
        out += ["Missing peer tools: %s." % ", ".join(missing), ""]
    for r in results:
        out += report(r, args)
    text = "\n".join(out)
    print(text)
    if args.report:
        with open(args.report, "w") as f:
            f.write(text + "\n")
    raw = os.path.join(args.bench_dir, "results-%s.json" % time.strftime("%Y%m%d-%H%M%S"))
    with open(raw, "w") as f:
        json.dump({r.name: {"samples": r.samples, "extra": r.extra, "facts": r.facts, "notes": r.notes}
                   for r in results}, f, indent=1, default=str)
    log("raw figures: %s" % raw)
    missed = [name for r in results for name, ok, _ in getattr(r, "checks", []) if ok is False]
    return 3 if missed else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Reading and writing starter configuration files of growing size.

Builds bench/starter/starter_read.cpp against the working tree's compat/ and
starter/ sources (and, with --peer REV, against those of revision REV as the
peer), writes starter files of the given line counts and one of --big-mb
megabytes, and prints a markdown table of median read times and the ratio of
the peer's time to the current one.

    bench/starter/bench_starter.py                      # 10k, 20k lines and 100 MB
    bench/starter/bench_starter.py --peer dc09108 --peer-lines 5000,10000,20000
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
KEY = "ConfigurationTemplatesLocation"


def log(*parts):
    print(*parts, file=sys.stderr, flush=True)


def build(src_root, output):
    sources = [os.path.join(HERE, "starter_read.cpp")]
    for folder in ("compat", "starter"):
        d = os.path.join(src_root, folder)
        sources += [os.path.join(d, f) for f in sorted(os.listdir(d)) if f.endswith(".cpp")]
    subprocess.run(["g++", "-std=c++17", "-O2", "-I", src_root, *sources, "-o", output,
                    "-lpthread"], check=True)


def peer_tree(rev, work):
    """The compat/ and starter/ folders of `rev`, exported into `work`."""
    archive = subprocess.run(["git", "-C", ROOT, "archive", rev, "compat", "starter"],
                             check=True, capture_output=True).stdout
    subprocess.run(["tar", "-x", "-C", work], input=archive, check=True)
    return work


def write_starter(path, lines=None, megabytes=None):
    """Key lines as the starter writes them: one template directory line in
    four, the other three distinct keys, about 45 bytes a line."""
    limit = megabytes * 1000 * 1000 if megabytes else None
    size = 0
    with open(path, "w", encoding="utf-8") as f:
        i = 0
        while (lines is not None and i < lines) or (limit is not None and size < limit):
            if i % 4 == 0:
                line = "%s=/home/u/tmplts/%06d\n" % (KEY, i)
            else:
                line = "Setting%06d=/opt/plom8/value/%012d\n" % (i, i)
            f.write(line)
            size += len(line)
            i += 1
    return os.path.getsize(path)


def run(binary, path, runs, timeout):
    out = path + ".out"
    try:
        result = subprocess.run([binary, path, str(runs), out], check=True, capture_output=True,
                                text=True, timeout=timeout,
                                env=dict(os.environ, LC_ALL="C.UTF-8"))
    except subprocess.TimeoutExpired:
        return None
    finally:
        if os.path.exists(out):
            os.remove(out)
    return json.loads(result.stdout)


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    p.add_argument("--lines", default="10000,20000", help="line counts (comma separated)")
    p.add_argument("--big-mb", type=int, default=100, help="size of the big file; 0 for none")
    p.add_argument("--runs", type=int, default=5, help="reads per file (the median is shown)")
    p.add_argument("--peer", help="git revision whose sources are the peer")
    p.add_argument("--peer-lines", default="", help="line counts for the peer (default --lines)")
    p.add_argument("--peer-runs", type=int, default=1)
    p.add_argument("--peer-timeout", type=float, default=600, help="seconds per peer file")
    p.add_argument("--out", default=os.path.join(ROOT, "bench", "out", "starter"))
    args = p.parse_args()

    os.makedirs(args.out, exist_ok=True)
    current = os.path.join(args.out, "starter_read")
    log("building", current)
    build(ROOT, current)
    peer = None
    if args.peer:
        peer = os.path.join(args.out, "starter_read_peer")
        with tempfile.TemporaryDirectory() as work:
            log("building the peer from", args.peer)
            build(peer_tree(args.peer, work), peer)

    lines = [int(n) for n in args.lines.split(",") if n]
    peer_lines = [int(n) for n in (args.peer_lines or args.lines).split(",") if n]
    files = [("%d lines" % n, n, None) for n in sorted(set(lines) | (set(peer_lines) if peer else set()))]
    if args.big_mb:
        files.append(("%d MB" % args.big_mb, None, args.big_mb))

    rows = []
    for label, n, mb in files:
        path = os.path.join(args.out, "starter-%s.cfg" % label.replace(" ", ""))
        size = write_starter(path, n, mb)
        row = {"file": label, "bytes": size}
        if n is None or n in lines or mb:
            log("current:", label)
            row["current"] = run(current, path, args.runs, None)
        if peer and n in peer_lines:
            log("peer:", label)
            row["peer"] = run(peer, path, args.peer_runs, args.peer_timeout)
        os.remove(path)
        rows.append(row)

    with open(os.path.join(args.out, "results.json"), "w") as f:
        json.dump(rows, f, indent=1)
    print("| file | size | keys | values | read, current (median of %d) | write, current |"
          " read, peer | peer / current |" % args.runs)
    print("|---|---:|---:|---:|---:|---:|---:|---:|")
    for r in rows:
        c, q = r.get("current"), r.get("peer", "-")
        cur = "%.3f s" % c["read_median_s"] if c else "-"
        wr = "%.3f s" % c["write_s"] if c else "-"
        if q is None:
            peer_text, ratio = "> %d s" % args.peer_timeout, "-"
        elif q == "-":
            peer_text, ratio = "-", "-"
        else:
            peer_text = "%.2f s" % q["read_median_s"]
            ratio = "%.0f x" % (q["read_median_s"] / c["read_median_s"]) if c else "-"
        some = c or (q if isinstance(q, dict) else None)
        print("| %s | %.1f MB | %s | %s | %s | %s | %s | %s |" % (
            r["file"], r["bytes"] / 1e6, some["keys"] if some else "-",
            some["values"] if some else "-", cur, wr, peer_text, ratio))


if __name__ == "__main__":
    main()

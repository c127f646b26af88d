#!/usr/bin/env python3
"""Times this tree's engine against another commit's, alternately, in one run.

    bench/compare_base.py --base COMMIT [--runs N] [--shape release|library|all]

Builds bench_install of COMMIT (exported with git archive into build-base-src,
built in build-base) and of the working tree (build-bench), generates the
corpora as bench/run.sh does, and for each run times, with both programs one
after the other (the order turning each run): a fresh install and an install
over an older copy. Prints the medians and the ratio ours / base per shape.
"""

import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)


def sh(cmd, **kw):
    subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL, **kw)


def build(src, out, targets):
    if not os.path.exists(os.path.join(out, "CMakeCache.txt")):
        sh(["cmake", "-S", src, "-B", out, "-DCMAKE_BUILD_TYPE=RelWithDebInfo"])
    sh(["cmake", "--build", out, "-j2", "--target"] + targets)


def phase_seconds(binary, tpk, action, where):
    o = subprocess.run([binary, tpk, action, where], check=True, capture_output=True, text=True)
    for line in o.stdout.splitlines():
        row = json.loads(line)
        if row.get("phase") == action.lstrip("-"):
            if row.get("result", 0) not in (0, "0"):
                raise SystemExit("%s %s failed: %s" % (binary, action, line))
            return row["seconds"]
    raise SystemExit("no %s phase from %s" % (action, binary))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--base", required=True)
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--shape", choices=["release", "library", "all"], default="all")
    ap.add_argument("--scale", type=float, default=1.0)
    args = ap.parse_args()

    base_src = os.path.join(ROOT, "build-base-src")
    if os.path.exists(base_src):
        shutil.rmtree(base_src)
    os.makedirs(base_src)
    archive = subprocess.run(["git", "-C", ROOT, "archive", args.base], check=True, capture_output=True)
    subprocess.run(["tar", "-x", "-C", base_src], input=archive.stdout, check=True)
    build(base_src, os.path.join(ROOT, "build-base"), ["bench_install"])
    build(ROOT, os.path.join(ROOT, "build-bench"), ["bench_install", "tpk-build"])
    programs = {"base": os.path.join(ROOT, "build-base", "bench", "bench_install"),
                "ours": os.path.join(ROOT, "build-bench", "bench", "bench_install")}
    tpk_build = os.path.join(ROOT, "build-bench", "tools", "tpk-build")

    shapes = ["release", "library"] if args.shape == "all" else [args.shape]
    for shape in shapes:
        name = shape if args.scale == 1.0 else "%s-x%g" % (shape, args.scale)
        d = os.path.join(HERE, "out", name)
        os.makedirs(d, exist_ok=True)
        sh([sys.executable, os.path.join(HERE, "gen_corpus.py"), "--shape", shape, "--out", d,
            "--scale", str(args.scale)])
        tpk = os.path.join(d, "plom8.tpk")
        if not os.path.exists(tpk):
            sh([tpk_build, os.path.join(d, "tree"), "-o", tpk, "-q"])
        samples = {(who, kind): [] for who in programs for kind in ("fresh", "older")}
        scratch = tempfile.mkdtemp(prefix="cmp-", dir=os.path.join(HERE, "out"))
        try:
            for i in range(args.runs):
                order = list(programs) if i % 2 == 0 else list(programs)[::-1]
                for who in order:
                    fresh = os.path.join(scratch, "%s-fresh-%d" % (who, i))
                    samples[(who, "fresh")].append(phase_seconds(programs[who], tpk, "--fresh", fresh))
                    older = os.path.join(scratch, "%s-older-%d" % (who, i))
                    sh([programs[who], tpk, "--prepare-older", older])
                    samples[(who, "older")].append(phase_seconds(programs[who], tpk, "--older", older))
                print("%s run %d done" % (shape, i + 1), file=sys.stderr)
        finally:
            shutil.rmtree(scratch, ignore_errors=True)
        print("| shape | install | base median s | ours median s | ours / base |")
        print("|---|---|---:|---:|---:|")
        for kind in ("fresh", "older"):
            b = statistics.median(samples[("base", kind)])
            o = statistics.median(samples[("ours", kind)])
            print("| %s | %s | %.3f | %.3f | %.3f |" % (shape, kind, b, o, o / b))
        sys.stdout.flush()


if __name__ == "__main__":
    main()

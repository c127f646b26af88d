#!/usr/bin/env python3
"""Recovery benchmark: undoing a killed run against the run itself.

Two cases, each timed --runs times in one process per run (bench_install):

  fresh 12,000   a first install of 12,000 small files in 400 new folders;
                 the run, then a run killed at 70 % and the next start's
                 recovery (which removes the folder the run made)
  older 5,000    the library corpus (bench/out/library, made by bench/run.sh)
                 installed over an older copy; the run, then a run killed at
                 70 % and the recovery (which moves every old file back)

The report gives the medians and the ratio of recovery to the whole run.
Usage: bench_recovery.py [--runs N] [--build-dir DIR] [--work DIR]
"""
import argparse
import json
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile

REPO = os.path.abspath(os.path.join(os.path.dirname(__file__), '..', '..'))


def small_tree(root, files=12000, folders=400, seed=7):
    rnd = random.Random(seed)
    dirs = ['d%03d/s%d' % (i, i % 7) for i in range(folders)]
    for i in range(files):
        path = os.path.join(root, dirs[i % folders], 'f%05d.cfg' % i)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, 'wb') as f:
            f.write(rnd.randbytes(64) * rnd.randint(4, 40))
        os.utime(path, ns=(1600000000_000000000 + i * 100, 1600000000_000000000 + i * 100))


def phases(bench, package, *actions):
    out = subprocess.run([bench, package, *actions], check=True, capture_output=True, text=True,
                         env=dict(os.environ, TMPDIR=os.environ['BENCH_TMP'])).stdout
    return {r['phase']: r for r in map(json.loads, out.splitlines())}


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('--runs', type=int, default=3)
    ap.add_argument('--build-dir', default=os.path.join(REPO, 'build-bench'))
    ap.add_argument('--work', default=os.path.join(REPO, 'bench', 'out', 'recovery'))
    args = ap.parse_args()
    bench = os.path.join(args.build_dir, 'bench', 'bench_install')
    build = os.path.join(args.build_dir, 'tools', 'tpk-build')
    library = os.path.join(REPO, 'bench', 'out', 'library', 'plom8.tpk')
    if not os.path.exists(library):
        sys.exit('bench_recovery: run bench/run.sh --shape library first (it makes %s)' % library)
    os.makedirs(args.work, exist_ok=True)
    small = os.path.join(args.work, 'small.tpk')
    if not os.path.exists(small):
        with tempfile.TemporaryDirectory(dir=args.work) as tree:
            small_tree(tree)
            subprocess.run([build, tree, '-o', small, '-q'], check=True)

    rows = []
    for name, package, older in (('fresh 12,000 files', small, False),
                                 ('over an older copy, 5,000 files', library, True)):
        run, recover, killed = [], [], []
        for i in range(args.runs):
            scratch = tempfile.mkdtemp(dir=args.work)
            os.environ['BENCH_TMP'] = os.path.join(scratch, 'tmp')
            os.mkdir(os.environ['BENCH_TMP'])
            a, b = os.path.join(scratch, 'a'), os.path.join(scratch, 'b')
            prepare = ['--prepare-older', a, '--prepare-older', b] if older else []
            p = phases(bench, package, *prepare, '--older' if older else '--fresh', a,
                       '--interrupt', b, '--recover', b)
            assert p['recover']['as_before'] and p['recover']['complete'], p['recover']
            run.append(p['older' if older else 'fresh']['copy_seconds'])
            killed.append(p['interrupted']['seconds'])
            recover.append(p['recover']['seconds'])
            shutil.rmtree(scratch)
            print('%s: run %d of %d' % (name, i + 1, args.runs), file=sys.stderr)
        rows.append((name, statistics.median(run), statistics.median(killed),
                     statistics.median(recover)))

    print('| case | run (s) | killed at 70 % (s) | recovery (s) | recovery / run |')
    print('|---|---:|---:|---:|---:|')
    for name, run, killed, recover in rows:
        print('| %s | %.2f | %.2f | %.2f | %.2f |' % (name, run, killed, recover, recover / run))


if __name__ == '__main__':
    main()

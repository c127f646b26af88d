#!/usr/bin/env python3
"""Load benchmark: our package load against gzip/pigz decompression.

Builds a deterministic ~300 MB tree of mixed content (text configuration
files, semi-compressible binaries, incompressible data, many small files),
packs it with tpk-build, writes a gzip stream of the same decoded payload,
then times (median of N runs, warm page cache, output written to a file in
the same temporary folder each time):

  load         bench_load PACKAGE          (space check, inflate into the
                                            working file, catalogue; the
                                            production engine)
  load-zlib    bench_load --engine zlib    (the reference engine)
  gzip -dc     payload.gz > file
  pigz -dc     payload.gz > file           (when pigz is installed)

With --chunks it also times the inflation alone with several output chunk
sizes. Everything lives in one temporary folder, removed at the end unless
--keep is given.
"""
import argparse
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import zlib

REPO = os.path.abspath(os.path.join(os.path.dirname(__file__), '..', '..'))


def generate_tree(root, total_mb, seed=20240601):
    """Deterministic mixed tree of about total_mb MiB; returns its byte count."""
    rnd = random.Random(seed)
    words = [''.join(rnd.choice('abcdefghijklmnopqrstuvwxyz') for _ in range(rnd.randint(2, 11)))
             for _ in range(4000)]
    keys = ['Name', 'Value', 'Type', 'Default', 'Ref', 'Id', 'Parent', 'Flags']
    lines = []
    for i in range(60000):
        k = rnd.random()
        if k < 0.5:
            lines.append('%s=%s' % (rnd.choice(keys), ' '.join(rnd.choice(words) for _ in range(rnd.randint(1, 9)))))
        elif k < 0.8:
            lines.append('{%d,"%s",%d,%s}' % (rnd.randint(0, 99999), rnd.choice(words), rnd.randint(0, 9),
                                             rnd.choice(['true', 'false', 'null'])))
        else:
            lines.append('  ' + ' '.join(rnd.choice(words) for _ in range(rnd.randint(3, 14))))
    text_pool = ('\n'.join(lines) + '\n').encode()
    binary_pool = bytearray()
    while len(binary_pool) < 4 << 20:  # records: a few random bytes, then runs and counters
        binary_pool += rnd.randbytes(rnd.randint(4, 40))
        binary_pool += bytes([rnd.randint(0, 3)]) * rnd.randint(4, 64)
        binary_pool += b''.join(i.to_bytes(4, 'little') for i in range(rnd.randint(0, 16)))
    binary_pool = bytes(binary_pool)

    def slices(pool, size):
        out = bytearray()
        while len(out) < size:
            start = rnd.randrange(0, len(pool) - 65536)
            out += pool[start:start + rnd.randint(4096, 65536)]
        return bytes(out[:size])

    budget = total_mb << 20
    plan = [('text', 0.55), ('binary', 0.30), ('random', 0.10), ('small', 0.05)]
    written = 0
    for kind, share in plan:
        target = int(budget * share)
        n = 0
        done = 0
        while done < target:
            if kind == 'small':
                size = rnd.randint(200, 8192)
                rel = 'forms/%03d/f%05d.xml' % (n // 200, n)
                data = slices(text_pool, size)
            elif kind == 'text':
                size = rnd.randint(20 << 10, 2 << 20)
                rel = 'config/%02d/module%04d.cfg' % (n // 50, n)
                data = slices(text_pool, size)
            elif kind == 'binary':
                size = rnd.randint(256 << 10, 6 << 20)
                rel = 'data/%02d/table%03d.bin' % (n // 20, n)
                data = slices(binary_pool, size)
            else:
                size = rnd.randint(1 << 20, 8 << 20)
                rel = 'media/blob%02d.dat' % n
                data = rnd.randbytes(size)
            path = os.path.join(root, rel)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, 'wb') as f:
                f.write(data)
            os.utime(path, ns=(1600000000_000000000 + n * 1000, 1600000000_000000000 + n * 1000))
            done += size
            n += 1
        written += done
    return written


def gzip_payload(package, out_path, level):
    """gzip -LEVEL of the package's decoded bytes (the working file's contents)."""
    d = zlib.decompressobj(-15)
    with open(package, 'rb') as src, open(out_path, 'wb') as dst:
        gz = subprocess.Popen(['gzip', '-%d' % level, '-n', '-c'], stdin=subprocess.PIPE, stdout=dst)
        while True:
            block = src.read(1 << 20)
            if not block:
                break
            gz.stdin.write(d.decompress(block))
        gz.stdin.write(d.flush())
        gz.stdin.close()
        if gz.wait() != 0:
            sys.exit('gzip failed')


def timed(command, out_file=None, env=None):
    """Wall time of one run of `command` (stdout to out_file when given)."""
    start = time.perf_counter()
    if out_file:
        with open(out_file, 'wb') as out:
            r = subprocess.run(command, stdout=out, env=env)
    else:
        r = subprocess.run(command, stdout=subprocess.DEVNULL, env=env)
    elapsed = time.perf_counter() - start
    if r.returncode != 0:
        sys.exit('failed: %s' % ' '.join(command))
    return elapsed


def median_of(runs, command, out_file=None, env=None):
    times = []
    for _ in range(runs):
        times.append(timed(command, out_file, env))
        if out_file and os.path.exists(out_file):
            os.unlink(out_file)
    return statistics.median(times), times


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument('--build-dir', default=os.path.join(REPO, 'build-package'),
                    help='build folder holding tools/tpk-build and tools/bench_load')
    ap.add_argument('--size-mb', type=int, default=300, help='size of the generated tree (MiB)')
    ap.add_argument('--runs', type=int, default=5, help='runs per measurement (median reported)')
    ap.add_argument('--level', type=int, default=6, help='deflate level for both the package and gzip')
    ap.add_argument('--chunks', action='store_true', help='also time inflation with other chunk sizes')
    ap.add_argument('--workdir', default=None, help='parent of the temporary folder (default: $TMPDIR)')
    ap.add_argument('--keep', action='store_true', help='keep the temporary folder')
    args = ap.parse_args()

    tpk_build = os.path.join(args.build_dir, 'tools', 'tpk-build')
    bench_load = os.path.join(args.build_dir, 'tools', 'bench_load')
    for exe in (tpk_build, bench_load):
        if not os.access(exe, os.X_OK):
            sys.exit('missing %s (cmake --build %s --target tpk-build bench_load)' % (exe, args.build_dir))

    work = tempfile.mkdtemp(prefix='tpl-bench-load.', dir=args.workdir)
    try:
        tree = os.path.join(work, 'tree')
        tmp = os.path.join(work, 'tmp')  # TMPDIR of the loads: working files go here
        os.makedirs(tmp)
        t = time.perf_counter()
        size = generate_tree(tree, args.size_mb)
        print('tree: %.1f MiB generated in %.1f s' % (size / 2**20, time.perf_counter() - t))

        package = os.path.join(work, 'plom8.tpk')
        t = time.perf_counter()
        subprocess.run([tpk_build, tree, '-o', package, '--level', str(args.level), '-q'], check=True)
        print('package: %.1f MiB built in %.1f s' % (os.path.getsize(package) / 2**20, time.perf_counter() - t))
        payload = os.path.join(work, 'payload.gz')
        gzip_payload(package, payload, args.level)
        print('gzip stream of the same payload: %.1f MiB' % (os.path.getsize(payload) / 2**20))

        env = dict(os.environ, TMPDIR=tmp)
        out = os.path.join(tmp, 'gunzipped')
        results = []
        results.append(('load', median_of(args.runs, [bench_load, package], env=env)))
        results.append(('load-zlib', median_of(args.runs, [bench_load, package, '--engine', 'zlib'], env=env)))
        results.append(('gzip -dc', median_of(args.runs, ['gzip', '-dc', payload], out_file=out)))
        if shutil.which('pigz'):
            results.append(('pigz -dc', median_of(args.runs, ['pigz', '-dc', payload], out_file=out)))
        if args.chunks:
            for engine in ('isa-l', 'zlib'):
                for chunk in (32768, 262144, 1048576):
                    name = 'inflate %s %dK' % (engine, chunk // 1024)
                    cmd = [bench_load, package, '--unpack-only', '--engine', engine, '--chunk', str(chunk)]
                    results.append((name, median_of(args.runs, cmd, env=env)))
        if os.listdir(tmp):
            print('warning: files left in the temporary folder:', os.listdir(tmp))

        base = dict(results)['gzip -dc'][0]
        print('\n%-22s %10s %12s   runs (s)' % ('measurement', 'median s', 'vs gzip -dc'))
        for name, (med, runs) in results:
            print('%-22s %10.3f %11.2fx   %s' % (name, med, med / base, ' '.join('%.3f' % r for r in runs)))
        load = dict(results)['load'][0]
        for other in ('gzip -dc', 'pigz -dc', 'load-zlib'):
            if other in dict(results):
                print('load is %.2fx faster than %s' % (dict(results)[other][0] / load, other))
    finally:
        if args.keep:
            print('kept', work)
        else:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == '__main__':
    main()

#!/usr/bin/env python3
"""Deterministic benchmark corpora for the installer.

Two shapes, each generated from a fixed seed so that every machine measures
the same bytes:

  release  about 30 files, about 300 MB: three large compressible binaries
           (140, 95 and 55 MB, deflate ratio near 4) beside small text, XML
           and configuration files, the usual look of a template package.
  library  5,000 files in 400 directories, about 200 MB, mostly 1-100 KB,
           some names with spaces and non-ASCII letters.
  mixed    about 160 MB in 40 files of configuration text with
           incompressible stretches (0.5-20 KB of noise every 2-40 KB of
           text): packed with zlib's defaults most deflate blocks give out
           under 32 KiB.
  compressed  about 100 MB in 60 files that are already compressed (zlib
           streams of text, and noise), so deflate finds almost nothing.

Usage: gen_corpus.py --shape release|library|mixed|compressed --out DIR [--seed N] [--scale F]

The tree is written to DIR/tree; DIR/tree.done records the parameters once the
tree is complete, and a later call with the same parameters does nothing.
--scale shrinks every size (0.01 makes a quick tree for trying things out).
File times are fixed, with sub-second parts in whole 100-ns steps, so an
installed copy can be compared time for time with the source.
"""

import argparse
import itertools
import json
import os
import random
import shutil
import struct
import sys

GENERATOR_VERSION = 3
SEGMENT = 65536  # binary content is assembled from pool segments of this size
MB = 1000 * 1000

# Fixed times: 2022-04-15 plus offsets, nanoseconds rounded to 100 ns.
BASE_EPOCH = 1650000000

SYLLABLES = [
    "ka", "ro", "mi", "ten", "sal", "dor", "ve", "lu", "pra", "xin", "ost", "el",
    "ban", "tur", "qe", "fo", "nis", "ar", "gul", "pe", "zo", "lim", "ra", "chu",
]
# Words for names with letters outside ASCII (several scripts).
NON_ASCII = [
    "Отчёты", "Документы", "Ūdens", "Šablonai", "Žurnāls", "Şablon", "Ölçüm",
    "Tiếng", "Bảng", "ანგარიში", "Есеп", "Довідник", "Ğider", "Kūrinys",
]


class Rng(random.Random):
    def word(self, lo=2, hi=4):
        return "".join(self.choice(SYLLABLES) for _ in range(self.randint(lo, hi)))

    def words(self, n):
        return " ".join(self.word() for _ in range(n))


def binary_pool(rng, count):
    """Segments of record-like binary data (ids, stamps, zero-padded names,
    token runs) that deflate at level 6 packs roughly 3.5 to 4 times."""
    tokens = [rng.randbytes(rng.randint(4, 16)) for _ in range(200)]
    cum = list(itertools.accumulate(1.0 / (i + 1) for i in range(len(tokens))))
    pool = []
    rid = 0
    for _ in range(count):
        out = bytearray()
        while len(out) < SEGMENT:
            if rng.random() < 0.5:
                out += b"".join(rng.choices(tokens, cum_weights=cum, k=256))
            else:
                for _ in range(64):
                    rid += 1
                    name = b"".join(rng.choices(tokens, cum_weights=cum, k=2))
                    out += struct.pack("<IQHH", rid, 637000000000000000 + rid * rng.randint(1, 50000),
                                       rng.randint(0, 30), rng.randint(0, 65535))
                    out += name.ljust(40, b"\0")[:40]
        pool.append(bytes(out[:SEGMENT]))
    return pool


def text_pool(rng, size):
    """Prose and configuration-like lines, about `size` bytes."""
    lines = []
    total = 0
    while total < size:
        kind = rng.random()
        if kind < 0.5:
            line = rng.words(rng.randint(6, 18)).capitalize() + "."
        elif kind < 0.8:
            line = "%s.%s = %s" % (rng.word(), rng.word(), rng.choice([rng.word(), str(rng.randint(0, 99999)), "true", "false"]))
        else:
            line = "  <%s id=\"%d\" name=\"%s\">%s</%s>" % (
                "item", rng.randint(1, 10 ** 6), rng.word(), rng.words(rng.randint(1, 6)), "item")
        lines.append(line)
        total += len(line) + 1
    return ("\n".join(lines) + "\n").encode()


def binary_bytes(rng, pool, size):
    """`size` bytes of pool segments in random order, each one stamped with a
    fresh 16-byte block so that no two segments of a file are identical."""
    parts = []
    left = size
    while left > 0:
        seg = bytearray(rng.choice(pool))
        at = rng.randrange(0, SEGMENT - 16)
        seg[at:at + 16] = rng.randbytes(16)
        take = min(left, SEGMENT)
        parts.append(bytes(seg[:take]))
        left -= take
    return b"".join(parts)


def text_bytes(rng, pool, size, header=b""):
    """`size` bytes: a header, then a slice of the text pool at a random place."""
    out = bytearray(header)
    while len(out) < size:
        at = rng.randrange(0, len(pool))
        out += pool[at:at + (size - len(out))]
    return bytes(out[:size])


def xml_bytes(rng, pool, size, title):
    head = ('<?xml version="1.0" encoding="UTF-8"?>\n<template name="%s" version="%d.%d">\n'
            % (title, rng.randint(1, 9), rng.randint(0, 99))).encode()
    body = text_bytes(rng, pool, max(0, size - len(head) - 12), head)
    return body + b"\n</template>\n"


def file_time(rng):
    return BASE_EPOCH + rng.randrange(0, 300 * 86400), rng.randrange(0, 10 ** 7) * 100


def write(root, rel, data, rng, manifest):
    path = os.path.join(root, rel)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)
    sec, ns = file_time(rng)
    os.utime(path, ns=(sec * 10 ** 9 + ns, sec * 10 ** 9 + ns))
    manifest.append((rel, len(data)))


def gen_release(root, rng, scale):
    bpool = binary_pool(rng, 512)
    tpool = text_pool(rng, 4 * MB)
    manifest = []
    big = [("bin/metadata.bin", 140), ("bin/forms.bin", 95), ("bin/pictures.pak", 55)]
    for rel, mb in big:
        write(root, rel, binary_bytes(rng, bpool, int(mb * MB * scale)), rng, manifest)
    small = [
        ("readme.txt", 6), ("license.txt", 18), ("description.html", 24),
        ("version.xml", 1), ("config/default.cfg", 3), ("config/users.cfg", 2),
        ("config/locale.cfg", 2), ("config/Report settings.xml", 40),
        ("config/Отчёты.xml", 35),
    ]
    for i in range(6):
        small.append(("templates/%s.xml" % rng.word(), rng.randint(80, 900)))
    for i in range(5):
        small.append(("templates/forms/%s.xml" % rng.word(), rng.randint(200, 1600)))
    for i in range(4):
        small.append(("docs/%s.txt" % rng.word(), rng.randint(20, 400)))
    small.append(("docs/changes.txt", 140))
    small.append(("templates/Şablon çıktı.xml", 260))
    for rel, kb in small:
        size = max(1, int(kb * 1000 * scale))
        if rel.endswith(".xml"):
            data = xml_bytes(rng, tpool, size, os.path.basename(rel))
        else:
            data = text_bytes(rng, tpool, size)
        write(root, rel, data, rng, manifest)
    return manifest


def library_dirs(rng, count):
    """`count` directories (the root not counted) up to four levels deep."""
    def name():
        r = rng.random()
        if r < 0.07:
            return rng.choice(NON_ASCII) + ("" if rng.random() < 0.5 else " " + rng.word())
        if r < 0.14:
            return "%s %s" % (rng.word().capitalize(), rng.word())
        return rng.word()

    dirs = []
    seen = set()
    parents = [""]
    while len(dirs) < count:
        parent = rng.choice(parents) if dirs else ""
        if parent.count("/") >= 3:
            continue
        d = (parent + "/" + name()).lstrip("/")
        if d in seen:
            continue
        seen.add(d)
        dirs.append(d)
        parents.append(d)
    return dirs


def gen_library(root, rng, scale):
    bpool = binary_pool(rng, 128)
    tpool = text_pool(rng, 8 * MB)
    dirs = library_dirs(rng, 400)
    nfiles = 5000
    # Mostly 1-100 KB (log-uniform); 120 files of a few hundred KB to a few MB
    # bring the total to about 200 MB.
    sizes = [int(1000 * 10 ** rng.uniform(0, 2)) for _ in range(nfiles)]
    large = rng.sample(range(nfiles), 120)
    large_set = set(large)
    rest = 200 * MB - sum(s for i, s in enumerate(sizes) if i not in large_set)
    for i in large:
        sizes[i] = int(rest / len(large) * rng.uniform(0.3, 1.7))
    manifest = []
    used = set()
    # Every directory gets at least one file; the rest are spread at random.
    owners = dirs + [rng.choice(dirs) for _ in range(nfiles - len(dirs))]
    rng.shuffle(owners)
    for i, d in enumerate(owners):
        while True:
            r = rng.random()
            ext = rng.choice([".xml", ".xml", ".txt", ".cfg", ".bin"])
            if r < 0.05:
                base = rng.choice(NON_ASCII) + "_" + rng.word()
            elif r < 0.12:
                base = "%s %s" % (rng.word().capitalize(), rng.word())
            else:
                base = rng.word() + "_%d" % rng.randint(0, 999)
            rel = d + "/" + base + ext
            if rel not in used:
                used.add(rel)
                break
        size = max(1, int(sizes[i] * scale))
        if ext == ".bin":
            data = binary_bytes(rng, bpool, size)
        elif ext == ".xml":
            data = xml_bytes(rng, tpool, size, base)
        else:
            data = text_bytes(rng, tpool, size)
        write(root, rel, data, rng, manifest)
    return manifest


def gen_mixed(root, rng, scale):
    tpool = text_pool(rng, 4 * MB)
    manifest = []
    per_file = max(1, int(4 * MB * scale))
    for i in range(40):
        out = bytearray()
        while len(out) < per_file:
            out += text_bytes(rng, tpool, rng.randint(2000, 40000))
            out += rng.randbytes(rng.randint(500, 20000))
        write(root, "mixed/part%02d.cfg" % i, bytes(out[:per_file]), rng, manifest)
    return manifest


def gen_compressed(root, rng, scale):
    import zlib
    tpool = text_pool(rng, 4 * MB)
    manifest = []
    for i in range(60):
        size = max(1, int(rng.randint(1, 3) * 0.55 * MB * scale * 1.0))
        if i % 3 == 2:
            data = rng.randbytes(size)
        else:  # a compressed archive of text, about `size` bytes
            data = zlib.compress(text_bytes(rng, tpool, size * 4), 9)[:size]
        write(root, "archives/a%02d.%s" % (i, "bin" if i % 3 == 2 else "z"), data, rng, manifest)
    return manifest


GENERATORS = {"release": None, "library": None, "mixed": gen_mixed, "compressed": gen_compressed}


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--shape", choices=sorted(GENERATORS), required=True)
    ap.add_argument("--out", required=True)
    ap.add_argument("--seed", type=int, default=20240601)
    ap.add_argument("--scale", type=float, default=1.0)
    args = ap.parse_args()

    params = {"version": GENERATOR_VERSION, "shape": args.shape, "seed": args.seed, "scale": args.scale}
    tree = os.path.join(args.out, "tree")
    done = os.path.join(args.out, "tree.done")
    if os.path.exists(done):
        with open(done) as f:
            if json.load(f).get("params") == params:
                return 0
    if os.path.exists(tree):
        shutil.rmtree(tree)
    if os.path.exists(done):
        os.remove(done)
    os.makedirs(tree)
    rng = Rng("%s-%d" % (args.shape, args.seed))
    generators = dict(GENERATORS, release=gen_release, library=gen_library)
    manifest = generators[args.shape](tree, rng, args.scale)
    total = sum(s for _, s in manifest)
    ndirs = len({os.path.dirname(rel) for rel, _ in manifest} - {""})
    with open(done, "w") as f:
        json.dump({"params": params, "files": len(manifest), "bytes": total, "directories": ndirs}, f)
    print("%s: %d files, %d directories, %.1f MB in %s" % (args.shape, len(manifest), ndirs, total / MB, tree))
    return 0


if __name__ == "__main__":
    sys.exit(main())

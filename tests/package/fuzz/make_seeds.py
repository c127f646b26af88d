#!/usr/bin/env python3
"""Writes the seed corpus for the package fuzz targets (deterministic).

corpus/catalogue: whole working files (sound and damaged layouts).
corpus/inflate:   raw deflate streams of every block kind, cut and framed ones.
Run from anywhere; files are (re)written next to this script.
"""
import os
import random
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))


def u32(v):
    return struct.pack('<I', v & 0xFFFFFFFF)


def units(s):
    return s.encode('utf-16-le')


def string(s):
    return u32(len(units(s)) // 2) + units(s)


def file_record(name, time, offset, size, surplus=b''):
    body = u32(len(units(name)) // 2) + units(name) + u32(time) + u32(time >> 32) + u32(offset) + u32(size) + surplus
    return u32(4 + len(body)) + body


def language_record(code, t1, t2, ref, surplus=b''):
    body = string(code) + string(t1) + string(t2) + string(ref) + surplus
    return u32(4 + len(body)) + body


def working(files, kind=0, languages=()):
    out = u32(kind)
    if kind == 0:
        out += string('Product') + string('Vendor') + string('doc.pdf')
    else:
        out += u32(len(languages)) + b''.join(languages)
    out += u32(len(files))
    offset = 0
    data = b''
    for name, contents in files:
        out += file_record(name, 132000000000000000 + offset, offset, len(contents))
        offset += len(contents)
        data += contents
    return out + data


def raw_deflate(data, level=6, strategy=zlib.Z_DEFAULT_STRATEGY):
    c = zlib.compressobj(level, zlib.DEFLATED, -15, 8, strategy)
    return c.compress(data) + c.flush()


def write(sub, name, data):
    path = os.path.join(HERE, 'corpus', sub, name)
    with open(path, 'wb') as f:
        f.write(data)


def main():
    files = [('readme.txt', b'read me\n'), ('conf/main.cfg', b'key=value\n' * 20), ('conf\\old.cfg', b'')]
    langs = [language_record('en', 'P', 'V', 'https://x/doc'), language_record('de', 'P', 'V', '', b'\0' * 5)]
    cat = {
        'kind0': working(files),
        'kind1': working(files, 3, langs),
        'no-files': working([]),
        'surplus': u32(0) + string('') * 3 + u32(1) + file_record('a', 1, 0, 2, b'xyz') + b'ab',
        'bad-name': working([('../x', b'a')]),
        'bad-range': u32(0) + string('') * 3 + u32(1) + file_record('a', 1, 5, 5) + b'ab',
        'short-record': u32(0) + string('') * 3 + u32(1) + u32(10) + b'\0' * 30,
        'huge-count': u32(1) + u32(0xFFFFFFFF) + b'\0' * 40,
        'empty': b'',
    }
    for name, data in cat.items():
        write('catalogue', name, data)

    rnd = random.Random(5)
    text = b''.join(rnd.choice([b'alpha ', b'beta ', b'gamma\n', b'42,']) for _ in range(800))
    noise = bytes(rnd.getrandbits(8) for _ in range(600))
    inf = {}
    for level in (0, 1, 6, 9):
        for sname, strat in (('default', zlib.Z_DEFAULT_STRATEGY), ('fixed', zlib.Z_FIXED),
                             ('huffman', zlib.Z_HUFFMAN_ONLY), ('rle', zlib.Z_RLE)):
            inf['text-%d-%s' % (level, sname)] = raw_deflate(text, level, strat)
    inf['noise-6'] = raw_deflate(noise)
    inf['empty-stream'] = raw_deflate(b'')
    inf['one-byte'] = raw_deflate(b'a')
    inf['cut'] = raw_deflate(text)[:100]
    inf['zlib-framed'] = zlib.compress(text)
    inf['package'] = raw_deflate(working(files))
    for name, data in inf.items():
        write('inflate', name, data)


if __name__ == '__main__':
    main()

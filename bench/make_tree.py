#!/usr/bin/env python3
"""Copies the sample library's files into a tree of N files in 200 folders.

    make_tree.py SAMPLES TREE N
"""
import os
import sys

src, dst, n = sys.argv[1], sys.argv[2], int(sys.argv[3])
samples = []
for d, _, fs in os.walk(src):
    for f in sorted(fs):
        if not f.endswith('.txt'):
            samples.append((f, open(os.path.join(d, f), 'rb').read()))
for i in range(n):
    name, data = samples[i % len(samples)]
    folder = os.path.join(dst, 'artist%03d' % (i % 200))
    os.makedirs(folder, exist_ok=True)
    open(os.path.join(folder, '%05d %s' % (i, name)), 'wb').write(data)

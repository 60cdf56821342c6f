#!/usr/bin/env python3
"""Packs a bundle folder into the engine target's input (see memory_view.h).

usage: fuzz/pack_bundle.py FOLDER OUTPUT [PRODUCT...] [--variant V]...

Used to make the seeds in fuzz/corpus/engine_fuzz from synthetic bundles
(build/synth/velmar-mkbundle writes one).
"""
import os
import plistlib
import sys


def pack(folder, products, variants):
    records = []
    for root, dirs, files in os.walk(folder):
        dirs.sort()
        rel_root = os.path.relpath(root, folder)
        for name in sorted(dirs + files):
            path = os.path.join(root, name)
            rel = os.path.normpath(os.path.join(rel_root, name))
            if os.path.islink(path):
                records.append(b"L " + rel.encode() + b"\t" + os.readlink(path).encode())
            elif os.path.isdir(path):
                records.append(b"D " + rel.encode())
            else:
                with open(path, "rb") as f:
                    records.append(b"F " + rel.encode() + b"\n" + f.read())
    request = {"Options": {"keepDebug": False}}
    if products:
        request["Products"] = products
    if variants:
        request["FactoryVariants"] = variants
    records.append(b"Q\n" + plistlib.dumps(request))
    return b"\n%%\n".join(records)


def main(argv):
    if len(argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    products, variants, args = [], [], argv[3:]
    while args:
        word = args.pop(0)
        if word == "--variant" and args:
            variants.append(args.pop(0))
        else:
            products.append(word)
    with open(argv[2], "wb") as out:
        out.write(pack(argv[1], products, variants))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))

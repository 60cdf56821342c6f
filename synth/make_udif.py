#!/usr/bin/env python3
"""Wraps a raw disk image (a file system image, such as an ext4 or ISO 9660
image made here) into a UDIF disk image, the container restore bundles are
shipped in, so that the tool's image reading can be tested on that container
without a machine that makes them.

    make_udif.py RAW OUT.dmg [--compression zlib|raw] [--chunk-sectors N]
                 [--partition-name NAME] [--hfs-of-hybrid]

With --hfs-of-hybrid, RAW is an ISO 9660 / HFS+ hybrid as xorriso makes it
(-hfsplus) and only its HFS+ volume is wrapped, as an "Apple_HFS"
partition: an HFS+ image in UDIF, as real bundles come, made without
mounting anything.

The layout, from the format's public descriptions, all integers big-endian:

  data fork   the image's chunks one after another, each stored raw or as a
              zlib stream; runs of zero sectors are stored as nothing
  XML plist   {"resource-fork": {"blkx": [{"Data": <mish block>, "Name": ..,
              "ID": .., "Attributes": .., "CFName": ..}], "plst": [..]}}
  koly        a 512-byte trailer that says where the data fork and the plist
              lie, with CRC-32 checksums of both the data and the partitions

A "mish" block describes one partition: its first sector and sector count,
then a 40-byte descriptor a chunk (type, sector range within the partition,
offset and length in the data fork) and a terminator. One partition covers
the whole raw image, named as a file system partition of its kind.
"""

import argparse
import os
import plistlib
import struct
import sys
import zlib

SECTOR = 512

CHUNK_ZERO = 0x00000000
CHUNK_RAW = 0x00000001
CHUNK_IGNORE = 0x00000002
CHUNK_ZLIB = 0x80000005
CHUNK_COMMENT = 0x7FFFFFFE
CHUNK_END = 0xFFFFFFFF

CHECKSUM_CRC32 = 2


def checksum(crc):
    """A UDIF checksum field: type, size in bits, then 32 words."""
    return struct.pack(">II", CHECKSUM_CRC32, 32) + struct.pack(">I", crc) + bytes(124)


def hfs_volume_of_hybrid(image):
    """The HFS+ volume of an ISO 9660 / HFS+ hybrid: from the start of the
    Apple_HFS partition its Apple partition map names to the end of the
    image, since the volume's files are the ISO's and lie after its own
    blocks."""
    block = 512
    for index in range(1, 64):
        entry = image[index * block:(index + 1) * block]
        if len(entry) < block or entry[:2] != b"PM":
            break
        start, = struct.unpack(">I", entry[8:12])
        kind = entry[48:80].split(b"\0", 1)[0]
        if kind == b"Apple_HFS":
            volume = image[start * block:]
            if volume[1024:1026] not in (b"H+", b"HX"):
                raise SystemExit("the Apple_HFS partition holds no HFS+ volume")
            return volume
    raise SystemExit("no Apple_HFS partition in the image's partition map")


def build(raw, compression, chunk_sectors, partition_name):
    if len(raw) % SECTOR:
        raw += bytes(SECTOR - len(raw) % SECTOR)
    sectors = len(raw) // SECTOR
    fork = bytearray()
    chunks = []
    for first in range(0, sectors, chunk_sectors):
        count = min(chunk_sectors, sectors - first)
        data = raw[first * SECTOR:(first + count) * SECTOR]
        if not any(data):
            chunks.append((CHUNK_ZERO, first, count, len(fork), 0))
            continue
        stored = zlib.compress(data, 6) if compression == "zlib" else data
        kind = CHUNK_ZLIB if compression == "zlib" else CHUNK_RAW
        chunks.append((kind, first, count, len(fork), len(stored)))
        fork += stored
    chunks.append((CHUNK_END, sectors, 0, len(fork), 0))

    partition_crc = zlib.crc32(raw)
    mish = struct.pack(">4sIQQQII", b"mish", 1, 0, sectors, 0, chunk_sectors, 0)
    mish += bytes(24) + checksum(partition_crc) + struct.pack(">I", len(chunks))
    for kind, first, count, offset, length in chunks:
        mish += struct.pack(">IIQQQQ", kind, 0, first, count, offset, length)

    plist = plistlib.dumps({
        "resource-fork": {
            "blkx": [{
                "Attributes": "0x0050",
                "CFName": partition_name,
                "Data": mish,
                "ID": "0",
                "Name": partition_name,
            }],
            "plst": [{
                "Attributes": "0x0050",
                "Data": bytes(0x600),
                "ID": "0",
                "Name": "",
            }],
        }
    }, fmt=plistlib.FMT_XML)

    xml_offset = len(fork)
    # The master checksum is the CRC-32 of the partitions' checksums.
    master_crc = zlib.crc32(struct.pack(">I", partition_crc))
    koly = struct.pack(">4sIIIQQQQQII", b"koly", 4, 512, 1, 0, 0, len(fork), 0, 0, 1, 1)
    koly += os.urandom(16)                      # segment id
    koly += checksum(zlib.crc32(fork))          # data fork checksum
    koly += struct.pack(">QQ", xml_offset, len(plist))
    koly += bytes(120)
    koly += checksum(master_crc)
    koly += struct.pack(">IQIII", 1, sectors, 0, 0, 0)
    assert len(koly) == 512, len(koly)
    return bytes(fork) + plist + koly


def main():
    parser = argparse.ArgumentParser(description="Wraps a raw disk image into a UDIF image.")
    parser.add_argument("raw")
    parser.add_argument("out")
    parser.add_argument("--compression", choices=("zlib", "raw"), default="zlib")
    parser.add_argument("--chunk-sectors", type=int, default=2048,
                        help="sectors a chunk (2048: 1 MiB, as common images use)")
    parser.add_argument("--partition-name", default=None,
                        help="the partition's name (default: an Apple_HFS one with"
                             " --hfs-of-hybrid, else a Linux one)")
    parser.add_argument("--hfs-of-hybrid", action="store_true")
    args = parser.parse_args()
    if args.chunk_sectors <= 0:
        parser.error("--chunk-sectors must be positive")
    with open(args.raw, "rb") as f:
        raw = f.read()
    name = args.partition_name
    if args.hfs_of_hybrid:
        raw = hfs_volume_of_hybrid(raw)
        name = name or "disk image (Apple_HFS : 0)"
    image = build(raw, args.compression, args.chunk_sectors, name or "disk image (Linux : 0)")
    # Written whole or not at all: a test must never read half an image.
    temporary = args.out + ".part"
    with open(temporary, "wb") as f:
        f.write(image)
    os.replace(temporary, args.out)
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Writes the golden group files beside this script. They are kept as they are: a change of a file
means that files of users would load differently."""
import pathlib
import struct


def group_file(feature_size, tag_size, rows, version=b"vek00001", count=None, reserved=0, high=0):
    """`rows`: (id, feature bytes, tag bytes) each; `high`: upper halves of the size fields."""
    sizes = (feature_size, tag_size, len(rows) if count is None else count)
    return (version + b"".join(struct.pack("<II", size, high) for size in sizes)
            + b"".join(struct.pack("<Q", row[0]) for row in rows) + struct.pack("<Q", reserved)
            + b"".join(row[1] for row in rows) + b"".join(row[2] for row in rows))


def row(row_id, floats, tag):
    return row_id, struct.pack(f"<{len(floats)}f", *floats), tag


ROWS = [row(7, (1.0, -2.5), b"a"), row(2, (0.0, 3e38), b"\0"), row(2**63, (-0.0, 0.125), b"\xff")]
GOOD = group_file(8, 1, ROWS)
ODD = [(1, struct.pack("<f", 1.5) + b"\0\0", b"seven b"), (2, struct.pack("<f", -8) + b"\0\0",
                                                        b"ytes...")]
FILES = {
    "good-rows": GOOD,
    "good-version0": group_file(8, 1, ROWS, version=b"vek00000"),
    "good-versionless": group_file(8, 1, ROWS, version=b""),
    "good-high-words": group_file(8, 1, ROWS, high=0xCAFE),
    "good-trailing": GOOD + b"more",
    "good-empty": group_file(8, 0, []),
    "good-odd-size": group_file(6, 7, ODD),
    "bad-short": GOOD[:7],
    "bad-cut-header": GOOD[:31],
    "bad-cut-ids": GOOD[:50],
    "bad-cut-features": GOOD[:80],
    "bad-cut-tags": GOOD[:-1],
    "bad-version2": group_file(8, 1, ROWS, version=b"vek00002"),
    "bad-version-negative": group_file(8, 1, ROWS, version=b"vek-0001"),
    "bad-reserved": group_file(8, 1, ROWS, reserved=1 << 63),
    "bad-count": group_file(8, 1, ROWS, count=536870911),
    "bad-count-beyond": group_file(8, 1, ROWS, count=536870912),
    "bad-repeated-id": group_file(8, 1, ROWS + ROWS[:1]),
    "bad-reserved-id": group_file(8, 1, ROWS + [row(2**64 - 1, (1.0, 1.0), b"b")]),
    "bad-empty-with-tags": group_file(8, 1, []),
}

for name, content in FILES.items():
    pathlib.Path(__file__).with_name(name + ".vek").write_bytes(content)

#!/usr/bin/env python3
"""Prints the header and the rows of a group file. docs/file-formats.md describes the format.

Usage: read_group_file.py FILE [ROWS]    ROWS: print at most so many rows
"""
import re
import struct
import sys

LETTERS = b"vek"
MAX_ROWS = 536870911


class BrokenFile(Exception):
    pass


class GroupFile:
    def __init__(self, path):
        self.file = open(path, "rb")
        first = self.read_at(0, 8)
        self.version = self.version_of(first) if first.startswith(LETTERS) else None
        sizes = 0 if self.version is None else 8
        # The upper halves of these three words mean nothing.
        self.feature_size, self.tag_size, self.rows = (
            word & 0xFFFFFFFF for word in struct.unpack("<3Q", self.read_at(sizes, 24)))
        if self.rows > MAX_ROWS:
            raise BrokenFile(f"{self.rows} rows are too many")
        self.ids = sizes + 24
        reserved = self.ids + 8 * self.rows
        self.features = reserved + 8
        self.tags = self.features + self.feature_size * self.rows
        if self.read_at(reserved, 8) != bytes(8):
            raise BrokenFile("the reserved field is not 0")
        end = self.tags + self.tag_size * self.rows
        if self.file.seek(0, 2) < end:
            raise BrokenFile(f"the file ends before its byte {end}")

    @staticmethod
    def version_of(first):
        number = re.match(rb"[ \t\n\v\f\r]*([+-]?[0-9]+)", first[len(LETTERS):])
        version = int(number[1]) if number else 0
        if version not in (0, 1):
            raise BrokenFile(f"version {version} is unknown")
        return version

    def read_at(self, position, size):
        self.file.seek(position)
        data = self.file.read(size)
        if len(data) < size:
            raise BrokenFile(f"the file ends before its byte {position + size}")
        return data

    def row(self, i):
        """Id, floats and tag of row i."""
        (row_id,) = struct.unpack("<Q", self.read_at(self.ids + 8 * i, 8))
        feature = self.read_at(self.features + self.feature_size * i, self.feature_size)
        floats = struct.unpack_from(f"<{self.feature_size // 4}f", feature)
        return row_id, floats, self.read_at(self.tags + self.tag_size * i, self.tag_size)


def main(path, max_rows=MAX_ROWS):
    group = GroupFile(path)
    print("version:", "none" if group.version is None else group.version)
    print(f"feature size: {group.feature_size} bytes, {group.feature_size // 4} floats")
    print(f"tag size: {group.tag_size} bytes")
    print(f"rows: {group.rows}")
    for i in range(min(group.rows, int(max_rows))):
        row_id, floats, tag = group.row(i)
        print(row_id, "[" + " ".join(f"{value:.9g}" for value in floats) + "]", tag.hex())


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    try:
        main(*sys.argv[1:])
    except (OSError, BrokenFile) as error:
        sys.exit(f"{sys.argv[1]}: {error}")

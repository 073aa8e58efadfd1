"""Files of features and groups for the tests of programs, and the search that they are to match."""

import json
import os
import random
import struct
import subprocess

NONE = 2**64 - 1  # the id of an unused place


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)
    return path


def floats(rows):
    """The numbers as 32-bit floats have them."""
    return [list(struct.unpack("<%df" % len(row), struct.pack("<%df" % len(row), *row)))
            for row in rows]


def random_rows(seed, nr_rows, dim):
    numbers = random.Random(seed)
    return floats([[numbers.gauss(0, 1) for _ in range(dim)] for _ in range(nr_rows)])


def npy(path, code, rows):
    """`code` is struct's: f, b for int8, B for uint8, Q for 64-bit ids. Ids have one axis."""
    shape = (len(rows),) if code == "Q" else (len(rows), len(rows[0]))
    flat = rows if code == "Q" else [element for row in rows for element in row]
    header = "{'descr': '%s', 'fortran_order': False, 'shape': %s, }\n" % (
        {"f": "<f4", "d": "<f8", "b": "|i1", "B": "|u1", "Q": "<u8"}[code], shape)
    return write(path, b"\x93NUMPY\x01\x00" + struct.pack("<H", len(header)) + header.encode()
                 + struct.pack("<%d%s" % (len(flat), code), *flat))


def fvecs(path, rows):
    return write(path, b"".join(struct.pack("<i%df" % len(row), len(row), *row) for row in rows))


def group(path, ids, rows, tags=b"", constants=None):
    """docs/file-formats.md describes it."""
    content = struct.pack("<8s3Q", b"vek00001", 4 * len(rows[0]), len(tags) // len(rows), len(rows))
    content += struct.pack("<%dQ" % len(ids), *ids) + bytes(8)
    content += b"".join(struct.pack("<%df" % len(row), *row) for row in rows) + tags
    if constants is not None:
        write(path + ".json", json.dumps(constants).encode())
    return write(path, content)


def nearest(rows, ids, queries, k):
    """For each query (id, squared distance) of the k nearest, by distance, then by id."""
    found = []
    for query in queries:
        distances = []
        for row, id_ in zip(rows, ids):
            d2 = 0.0
            for a, b in zip(query, row):  # rounded at each step, as in C++
                d2 += (a - b) * (a - b)
            distances.append((d2, id_))
        found.append([(id_, d2) for d2, id_ in sorted(distances)[:k]])
    return found


def read_csv(path):
    """For each query, by its number, a list of (id, score or None, squared distance)."""
    with open(path) as file:
        lines = [line.rstrip("\n").split(",") for line in file]
    found = {}
    for query, rank, id_, *score, distance in lines[1:]:
        found.setdefault(int(query), []).append(
            (int(id_), float(score[0]) if score else None, float(distance)))
        assert len(found[int(query)]) == int(rank)
    return found


def run(words, status=0, error=None):
    """The standard output of a program. What it says on the standard error has `error` in it."""
    # OpenMPI as root, and where a container forbids it to copy from process to process.
    mpi = {"OMPI_ALLOW_RUN_AS_ROOT": "1", "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM": "1",
           "OMPI_MCA_btl_vader_single_copy_mechanism": "none"}
    done = subprocess.run(words, capture_output=True, text=True, timeout=120,
                          env=dict(os.environ, **mpi))
    assert done.returncode == status, (words, done)
    assert (error or "") in done.stderr and (error or not done.stderr), (words, done.stderr)
    return done.stdout

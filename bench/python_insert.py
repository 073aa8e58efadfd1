#!/usr/bin/env python3
"""How fast the Python package inserts a million rows of 128 floats, as a share of the C call.

The C call is the library's function itself with the arrays' addresses, one call as here too. The
best of each, in turn, so that what else the machine does meets all of them.

Usage: PYTHONPATH=python bench/python_insert.py [REPETITIONS]
"""
import sys
import time

import numpy as np

import vekfind
from vekfind import _library

ROWS, DIM = 1_000_000, 128


def c_call(group, features, ids):
    _library.check(_library.LIBRARY.VEK_insert_features_to_feature_group(
        group._handle, features.ctypes.data, ids.ctypes.data, None, ROWS, None))


def unchecked(group, features, ids):
    group.insert(features, ids, check_finite=False)


def checked(group, features, ids):
    group.insert(features, ids)


def seconds(insert, features, ids):
    with vekfind.Group(DIM, scale=1, bias=-1) as group:
        start = time.perf_counter()
        insert(group, features, ids)
        return time.perf_counter() - start


def main(repetitions=7):
    features = np.random.default_rng(1).standard_normal((ROWS, DIM), np.float32)
    ids = np.arange(ROWS, dtype=np.uint64)
    best = {}
    for _ in range(int(repetitions) + 1):  # the first group of a process pays for all
        for insert in (c_call, unchecked, checked):
            time_taken = seconds(insert, features, ids)
            best[insert] = min(best.get(insert, time_taken), time_taken)
    for insert, time_taken in best.items():
        print(f"{insert.__name__:10} {ROWS / time_taken / 1e6:5.2f} million rows/s, "
              f"{best[c_call] / time_taken:.2f} of the C call")


if __name__ == "__main__":
    main(*sys.argv[1:])

"""Exact search by this library and by its peers: the same data, one thread, in turns.

Usage: compare.py BLAS_SEARCH.so [--rows N] [--dim D] [--seconds S]

Prints two Markdown tables, of 32-bit floats and of 8-bit integers: the fastest call of each in ms,
and how many times as long as this library's it takes. Each batch is searched by all in turn, until
S seconds have passed, so that what else the machine does meets all of them.
"""
import argparse
import ctypes
import functools
import time

import faiss
import numpy as np

import vekfind

K = 10
BATCHES = (1, 4, 16, 64, 256, 1024)
BLOCK = 1024  # rows a product of the BLAS: 16,384 and more are slower


class Blas:
    def __init__(self, library, rows):
        self.library = ctypes.CDLL(library)
        self.rows = rows
        self.norms = np.empty(len(rows), np.float32)
        self.library.blas_norms(_pointer(rows), *map(ctypes.c_size_t, rows.shape),
                                _pointer(self.norms))

    def search(self, queries):
        found = np.empty((len(queries), K), np.int64)
        self.library.blas_search(
            _pointer(self.rows), _pointer(self.norms), *map(ctypes.c_size_t, self.rows.shape),
            _pointer(queries), *map(ctypes.c_size_t, (len(queries), K, BLOCK)), _pointer(found))
        return found


def _pointer(array):
    return ctypes.c_void_p(array.ctypes.data)


def vekfind_search(rows):
    scale = 1 / rows.shape[1] / np.square(rows[:1000], dtype=np.float32).mean()
    group = vekfind.Group(rows.shape[1], rows.dtype, scale=scale, bias=-2)
    group.insert(rows, np.arange(len(rows), dtype=np.uint64), check_finite=False)
    return lambda queries: group.search(queries, K, check_finite=False).ids


def faiss_search(rows):
    """8-bit rows are kept as unsigned bytes, by the index that computes their exact distances."""
    if rows.dtype == np.float32:
        index = faiss.IndexFlatL2(rows.shape[1])
        index.add(rows)
        return lambda queries: index.search(queries, K)[1]
    index = faiss.IndexScalarQuantizer(rows.shape[1], faiss.ScalarQuantizer.QT_8bit_direct)
    index.train(_shifted(rows[:1000]))
    for first in range(0, len(rows), 100_000):
        index.add(_shifted(rows[first:first + 100_000]))
    return lambda queries: index.search(_shifted(queries), K)[1]


def _shifted(rows):
    return rows.astype(np.float32) + 128


def made_up(rows, dim, dtype, seed):
    random = np.random.default_rng(seed)
    features = random.standard_normal((rows, dim), np.float32)
    return features if dtype == np.float32 else np.clip(features * 32, -127, 127).astype(np.int8)


def best_times(searches, queries, seconds):
    """The best of each in ms, the number of rounds, and what each found."""
    best, found, rounds = {}, {}, 0
    start = time.perf_counter()
    while rounds < 2 or time.perf_counter() - start < seconds:
        for name, search in searches.items():
            before = time.perf_counter()
            found[name] = search(queries)
            taken = 1e3 * (time.perf_counter() - before)
            best[name] = min(best.get(name, taken), taken)
        rounds += 1
    return best, rounds, found


def cell(milliseconds, of_this_library):
    text = f"{milliseconds:.3g}" if milliseconds < 100 else f"{milliseconds:.0f}"
    ratio = milliseconds / of_this_library
    return text if ratio == 1 else f"{text}, {ratio:.2g}" if ratio < 10 else f"{text}, {ratio:.0f}"


def compare(searches, queries, seconds, title):
    lines = {name: [name] for name in searches}
    differing = {name: 0 for name in searches}
    all_rounds = []
    for batch in BATCHES:
        best, rounds, found = best_times(searches, queries[:batch], seconds)
        all_rounds.append(rounds)
        own = next(iter(searches))
        for name, milliseconds in best.items():
            lines[name].append(cell(milliseconds, best[own]))
            if batch == BATCHES[-1]:
                differing[name] = sum(set(a) != set(b) for a, b in zip(found[name], found[own]))
    print(f"\n| {title}, ms | " + " | ".join(f"{batch:,}" for batch in BATCHES) + " |")
    print("|---" * (1 + len(BATCHES)) + "|")
    for line in lines.values():
        print("| " + " | ".join(line) + " |")
    print(f"\nRounds: {', '.join(map(str, all_rounds))}. Queries of {batch:,} whose sets of {K} "
          f"differ from this library's: "
          + ", ".join(f"{name} {count}" for name, count in list(differing.items())[1:]) + ".")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("blas_search")
    parser.add_argument("--rows", type=int, default=1_000_000)
    parser.add_argument("--dim", type=int, default=128)
    parser.add_argument("--seconds", type=float, default=8)
    options = parser.parse_args()
    faiss.omp_set_num_threads(1)
    peer = f"faiss {faiss.__version__}"
    print(f"{options.rows:,} x {options.dim}, k {K}, one thread. {peer}, built with: "
          f"{faiss.get_compile_options().strip()}.")
    for dtype, title in ((np.float32, "float32"), (np.int8, "8-bit")):
        rows = made_up(options.rows, options.dim, dtype, seed=1)
        queries = made_up(BATCHES[-1], options.dim, dtype, seed=2)
        searches = {"this library": vekfind_search(rows), peer: faiss_search(rows)}
        if dtype == np.float32:
            searches["OpenBLAS sgemm"] = Blas(options.blas_search, rows).search
        compare(searches, queries, options.seconds, title)


if __name__ == "__main__":
    main()

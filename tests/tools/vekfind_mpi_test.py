"""vekfind-mpi against `vekfind search` over the same rows, and what it does when a rank fails.

Usage: vekfind_mpi_test.py WORK_DIR VEKFIND MPIEXEC VEKFIND_MPI
"""

import os
import sys

import feature_files as files

WORK, VEKFIND, MPIEXEC, VEKFIND_MPI = sys.argv[1:]
CONSTANTS = {"scale": 0.5, "bias": -3}


def path(name):
    return os.path.join(WORK, name)


def search(nr_ranks, *words, **expected):
    return files.run([MPIEXEC, "--oversubscribe", "-n", str(nr_ranks), VEKFIND_MPI,
                      *map(str, words)], **expected)


def content(name):
    with open(path(name), "rb") as file:
        return file.read()


def ranks_find_what_one_process_finds(rows, ids, queries):
    """From slices of one file, and from files that are dealt to the ranks."""
    tags = bytes(i % 2 for i in range(len(rows)))
    one = files.group(path("all.vek"), ids, rows, tags, CONSTANTS)
    cuts = (0, 10, 200, 202, len(rows))
    parts = [files.group(path("part%d.vek" % i), ids[begin:end], rows[begin:end], tags[begin:end],
                         CONSTANTS) for i, (begin, end) in enumerate(zip(cuts, cuts[1:]))]
    fvecs = files.fvecs(path("rows.fvecs"), rows)
    npy = files.npy(path("rows.npy"), "f", rows)
    small = files.npy(path("rows8.npy"), "b", [[round(30 * x) for x in row] for row in rows])
    small_queries = files.npy(path("queries8.npy"), "b",
                              [[round(30 * x) for x in row] for row in queries[:20]])
    q = files.npy(path("queries.npy"), "f", queries)
    for numbers, kinds, query_file, words in (
            ((1, 2, 4), ([one], parts), q, ("--threshold", 0.2, "-o", path("out.npz"))),
            ((5,), ([one], parts), q, ("--tag", 1, "-k", 3, "-o", path("out.csv"))),
            ((3,), ([fvecs], [npy]), q, ("-k", 100, "-o", path("out.json"))),
            ((2, 3), ([small],), small_queries, ("--int8", "-o", path("out.ivecs")))):
        files.run([VEKFIND, "search", *kinds[0], query_file, *map(str, words)])
        expected = content(os.path.basename(words[-1]))
        for nr_ranks in numbers:
            for kind in kinds:
                os.remove(words[-1])
                search(nr_ranks, *kind, "--queries", query_file, *words)
                assert content(os.path.basename(words[-1])) == expected, (nr_ranks, kind, words)
    assert len(files.read_csv(path("out.csv"))) == len(queries)
    assert search(2, one, "--queries", q) == files.run([VEKFIND, "search", one, q])


def a_failing_rank_ends_all(rows, queries):
    q = files.npy(path("queries.npy"), "f", queries)
    good = [files.group(path("good%d.vek" % i), [2 * i, 2 * i + 1], rows[:2], b"", CONSTANTS)
            for i in range(4)]
    cut = files.write(path("cut.vek"), content("good1.vek")[:-1])
    wide = files.group(path("wide.vek"), [9], [rows[0] * 2], b"", CONSTANTS)
    again = files.group(path("again.vek"), [8, 5], rows[:2], b"", CONSTANTS)
    twice = files.group(path("twice.vek"), [0], rows[:1], b"", CONSTANTS)
    scale = files.group(path("scale.vek"), [9], rows[:1], b"", {"scale": 1, "bias": -3})
    bias = files.group(path("bias.vek"), [9], rows[:1], b"", {"scale": 0.5, "bias": -2})
    nan = files.group(path("nan.vek"), [9], [[float("nan")] * len(rows[0])], b"", CONSTANTS)
    for nr_ranks, shards, status, error in (
            (4, [*good[:3], path("missing.vek")], 1, "rank 3: " + path("missing.vek")),
            (2, [good[0], cut], 1, "rank 1: " + cut), (2, [good[0], nan], 1, "nan.vek: row 0"),
            (2, [good[0], wide], 1, "wide.vek: it has %d dimensions" % (2 * len(rows[0]))),
            (2, [good[0], scale], 1, "scale.vek: it has another scale or bias"),
            (2, [good[0], bias], 1, "bias.vek: it has another scale or bias"),
            (3, [good[0], good[2], again], 1, "id 5 stands in the shards of ranks 1 and 2"),
            (2, [good[0], good[1], twice], 1, "id 0 stands twice in the shard of rank 0"),
            (2, [path("rows.npy"), path("rows.fvecs")], 1, "stand"),
            (2, [good[0], "--threads", "x"], 2, "--threads")):
        search(nr_ranks, *shards, "--queries", q, "-o", path("none.csv"), status=status, error=error)
        assert not os.path.exists(path("none.csv")), shards
    search(2, *good[:2], "--queries", wide, status=1, error="rank 0: " + wide)
    search(2, *good[:2], "--queries", q, "-o", WORK + "/no/out.csv", status=1, error="no/out.csv")
    assert "--queries" in search(2, "--help")


def has_clear_cuts(query, rows):
    """Whether no two rows at place k and behind it are too near to be told apart in floats."""
    distances = [d2 for _, d2 in files.nearest(rows, range(len(rows)), [query], 101)[0]]
    return all(distances[k] - distances[k - 1] > 1e-4 for k in (3, 10, 100))


def main():
    os.makedirs(WORK, exist_ok=True)
    rows, queries = files.random_rows(1, 501, 7), files.random_rows(2, 1200, 7)
    rows[400] = rows[3]  # a tie between shards
    queries[0] = rows[3]
    queries = [query for query in queries if has_clear_cuts(query, rows)]
    assert len(queries) > 1024  # more than are sent at once
    ids = [(i * 0x9E3779B97F4A7C15 + 5) % 2**64 for i in range(len(rows))]
    ranks_find_what_one_process_finds(rows, ids, queries)
    a_failing_rank_ends_all(rows, queries)


main()

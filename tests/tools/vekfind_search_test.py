"""`vekfind search` against a search in Python and the ground truth of the small real data set.

Usage: vekfind_search_test.py DATA_DIR WORK_DIR VEKFIND..., the last with its emulator before it.
"""

import json
import math
import os
import struct
import sys
import zipfile

import feature_files as files

DATA, WORK, *VEKFIND = sys.argv[1:]


def path(name):
    return os.path.join(WORK, name)


def search(*words, **expected):
    return files.run([*VEKFIND, "search", *map(str, words)], **expected)


def found(*words):
    search(*words, "-o", path("found.csv"))
    return files.read_csv(path("found.csv"))


def without_scores(results):
    return [[(id_, d2) for id_, _, d2 in results[query]] for query in sorted(results)]


def data(name, code):
    with open(os.path.join(DATA, name), "rb") as file:
        content = file.read()
    return struct.unpack("<%d%s" % (len(content) // struct.calcsize("<" + code), code), content)


def shards_find_what_a_group_finds():
    dim, nr_rows = 13, 301
    rows, queries = files.random_rows(1, nr_rows, dim), files.random_rows(2, 9, dim)
    rows[200], rows[30] = rows[7], rows[7]  # ties, in other shards
    queries[0] = rows[7]
    ids = [(i * 0x9E3779B97F4A7C15 + 5) % 2**64 for i in range(nr_rows)]
    expected = files.nearest(rows, ids, queries, 6)
    npy = files.npy(path("queries.npy"), "f", queries)
    group = files.group(path("rows.vek"), ids, rows)
    sources = ([group], [files.fvecs(path("rows.fvecs"), rows), "--ids",
                         files.npy(path("ids.npy"), "Q", ids)])
    one = found(group, npy, "-k", 6, "--scale", 0.5, "--bias", -3)
    for query, matches in one.items():
        for _, score, d2 in matches:
            assert abs(score - 1 / (1 + math.exp(0.5 * d2 - 3))) < 1e-5, (query, score, d2)
    for words in sources:
        for threads in (1, 2, 3, 7):
            assert found(*words, npy, "-k", 6, "--scale", 0.5, "--bias", -3, "--threads",
                         threads) == one
            # Similarities of 0 for all of them decide nothing.
            assert without_scores(found(*words, npy, "-k", 6, "--scale", 1e6, "--bias", 0,
                                        "--threads", threads)) == expected
    assert without_scores(one) == expected
    few = found(group, npy, "-k", 400, "--threads", 302)
    assert [len(few[query]) for query in few] == [nr_rows] * 9 and few[0][0][1] is None


def real_data_is_found():
    def split(numbers, width):
        return [numbers[i:i + width] for i in range(0, len(numbers), width)]

    ids = data("fashion128-base.ids.u64", "Q")
    for kind, code, words in (("", "f", ("--scale", 5, "--bias", -4)), ("i8", "b", ("--int8",))):
        name = "fashion128" + kind
        ending = ".i8" if kind else ".f32"
        rows = files.npy(path("base.npy"), code, split(data(name + "-base" + ending, code), 128))
        queries = files.npy(path("query.npy"), code,
                            split(data(name + "-query" + ending, code), 128))
        nearest = split(data(name + "-gt10.ids.u64", "Q"), 10)
        d2 = data(name + ("-gt10.d2.i32" if kind else "-gt10.d2.f64"), "i" if kind else "d")
        for threads in (1, 2, 4):
            results = found(rows, queries, "--ids", files.npy(path("ids.npy"), "Q", ids),
                            "--threads", threads, *words)
            flat = [match for query in range(100) for match in results[query]]
            if not kind:  # of 8-bit rows, query 59 has two at the tenth distance
                assert split(tuple(match[0] for match in flat), 10) == nearest, threads
            assert all(abs(a[2] - b) <= 1e-9 * b for a, b in zip(flat, d2)), (name, threads)


def tags_are_compared():
    rows, queries = files.random_rows(3, 50, 3), files.random_rows(4, 4, 3)
    npy = files.npy(path("queries.npy"), "f", queries)
    for size in (1, 2, 9):
        numbers = [i % 3 + (256 if size > 1 and i % 2 else 0) for i in range(50)]
        tags = b"".join(number.to_bytes(size, "little") for number in numbers)
        group = files.group(path("tagged.vek"), range(50), rows, tags)
        for tag in sorted(set(numbers)):
            kept = [i for i in range(50) if numbers[i] == tag]
            expected = files.nearest([rows[i] for i in kept], kept, queries, 4)
            for threads in (1, 3):
                assert without_scores(found(group, npy, "-k", 4, "--tag", tag, "--threads",
                                            threads)) == expected, (size, tag, threads)
    assert found(group, npy, "--tag", 77) == {}
    group = files.group(path("tagged.vek"), range(50), rows, bytes(50))
    search(group, npy, "--tag", 256, status=2, error="--tag 256 does not fit")
    search(path("queries.npy"), npy, "--tag", 0, status=2, error="no tags")


def queries_are_prepared_as_the_rows_were():
    rows = files.floats([[0.6, 0.8], [-0.8, 0.6], [0, -1]])
    constants = {"scale": 2.5, "bias": -1, "normalize": True}
    group = files.group(path("unit.vek"), [5, 6, 7], rows, constants=constants)
    queries = files.npy(path("long.npy"), "d", [[30, 40], [-8, 6.5]])
    results = found(group, queries, "-k", 2)
    assert [match[0] for match in results[0]] == [5, 6] and results[0][0][2] < 1e-12
    assert abs(results[0][0][1] - 1 / (1 + math.exp(-1))) < 1e-6
    assert found(group, queries, "-k", 1, "--no-normalize")[0][0][2] > 2000
    second = found(group, queries, "-k", 2, "--scale", 1, "--bias", 0)[0][1]
    assert abs(second[1] - 1 / (1 + math.exp(2))) < 1e-6, second
    unit = files.npy(path("more.npy"), "f", [[3, 4], [-4, 3], [0, -2]])
    assert [m[0] for m in found(unit, queries, "--normalize", "-k", 2)[0]] == [0, 1]
    shifted = files.npy(path("shifted.npy"), "f", [[1, 2]])
    mean = files.write(path("mean.npy"), b"\x93NUMPY\x01\x00\x3b\x00"
                       + b"{'descr': '<f4', 'fortran_order': False, 'shape': (2,), }".ljust(58)
                       + b"\n" + struct.pack("<2f", 1, 3))
    assert without_scores(found(group, shifted, "--no-normalize", "--mean", mean,
                                "-k", 1)) == [[(7, 0.0)]]
    nan = files.npy(path("nan.npy"), "f", [[math.nan, 0], [1, 2], [2, 2]])
    search(group, nan, status=1, error="row 0")
    for threads in (1, 2, 3):
        matches = found(nan, shifted, "--allow-nan", "--threads", threads)[0]
        assert [match[0] for match in matches] == [1, 2, 0] and math.isnan(matches[2][2])


def integers_are_shifted():
    rows = [[0, 255], [128, 127], [1, 255]]
    unsigned = files.npy(path("unsigned.npy"), "B", rows)
    signed = files.npy(path("signed.npy"), "b", [[-127, 127]])
    search(unsigned, signed, "--int8", "-k", 2, "-o", path("out.csv"), error="1 elements were -128")
    assert without_scores(files.read_csv(path("out.csv"))) == [[(0, 0.0), (2, 0.0)]]
    assert without_scores(found(unsigned, unsigned, "-k", 1)) == [[(i, 0.0)] for i in range(3)]


def formats_agree():
    rows = files.npy(path("rows.npy"), "f", [[0, 0], [3, 4], [6, 8]])
    queries = files.npy(path("queries.npy"), "f", [[3, 3], [0, 1]])
    words = (rows, queries, "-k", 2, "--scale", 1, "--bias", -4, "--threshold", 0.5, "-o")
    expected = found(*words[:-1])
    assert [[(m[0], round(m[1], 3), m[2]) for m in expected[q]] for q in (0, 1)] == [
        [(1, 0.953, 1.0)], [(0, 0.953, 1.0)]]
    for name in ("out.json", "out.npz", "out.ivecs", "out.txt"):
        search(*words, path(name))
    with open(path("out.json")) as file:
        content = json.load(file)
    assert content["k"] == 2 and {
        q: [(m["id"], m["score"], m["squared_distance"]) for m in matches]
        for q, matches in enumerate(content["queries"])} == expected
    with zipfile.ZipFile(path("out.npz")) as archive:
        assert archive.testzip() is None
        for name, code, values in (("ids", "<u8", (1, files.NONE, 0, files.NONE)),
                                   ("scores", "<f4", (expected[0][0][1], -1.0) * 2)):
            content = archive.read(name + ".npy")
            header = eval(content[10:10 + struct.unpack_from("<H", content, 8)[0]])
            assert header == {"descr": code, "fortran_order": False, "shape": (2, 2)}
            numbers = struct.unpack("<4" + {"<u8": "Q", "<f4": "f"}[code], content[-int(code[2]) * 4:])
            assert all(abs(a - b) <= 1e-7 * abs(b) for a, b in zip(numbers, values)), numbers
        last = struct.unpack("<4d", archive.read("squared_distances.npy")[-32:])
        assert last[0] == last[2] == 1 and math.isnan(last[1]) and math.isnan(last[3])
    with open(path("out.ivecs"), "rb") as file:
        assert struct.unpack("<6i", file.read()) == (2, 1, -1, 2, 0, -1)
    with open(path("out.txt")) as file:
        table = file.read()
    assert table == search(*words[:-1]) and table.split()[-5:-2] == ["1", "1", "0"]
    high = files.npy(path("high.npy"), "Q", [1, 2**31, 2])
    search(*words[:-1], "--ids", high, "-o", path("out.ivecs"), status=1,
           error="found id 2147483648")
    assert os.path.getsize(path("out.ivecs")) == 24  # the old one


def bad_words_are_refused():
    rows = files.npy(path("rows.npy"), "f", [[0, 0], [3, 4]])
    wide = files.npy(path("wide.npy"), "f", [[0, 0, 0]])
    group = files.group(path("g.vek"), [1, 2], [[0, 0], [3, 4]])
    for status, error, words in (
            (2, "--threshold needs", ("--threshold", 0.5)), (2, "or neither", ("--scale", 1)),
            (2, "above 0", ("--scale", 0, "--bias", 1)), (2, "-k must be", ("-k", 0)),
            (2, ".npz or .ivecs", ("-o", "a.xyz")), (2, "threads", ("--threads", 0)),
            (1, "float32, not 8-bit", ("--int8",)), (2, "neither normalized", ("--int8", "--normalize"))):
        search(rows, rows, *words, status=status, error=error)
    search(rows, wide, status=1, error="the queries have 3 dimensions, the rows 2")
    search(rows, path("missing.npy"), status=1, error="missing.npy")
    search(group, rows, "--ids", rows, status=2, error="of its own")
    search(rows, rows, "--ids", files.npy(path("same.npy"), "Q", [4, 4]), status=1, error="same.npy")
    with open(group, "rb") as file:
        content = file.read()
    search(files.write(path("cut.vek"), content[:50]), rows, status=1, error="cut.vek")


os.makedirs(WORK, exist_ok=True)
shards_find_what_a_group_finds()
real_data_is_found()
tags_are_compared()
queries_are_prepared_as_the_rows_were()
integers_are_shifted()
formats_agree()
bad_words_are_refused()

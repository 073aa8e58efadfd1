"""`vekfind build`, `info`, `convert` and `export`: what they write, byte for byte, and what they
refuse.

Usage: vekfind_test.py WORK_DIR VEKFIND..., the last with its emulator before it.
"""

import glob
import json
import os
import re
import resource
import shutil
import signal
import struct
import subprocess
import sys
import time

import feature_files as files

WORK, *VEKFIND = sys.argv[1:]
ROWS = files.random_rows(3, 120, 6)
IDS = [7 + 3 * i for i in range(120)]
DAMAGED = [row[:] for row in ROWS]
DAMAGED[17][2] = float("nan")


def path(name):
    return os.path.join(WORK, name)


def read(name):
    with open(path(name), "rb") as file:
        return file.read()


def vekfind(*words, **expected):
    return files.run([*VEKFIND, *words], **expected)


def refused(status, error, *words, limit=None):
    """One line on the standard error, the old files as they were, and nothing beside them."""
    before = {name: os.stat(path(name)).st_mtime_ns for name in os.listdir(WORK)}
    run = subprocess.run([*VEKFIND, *words], capture_output=True, text=True, preexec_fn=limit)
    lines = re.sub(r"(?m)^qemu: .*\n", "", run.stderr)
    assert run.returncode == status and lines.count("\n") == 1, (words, run)
    assert lines.startswith("vekfind: ") and re.search(error, lines), (words, lines)
    assert before == {name: os.stat(path(name)).st_mtime_ns for name in os.listdir(WORK)}, words


def csv(name, rows, head=""):
    text = head + "".join(", ".join("%.9g" % number for number in row) + "\n" for row in rows)
    return files.write(path(name), text.encode())


def bvecs(name, rows):
    return files.write(path(name), b"".join(struct.pack("<i%dB" % len(row), len(row), *row)
                                            for row in rows))


def text(name, numbers):
    return files.write(path(name), "".join("%d\n" % number for number in numbers).encode())


def sources(rows):
    """The same features in each format."""
    return [files.npy(path("rows.npy"), "f", rows), files.npy(path("doubles.npy"), "d", rows),
            files.fvecs(path("rows.fvecs"), rows), csv("rows.csv", rows),
            csv("named.CSV", rows, "a, b, c\n\n"), files.group(path("rows.vek"), IDS, rows)]


def array(name):
    """Type, shape and bytes."""
    content = read(name)
    begin = 10 + struct.unpack_from("<H", content, 8)[0]
    header = eval(content[10:begin])
    return header["descr"], header["shape"], content[begin:]


def packed(rows):
    return b"".join(struct.pack("<%df" % len(row), *row) for row in rows)


def numbers(name, code):
    content = array(name)[2]
    return list(struct.unpack("<%d%s" % (len(content) // struct.calcsize(code), code), content))


def a_build_is_the_group_of_its_rows():
    expected = open(files.group(path("expected"), IDS, ROWS), "rb").read()
    ids = [files.npy(path("ids.npy"), "Q", IDS), text("ids.txt", IDS)]
    for i, source in enumerate(sources(ROWS)):
        vekfind("build", source, "-o", path("built.vek"), "--ids", ids[i % 2])
        assert read("built.vek") == expected, source
    vekfind("build", path("rows.npy"), "-o", path("built.vek"))
    assert read("built.vek")[32:32 + 8 * 120] == struct.pack("<120Q", *range(120))

    # Rows of several pieces, and tags: bytes, and numbers that take two bytes.
    rows, ids = files.random_rows(4, 20000, 64), list(range(20000))
    tags = [i % 700 for i in ids]
    source = files.npy(path("many.npy"), "f", rows)
    wanted = files.group(path("expected"), ids, rows, struct.pack("<20000H", *tags))
    pairs = files.npy(path("tags.npy"), "B", [[tag % 256, tag // 256] for tag in tags])
    for file in (text("tags.txt", tags), pairs):
        vekfind("build", source, "-o", path("many.vek"), "--tags", file)
        assert read("many.vek") == open(wanted, "rb").read(), file


def constants_stand_beside_a_group():
    def constants(*words):
        vekfind("build", *words, "-o", path("constant.vek"))
        return json.loads(read("constant.vek.json"))

    assert constants(path("rows.npy"), "--scale", "0.1", "--bias", "-4") == {
        "scale": 0.1, "bias": -4, "normalize": False}
    kept = files.group(path("kept.vek"), IDS, ROWS, bytes(range(120)),
                       {"scale": 2, "bias": -3.5, "normalize": True, "note": ["x", {"y": None}]})
    assert constants(kept) == {"scale": 2, "bias": -3.5, "normalize": True}
    assert read("constant.vek") == read("kept.vek")
    assert constants(path("rows.npy"), "--normalize") == {"normalize": True}
    vekfind("export", path("constant.vek"))
    for row, unit in zip(ROWS, zip(*[iter(numbers("constant.features.npy", "f"))] * 6)):
        length = sum(number * number for number in row) ** 0.5
        assert all(abs(a / length - b) < 1e-6 for a, b in zip(row, unit))


def bytes_are_kept_off_the_lowest():
    rows = [[0, 1, 127, 128, 129, 255], [5, 6, 0, 8, 9, 10]]
    signed = [max(number - 128, -127) for row in rows for number in row]
    for source in (bvecs("bytes.bvecs", rows), files.npy(path("bytes.npy"), "B", rows),
                   files.npy(path("signed.npy"), "b", [[n - 128 for n in row] for row in rows])):
        out = vekfind("build", source, "-o", path("kept.npy"))
        assert "2 elements of -128 are -127" in out, out
        assert array("kept.npy") == ("|i1", (2, 6), struct.pack("<12b", *signed)), source
    vekfind("convert", path("kept.npy"), path("back.bvecs"))
    assert read("back.bvecs") == open(bvecs("wanted.bvecs", [[1, 1, 127, 128, 129, 255],
                                                             [5, 6, 1, 8, 9, 10]]), "rb").read()
    vekfind("build", path("bytes.bvecs"), "-o", path("floats.vek"))
    assert read("floats.vek") == open(files.group(path("expected"), [0, 1], rows), "rb").read()


def formats_convert_into_each_other():
    for source in sources(ROWS):
        for suffix, wanted in ((".npy", "rows.npy"), (".fvecs", "rows.fvecs"), (".csv", None)):
            vekfind("convert", source, path("converted" + suffix))
            if wanted:
                same = array if suffix == ".npy" else read
                assert same("converted" + suffix) == same(wanted), (source, suffix)
        vekfind("convert", path("converted.csv"), path("again.fvecs"))
        assert read("again.fvecs") == read("rows.fvecs"), source


    # The first line ends where the second piece that is read begins.
    edge = files.write(path("edge.csv"), b"1,2".ljust(1 << 20) + b"\n3,4")
    vekfind("convert", edge, path("edge.npy"))
    assert array("edge.npy")[1:] == ((2, 2), packed([[1, 2], [3, 4]]))


def a_mean_is_kept_for_the_queries():
    far = files.floats([[number + 1000 * (i + 1) for i, number in enumerate(row)] for row in ROWS])
    source = files.npy(path("far.npy"), "f", far)
    vekfind("build", source, "-o", path("far.vek"), error="times as far")
    vekfind("convert", source, path("near.npy"), "--center")
    mean = files.floats([[sum(column) / 120 for column in zip(*far)]])[0]
    assert numbers("near.mean.npy", "f") == mean
    near = files.floats([[a - b for a, b in zip(row, mean)] for row in far])
    assert numbers("near.npy", "f") == [number for row in near for number in row]
    vekfind("convert", csv("far.csv", far), path("csv.npy"), "--center")
    assert read("csv.npy") == read("near.npy")
    vekfind("build", source, "-o", path("far.vek"), "--mean", path("near.mean.npy"))
    vekfind("build", path("near.npy"), "-o", path("near.vek"))
    assert read("far.vek") == read("near.vek")


def recall_is_that_of_a_search():
    out = vekfind("convert", path("rows.npy"), path("quantized.npy"), "--int8")
    scale = float(re.search("scale: (.*) \\(", out)[1])
    assert abs(scale * max(abs(number) for row in ROWS for number in row) - 127) < 1e-4
    whole = [[max(min(round(number * scale), 127), -127) for number in row] for row in ROWS]
    assert numbers("quantized.npy", "b") == [number for row in whole for number in row]
    others = [i for i in range(120) if i % 10]

    def found(rows):
        return [{id_ for id_, _ in nearest} for nearest in files.nearest(
            [rows[i] for i in others], others, rows[::10], 10)]

    common = sum(len(a & b) for a, b in zip(found(ROWS), found(whole)))
    assert "recall@10: %.3f (12 rows of the file searched in 108 others)" % (common / 120) in out
    vekfind("convert", path("rows.npy"), path("q.npy"), "--int8", "--int8-scale", "100")
    assert max(numbers("q.npy", "b")) == 127 and min(numbers("q.npy", "b")) == -127


def info_and_export_tell_what_is_there():
    tags = bytes(range(240))
    group = files.group(path("info.vek"), IDS[::-1], DAMAGED, tags, {"scale": 2, "bias": -3.5})
    facts = json.loads(vekfind("info", group, "--json"))
    lengths = [sum(number * number for number in row) ** 0.5 for row in ROWS[:17] + ROWS[18:]]
    assert abs(facts.pop("least_length") - min(lengths)) < 1e-6
    assert abs(facts.pop("greatest_length") - max(lengths)) < 1e-6
    assert 0 < facts.pop("distance_ratio") < 1
    assert facts == {
        "file": group, "format": "group", "bytes": os.path.getsize(group), "rows": 120, "dim": 6,
        "type": "float32", "tag_bytes": 2, "least_id": 7, "greatest_id": 364, "scale": 2,
        "bias": -3.5, "normalize": False, "not_finite_rows": 1}
    assert "the first is row 17" in vekfind("info", group)
    empty = files.write(path("no_rows.vek"), struct.pack("<8s4Q", b"vek00001", 24, 0, 0, 0))
    assert "rows: 0" in vekfind("info", empty)

    drift = files.npy(path("drift.npy"), "f", [[i, 10] for i in range(601)])
    ratio = json.loads(vekfind("info", drift, "--json"))["distance_ratio"]
    variance = sum((i - 300) ** 2 for i in range(601)) / 601
    assert abs(ratio - ((300 ** 2 + 10 ** 2) / variance) ** 0.5) < 1e-6

    # Rows of 26 bytes, of which 2 are no float; no version, as in older files.
    padded = struct.pack("<3Q", 26, 1, 2) + struct.pack("<3Q", 5, 4, 0) + b"".join(
        packed([row]) + b"\xff\xff" for row in ROWS[:2]) + b"ab"
    vekfind("export", files.write(path("old.vek"), padded))
    assert array("old.features.npy") == ("<f4", (2, 6), packed(ROWS[:2]))
    assert array("old.tags.npy") == ("|u1", (2, 1), b"ab") and numbers("old.ids.npy", "Q") == [5, 4]

    vekfind("export", group, "-o", path("out"))
    assert array("out.ids.npy") == ("<u8", (120,), struct.pack("<120Q", *IDS[::-1]))
    assert array("out.features.npy")[1:] == ((120, 6), packed(DAMAGED))
    assert array("out.tags.npy") == ("|u1", (120, 2), tags)


def with_change(source, position, change):
    content = bytearray(read(source))
    content[position:position + len(change)] = change
    return files.write(path("changed-%d" % position + os.path.splitext(source)[1]), content)


def bad_features_are_refused():
    vekfind("build", path("rows.npy"), "-o", path("kept.vek"))
    whole = read("rows.npy")
    overflow = [[0.0] * 6, [0.0] * 5 + [1e300]]
    for error, name, content in (
            ("byte 0: the file is empty", "bad.npy", b""),
            ("byte 0: the file is empty", "bad.fvecs", b""),
            ("no rows", "bad.csv", b"a,b\n"),
            ("bytes, not the 2880", "bad.npy", whole[:-7]),
            ("byte 10: the file ends in the header", "bad.npy", whole[:50]),
            ("rows of 0 elements", "bad.npy", whole[:10] + b"{'descr': '<f4', 'fortran_order': "
             b"False, 'shape': (9, 0)}".ljust(struct.unpack_from("<H", whole, 8)[0])),
            ("no rows", "bad.npy", whole[:10] + b"{'descr': '<f4', 'fortran_order': "
             b"False, 'shape': (0, 9)}".ljust(struct.unpack_from("<H", whole, 8)[0])),
            ("byte 3332: the file ends in row 119", "bad.fvecs", read("rows.fvecs")[:-1]),
            ("byte 10: row 2: element 1 is no number", "bad.csv", b"1,2\n3,4\n5,x\n"),
            ("byte 5: row 1: has 1 elements, not 2", "bad.csv", b"1,2\n3\n"),
            ("row 1: has more than 2", "bad.csv", b"1,2\n3,4,\n"),
            ("row 0: element 1 is beyond", "bad.csv", b"1,1e39\n"),
            ("byte 1000: the file ends here, not at byte 3880", "bad.vek",
             read("rows.vek")[:1000]),
            ("byte 3: version 7", "bad.vek", b"vek00007" + read("rows.vek")[8:])):
        refused(1, "bad.*" + error, "build", files.write(path(name), content), "-o",
                path("kept.vek"))
    for error, source in (
            ("row 17: holds NaN", files.npy(path("bad.npy"), "f", DAMAGED)),
            ("row 17000: holds NaN", with_change(
                "many.npy", len(read("many.npy")) - 3000 * 256, struct.pack("<f", float("nan")))),
            ("row 1: element 5 is beyond", files.npy(path("beyond.npy"), "d", overflow)),
            ("byte 28: row 1 has 5 elements, not 6",
             with_change("rows.fvecs", 28, struct.pack("<i", 5))),
            ("row 1: the id 7 is that of row 0",
             with_change("rows.vek", 40, struct.pack("<Q", 7))),
            ("byte 992: the reserved field", with_change("rows.vek", 992, b"\1")),
            ("cannot be read: No such file", path("missing.npy")),
            ("not a regular file", WORK)):
        refused(1, error, "build", source, "-o", path("kept.vek"))
    files.npy(path("bad.npy"), "f", DAMAGED)
    vekfind("build", path("bad.npy"), "-o", path("damaged.vek"), "--allow-nan")
    refused(1, "row 0: has no direction", "build", files.npy(path("bad.npy"), "f", [[0.0] * 6]),
            "-o", path("kept.vek"), "--normalize")


def bad_ids_and_words_are_refused():
    for error, ids in (("row 5: the id 10 is that of row 1", IDS[:5] + [10] + IDS[6:]),
                       ("119 numbers for 120 rows", IDS[1:]),
                       ("row 2: the id 18446744073709551615", IDS[:2] + [files.NONE] + IDS[3:])):
        for file in (files.npy(path("bad.npy"), "Q", ids), text("bad.txt", ids)):
            refused(1, error, "build", path("rows.npy"), "-o", path("kept.vek"), "--ids", file)
    refused(1, "row 1: byte 2: no number", "build", path("rows.npy"), "-o", path("kept.vek"),
            "--tags", files.write(path("bad.txt"), b"1\n-2\n"))
    files.write(path("kept.vek.json"), b'{"scale": 0}')
    refused(1, "kept.vek.json: byte 10: scale is not above 0", "info", path("kept.vek"))
    files.write(path("kept.vek.json"), b'{"scale": 1')
    refused(1, "kept.vek.json: byte 11: ", "info", path("kept.vek"))
    to = ("-o", path("kept.vek"))
    for error, words in (("ends in .vek", ("-o", path("x.bin"))), ("required", ()),
                         ("--scale requires --bias", (*to, "--scale", "2")),
                         ("above 0", (*to, "--scale", "0", "--bias", "1")),
                         ("has --ids", ("-o", path("x.npy"), "--ids", path("ids.txt")))):
        refused(2, error, "build", path("rows.npy"), *words)
    refused(2, "a command is needed")
    refused(2, "does not hold float32", "convert", path("rows.npy"), path("x.bvecs"))
    refused(1, "not 8-bit integers", "build", path("rows.npy"), "-o", path("x.npy"))


def an_old_file_outlives_what_goes_wrong():
    # A disk that is full looks like this, and a write of 16 KiB at most does not fit.
    def small_files():
        resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 14, 1 << 14))

    for output in ("many.vek", "many.npy"):
        refused(1, output + ": cannot be written", "build" if output == "many.vek" else "convert",
                path("many.vek"), *(["-o"] if output == "many.vek" else []), path(output),
                limit=small_files)
    lines = csv("long.csv", ROWS * 1000)
    before = read("many.vek")
    # A shell that starts a test in the background has the signal ignored.
    build = subprocess.Popen([*VEKFIND, "build", lines, "-o", path("many.vek")],
                             preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    while not glob.glob(path("many.vek.*.tmp")):
        assert build.poll() is None
        time.sleep(0.001)
    build.send_signal(signal.SIGINT)
    assert build.wait() == -signal.SIGINT and read("many.vek") == before
    assert not glob.glob(path("*.tmp*")), os.listdir(WORK)


def an_old_file_s_mode_and_links_stay():
    os.chmod(path("many.vek"), 0o640)
    os.symlink("many.vek", path("link.vek"))
    vekfind("build", path("rows.npy"), "-o", path("link.vek"))
    assert os.path.islink(path("link.vek")) and os.path.getsize(path("many.vek")) == 3880
    assert os.stat(path("many.vek")).st_mode & 0o777 == 0o640
    os.mkdir(path("folder.vek"))
    refused(1, "not a regular file, so it is not replaced", "build", path("rows.npy"), "-o",
            path("folder.vek"))


def main():
    shutil.rmtree(WORK, ignore_errors=True)
    os.makedirs(WORK)
    a_build_is_the_group_of_its_rows()
    constants_stand_beside_a_group()
    bytes_are_kept_off_the_lowest()
    formats_convert_into_each_other()
    a_mean_is_kept_for_the_queries()
    recall_is_that_of_a_search()
    info_and_export_tell_what_is_there()
    bad_features_are_refused()
    bad_ids_and_words_are_refused()
    an_old_file_outlives_what_goes_wrong()
    an_old_file_s_mode_and_links_stay()


main()

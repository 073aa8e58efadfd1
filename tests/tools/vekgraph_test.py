"""What vekgraph makes of a graph that the library has just written, of broken files and of bad use.

Usage: vekgraph_test.py GOLDEN_DIR WORK_DIR SMALL_GRAPH VEKGRAPH..., the last with its emulator
before it.
"""

import json
import os
import re
import struct
import subprocess
import sys

GOLDEN, WORK, SMALL_GRAPH, *VEKGRAPH = sys.argv[1:]
EMULATOR = VEKGRAPH[:-1]
INPUT = 'x="&\\\n'
EMPTY = bytes.fromhex("6f7262303030310a88b80a006d5f38e31f810d3e" + "00" * 16 + "08" * 7 + "0000")


def path(name):
    return os.path.join(WORK, name)


def write(name, content):
    with open(path(name), "wb") as file:
        file.write(content)
    return path(name)


def npy(name, code, shape, values, order="False"):
    header = "{'descr': '<%s', 'fortran_order': %s, 'shape': %s}\n" % (
        {"f": "f4", "i": "i4"}[code], order, shape)
    return write(name, b"\x93NUMPY\x01\x00" + struct.pack("<H", len(header)) + header.encode()
                 + struct.pack("<%d%s" % (len(values), code), *values))


def read_npy(name, code):
    with open(path(name), "rb") as file:
        content = file.read()
    begin = 10 + struct.unpack_from("<H", content, 8)[0]
    assert begin % 64 == 0, begin
    header = eval(content[10:begin])
    count = (len(content) - begin) // struct.calcsize(code)
    return header["descr"], header["shape"], struct.unpack_from("<%d%s" % (count, code), content, begin)


def vekgraph(*words, status=0, error=None, env=None):
    """Its standard output. What it says of errors is one line that has the pattern."""
    run = subprocess.run(VEKGRAPH + list(words), capture_output=True, text=True, env=env)
    assert run.returncode == status, (words, run)
    errors = re.sub(r"(?m)^qemu: .*\n", "", run.stderr)  # the emulator tells of signals, too
    assert (errors == "") == (error is None), (words, run)
    if error is not None:
        assert errors.count("\n") == 1 and re.search(error, errors), (words, errors)
    return run.stdout


def product(rows):
    return [row[0] * w[0] + row[1] * w[1] + row[2] * w[2] + 1
            for row in rows for w in ((1, 3, 5), (2, 4, 6))]


def test_what_a_good_file_holds(graph):
    facts = json.loads(vekgraph("info", graph, "--json"))
    assert [(t["name"], t["shape"], t["bytes"]) for t in facts["inputs"]] == [(INPUT, [2, 3], 24)]
    assert [(t["name"], t["shape"], t["shared"]) for t in facts["parameters"]] == [("w", [3, 2], True)]
    assert [t["name"] for t in facts["outputs"]] == ["sum", "../rounded"]
    assert sum(t["count"] for t in facts["operators"]) == facts["nr_operators"] == 6
    text = vekgraph("info", graph)
    assert re.search(r"\n +1 +0x59507e5620a94e88 +matrix multiplication\n", text), text
    assert "\\x0a" in text, text  # the name of x does not break its line
    findings = json.loads(vekgraph("check", graph, "--json"))
    assert findings["good"] and findings["hash"] == findings["digest"], findings
    assert "3 bytes behind" in vekgraph("check", write("longer", open(graph, "rb").read() + b"abc"))
    empty = write("empty", EMPTY)
    assert json.loads(vekgraph("info", empty, "--json"))["nr_operators"] == 0
    vekgraph("check", empty)
    vekgraph("run", empty, status=1, error="no outputs")


def test_golden_files(_):
    for name in sorted(os.listdir(GOLDEN)):
        golden = os.path.join(GOLDEN, name)
        if name.startswith("good-") and name.endswith(".graph"):
            vekgraph("check", golden)
            vekgraph("draw", golden)
        elif name.endswith(".graph"):
            vekgraph("check", golden, status=1, error=name + r": byte \d+")
    stopped = json.loads(vekgraph("info", os.path.join(GOLDEN, "bad-unavailable-id.graph"), "--json"))
    assert stopped["stopped"]["title"] != "unknown operator", stopped


def test_broken_files(graph):
    content = open(graph, "rb").read()
    for length in (0, 8, 40, len(content) // 2, len(content) - 1):
        vekgraph("check", write("cut", content[:length]), status=1, error=r"cut: byte \d+.*: .")
    vekgraph("info", write("magic", b"x" + content[1:]), status=1, error="byte 0: .*not a graph file")
    weight = content.index(struct.pack("<f", 6))
    changed = write("changed", content[:weight] + struct.pack("<f", 7) + content[weight + 4:])
    vekgraph("check", changed, status=1, error="digest")
    # The shape of w stands ahead of its value: [2, 3] cannot be multiplied from the right.
    shape = content.index(bytes([3, 2]) + struct.pack("<f", 1))
    swapped = write("swapped", content[:shape] + bytes([2, 3]) + content[shape + 2:])
    run = subprocess.run(VEKGRAPH + ["check", "--json", swapped], capture_output=True, text=True)
    fault = json.loads(run.stdout)["faults"][1]
    assert run.returncode == 1 and fault["stage"] == "load", run
    assert "matrix multiplication" in fault["text"] and fault["byte"] > weight, fault
    x = npy("x.npy", "f", (2, 3), range(6))
    vekgraph("run", swapped, "--input", INPUT + "=" + x, status=1, error="stopped by a check")
    wide = npy("wide.npy", "f", (1, 4), range(4))
    vekgraph("run", graph, "--input", INPUT + "=" + wide, status=1,
             error=r"matrix multiplication .* of \{1,4\}, \{3,2\}: stopped by a check")
    # Another id for the product in the list of types.
    known = struct.pack("<Q", 0x59507E5620A94E88)
    unknown = write("unknown", content.replace(known, known[::-1]))
    vekgraph("check", unknown, status=1, error=r"byte \d+, operator \d+: .*id is not known")
    assert "stopped: operator" in vekgraph("info", unknown)
    assert "cannot be read" in vekgraph("draw", unknown)


def test_runs(graph):
    rows = [(1, 2, 3), (-4, 5, 0), (2, 0, 2)]
    x = npy("more.npy", "f", (3, 3), [value for row in rows for value in row])
    words = ["run", graph, "--input", INPUT + "=" + x, "--json"]
    result = json.loads(vekgraph(*words, "--output-dir", path("out/a"), "--repeat", "5", "--profile"))
    assert read_npy("out/a/sum.npy", "f") == ("<f4", (3, 2), tuple(product(rows)))
    assert read_npy("out/a/_.._rounded.npy", "b")[2] == tuple(product(rows))
    assert result["runs"] == 5 and result["fastest_seconds"] <= result["median_seconds"], result
    steps = {row["operator"]: row["steps"] for row in result["profile"]}
    assert steps["matrix multiplication"] == 4, steps
    words += ["--output-dir", path("out/b"), "--node", "cpu0", "--record", "--repeat", "2"]
    assert json.loads(vekgraph(*words))["recorded"]
    assert read_npy("out/b/sum.npy", "f") == read_npy("out/a/sum.npy", "f")


def test_bad_use(graph):
    x = npy("x.npy", "f", (2, 3), range(6))
    given = ["run", graph, "--input", INPUT + "=" + x]
    for words, error in (
            ([], "command is needed"), (["info"], "FILE"), (["info", graph, "--colour"], "--colour"),
            (["check", path("none")], "none"), (["check", WORK], "not a file"),
            (["check", graph, "--node", "gpu0"], "gpu0"), (["run", graph], "missing"),
            (["run", graph, "--input", "y=" + x], "y="), (given + given[2:], "twice"),
            (given + ["--record"], "worker"), (given + ["--repeat", "0"], "repeat"),
            (["run", graph, "--input", INPUT + "=" + npy("i.npy", "i", (6,), range(6))], "int32"),
            (["draw", graph, "-o", path("x.txt")], "x.txt")):
        vekgraph(*words, status=2, error=error)
    for bad in (npy("short.npy", "f", (2, 3), range(5)), npy("order.npy", "f", (2, 3), range(6), "True"),
                npy("huge.npy", "f", (1 << 62, 1 << 62, 0), []), write("no.npy", b"\x93NUMPY\x09\x00")):
        vekgraph("run", graph, "--input", INPUT + "=" + bad, status=1, error=r"npy: byte \d+: ")


def test_pictures(graph):
    text = vekgraph("draw", graph)
    assert 'input x=\\"&amp;\\\\\\\\x0a' in text, text
    assert text.count("->") == 7, text
    assert len(json.loads(vekgraph("draw", graph, "--json"))["operators"]) == 6
    if EMULATOR:
        return  # a program of the host cannot be started from there
    os.makedirs(path("bin"), exist_ok=True)
    write("bin/dot", b'#!/bin/sh\necho "$1" > "$3" && cat >> "$3"\n')
    os.chmod(path("bin/dot"), 0o755)
    vekgraph("draw", graph, "-o", path("a.svg"), env={"PATH": path("bin") + ":/usr/bin:/bin"})
    assert open(path("a.svg")).read() == "-Tsvg\n" + text
    vekgraph("draw", graph, "-o", path("a.png"), status=2, error="not installed", env={"PATH": WORK})


os.makedirs(WORK, exist_ok=True)
subprocess.run(EMULATOR + [SMALL_GRAPH, path("graph.orb")], check=True)
for name, test in list(globals().items()):
    if name.startswith("test_"):
        test(path("graph.orb"))

"""What vekfind calibrate finds against laws that are known and against NumPy, its thresholds in the
library's own searches, what it refuses; the figures of vekfind bench.

Usage: vekfind_calibrate_test.py DATA_DIR WORK_DIR VEKFIND
"""

import json
import os
import re
import subprocess
import sys
import xml.etree.ElementTree

import numpy as np

import vekfind

DATA, WORK, COMMAND = sys.argv[1:]
RANDOM = np.random.default_rng(5)


def path(name):
    return os.path.join(WORK, name)


def save(name, array):
    np.save(path(name), array)
    return path(name)


def run(*words, status=0, error=None):
    done = subprocess.run([COMMAND, *map(str, words)], capture_output=True, text=True)
    assert done.returncode == status and done.stderr.count("\n") == (error is not None), done
    assert error is None or re.search(error, done.stderr), done
    return done.stdout


def calibrate(features, labels, *words):
    return json.loads(run("calibrate", features, "--labels", labels, "--json", *words))


def pair_distances(rows, labels):
    rows = rows.astype(float)
    squares = (rows * rows).sum(1)
    distances = squares[:, None] + squares - 2 * rows @ rows.T
    first, second = np.triu_indices(len(rows), 1)
    is_same = labels[first] == labels[second]
    return distances[first, second][is_same], distances[first, second][~is_same]


def test_known_law():
    """Normally distributed rows around normally distributed centres: chi-squared distances of two
    sizes, whose likelihood ratio is a logistic law exactly."""
    dim, within, between, classes = 4, 1.0, 1.7, 2500
    labels = np.repeat(np.arange(classes), 3)
    centres = RANDOM.normal(0, between, (classes, dim))
    rows = centres[labels] + RANDOM.normal(0, within, (len(labels), dim))
    shuffled = RANDOM.permutation(len(rows))
    features = save("law.npy", rows[shuffled].astype(np.float32))
    names = path("law.txt")
    with open(names, "w") as file:
        file.write("".join(f" class {label}\r\n" for label in labels[shuffled]))
    near, far = 2 * within ** 2, 2 * (within ** 2 + between ** 2)
    for prior in (0.5, 0.1):
        found = calibrate(features, names, "--prior", prior)
        assert found["classes"] == classes and found["same_pairs"] == 3 * classes, found
        assert found["other_pairs"] == 10_000_000 - 3 * classes < found["other_pairs_in_all"]
        bias = -dim / 2 * np.log(far / near) - np.log(prior / (1 - prior))
        assert abs(found["scale"] / ((1 / near - 1 / far) / 2) - 1) < 0.04, found
        assert abs(found["bias"] - bias) < 0.06, (found, bias)
        assert found["calibration_error"] < 0.01, found
    same, other = pair_distances(rows, labels)
    for rate in found["rates"]:
        distance, wanted = rate["squared_distance"], rate["false_accept_rate"]
        assert rate["enough_pairs"] and rate["needed_pairs"] == round(30 / wanted), rate
        assert rate["false_accepts"] <= wanted * found["other_pairs"], rate
        error = 4 / np.sqrt(rate["false_accepts"])
        assert abs((other <= distance).mean() / wanted - 1) < error, rate
        assert abs((same <= distance).mean() - rate["true_accept_rate"]) < 1e-9, rate
    numbers = save("law-labels.npy", labels[shuffled] - 7)
    assert found == calibrate(features, numbers, "--prior", 0.1)
    assert found["scale"] != calibrate(features, names, "--prior", 0.1, "--seed", 2)["scale"]


def test_real_data():
    """The fit's derivatives are 0, and a search with a threshold finds exactly the stated pairs."""
    rows = np.fromfile(f"{DATA}/digits64-base.f32", "<f4").reshape(-1, 64)
    labels = np.fromfile(f"{DATA}/digits64-base.labels.u8", np.uint8)
    features, group_path = save("digits.npy", rows), path("digits.vek")
    with vekfind.Group(64, scale=1, bias=0) as group:
        group.insert(rows, np.arange(len(rows)))
        group.save(group_path)
    found = calibrate(features, save("digits-labels.npy", labels), "--prior", 0.3,
                      "--write", group_path, "--plot", path("roc.svg"))
    same, other = pair_distances(rows, labels)
    assert (len(same), len(other)) == (found["same_pairs"], found["other_pairs"])
    probability = [1 / (1 + np.exp(found["scale"] * d + found["bias"])) for d in (same, other)]
    targets = (len(same) + 1) / (len(same) + 2), 1 / (len(other) + 2)
    for factor in ((1, 1), (same / 1000, other / 1000)):
        slopes = [np.mean((t - p) * f) for t, p, f in zip(targets, probability, factor)]
        assert abs(0.3 * slopes[0] + 0.7 * slopes[1]) < 3e-7, slopes
    truth = np.concatenate([np.full(len(same), 0.3 / len(same)), np.zeros(len(other))])
    share = np.concatenate([probability[0] * 0.3 / len(same), probability[1] * 0.7 / len(other)])
    bins = np.minimum(np.concatenate(probability) * 10, 9).astype(int)
    error = np.abs(np.bincount(bins, truth - share)).sum()
    assert abs(found["calibration_error"] - error) < 1e-7, error

    with vekfind.Group.load(group_path) as group:
        for given, kept in ((found["scale"], group.settings.scale),
                            (found["bias"], group.settings.bias)):
            assert "%.9g" % given == "%.9g" % np.float32(given), given
            assert np.float32(kept) == np.float32(given), (kept, given)
        for rate in found["rates"]:
            ids, _ = group.search(rows, len(rows), rate["threshold"])
            query, place = np.nonzero(ids != vekfind.INVALID_ID)
            is_same = labels[query] == labels[ids[query, place].astype(int)]
            accepts = (is_same.sum() - len(rows)) // 2, (~is_same).sum() // 2
            assert accepts[1] == rate["false_accepts"] <= rate["false_accept_rate"] * len(other)
            assert accepts[0] == round(rate["true_accept_rate"] * len(same)), rate
            assert rate["enough_pairs"] == (accepts[1] >= 30), rate
    drawn = xml.etree.ElementTree.parse(path("roc.svg")).getroot()
    assert len(drawn.findall("{*}circle")) == 5
    places = drawn.find("{*}polyline").get("points").split()
    heights = [float(place.split(",")[1]) for place in places]
    assert heights == sorted(heights, reverse=True) and heights[-1] == 30, heights
    said = run("calibrate", features, "--labels", path("digits-labels.npy"), "--plot",
               path("digits.svg"))
    assert "too few pairs; 3000000 are needed" in said
    with open(f"{DATA}/../docs/vekfind.md") as page:
        assert "".join(line.rstrip() + "\n" for line in said.splitlines()) in page.read(), said
    assert open(path("digits.svg")).read() == open(f"{DATA}/../docs/roc-digits64.svg").read()

    mean = rows.mean(0)
    unit = (rows - mean) / np.linalg.norm(rows - mean, axis=1, keepdims=True)
    of_unit = calibrate(save("unit.npy", unit), path("digits-labels.npy"))
    normalized = calibrate(features, path("digits-labels.npy"), "--normalize", "--mean",
                           save("mean.npy", mean))
    assert abs(normalized["scale"] / of_unit["scale"] - 1) < 1e-5, normalized
    run("calibrate", features, "--labels", path("digits-labels.npy"), "--normalize", "--write",
        group_path, status=2, error="digits.vek.json says .normalize.: false")
    run("calibrate", save("narrow.npy", rows[:, :3]), "--labels", path("digits-labels.npy"),
        "--write", group_path, status=1, error="rows of 64 elements; those of .* have 3")


def test_classes_that_a_distance_separates():
    """Platt's targets are met exactly."""
    features = save("apart.npy", np.repeat([[0.0], [1.0]], 3, 0))
    labels = save("apart-labels.npy", np.repeat([1, 2], 3))
    found = calibrate(features, labels)
    for distance, target in ((0, 7 / 8), (1, 1 / 11)):
        at = 1 / (1 + np.exp(found["scale"] * distance + found["bias"]))
        assert abs(at - target) < 1e-6, found
    assert not any("threshold" in rate for rate in found["rates"]), found
    said = run("calibrate", features, "--labels", labels)
    assert "tells all pairs apart" in said and said.count("no threshold") == 5, said


def test_refusals():
    rows = RANDOM.normal(size=(6, 2)).astype(np.float32)
    features, labels = save("rows.npy", rows), save("labels.npy", np.array([0, 0, 0, 1, 1, 1]))
    plot = path("kept.svg")
    with open(plot, "w") as file:
        file.write("old")
    for words, status, error in (
            ((features, save("one.npy", np.zeros(6, int))), 1, "all rows have the same label"),
            ((features, save("each.npy", np.arange(6))), 1, "no two rows have the same label"),
            ((features, save("five.npy", np.zeros(5, int))), 1, "5 labels for 6 rows"),
            ((features, save("float.npy", np.zeros(6))), 1, "float64 .* labels are integers"),
            ((features, save("axes.npy", np.zeros((6, 1), int))), 1, "2 axes"),
            ((save("nan.npy", np.where(rows == rows[4, 1], np.nan, rows)), labels), 1, "row 4"),
            ((save("alike.npy", np.ones((6, 2))), labels), 1, "no nearer to each other"),
            ((save("against.npy", np.arange(6.0)[:, None]), save("odd.npy", np.arange(6) % 2)), 1,
             "no nearer to each other"),
            ((features, labels, "--prior", "1"), 2, "--prior"),
            ((features, labels, "--write", path("none.vek")), 1, "none.vek"),
    ):
        run("calibrate", words[0], "--labels", *words[1:], "--plot", plot, status=status,
            error=error)
        with open(plot) as file:
            assert file.read() == "old", words


def test_bench():
    for words, kind in ((["--rows", 20000, "--dim", 64], "float32"),
                        (["--rows", 20000, "--dim", 64, "--int8"], "int8"),
                        ([path("digits.vek")], "float32")):
        found = json.loads(run("bench", *words, "--seconds", 0.02, "--json"))
        assert (found["type"], found["dim"]) == (kind, 64) and found["bytes_per_second"] > 1e8
        assert [line["queries"] for line in found["batches"]] == [4 ** n for n in range(6)]
        for line in found["batches"]:
            elements, peak = 64 * found["rows"], found["operations_per_second"]
            reading = elements * (1 if kind == "int8" else 4) / found["bytes_per_second"]
            bound = max(reading, 2 * elements * line["queries"] / peak if peak else 0)
            assert abs(line["bound_seconds"] / bound - 1) < 1e-6, line
            assert abs(line["share"] * line["seconds"] / bound - 1) < 1e-6, line
    assert "share" in run("bench", path("digits.vek"), "--seconds", 0.02)
    for words in ([], ["--rows", 5], [path("digits.vek"), "--int8"]):
        run("bench", *words, status=2, error="bench takes a group file|a group file says")
    with vekfind.Group(2, scale=1, bias=0) as group:
        group.save(path("empty.vek"))
    run("bench", path("empty.vek"), status=1, error="no rows to search")


os.makedirs(WORK, exist_ok=True)
for name, test in list(globals().items()):
    if name.startswith("test_"):
        test()

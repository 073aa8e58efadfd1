"""What is refused, in which words, and that nothing has changed; golden and broken files."""
import ctypes
import glob
import os
import resource
import tempfile
import unittest
import warnings

import numpy as np

import vekfind
from vekfind import _library

GOLDEN = os.path.join(os.path.dirname(__file__), "..", "golden")
NAN, INF = float("nan"), float("inf")


def f32(*rows):
    return np.array(rows, np.float32)


def table(group, tagged):
    """Error, its words, call."""
    one, tag, new = f32([1, 2]), np.zeros(1, np.uint16), vekfind.Group
    return [
        (TypeError, "NumPy array, not list", lambda: group.insert([[1, 2]], [1])),
        (TypeError, "dtype float32, not float64", lambda: group.insert(one.astype(float), [1])),
        (TypeError, "not >f4", lambda: group.search(one.astype(">f4"), 1)),
        (ValueError, "shape (n, 2), not (2,)", lambda: group.insert(one[0], [1])),
        (ValueError, "shape (n, 2), not (1, 1)", lambda: group.search(one[:, :1], 1)),
        (ValueError, "1 features, but 2 ids", lambda: group.insert(one, [1, 2])),
        (ValueError, "row 1 of the features", lambda: group.insert(f32([1, 2], [NAN, 2]), [1, 2])),
        (ValueError, "row 0 of the queries", lambda: group.search(f32([INF, 1]), 1)),
        (ValueError, "row 1500", lambda: group.search(f32(*[[1, 1]] * 1500, [0, 2e19]), 1)),
        (TypeError, "integers, not float64", lambda: group.erase(np.array([1.0]))),
        (ValueError, "negative", lambda: group.erase(np.array([-1]))),
        (ValueError, "within 0 and 2**64", lambda: group.erase([2**64])),
        (ValueError, "one dimension", lambda: group.erase(np.zeros((1, 1), int))),
        (ValueError, "has no tags", lambda: group.insert(one, [1], tag)),
        (ValueError, "rows need them", lambda: tagged.insert(one, [1])),
        (ValueError, "1 entries of 2 bytes", lambda: tagged.insert(one, [1], tag.astype("u4"))),
        (ValueError, "1 entries of 2 bytes", lambda: tagged.insert(one, [1], tag.view("u1"))),
        (TypeError, "without objects", lambda: tagged.insert(one, [1], tag.astype(object))),
        (ValueError, "group with tags", lambda: group.search(one, 1, predicate=lambda q, t: True)),
        (ValueError, "k must not", lambda: group.search(one, -1)),
        (TypeError, "integer", lambda: group.search(one, 1.5)),
        (ValueError, "threshold is NaN", lambda: group.search(one, 1, NAN)),
        (TypeError, "uint8, not float32", lambda: group.average(one)),
        (ValueError, "no rows", lambda: group.average(np.zeros((0, 8), np.uint8))),
        (ValueError, "without rows", lambda: tagged.save(os.devnull + ".vek")),
        (OSError, "no regular file", lambda: group.save(os.devnull)),
        (FileNotFoundError, "", lambda: group.save("/nowhere/group.vek")),
        (FileNotFoundError, "", lambda: new.load("/nowhere/group.vek")),
        (ValueError, "neither given nor in", lambda: new.load(GOLDEN + "/good-rows.vek", scale=1)),
        (ValueError, "scale", lambda: new(2, scale=0, bias=1)),
        (ValueError, "scale", lambda: new(2, scale=1e-60, bias=1)),
        (ValueError, "bias", lambda: new(2, scale=1, bias=NAN)),
        (ValueError, "dim", lambda: new(0, scale=1, bias=1)),
        (ValueError, "dim", lambda: new(2**30, scale=1, bias=1)),
        (ValueError, "tag_bytes", lambda: new(2, scale=1, bias=1, tag_bytes=-1)),
        (TypeError, "float32 or int8", lambda: new(2, np.float64, scale=1, bias=1)),
        (ValueError, "normalized", lambda: new(2, np.int8, scale=1, bias=1, normalize=True)),
        (vekfind.VekfindError, "DUPLICATED_ID", lambda: group.insert(one, [7])),
        (vekfind.VekfindError, "INVALID_ID", lambda: group.insert(one, [vekfind.INVALID_ID])),
        (vekfind.VekfindError, "ID_NOT_FOUND", lambda: group.erase([7, 1])),
        (vekfind.VekfindError, "whole floats",
         lambda: new.load(GOLDEN + "/good-odd-size.vek", scale=1, bias=1)),
    ]


class Refusals(unittest.TestCase):
    def test_table(self):
        group = vekfind.Group(2, scale=1, bias=-1)
        group.insert(f32([0, 1]), [7])
        tagged = vekfind.Group(2, scale=1, bias=-1, tag_bytes=2)
        for i, (error, words, call) in enumerate(table(group, tagged)):
            with self.subTest(line=i, words=words):
                with self.assertRaises(error) as caught:
                    call()
                self.assertIn(words, str(caught.exception))
        self.assertEqual((len(group), len(tagged)), (1, 0))

    def test_closed_group(self):
        group = vekfind.Group(2, scale=1, bias=-1)
        with group:
            pass
        group.close()
        rows = f32([0, 1])
        for call in (lambda: len(group), lambda: group.insert(rows, [1]), lambda: group.erase([1]),
                     lambda: group.search(rows, 1), lambda: group.save(os.devnull + ".vek"),
                     lambda: group.average(np.zeros((1, 8), np.uint8))):
            with self.assertRaisesRegex(ValueError, "closed"):
                call()

    def test_not_finite_passes_when_told(self):
        group = vekfind.Group(2, scale=1, bias=-1)
        group.insert(f32([NAN, 1]), [1], check_finite=False)
        group.search(f32([INF, 1]), 1, check_finite=False)
        self.assertEqual(len(group), 1)

    def test_warns_far_from_origin_only(self):
        rows = np.random.default_rng(0).standard_normal((1000, 2)).astype(np.float32)
        group = vekfind.Group(2, scale=1, bias=-1)
        with self.assertWarnsRegex(vekfind.FarFromOriginWarning, "10. times.*vekfind convert --center") as caught:
            group.insert(rows + np.float32(100), range(1000))
        self.assertEqual(caught.filename, __file__)
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            group.insert(rows + np.float32(10), range(1000, 2000))
            group.insert(np.ones((5, 2), np.float32), range(2000, 2005))


class Files(unittest.TestCase):
    def test_golden_files_are_read_as_the_library_loads_them(self):
        sizes = {"good-empty.vek": (8, 0), "good-odd-size.vek": (6, 7)}
        paths = glob.glob(GOLDEN + "/*.vek")
        self.assertGreater(len(paths), 15)
        for path in paths:
            with self.subTest(path=path):
                feature_size, tag_size = sizes.get(os.path.basename(path), (8, 1))
                settings = _library.Settings(feature_size=feature_size, tag_size=tag_size)
                handle = ctypes.c_void_p()
                expected = _library.LIBRARY.VEK_make_feature_group_context_from_file(
                    os.fsencode(path), settings, handle)
                _library.LIBRARY.VEK_release(handle)
                try:
                    rows = vekfind.read_file(path)
                    status = 0
                    self.assertEqual(rows.features.shape[1], feature_size // 4)
                    self.assertEqual(rows.tags.shape[1], tag_size)
                except vekfind.VekfindError as error:
                    status = error.status
                self.assertEqual(status, expected)
        ids, features, tags = vekfind.read_file(GOLDEN + "/good-rows.vek")
        np.testing.assert_array_equal(ids, np.array([7, 2, 2**63], np.uint64))
        np.testing.assert_array_equal(features, f32([1, -2.5], [0, 3e38], [-0.0, 0.125]))
        self.assertEqual(tags.tobytes(), b"a\0\xff")

    def test_constants_beside_a_file_have_their_types(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "group.vek")
            group = vekfind.Group(2, scale=1, bias=-1)
            group.insert(f32([0, 1]), [1])
            group.save(path)
            for words, text in (("no number", '{"scale": "2", "bias": 0}'),
                                ("no number", '{"scale": 2, "bias": true}'),
                                ("neither true nor", '{"scale": 2, "bias": 0, "normalize": "no"}'),
                                ("neither given nor", '{"scale": 2, "bias": null}'),
                                ("finite", '{"scale": 1e60, "bias": 0}'),
                                ("no JSON object", "[1]")):
                with open(path + ".json", "w") as file:
                    file.write(text)
                with self.subTest(text), warnings.catch_warnings():
                    warnings.simplefilter("error")
                    self.assertRaisesRegex(ValueError, words, vekfind.Group.load, path)

    def test_a_save_that_fails_leaves_the_old_file(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "group.vek")
            group = vekfind.Group(2, scale=1, bias=-1)
            group.insert(f32([0, 1]), [1])
            group.save(path)
            os.chmod(path, 0o640)
            os.symlink(path, path + ".link")
            group.insert(np.zeros((10000, 2), np.float32), range(2, 10002))
            old = resource.getrlimit(resource.RLIMIT_FSIZE)
            # In the middle of the write, and in the last buffer, where the library does not notice.
            for limit in (1000, 40 + 16 * 10001 - 1):
                resource.setrlimit(resource.RLIMIT_FSIZE, (limit, old[1]))
                try:
                    with self.assertRaises((OSError, vekfind.VekfindError)):
                        group.save(path)
                finally:
                    resource.setrlimit(resource.RLIMIT_FSIZE, old)
                self.assertEqual(len(vekfind.read_file(path).ids), 1)
                self.assertEqual(len(os.listdir(folder)), 3)
            group.save(path + ".link")
            self.assertEqual(len(vekfind.read_file(path).ids), 10001)
            self.assertTrue(os.path.islink(path + ".link"))
            self.assertEqual(os.stat(path).st_mode & 0o777, 0o640)


if __name__ == "__main__":
    unittest.main()

"""Random walks of a group against a plain model: features in a dictionary, distances by NumPy."""
import os
import tempfile
import unittest
from dataclasses import replace

import numpy as np

import vekfind

DIM, SCALE, BIAS = 5, 0.05, -2.0


class Model:
    """Squared distances as the library defines them, exact for small integers."""

    def __init__(self, dtype):
        self.rows, self.is_int8 = {}, dtype == np.int8

    def distances(self, query):
        q = query.astype(np.int64)
        result = {}
        for row_id, (feature, tag) in self.rows.items():
            r = feature.astype(np.int64)
            if self.is_int8:
                result[row_id] = 2 * (q @ q // 2 + r @ r // 2 - q @ r), tag
            else:
                result[row_id] = (q - r) @ (q - r), tag
        return result


class Walk(unittest.TestCase):
    def walk(self, dtype, seed):
        random = np.random.default_rng(seed)
        model = Model(dtype)
        group = vekfind.Group(DIM, dtype, scale=SCALE, bias=BIAS, tag_bytes=4)
        for _ in range(60):
            count = int(random.integers(0, 9))
            ids = random.permutation(40)[:count].astype(random.choice(["u8", "i4"]))
            if random.random() < 0.3:
                ids = np.array([i for i in ids if int(i) in model.rows], np.uint64)
                group.erase(ids if random.random() < 0.5 else ids.tolist())
                for i in ids.tolist():
                    del model.rows[i]
            else:
                # Every second column of an array that is twice as wide: not contiguous.
                features = random.integers(-9, 10, (count, 2 * DIM)).astype(dtype)[:, ::2]
                tags = random.integers(0, 5, count, np.uint32) * np.uint32(1000)
                group.insert(features, ids, tags, replace=True)
                model.rows.update(zip(ids.tolist(), zip(features, tags.tolist())))
            self.assertEqual(len(group), len(model.rows))
            self.compare(group, model, random)
        return group

    def compare(self, group, model, random):
        queries = random.integers(-9, 10, (3, DIM)).astype(group.settings.dtype)
        k, wanted = int(random.integers(1, 50)), random.integers(0, 5, 3) * 1000
        # Between two whole distances, so that no rounding decides.
        threshold = np.float32(1 / (1 + np.exp(SCALE * (random.integers(50, 300) + 0.5) + BIAS)))
        filtered = random.random() < 0.5

        def keep(query, tag):
            return int.from_bytes(tag, "little") >= wanted[query]

        ids, scores = group.search(queries, k, threshold, predicate=keep if filtered else None)
        self.assertEqual((ids.shape, ids.dtype, scores.dtype), ((3, k), np.uint64, np.float32))
        for q, query in enumerate(queries):
            distances = model.distances(query)
            passing = [d for d, tag in distances.values()
                       if 1 / (1 + np.exp(SCALE * d + BIAS)) >= threshold
                       and (not filtered or tag >= wanted[q])]
            expected = sorted(passing)[:k]
            found = ids[q, :len(expected)].tolist()
            self.assertEqual([distances[i][0] for i in found], expected)
            self.assertEqual(len(set(found)), len(found))
            np.testing.assert_allclose(scores[q, :len(expected)],
                                       1 / (1 + np.exp(SCALE * np.array(expected) + BIAS)),
                                       rtol=1e-5)
            self.assertTrue((ids[q, len(expected):] == vekfind.INVALID_ID).all())
            self.assertTrue((scores[q, len(expected):] == -1).all())

    def test_float32_and_its_file(self):
        for seed in range(5):
            with self.subTest(seed=seed), tempfile.TemporaryDirectory() as folder:
                group = self.walk(np.float32, seed)
                path = os.path.join(folder, "group.vek")
                group.save(path)
                ids, features, _ = vekfind.read_file(path)
                np.testing.assert_array_equal(group.search(features, 1).ids[:, 0], ids)
                queries = np.eye(DIM, dtype=np.float32)
                with vekfind.Group.load(path) as loaded:
                    self.assertEqual(loaded.settings, group.settings)
                    for a, b in zip(group.search(queries, 50), loaded.search(queries, 50)):
                        np.testing.assert_array_equal(a, b)
                self.assertEqual(sorted(os.listdir(folder)), ["group.vek", "group.vek.json"])

    def test_int8(self):
        for seed in range(5):
            with self.subTest(seed=seed):
                group = self.walk(np.int8, seed)
                with self.assertRaises(vekfind.VekfindError) as caught:
                    group.save(os.devnull + ".vek")
                self.assertEqual(caught.exception.status, vekfind.Status.UNSUPPORTED)

    def test_normalized_features_are_compared_by_angle(self):
        rows = np.random.default_rng(1).standard_normal((50, DIM)).astype(np.float32)
        units = rows / np.linalg.norm(rows, axis=1, keepdims=True)
        queries = rows[:5] * np.float32(3)
        by_angle = np.argsort(-units[:5] @ units.T, axis=1)
        group = vekfind.Group(DIM, scale=1, bias=-1, normalize=True)
        group.insert(rows, range(50))
        np.testing.assert_array_equal(group.search(queries, 50).ids, by_angle)
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "group.vek")
            group.save(path)
            loaded = vekfind.Group.load(path)
            np.testing.assert_array_equal(loaded.search(queries, 50).ids, by_angle)
            loaded = vekfind.Group.load(path, normalize=False, scale=2)
            self.assertEqual(loaded.settings, replace(group.settings, normalize=False, scale=2.0))

    def test_encrypted_rows_are_those_that_are_stored(self):
        group = vekfind.Group(DIM, scale=SCALE, bias=BIAS)
        plain = np.random.default_rng(0).integers(-9, 10, (4, DIM)).astype(np.float32)
        with tempfile.NamedTemporaryFile(suffix=".vek") as file:
            # What a row of zeros is stored as is what every encrypted row is combined with.
            group.insert(np.zeros((1, 4 * DIM), np.uint8), [9], encrypted=True)
            group.save(file.name)
            key = vekfind.read_file(file.name).features.view(np.uint8)
            os.unlink(file.name + ".json")
        group.erase([9])
        rows = plain.view(np.uint8) ^ key
        group.insert(rows, range(4), encrypted=True)
        for a, b in zip(group.search(rows, 4, encrypted=True), group.search(plain, 4)):
            np.testing.assert_array_equal(a, b)
        self.assertEqual(group.search(plain, 1).ids[:, 0].tolist(), [0, 1, 2, 3])
        mean = (group.average(rows) ^ key[0]).view(np.float32)
        np.testing.assert_array_equal(mean, plain.mean(axis=0))


if __name__ == "__main__":
    unittest.main()

"""Who waits for whom, what predicates may do, and that encrypted rows pass through."""
import threading
import time
import unittest

import numpy as np

import vekfind

PATIENCE = 30  # seconds until a thread that should have ended counts as hung
QUERY = np.zeros((2, 2), np.float32)


def tagged_group(rows=3):
    group = vekfind.Group(2, scale=1, bias=-1, tag_bytes=1)
    group.insert(np.ones((rows, 2), np.float32), range(rows), np.arange(rows, dtype=np.uint8))
    return group


def start(call):
    thread = threading.Thread(target=call, daemon=True)
    thread.start()
    return thread


class Threads(unittest.TestCase):
    def ended(self, *threads):
        for thread in threads:
            thread.join(PATIENCE)
            self.assertFalse(thread.is_alive())

    def test_changes_and_close_wait_for_searches_and_go_before_later_ones(self):
        changes = (lambda group: group.erase([1]), lambda group: group.close())
        for change, expected in zip(changes, ([2], ["the group is closed"])):
            group, seen = tagged_group(), []
            inside, go_on = threading.Event(), threading.Event()

            def wait(query, tag):
                inside.set()
                return go_on.wait(PATIENCE)

            def later():
                try:
                    seen.append(len(group))
                except ValueError as error:
                    seen.append(str(error))

            searching = start(lambda: group.search(QUERY, 1, predicate=wait))
            self.assertTrue(inside.wait(PATIENCE))
            self.assertEqual(len(group), 3)
            changing = start(lambda: change(group))
            while group._lock._waiting_owners == 0:
                time.sleep(0.001)
            waiting = start(later)
            waiting.join(0.1)
            self.assertTrue(changing.is_alive() and waiting.is_alive())
            go_on.set()
            self.ended(searching, changing, waiting)
            self.assertEqual(seen, expected)

    def test_searches_beside_changes_see_whole_calls(self):
        group, failures, done = vekfind.Group(2, scale=1, bias=-1), [], threading.Event()
        ids = np.arange(100, dtype=np.uint64)

        def search():
            try:
                while not done.is_set():
                    found = group.search(QUERY, 200).ids[0]
                    count = int((found != vekfind.INVALID_ID).sum())
                    if count not in (0, 100):
                        failures.append(count)
            except BaseException as error:  # a thread's exception is seen by nobody else
                failures.append(error)

        threads = [start(search) for _ in range(3)]
        for _ in range(100):
            group.insert(np.ones((100, 2), np.float32), ids)
            group.erase(ids)
        done.set()
        self.ended(*threads)
        self.assertEqual(failures, [])


class Predicates(unittest.TestCase):
    def test_it_sees_each_pair(self):
        pairs = []
        tagged_group().search(QUERY, 1, predicate=lambda query, tag: pairs.append((query, tag)))
        self.assertEqual(sorted(pairs), [(q, bytes([t])) for q in range(2) for t in range(3)])

    def test_its_exception_is_raised_after_the_search(self):
        group = tagged_group()
        for error in (KeyError("gone"), KeyboardInterrupt()):
            calls = []

            def fail(query, tag):
                calls.append(tag)
                raise error

            with self.assertRaises(type(error)) as caught:
                group.search(QUERY, 1, predicate=fail)
            self.assertIs(caught.exception, error)
            self.assertEqual(len(calls), 1)
        self.assertEqual(group.search(QUERY, 3).ids.shape, (2, 3))
        group.erase([0])  # nothing is left locked

    def test_its_call_into_its_own_group_raises(self):
        group, other = tagged_group(), tagged_group()
        calls = [lambda: len(group), lambda: group.search(QUERY, 1), lambda: group.erase([1]),
                 group.close]
        for call in calls:
            with self.assertRaisesRegex(RuntimeError, "predicate called into the group"):
                group.search(QUERY, 1, predicate=lambda query, tag: call())
            with self.assertRaisesRegex(RuntimeError, "predicate called into the group"):
                nested = lambda query, tag: other.search(
                    QUERY, 1, predicate=lambda query, tag: call())
                group.search(QUERY, 1, predicate=nested)
        group.search(QUERY, 1, predicate=lambda query, tag: len(other))
        self.assertEqual(len(group), 3)


def transform(row):
    """The header's, byte for byte: encrypts and decrypts."""
    size, mask = len(row), 0xFFFFFFFF
    s, j, x = list(range(256)), 0, 0xB5C90F37 ^ size
    for n in range(257):
        x ^= x << 13 & mask
        x ^= x >> 17
        x ^= x << 5 & mask
        if n < 256:
            j = (j + s[n] + (x >> (8 * n & 24))) & 255
            s[n], s[j] = s[j], s[n]
    skip, i, j, out = (x & 4095) + 800, 0, 0, bytearray(row)
    for n in range(skip + size):
        i = (i + 1) & 255
        a = s[i]
        j = (j + a) & 255
        s[i], s[j] = s[j], a
        if n >= skip:
            out[n - skip] ^= s[(a + s[i]) & 255]
    return np.frombuffer(bytes(out), np.uint8)


class Encrypted(unittest.TestCase):
    def test_rows_queries_and_average(self):
        plain = np.random.default_rng(0).integers(-9, 10, (4, 3)).astype(np.float32)
        rows = np.stack([transform(row.tobytes()) for row in plain])
        group = vekfind.Group(3, scale=1, bias=-1)
        group.insert(rows, range(4), encrypted=True)
        found = group.search(rows, 4, encrypted=True)
        for a, b in zip(found, group.search(plain, 4)):
            np.testing.assert_array_equal(a, b)
        self.assertEqual(found.ids[:, 0].tolist(), [0, 1, 2, 3])
        mean = transform(group.average(rows).tobytes()).view(np.float32)
        np.testing.assert_array_equal(mean, plain.mean(axis=0))


if __name__ == "__main__":
    unittest.main()

"""Who waits for whom, and what predicates may do."""
import threading
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

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
        group, done = vekfind.Group(2, scale=1, bias=-1), threading.Event()
        ids = np.arange(100, dtype=np.uint64)

        def counts_of_rows():
            counts = set()
            while not done.is_set():
                found = group.search(QUERY, 200).ids[0]
                counts.add(int((found != vekfind.INVALID_ID).sum()))
            return counts

        with ThreadPoolExecutor(3) as pool:
            searches = [pool.submit(counts_of_rows) for _ in range(3)]
            try:
                for _ in range(100):
                    group.insert(np.ones((100, 2), np.float32), ids)
                    group.erase(ids)
            finally:
                done.set()
            for search in searches:
                self.assertLessEqual(search.result(PATIENCE), {0, 100})


class Predicates(unittest.TestCase):
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
        for call in (lambda: len(group), lambda: group.search(QUERY, 1), group.close):
            for predicate in (lambda query, tag: call(),
                              lambda query, tag: other.search(
                                  QUERY, 1, predicate=lambda query, tag: call())):
                with self.assertRaisesRegex(RuntimeError, "predicate called into the group"):
                    group.search(QUERY, 1, predicate=predicate)
        group.search(QUERY, 1, predicate=lambda query, tag: len(other))
        self.assertEqual(len(group), 3)


if __name__ == "__main__":
    unittest.main()

"""The lock of a group: calls that share it, and calls that are alone."""
import threading
from contextlib import contextmanager
from typing import Iterator, Set


class GroupLock:
    """Many sharers or one owner. A waiting owner goes before later sharers, so that overlapping
    searches cannot keep it out for ever. A thread that is inside a predicate gets an error where
    it would wait for itself."""

    def __init__(self) -> None:
        self._condition = threading.Condition(threading.Lock())
        self._sharers = 0
        self._owned = False
        self._waiting_owners = 0
        self._in_predicate: Set[int] = set()

    @contextmanager
    def shared(self) -> Iterator[None]:
        self._refuse_in_predicate()
        with self._condition:
            self._condition.wait_for(lambda: not self._owned and self._waiting_owners == 0)
            self._sharers += 1
        try:
            yield
        finally:
            with self._condition:
                self._sharers -= 1
                self._condition.notify_all()

    @contextmanager
    def alone(self) -> Iterator[None]:
        self._refuse_in_predicate()
        with self._condition:
            self._waiting_owners += 1
            try:
                self._condition.wait_for(lambda: not self._owned and self._sharers == 0)
                self._owned = True
            finally:
                self._waiting_owners -= 1
                self._condition.notify_all()
        try:
            yield
        finally:
            with self._condition:
                self._owned = False
                self._condition.notify_all()

    @contextmanager
    def calling_predicate(self) -> Iterator[None]:
        """For a search whose predicate this thread will run."""
        thread = threading.get_ident()
        self._in_predicate.add(thread)
        try:
            yield
        finally:
            self._in_predicate.discard(thread)

    def _refuse_in_predicate(self) -> None:
        if threading.get_ident() in self._in_predicate:
            raise RuntimeError("a predicate called into the group that is searching")

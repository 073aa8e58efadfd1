"""A Python callable as the library's predicate on tags."""
import ctypes
from typing import Any, Callable, Optional

import numpy as np

from ._library import TagPredicate

#: Given the place of a query in its batch and a row's tag, tells whether to keep the row.
Predicate = Callable[[int, bytes], Any]


class CPredicate:
    """Function and contexts for one search. No exception may pass through C: the first is kept,
    and from then on no row."""

    def __init__(self, predicate: Predicate, queries: int, tag_bytes: int) -> None:
        self.raised: Optional[BaseException] = None
        self._contexts = np.arange(queries, dtype=np.uintp)
        self.contexts: int = self._contexts.ctypes.data
        self.function = TagPredicate(self._keep)
        self._predicate = predicate
        self._tag_bytes = tag_bytes

    def _keep(self, query: Optional[int], tag: int) -> int:
        if self.raised is not None:
            return 0
        try:
            # ctypes makes None of the pointer 0, which stands for query 0.
            return 1 if self._predicate(query or 0, ctypes.string_at(tag, self._tag_bytes)) else 0
        except BaseException as error:
            self.raised = error
            return 0

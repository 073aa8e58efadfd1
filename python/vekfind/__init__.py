"""Exact one-to-many search over feature vectors, with NumPy arrays.

A :class:`Group` holds rows: a feature, a 64-bit id and, if wanted, a tag of a fixed number of
bytes. A search compares every query with every row.

>>> import numpy, vekfind
>>> rows = numpy.array([[0, 0], [3, 4]], numpy.float32)
>>> with vekfind.Group(2, scale=1, bias=-4) as group:
...     group.insert(rows, [7, 8])
...     ids, scores = group.search(numpy.array([[3, 3]], numpy.float32), k=1)
>>> ids
array([[8]], dtype=uint64)
>>> scores.round(3)
array([[0.953]], dtype=float32)

Scores, order, precision and limits are those of the C library, whose header is their manual.
"""
from ._files import GroupFile, read_file
from ._group import Group, SearchResult
from ._library import INVALID_ID, library_version
from ._predicate import Predicate
from ._settings import GroupSettings
from .errors import FarFromOriginWarning, Status, VekfindError

__all__ = [
    "INVALID_ID",
    "FarFromOriginWarning",
    "Group",
    "GroupFile",
    "GroupSettings",
    "Predicate",
    "SearchResult",
    "Status",
    "VekfindError",
    "library_version",
    "read_file",
]

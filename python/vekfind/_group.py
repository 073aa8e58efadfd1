"""The group: a handle of the C library, its lock, and its calls."""
import ctypes
import math
import operator
import os
import weakref
from contextlib import contextmanager
from types import TracebackType
from typing import Any, Iterator, NamedTuple, Optional, Type

import numpy as np
from numpy.typing import DTypeLike, NDArray

from . import _arrays, _files, _library
from ._files import PathLike
from ._library import LIBRARY, check
from ._lock import GroupLock
from ._predicate import CPredicate, Predicate
from ._settings import GroupSettings
from .errors import Status, VekfindError


class SearchResult(NamedTuple):
    """Row q belongs to query q, best first; unused places hold INVALID_ID and the score -1."""

    ids: NDArray[np.uint64]  #: shape (queries, k)
    scores: NDArray[np.float32]  #: shape (queries, k)


class Group:
    """Rows of float32 or int8 features, each under a 64-bit id.

    The similarity at squared distance d2 is 1 / (1 + exp(scale * d2 + bias)). With `normalize`,
    rows and queries are brought to length 1 first. With `tag_bytes` each row has a tag, so many
    bytes, that predicates see. A closed group raises ValueError.

    Any threads may call one group: searches share it, changes and `close` wait for them and are
    alone.
    """

    settings: GroupSettings

    def __init__(
        self,
        dim: int,
        dtype: DTypeLike = np.float32,
        *,
        scale: float,
        bias: float,
        tag_bytes: int = 0,
        normalize: bool = False,
    ) -> None:
        self.settings = GroupSettings.checked(
            dim, dtype, scale=scale, bias=bias, tag_bytes=tag_bytes, normalize=normalize
        )
        handle = ctypes.c_void_p()
        check(LIBRARY.VEK_make_feature_group_context(self.settings.record(), handle))
        self._own(handle)

    @classmethod
    def load(
        cls,
        path: PathLike,
        *,
        scale: Optional[float] = None,
        bias: Optional[float] = None,
        normalize: Optional[bool] = None,
    ) -> "Group":
        """A group with the rows of a file, in their order. What is not given is read from
        `path`.json, where `save` writes it."""
        with open(path, "rb") as file:
            header = _files.read_header(file)
        if header.feature_size % 4 != 0:
            raise VekfindError(Status.INVALID_SETTINGS, "the rows are not made of whole floats")
        constants = _files.read_constants(path)
        given = {"scale": scale, "bias": bias, "normalize": normalize}
        constants.update({name: value for name, value in given.items() if value is not None})
        if constants.get("scale") is None or constants.get("bias") is None:
            raise ValueError(f"scale and bias are neither given nor in {os.fspath(path)}.json")
        group = cls.__new__(cls)
        group.settings = GroupSettings.checked(
            header.feature_size // 4,
            np.float32,
            scale=constants["scale"],
            bias=constants["bias"],
            tag_bytes=header.tag_size,
            normalize=constants.get("normalize", False),
        )
        handle = ctypes.c_void_p()
        name = os.fsencode(path)
        record = group.settings.record()
        check(LIBRARY.VEK_make_feature_group_context_from_file(name, record, handle))
        group._own(handle)
        return group

    def insert(
        self,
        features: NDArray[Any],
        ids: _arrays.Ids,
        tags: Optional[NDArray[Any]] = None,
        *,
        replace: bool = False,
        encrypted: bool = False,
        check_finite: bool = True,
    ) -> None:
        """Appends rows: features of shape (n, dim), n ids and, in a group with tags, n tags of
        `tag_bytes` bytes. With `replace`, ids that the group holds are deleted first; otherwise
        they are refused. Encrypted features are bytes, of shape (n, bytes of a row), and their
        values are not checked. A refused call leaves the group as it was.
        """
        rows = self._rows(features, "features", encrypted, check_finite)
        if check_finite and rows.dtype == np.float32 and not self.settings.normalize:
            _arrays.warn_if_far_from_origin(rows)
        numbers = _arrays.id_array(ids)
        if len(numbers) != len(rows):
            raise ValueError(f"{len(rows)} features, but {len(numbers)} ids")
        tag_rows = _arrays.tag_array(tags, len(rows), self.settings.tag_bytes)
        options = _library.InsertOptions(encrypted=encrypted, replace_existing=replace)
        with self._alone() as handle:
            status = LIBRARY.VEK_insert_features_to_feature_group(
                handle,
                rows.ctypes.data,
                numbers.ctypes.data,
                None if tag_rows is None else tag_rows.ctypes.data,
                len(rows),
                options,
            )
        check(status)

    def erase(self, ids: _arrays.Ids) -> None:
        """Deletes the rows with these ids, all or, where one is refused, none."""
        numbers = _arrays.id_array(ids)
        with self._alone() as handle:
            status = LIBRARY.VEK_delete_features_from_feature_group(
                handle, numbers.ctypes.data, len(numbers)
            )
        check(status)

    def search(
        self,
        queries: NDArray[Any],
        k: int,
        threshold: float = 0.0,
        *,
        predicate: Optional[Predicate] = None,
        encrypted: bool = False,
        check_finite: bool = True,
    ) -> SearchResult:
        """The at most k rows most similar to each query, among those whose similarity is not below
        the threshold and, in a group with tags, whose tag the predicate keeps.

        The predicate is called for each pair of query and row. What it raises is raised after the
        search, which then keeps nothing more; it must not call into the group.
        """
        rows = self._rows(queries, "queries", encrypted, check_finite)
        k, threshold = operator.index(k), float(threshold)
        if k < 0:
            raise ValueError(f"k must not be negative, as {k} is")
        if math.isnan(threshold):
            raise ValueError("the threshold is NaN")
        if predicate is not None and self.settings.tag_bytes == 0:
            raise ValueError("a predicate needs a group with tags")
        ids = np.empty((len(rows), k), np.uint64)
        scores = np.empty((len(rows), k), np.float32)
        result = _library.Result(scores=scores.ctypes.data, ids=ids.ctypes.data)
        options = _library.SearchOptions(sorted=1, encrypted=encrypted)

        def call(handle: Optional[int], contexts: Optional[int], function: Any) -> None:
            arguments = (rows.ctypes.data, len(rows), k, threshold, contexts, function)
            check(LIBRARY.VEK_search_feature_group(handle, *arguments, options, result))

        with self._shared() as handle:
            if predicate is None:
                call(handle, None, _library.NO_PREDICATE)
            else:
                filter = CPredicate(predicate, len(rows), self.settings.tag_bytes)
                with self._lock.calling_predicate():
                    call(handle, filter.contexts, filter.function)
                if filter.raised is not None:
                    raise filter.raised
        return SearchResult(ids, scores)

    def average(self, encrypted_rows: NDArray[np.uint8]) -> NDArray[np.uint8]:
        """The mean of encrypted features, encrypted: bytes of shape (n, bytes of a row) in, (bytes
        of a row,) out. Of the group only the row size counts."""
        row_bytes = self.settings.row_bytes
        rows = _arrays.feature_rows(encrypted_rows, row_bytes, np.dtype(np.uint8), "features")
        if len(rows) == 0:
            raise ValueError("no rows have no mean")
        average = np.empty(row_bytes, np.uint8)
        options = _library.AverageOptions(encrypted=1)
        with self._shared() as handle:
            status = LIBRARY.VEK_get_average_feature(
                handle, rows.ctypes.data, len(rows), options, average.ctypes.data
            )
        check(status)
        return average

    def save(self, path: PathLike) -> None:
        """Writes all rows to a group file, and scale, bias and normalize to `path`.json. Each is
        written beside its place, flushed to the disk and renamed: a failure leaves the old one."""
        with self._shared() as handle:
            rows = self._size(handle)
            if rows == 0 and self.settings.tag_bytes != 0:
                raise ValueError("a file of a group with tags and without rows could not be loaded")
            _files.replace_file(
                path,
                lambda name: check(
                    LIBRARY.VEK_dump_feature_group_to_file(handle, os.fsencode(name))
                ),
                self.settings.file_bytes(rows),
            )
            constants = {name: getattr(self.settings, name) for name in _files.CONSTANTS}
            _files.write_constants(path, constants)

    def close(self) -> None:
        """Ends the group and frees its memory; more calls of this do nothing."""
        with self._lock.alone():
            self._release()

    def __enter__(self) -> "Group":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()

    def __len__(self) -> int:
        with self._shared() as handle:
            return self._size(handle)

    def __repr__(self) -> str:
        state = "" if self._release.alive else ", closed"
        return f"<vekfind.Group of {self.settings.dim} x {self.settings.dtype}{state}>"

    # ---- Inside ---------------------------------------------------------------------------------

    def _own(self, handle: ctypes.c_void_p) -> None:
        self._handle = handle.value
        self._lock = GroupLock()
        self._release = weakref.finalize(self, LIBRARY.VEK_release, self._handle)
        # A daemon thread may be searching while the process exits.
        self._release.atexit = False

    @contextmanager
    def _shared(self) -> Iterator[Optional[int]]:
        with self._lock.shared():
            yield self._open_handle()

    @contextmanager
    def _alone(self) -> Iterator[Optional[int]]:
        with self._lock.alone():
            yield self._open_handle()

    def _open_handle(self) -> Optional[int]:
        if not self._release.alive:
            raise ValueError("the group is closed")
        return self._handle

    def _size(self, handle: Optional[int]) -> int:
        size = ctypes.c_size_t()
        check(LIBRARY.VEK_get_feature_group_size(handle, size))
        return size.value

    def _rows(
        self, features: NDArray[Any], what: str, encrypted: bool, check_finite: bool
    ) -> NDArray[Any]:
        dim, dtype, normalize = self.settings.dim, self.settings.dtype, self.settings.normalize
        if encrypted and normalize:
            raise ValueError(f"encrypted {what} cannot be normalized")
        if encrypted:
            row_bytes = self.settings.row_bytes
            return _arrays.feature_rows(features, row_bytes, np.dtype(np.uint8), what)
        rows = _arrays.feature_rows(features, dim, dtype, what)
        if check_finite and dtype == np.float32:
            _arrays.refuse_not_finite(rows, what)
        return _arrays.unit_rows(rows, what) if normalize else rows

"""What may be passed as features, ids and tags, and the checks of their values.

Contiguous arrays go to the library where they are; others are copied first.
"""
import operator
import warnings
from typing import Any, Optional, Sequence, Union

import numpy as np
from numpy.typing import NDArray

from .errors import FarFromOriginWarning

Ids = Union[NDArray[Any], Sequence[int]]

_FLOAT_MAX = np.finfo(np.float32).max
_ROWS_AT_ONCE = 1024  # of a check, so that a piece stays in the cache
_SAMPLE = 256
# Length of the mean row against the deviation from it: at 10 the ten nearest are right, at 100 two
# of a hundred are not.
_FAR = 30.0


def feature_rows(
    features: NDArray[Any], width: int, dtype: "np.dtype[Any]", what: str
) -> NDArray[Any]:
    """The rows of a two-dimensional array of `width` columns and of exactly this dtype."""
    if not isinstance(features, np.ndarray):
        raise TypeError(f"{what} must be a NumPy array, not {type(features).__name__}")
    if features.dtype != dtype:
        raise TypeError(f"{what} must have dtype {dtype}, not {features.dtype}")
    if features.ndim != 2 or features.shape[1] != width:
        raise ValueError(f"{what} must have shape (n, {width}), not {features.shape}")
    return np.ascontiguousarray(features)


def id_array(ids: Ids) -> NDArray[np.uint64]:
    """Ids as 64-bit numbers; a uint64 array as it is."""
    if not isinstance(ids, np.ndarray):
        # Not by NumPy: small and large numbers in one list would become floats there.
        numbers = [operator.index(number) for number in ids]
        if any(number < 0 or number >= 2**64 for number in numbers):
            raise ValueError("ids must be within 0 and 2**64 - 1")
        return np.array(numbers, np.uint64)
    if ids.dtype.kind not in "iu":
        raise TypeError(f"ids must be integers, not {ids.dtype}")
    if ids.ndim != 1:
        raise ValueError(f"ids must have one dimension, not shape {ids.shape}")
    if ids.dtype.kind == "i" and (ids < 0).any():
        raise ValueError("ids must not be negative")
    return np.ascontiguousarray(ids, np.uint64)


def tag_array(tags: Optional[NDArray[Any]], rows: int, tag_bytes: int) -> Optional[NDArray[Any]]:
    """One entry a row, of `tag_bytes` bytes in any form: (n, tag_bytes) of uint8, or n numbers."""
    if tags is None and tag_bytes == 0:
        return None
    if tag_bytes == 0:
        raise ValueError("the group has no tags")
    if tags is None:
        raise ValueError("the group has tags, so rows need them")
    if not isinstance(tags, np.ndarray) or tags.dtype.hasobject:
        raise TypeError("tags must be a NumPy array without objects")
    if tags.ndim == 0 or len(tags) != rows or tags.nbytes != rows * tag_bytes:
        raise ValueError(
            f"tags must be {rows} entries of {tag_bytes} bytes, "
            f"not shape {tags.shape} of {tags.dtype}"
        )
    return np.ascontiguousarray(tags)


def refuse_not_finite(rows: NDArray[np.float32], what: str) -> None:
    """Refuses rows with NaN or infinity, or whose squared norm leaves the 32-bit floats."""
    with np.errstate(all="ignore"):
        for first in range(0, len(rows), _ROWS_AT_ONCE):
            piece = rows[first : first + _ROWS_AT_ONCE]
            good = np.einsum("ij,ij->i", piece, piece) <= _FLOAT_MAX
            if not good.all():
                raise ValueError(
                    f"row {first + int(good.argmin())} of the {what} holds NaN, infinity or "
                    "elements too large to square; check_finite=False lets it pass"
                )


def warn_if_far_from_origin(rows: NDArray[np.float32]) -> None:
    """Judges by a sample of the rows, spread over them."""
    sample = rows[:: max(1, len(rows) // _SAMPLE)].astype(np.float64)
    if len(sample) < 2:
        return
    with np.errstate(all="ignore"):
        distance = np.square(sample.mean(axis=0)).sum()
        spread = sample.var(axis=0).sum()
        far = bool(0 < spread * _FAR**2 < distance)
    if far:
        warnings.warn(
            f"the mean of the features is {np.sqrt(distance / spread):.0f} times as far from the "
            "origin as the features are from it, so distances lose digits; subtract it from rows "
            "and queries, as `vekfind convert --center` does",
            FarFromOriginWarning,
            stacklevel=3,
        )


def unit_rows(rows: NDArray[np.float32], what: str) -> NDArray[np.float32]:
    """The rows at length 1."""
    norms = np.sqrt(np.einsum("ij,ij->i", rows, rows, dtype=np.float64))
    if not (norms > 0).all():
        raise ValueError(f"row {int((norms > 0).argmin())} of the {what} has no direction")
    units: NDArray[np.float32] = (rows / norms[:, None]).astype(np.float32)
    return units

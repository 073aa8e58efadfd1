"""What a group is made from."""
import math
import operator
from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import DTypeLike

from . import _library

_INDEX_TYPES = {np.dtype(np.float32): _library.FLOAT32, np.dtype(np.int8): _library.INT8}


@dataclass(frozen=True)
class GroupSettings:
    """Checked: ValueError or TypeError for what no group can have."""

    dim: int  #: elements of a feature
    dtype: "np.dtype[Any]"  #: of a feature, float32 or int8
    scale: float
    bias: float
    tag_bytes: int  #: of a row's tag; 0 for no tags
    normalize: bool  #: rows and queries are brought to length 1

    @classmethod
    def checked(
        cls,
        dim: int,
        dtype: DTypeLike,
        *,
        scale: float,
        bias: float,
        tag_bytes: int,
        normalize: bool,
    ) -> "GroupSettings":
        settings = cls(
            operator.index(dim),
            np.dtype(dtype),
            float(scale),
            float(bias),
            operator.index(tag_bytes),
            bool(normalize),
        )
        if settings.dtype not in _INDEX_TYPES:
            raise TypeError(f"features are float32 or int8, not {settings.dtype}")
        if settings.dim < 1 or settings.row_bytes >= 2**32:
            raise ValueError(f"dim {dim} is not within 1 and what fits 4 GiB a row")
        if not 0 <= settings.tag_bytes < 2**32:
            raise ValueError(f"tag_bytes {tag_bytes} is not within 0 and 4 GiB")
        with np.errstate(over="ignore"):
            scale_32, bias_32 = np.float32(settings.scale), np.float32(settings.bias)
        if not 0 < scale_32 < math.inf:
            raise ValueError(f"scale {scale} is not positive and finite in 32 bits")
        if not np.isfinite(bias_32):
            raise ValueError(f"bias {bias} is not finite in 32 bits")
        if settings.normalize and settings.dtype != np.float32:
            raise ValueError("only float32 features can be normalized")
        return settings

    @property
    def row_bytes(self) -> int:
        return self.dim * self.dtype.itemsize

    def file_bytes(self, rows: int) -> int:
        """Length of a group file with so many rows."""
        return 40 + (8 + self.row_bytes + self.tag_bytes) * rows

    def record(self) -> _library.Settings:
        """In the library's words."""
        return _library.Settings(
            feature_size=self.row_bytes,
            tag_size=self.tag_bytes,
            comparison=_library.Comparison(scale=self.scale, bias=self.bias),
            index_type=_INDEX_TYPES[self.dtype],
        )

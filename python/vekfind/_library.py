"""The C library: where it is found, and its records and functions for ctypes.

Every pointer to a buffer is declared as `c_void_p`, so that an array's address is passed as it is:
the library asks for no alignment. ctypes releases the interpreter's lock for the time of a call.
"""
import ctypes
import os
from ctypes import POINTER, c_char_p, c_float, c_int, c_int32, c_size_t, c_uint32, c_void_p
from pathlib import Path
from typing import Optional

from .errors import VekfindError

INVALID_ID = 2**64 - 1  #: marks unused places of a result; no row can have it

FLOAT32, INT8 = 0, 3  # values of Settings.index_type
SONAME = "libvekfind.so.2"


class Comparison(ctypes.Structure):
    _fields_ = [("method", c_int32), ("scale", c_float), ("bias", c_float)]


class Settings(ctypes.Structure):
    _fields_ = [
        ("device", c_int32),
        ("reserved_a", c_uint32 * 2),
        ("feature_size", c_uint32),
        ("tag_size", c_uint32),
        ("comparison", Comparison),
        ("index_type", c_int32),
        ("reserved_b", c_uint32 * 8),
    ]


class SearchOptions(ctypes.Structure):
    _fields_ = [("sorted", c_int32), ("encrypted", c_int32)]


class Result(ctypes.Structure):
    _fields_ = [("nr_query", c_size_t), ("k", c_size_t), ("scores", c_void_p), ("ids", c_void_p)]


class InsertOptions(ctypes.Structure):
    _fields_ = [("encrypted", c_int32), ("replace_existing", c_int32)]


class AverageOptions(ctypes.Structure):
    _fields_ = [("encrypted", c_int32)]


TagPredicate = ctypes.CFUNCTYPE(c_int, c_void_p, c_void_p)
NO_PREDICATE = ctypes.cast(0, TagPredicate)

# Arguments of the functions that return a status.
ARGUMENTS = {
    "VEK_make_feature_group_context": [POINTER(Settings), POINTER(c_void_p)],
    "VEK_make_feature_group_context_from_file": [c_char_p, POINTER(Settings), POINTER(c_void_p)],
    "VEK_get_feature_group_size": [c_void_p, POINTER(c_size_t)],
    "VEK_search_feature_group": [
        *(c_void_p, c_void_p, c_size_t, c_size_t, c_float),
        *(c_void_p, TagPredicate, POINTER(SearchOptions), POINTER(Result)),
    ],
    "VEK_insert_features_to_feature_group": [
        *(c_void_p, c_void_p, c_void_p, c_void_p, c_size_t, POINTER(InsertOptions)),
    ],
    "VEK_delete_features_from_feature_group": [c_void_p, c_void_p, c_size_t],
    "VEK_dump_feature_group_to_file": [c_void_p, c_char_p],
    "VEK_get_average_feature": [
        *(c_void_p, c_void_p, c_size_t, POINTER(AverageOptions), c_void_p),
    ],
}


def _source_tree_builds() -> "list[Path]":
    """Libraries that were built in the repository that this file lies in, if it does."""
    root = Path(__file__).resolve().parents[2]
    if not (root / "include" / "vekfind" / "vekfind.h").is_file():
        return []
    candidates = [root / "build" / preset / "lib" / SONAME for preset in ("release", "debug")]
    return [path for path in candidates if path.is_file()]


def _load() -> ctypes.CDLL:
    """The library named by VEKFIND_LIBRARY, else the repository's build, else the installed one."""
    named: Optional[str] = os.environ.get("VEKFIND_LIBRARY")
    path = named or str(next(iter(_source_tree_builds()), SONAME))
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        raise ImportError(
            f"the vekfind library cannot be loaded: {error}. Install it, build it in the "
            "repository, or name the file in the environment variable VEKFIND_LIBRARY"
        ) from None
    for name, arguments in ARGUMENTS.items():
        function = getattr(library, name)
        function.argtypes, function.restype = arguments, c_int32
    library.VEK_release.argtypes, library.VEK_release.restype = [c_void_p], None
    library.VEK_get_version.argtypes, library.VEK_get_version.restype = [POINTER(c_char_p)], None
    return library


LIBRARY = _load()


def check(status: int) -> None:
    """Raises what a status other than VEK_OK stands for."""
    if status != 0:
        raise VekfindError(status)


def library_version() -> str:
    """Version of the C library in use, e.g. "v2.2.0"."""
    version = c_char_p()
    LIBRARY.VEK_get_version(ctypes.byref(version))
    return (version.value or b"").decode()

"""Group files: reading them without the library, and writing so that the old file is never lost.

docs/file-formats.md describes the format. The constants of a group stand beside its file, in
FILE.json: a file of rows alone does not say how distances become similarities.
"""
import json
import os
import re
import secrets
import stat
from pathlib import Path
from typing import Any, BinaryIO, Callable, Dict, NamedTuple, Optional, Union

import numpy as np
from numpy.typing import NDArray

from ._library import INVALID_ID
from .errors import Status, VekfindError

PathLike = Union[str, "os.PathLike[str]"]

#: What a group has beside its rows.
CONSTANTS = ("scale", "bias", "normalize")

_LETTERS = b"vek"
_MAX_ROWS = 536870911


class GroupFile(NamedTuple):
    """The rows of a group file, in its order; the n-th id, feature and tag belong together."""

    ids: NDArray[np.uint64]  #: shape (n,)
    features: NDArray[np.float32]  #: shape (n, dim)
    tags: NDArray[np.uint8]  #: shape (n, tag_bytes)


class Header(NamedTuple):
    feature_size: int
    tag_size: int
    rows: int


def read_header(file: BinaryIO) -> Header:
    """Reads up to the ids, which stand next."""
    first = _read(file, 8)
    if first.startswith(_LETTERS):
        number = re.match(rb"[ \t\n\v\f\r]*([+-]?[0-9]+)", first[len(_LETTERS) :])
        version = int(number[1]) if number else 0
        if version not in (0, 1):
            raise VekfindError(Status.UNEXPECTED_CONFIG, f"version {version} is unknown")
        first = _read(file, 8)
    words = np.frombuffer(first + _read(file, 16), "<u8") & np.uint64(0xFFFFFFFF)
    header = Header(*map(int, words))
    if header.rows > _MAX_ROWS:
        raise VekfindError(Status.UNKNOWN_ERROR, f"{header.rows} rows are too many")
    return header


def read_file(path: PathLike) -> GroupFile:
    """Reads ids, features and tags of a group file; refuses what the library refuses.

    >>> import numpy, os, tempfile, vekfind
    >>> folder = tempfile.TemporaryDirectory()
    >>> path = os.path.join(folder.name, "faces.vek")
    >>> with vekfind.Group(2, scale=1, bias=-4, tag_bytes=1) as group:
    ...     rows = numpy.array([[0, 0], [3, 4]], numpy.float32)
    ...     group.insert(rows, [7, 8], numpy.array([5, 6], numpy.uint8))
    ...     group.save(path)
    >>> ids, features, tags = vekfind.read_file(path)
    >>> ids.tolist(), features.tolist(), tags.tolist()
    ([7, 8], [[0.0, 0.0], [3.0, 4.0]], [[5], [6]])
    """
    with open(path, "rb") as file:
        feature_size, tag_size, rows = read_header(file)
        ids = np.frombuffer(_read(file, 8 * rows), "<u8").astype(np.uint64, copy=False)
        if _read(file, 8) != bytes(8):
            raise VekfindError(Status.INVALID_SETTINGS, "the reserved field is not 0")
        features = np.frombuffer(_read(file, feature_size * rows), np.uint8)
        tags = np.frombuffer(_read(file, tag_size * rows), np.uint8)
    if rows == 0 and tag_size != 0:
        raise VekfindError(Status.INVALID_ARGUMENT, "tags, but no rows")
    if (ids == INVALID_ID).any():
        raise VekfindError(Status.INVALID_ID)
    if len(np.unique(ids)) < rows:
        raise VekfindError(Status.DUPLICATED_ID)
    dim = feature_size // 4
    floats = np.ascontiguousarray(features.reshape(rows, feature_size)[:, : 4 * dim]).view("<f4")
    return GroupFile(
        ids,
        floats.reshape(rows, dim).astype(np.float32, copy=False),
        tags.reshape(rows, tag_size),
    )


def _read(file: BinaryIO, size: int) -> bytearray:
    """Asks for no memory that the file cannot fill."""
    here = file.tell()
    left = os.fstat(file.fileno()).st_size - here
    data = bytearray(size if size <= left else 0)
    if size > left or file.readinto(data) < size:  # type: ignore[attr-defined]
        raise VekfindError(Status.BROKEN_FILE, f"the file ends before its byte {here + size}")
    return data


def read_constants(path: PathLike) -> Dict[str, Any]:
    """What stands beside a group file; nothing where there is no such file."""
    beside = _constants_path(path)
    if not beside.exists():
        return {}
    try:
        constants = json.loads(beside.read_bytes())
        if not isinstance(constants, dict):
            raise ValueError("no JSON object")
        for name, value in constants.items():
            _check_constant(name, value)
    except ValueError as error:
        raise ValueError(f"{beside}: {error}") from None
    return constants


def _check_constant(name: str, value: Any) -> None:
    """The types alone, as the command `vekfind` has them: null is a constant that is not there."""
    is_flag = isinstance(value, bool)
    if name == "normalize" and not is_flag:
        raise ValueError("normalize is neither true nor false")
    if name in ("scale", "bias") and (is_flag or not isinstance(value, (int, float, type(None)))):
        raise ValueError(f"{name} is no number")


def write_constants(path: PathLike, constants: Dict[str, Any]) -> None:
    text = json.dumps(constants, indent=2) + "\n"
    replace_file(_constants_path(path), lambda beside: Path(beside).write_text(text), len(text))


def _constants_path(path: PathLike) -> Path:
    return Path(os.fspath(path) + ".json")


def replace_file(path: PathLike, write: Callable[[str], object], size: int) -> None:
    """Has a new file written beside `path`, `size` bytes long, and puts it in its place once it is
    on the disk. A failure leaves what was there."""
    target = os.path.realpath(path)
    mode: Optional[int] = None
    if os.path.lexists(target):
        mode = os.stat(target).st_mode
        if not stat.S_ISREG(mode):
            raise OSError(f"{target} is no regular file, so it is not replaced")
    temporary = f"{target}.{secrets.token_hex(6)}.tmp"
    folder = os.open(os.path.dirname(target), os.O_RDONLY)
    try:
        write(temporary)
        with open(temporary, "rb+") as written:
            length = os.fstat(written.fileno()).st_size
            if length != size:
                raise OSError(
                    f"{temporary} has {length} bytes, not {size}; is the disk full?"
                )
            os.fsync(written.fileno())
        if mode is not None:
            os.chmod(temporary, stat.S_IMODE(mode))
        os.replace(temporary, target)
        os.fsync(folder)
    finally:
        os.close(folder)
        if os.path.lexists(temporary):
            os.unlink(temporary)

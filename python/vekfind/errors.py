"""What the package raises and warns of beside Python's own errors."""
from enum import IntEnum


class Status(IntEnum):
    """Statuses of the C library; the numbers are fixed."""

    INTERNAL_ERROR = 1
    UNKNOWN_ERROR = 2
    NULL_POINTER = 3
    UNEXPECTED_CONFIG = 4
    BROKEN_FILE = 6
    INVALID_SETTINGS = 8
    FILE_NOT_FOUND = 9
    INVALID_ARGUMENT = 10
    UNSUPPORTED = 12
    DUPLICATED_ID = 17
    INVALID_ID = 18
    ID_NOT_FOUND = 19


MEANINGS = {
    Status.INTERNAL_ERROR: "a file that cannot be created or written, or a defect of the library",
    Status.UNKNOWN_ERROR: "lack of memory, or a size or count beyond the limits",
    Status.UNEXPECTED_CONFIG: "a file of another version",
    Status.BROKEN_FILE: "a file that ends early or cannot be read",
    Status.INVALID_SETTINGS: "settings that no group, or not this file, can have",
    Status.FILE_NOT_FOUND: "a file that cannot be opened",
    Status.UNSUPPORTED: "this kind of group does not offer it",
    Status.DUPLICATED_ID: "an id twice in one call, or one that the group holds already",
    Status.INVALID_ID: "the reserved id, all bits set",
    Status.ID_NOT_FOUND: "an id that the group does not hold",
}


class VekfindError(Exception):
    """A refusal of the library, or of a group file; `status` tells which.

    >>> import numpy, vekfind
    >>> group = vekfind.Group(2, scale=1, bias=-4)
    >>> group.erase([5])
    Traceback (most recent call last):
    ...
    vekfind.errors.VekfindError: VEK_ID_NOT_FOUND: an id that the group does not hold
    """

    status: Status

    def __init__(self, status: int, detail: str = "") -> None:
        self.status = Status(status)
        detail = detail or MEANINGS.get(self.status, "")
        super().__init__(f"VEK_{self.status.name}" + (f": {detail}" if detail else ""))

    def __reduce__(self) -> "tuple[type[VekfindError], tuple[int, str]]":
        return type(self), (int(self.status), str(self).partition(": ")[2])


class FarFromOriginWarning(UserWarning):
    """Features so far from the origin, compared with their spread, that distances lose digits."""

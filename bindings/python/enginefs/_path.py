"""Path: a name in the mounted file system, in the manner of pathlib."""
from __future__ import annotations

import errno
import os
import re
from fnmatch import fnmatchcase
from pathlib import PurePosixPath
from typing import IO, Any, Iterator, Optional

from . import _native
from ._files import Stat, find, mkdir, open_file, read_bytes, remove, rename, rmdir, stat, write_bytes
from ._native import c


class Path(PurePosixPath):
    """A name in the mounted file system: "/" joins, and `name`, `suffix`, `parent` and the like are pathlib's.

    Names are found in any case and taken as a whole; listings give them in lower case. It is no path of the disk, so nothing that
    wants one takes it: hand over `path.open("rb")` instead. Failures are the OSError that pathlib would raise.
    """

    __slots__ = ()

    def __fspath__(self) -> str:
        raise TypeError(f"{str(self)!r} is a name of the mounted file system, not a path of the disk: hand over path.open('rb')")

    def open(self, mode: str = "r", buffering: int = -1, encoding: Optional[str] = None, errors: Optional[str] = None,
             newline: Optional[str] = None) -> IO[Any]:
        """As enginefs.open."""
        return open_file(self, mode, buffering, encoding, errors, newline)

    def read_bytes(self) -> bytes:
        """The whole file, read in one call."""
        return read_bytes(self)

    def read_text(self, encoding: str = "utf-8", errors: str = "strict") -> str:
        """The whole file as text, with every end of line as "\\n"."""
        return re.sub("\r\n?", "\n", read_bytes(self).decode(encoding, errors))

    def write_bytes(self, data: Any) -> int:
        """Replaces the whole file: whatever happens, readers find the old one or the new one. Answers the number of bytes."""
        return write_bytes(self, data)

    def write_text(self, text: str, encoding: str = "utf-8", errors: str = "strict") -> int:
        """As write_bytes, the ends of line as they are. Answers the number of characters."""
        write_bytes(self, text.encode(encoding, errors))
        return len(text)

    def stat(self) -> Stat:
        return stat(self)

    def exists(self) -> bool:
        return find(self) is not None

    def is_file(self) -> bool:
        info = find(self)
        return info is not None and info.type != _native.IS_DIRECTORY

    def is_dir(self) -> bool:
        info = find(self)
        return info is not None and info.type == _native.IS_DIRECTORY

    def iterdir(self) -> Iterator[Path]:
        """The directories in it, then the files, each in order."""
        return map(type(self), _below(self, recursive=False))

    def glob(self, pattern: str) -> Iterator[Path]:
        """Files and directories below it that match, in any case: `*`, `?`, `[...]`, and `**` for any directories."""
        pieces, start = PurePosixPath(pattern.lower()).parts, len(self.parts)
        if not pieces or pieces[0] == "/":
            raise ValueError("a pattern is relative and not empty")
        below = map(type(self), _below(self, recursive=len(pieces) > 1 or "**" in pieces))
        return (path for path in below if _matches(path.parts[start:], pieces))

    def rglob(self, pattern: str) -> Iterator[Path]:
        return self.glob("**/" + pattern)

    def mkdir(self) -> None:
        """Makes it, and the directories above it."""
        mkdir(self)

    def unlink(self) -> None:
        remove(self)

    def rmdir(self) -> None:
        """Removes an empty directory."""
        rmdir(self)

    def rename(self, target: PurePosixPath | str) -> Path:
        """Renames a file within the source that holds it. Fails when the target exists."""
        rename(self, target)
        return type(self)(target)


def _below(path: Path, recursive: bool) -> list[str]:
    """The directories below, then the files. NotADirectoryError for a file."""
    name = _native.encode(path)
    if path.is_file():
        raise NotADirectoryError(errno.ENOTDIR, os.strerror(errno.ENOTDIR), str(path))
    directories = _native.texts(c.dirs(name, recursive), path)
    return directories + _native.texts(c.search(name, None, recursive), path)


def _matches(parts: tuple[str, ...], pattern: tuple[str, ...]) -> bool:
    """Whether the components of a relative name match those of a pattern."""
    if not pattern or not parts:
        return not parts and all(piece == "**" for piece in pattern)
    if pattern[0] == "**":
        return _matches(parts, pattern[1:]) or _matches(parts[1:], pattern)
    return fnmatchcase(parts[0].lower(), pattern[0]) and _matches(parts[1:], pattern[1:])

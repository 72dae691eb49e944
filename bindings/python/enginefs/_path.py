"""Path: a name in the mounted file system, in the manner of pathlib."""
from __future__ import annotations

import errno
import re
import stat as modes
from fnmatch import fnmatchcase
from pathlib import PurePosixPath
from typing import Iterator, NamedTuple

from . import _native
from ._files import file_failure, find, is_directory, open_file, os_error, read_bytes, write_bytes
from ._native import c, check, encode, texts


class Stat(NamedTuple):
    """What is known of a file or a directory, under os.stat_result's names. Times are seconds since 1970, 0.0 in a pack."""

    st_mode: int
    st_size: int
    st_mtime: float


class Path(PurePosixPath):
    """A name in the mounted file system: "/" joins, and `name`, `suffix`, `parent` and the like are pathlib's.

    Names are found in any case and taken as a whole; listings give them in lower case. It is no path of the disk, so nothing that
    wants one takes it: hand over `path.open("rb")` instead. Failures are the OSError that pathlib would raise.
    """

    __slots__ = ()

    def __fspath__(self) -> str:
        raise TypeError(f"{str(self)!r} is a name of the mounted file system, not a path of the disk: hand over path.open('rb')")

    open = open_file
    read_bytes = read_bytes
    write_bytes = write_bytes

    def read_text(self, encoding: str = "utf-8", errors: str = "strict") -> str:
        """The whole file as text, with every end of line as "\\n"."""
        return re.sub("\r\n?", "\n", self.read_bytes().decode(encoding, errors))

    def write_text(self, text: str, encoding: str = "utf-8", errors: str = "strict") -> int:
        """As write_bytes, the ends of line as they are. Answers the number of characters."""
        self.write_bytes(text.encode(encoding, errors))
        return len(text)

    def stat(self) -> Stat:
        info = find(self)
        if info is None:
            raise os_error(errno.ENOENT, self)
        if is_directory(info):
            return Stat(modes.S_IFDIR | 0o755, 0, 0.0)
        return Stat(modes.S_IFREG | (0o444 if info.is_read_only else 0o644), info.size, _native.seconds(info.time))

    def exists(self) -> bool:
        return find(self) is not None

    def is_file(self) -> bool:
        info = find(self)
        return info is not None and not is_directory(info)

    def is_dir(self) -> bool:
        return is_directory(find(self))

    def iterdir(self) -> Iterator[Path]:
        """The directories in it, then the files, each in order."""
        return self._below(recursive=False)

    def glob(self, pattern: str) -> Iterator[Path]:
        """Files and directories below it that match, in any case: `*`, `?`, `[...]`, and `**` for any directories."""
        pieces, start = PurePosixPath(pattern.lower()).parts, len(self.parts)
        if not pieces or pieces[0] == "/":
            raise ValueError("a pattern is relative and not empty")
        below = self._below(recursive=len(pieces) > 1 or "**" in pieces)
        return (path for path in below if _matches(path.parts[start:], pieces))

    def rglob(self, pattern: str) -> Iterator[Path]:
        return self.glob("**/" + pattern)

    def mkdir(self) -> None:
        """Makes it, and the directories above it."""
        check(c.mkdir(encode(self), 0), self)

    def unlink(self) -> None:
        """Deletes the file in the first source that holds it."""
        if c.remove(encode(self), 0):
            raise file_failure(self)

    def rmdir(self) -> None:
        """Removes an empty directory."""
        name = encode(self)
        if texts(c.search(name, None, 1), self) or texts(c.dirs(name, 0), self):
            raise os_error(errno.ENOTEMPTY, self)
        check(c.remove_dir(name, 0), self)

    def rename(self, target: PurePosixPath | str) -> Path:
        """Renames a file within the source that holds it. FileExistsError when the target is held."""
        check(c.rename(encode(self), encode(target), 0), self, target)
        return type(self)(target)

    def _below(self, recursive: bool) -> Iterator[Path]:
        """The directories below, then the files. NotADirectoryError for a file."""
        if self.is_file():
            raise os_error(errno.ENOTDIR, self)
        name = encode(self)
        return map(type(self), texts(c.dirs(name, recursive), self) + texts(c.search(name, None, recursive), self))


def _matches(parts: tuple[str, ...], pattern: tuple[str, ...]) -> bool:
    """Whether the components of a relative name match those of a pattern."""
    if not pattern or not parts:
        return not parts and all(piece == "**" for piece in pattern)
    if pattern[0] == "**":
        return _matches(parts, pattern[1:]) or _matches(parts[1:], pattern)
    return fnmatchcase(parts[0].lower(), pattern[0]) and _matches(parts[1:], pattern[1:])

"""Open files in the manner of io, and whole files."""
from __future__ import annotations

import errno
import io
import os
import threading
from ctypes import byref, c_char
from typing import IO, Any, Optional

from . import _native
from ._native import Name, Single, address, c, check, encode, failure, int64, new_bytes

BUFFER_SIZE = 64 * 1024  # a call through ctypes costs more than a system call does
_READING = _native.WHOLE_NAME | _native.SEEKABLE


def find(name: Name) -> Optional[_native.FileInfo]:
    """What the library tells of a name, or None when nobody holds it."""
    info = _native.FileInfo()
    status = c.stat(encode(name), _native.WHOLE_NAME, byref(info))
    if status == _native.NOT_FOUND:
        return None
    check(status, name)
    return info


def is_directory(info: Optional[_native.FileInfo]) -> bool:
    return info is not None and info.type == _native.DIRECTORY


def file_failure(name: Name) -> OSError:
    """Why a file could not be had: as failure, and IsADirectoryError where there is a directory."""
    error = failure(name)
    return os_error(errno.EISDIR, name) if is_directory(find(name)) else error


def os_error(number: int, name: Name) -> OSError:
    return OSError(number, os.strerror(number), str(name))


def read_bytes(name: Name) -> bytes:
    """The whole file, read in one call: without a buffer in between, and never a part of it."""
    handle = _open_handle(name, "r", False)
    try:
        return _read(handle, _checked(c.length(handle), name), name)
    finally:
        c.close(handle)


def write_bytes(name: Name, data: Any) -> int:
    """Replaces the whole file, or makes it: whatever happens, readers find the old one or the new one. Answers the bytes."""
    start, size = address(data)
    check(c.save(encode(name), start, size, _native.WHOLE_NAME | _native.REPLACE), name)
    return size


def copy(old: Name, new: Name) -> None:
    """Copies a file, over an old one too."""
    check(c.copy(encode(old), encode(new), 0), old, new)


def _read(handle: int, size: int, name: Any) -> bytes:
    data: bytes = new_bytes(None, max(size, 0))
    got = _checked(c.read(handle, data, len(data)), name)
    return data if got == len(data) else data[:got]


def _checked(answer: int, name: Any) -> int:
    if answer < 0:
        raise failure(name)
    return answer


class RawFile(Single, io.RawIOBase):
    """An unbuffered file of the mounted file system; enginefs.open makes it.

    Reads land in the caller's buffer without a copy, from any position of any entry. Any thread may use it, one at a time.
    """

    _handle: Optional[int] = None

    def __init__(self, name: Name, kind: str, both: bool) -> None:
        self.name = name
        self.mode = ("r" if kind == "w" and both else kind) + ("b+" if both else "b")  # as io.FileIO tells it
        self._reads = kind == "r" or both
        self._writes = kind != "r" or both
        self._appends = kind == "a"
        self._lock = threading.Lock()  # a handle is for one thread at a time, and calls run without the interpreter's lock
        self._handle = _open_handle(name, kind, both)
        if self._appends:
            self.seek(0, io.SEEK_END)

    def readable(self) -> bool:
        return self._open("ask") is not None and self._reads

    def writable(self) -> bool:
        return self._open("ask") is not None and self._writes

    def seekable(self) -> bool:
        return self._open("ask") is not None

    def readinto(self, buffer: Any) -> int:
        """Fills `buffer`; less only at the end of the file. OSError when bytes are lost or damaged."""
        view = memoryview(buffer)
        start = byref(c_char.from_buffer(view)) if view.nbytes else None
        with self._lock:
            return _checked(c.read(self._open("read", self._reads), start, view.nbytes), self.name)

    def readall(self) -> bytes:
        with self._lock:
            handle = self._open("read", self._reads)
            return _read(handle, _checked(c.length(handle), self.name) - _checked(c.tell(handle), self.name), self.name)

    def write(self, data: Any) -> int:
        """Writes all of it. A failure, a full disk say, may leave a part."""
        start, size = address(data)
        with self._lock:
            handle = self._open("write", self._writes)
            if self._appends:
                check(c.seek(handle, 0, io.SEEK_END), self.name)
            return _checked(c.write(handle, start, size), self.name)

    def seek(self, offset: int, whence: int = io.SEEK_SET) -> int:
        with self._lock:
            handle = self._open("seek")
            check(c.seek(handle, int64(offset), whence), self.name)
            return _checked(c.tell(handle), self.name)

    def tell(self) -> int:
        return self.seek(0, io.SEEK_CUR)

    def truncate(self, size: Optional[int] = None) -> int:
        with self._lock:
            handle = self._open("truncate", self._writes)
            position = _checked(c.tell(handle), self.name)
            end = position if size is None else int64(size)
            check(c.seek(handle, end, io.SEEK_SET), self.name)
            try:
                check(c.set_end(handle), self.name)
            finally:
                check(c.seek(handle, position, io.SEEK_SET), self.name)
        return end

    def close(self) -> None:
        """Ends the file. OSError when what was written could not be kept; it is closed all the same."""
        try:
            super().close()
        finally:
            with self._lock:
                handle, self._handle = self._handle, None
                status = c.close(handle) if handle is not None else 0
            check(status, self.name)

    def _open(self, what: str, allowed: bool = True) -> int:
        if self._handle is None:
            raise ValueError("I/O operation on closed file")
        if not allowed:
            raise io.UnsupportedOperation(f"{what}: {self.name} is open in mode {self.mode!r}")
        return self._handle


def _open_handle(name: Name, kind: str, both: bool) -> int:
    encoded, flags = encode(name), _native.WHOLE_NAME
    if kind == "x" and find(name) is not None:
        raise os_error(errno.EEXIST, name)
    if kind == "r" and both and find(name) is None:  # the library would make it
        raise os_error(errno.ENOENT, name)
    if kind == "r" and not both:
        how, flags = _native.READ, _READING
    elif both:
        how, flags = _native.READ_WRITE, flags | (_native.CREATE if kind in "wx" else 0)
    else:
        how = _native.APPEND if kind == "a" else _native.WRITE
    handle: Optional[int] = c.open(encoded, how, flags)
    if handle is None:
        raise file_failure(name)
    return handle


def open_file(file: Name, mode: str = "r", buffering: int = -1, encoding: Optional[str] = None,
              errors: Optional[str] = None, newline: Optional[str] = None) -> IO[Any]:
    """Opens a file of the mounted file system, and answers what io.open would: raw, buffered or text.

    mode       "r", "w", "a" or "x", with "b" and "+" as in io.open. Names are taken as a whole, in any case; "w" empties an old
               file at once (write_bytes keeps it until the new one is whole), and directories are made as needed.
    buffering  0: none (binary only), 1: by lines (text only), else the size in bytes, by default 64 KiB.
    encoding   UTF-8 by default, on every system; errors and newline as in io.open.
    Failure    OSError: FileNotFoundError, IsADirectoryError, PermissionError, FileExistsError ("x"), EBUSY when the file is open
               in a way that excludes this one. ValueError for a mode that is none.
    Threads    any; a buffered file may be used by several.
    """
    letters = set(mode)
    kinds = letters & set("rwax")
    if len(letters) != len(mode) or letters - set("rwaxbt+") or len(kinds) != 1 or {"b", "t"} <= letters:
        raise ValueError(f"invalid mode: {mode!r}")
    binary = "b" in letters
    if binary and not (encoding is errors is newline is None):
        raise ValueError("binary mode takes no encoding, errors or newline")
    if buffering == 0 and not binary:
        raise ValueError("can't have unbuffered text I/O")
    raw = RawFile(file, kinds.pop(), "+" in letters)
    if buffering == 0:
        return raw  # type: ignore[return-value]
    try:
        wrap: Any = io.BufferedRandom if "+" in letters else io.BufferedReader if "r" in letters else io.BufferedWriter
        buffered: IO[Any] = wrap(raw, BUFFER_SIZE if buffering < 0 or buffering == 1 else buffering)
        if binary:
            return buffered
        text = io.TextIOWrapper(buffered, encoding or "utf-8", errors, newline, line_buffering=buffering == 1)
        text.mode = mode  # type: ignore[misc]
        return text
    except BaseException:
        raw.close()
        raise

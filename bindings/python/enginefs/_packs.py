"""Packs: making them, and reading what they hold without mounting them."""
from __future__ import annotations

import os
from enum import IntEnum
from typing import Any, NamedTuple, Optional, Type

from . import _native
from ._native import DiskName, Single, address, c, check, disk_path, encode, failure, int64


class Method(IntEnum):
    """How an entry is packed. Zip tools of before 2021 cannot read ZSTD."""

    STORE = 0
    DEFLATE = 8
    ZSTD = 93


class PackEntry(NamedTuple):
    """What the directory of a pack tells of an entry."""

    name: str
    size: int
    packed_size: int
    method: int  # a Method, or another number that the pack records
    crc: int  # CRC-32 of the plain bytes
    mtime: float  # seconds since 1970 in whatever time zone the pack was made; 1980 where none was given


def list_pack(path: DiskName) -> list[PackEntry]:
    """The entries of a pack of the disk, in its order. Nothing need be mounted. OSError when it is no pack (EBADMSG)."""
    found = _native.items(c.pack_list(disk_path(path)), os.fspath(path), c.pack_entry_at, _native.EntryInfo)
    return [PackEntry(name, info.size, info.packed_size, info.method, info.crc, _native.seconds(info.time)) for name, info in found]


class PackWriter(Single):
    """Makes a pack: `with PackWriter("game.pak") as pack: pack.add("levels/one.txt", data)`.

    It is written beside its target and takes its place at the end of the block; when the block raises, or the pack cannot be
    finished, the old one stays. For one thread at a time.
    """

    def __init__(self, path: DiskName) -> None:
        self.path = os.fspath(path)
        self._handle: Optional[int] = c.pack_create(disk_path(path))
        if self._handle is None:
            raise failure(self.path)

    def add(self, name: str, data: Any, method: Method = Method.DEFLATE, level: int = 6, mtime: float = 0.0) -> None:
        """Packs the bytes of a buffer and adds them.

        level    0 stores; 1 to 12 for DEFLATE, 1 to 22 for ZSTD.
        mtime    seconds since 1970.
        Failure  OSError, and the pack takes further entries: a name that a pack cannot hold or has already, a level that is none.
        """
        start, size = address(data)
        time = int64(round((mtime + 11_644_473_600) * 10_000_000)) if mtime else 0
        check(c.pack_add(self._open(), encode(name), start, size, method, level, time), name)

    def add_file(self, path: DiskName, name: str, method: Method = Method.DEFLATE, level: int = 6) -> None:
        """Adds a file of the disk with its time."""
        with open(path, "rb") as file:
            self.add(name, file.read(), method, level, os.fstat(file.fileno()).st_mtime)

    def finish(self) -> None:
        """Puts the pack in its place. OSError, and the old one stays, when that fails."""
        handle, self._handle = self._open(), None
        check(c.pack_finish(handle), self.path)

    def cancel(self) -> None:
        """Drops what was added; the old pack stays. Nothing happens after finish."""
        handle, self._handle = self._handle, None
        if handle is not None:
            check(c.pack_cancel(handle), self.path)

    def _open(self) -> int:
        if self._handle is None:
            raise ValueError("the pack was finished or cancelled")
        return self._handle

    def __enter__(self) -> PackWriter:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], *_: Any) -> None:
        if kind is not None:
            self.cancel()
        elif self._handle is not None:
            self.finish()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            self.cancel()

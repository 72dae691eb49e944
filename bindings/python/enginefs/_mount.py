"""Mount: the file system of the process, from start to end."""
from __future__ import annotations

import atexit
import errno
import os
import shutil
import stat
import tempfile
import threading
from ctypes import byref
from enum import IntFlag
from typing import Any, Callable, Iterable, NamedTuple, Optional, Type

from . import _native
from ._files import open_file
from ._native import DiskName, Single, c, check, disk_path, encode

Log = Callable[[int, str, str], Any]


class Flags(IntFlag):
    """How a source is mounted."""

    NONE = 0
    RECURSIVE = 0x01  # subdirectories too
    AFTER_SAME_TYPE = 0x02  # asked after, not before, the sources of its own kind
    MOUNT_PARENT = 0x04  # the last component of the directory leads every name
    INDEX_NAMES = 0x08  # its directories join the global index of names
    ALLOW_DUPLICATE = 0x10  # no check for a source of the same path
    PACK_IN_MEMORY = 0x20  # a pack is read whole when it is mounted
    SKIP_LISTING_CACHE = 0x40
    PROTECTED = 0x80  # not writable, and shields the names that it holds
    MUST_EXIST = 0x100  # the directory must exist; not writable
    BEFORE_PACKS = 0x400  # a directory is asked before every pack
    WRITE_HERE = 0x800  # what nobody holds is created here; the newest such counts
    TREE = RECURSIVE | INDEX_NAMES  # what a directory is mounted with


class Source(NamedTuple):
    """One of the sources that are asked for a name; the path of the fallback is ""."""

    path: str
    flags: Flags
    writable: bool
    protected: bool


class Mount(Single):
    """Starts the file system, and stops it at the end of a `with` block, by close, or when the interpreter ends.

    root         directory that is asked after the packs and written to; None: an empty one that goes with the mount.
    packs        packs (".pak", ".mpak"), the last one asked first; directories: asked after the root.
    flags        of the root.
    fallback     whether names that no source holds are taken for names of the disk.
    log, level   as for set_log.

    The library is one for the process, and so is the mount: RuntimeError for a second one. OSError when a source cannot be
    mounted; nothing is left mounted then. Files that are still open at the end can be read and closed. Any thread may use it;
    another interpreter of the process and a child made by fork may not, and the child's end leaves it alone.
    """

    root: str  # as a full path
    _current: Optional[Mount] = None
    _guard = threading.RLock()  # over _current and _callback
    _callback: Any = None  # lives as long as the library may call it, whatever becomes of the mount

    def __init__(self, root: Optional[DiskName] = None, packs: Iterable[DiskName] = (), directories: Iterable[DiskName] = (), *,
                 flags: Flags = Flags.TREE | Flags.WRITE_HERE, fallback: bool = False, log: Optional[Log] = None,
                 level: int = 2) -> None:
        with Mount._guard:
            if Mount._current is not None:
                raise RuntimeError(f"a file system is mounted already, with the root {Mount._current.root!r}; "
                                   "there is one for each process, so close that Mount first")
            self._temporary = tempfile.mkdtemp(prefix="enginefs-") if root is None else None
            self.root = os.path.abspath(os.fspath(self._temporary or root))  # type: ignore[arg-type]
            self._process = os.getpid()
            try:
                self.set_log(log, level)
                check(c.init(byref(_native.Options(flags, disk_path(self.root), None, None, fallback, 0))), self.root)
            except BaseException:
                self.set_log(None)
                self._drop_temporary()
                raise
            Mount._current = self
        atexit.register(self.close)  # a thread of the library must not call into an interpreter that has ended
        try:
            for source in (*packs, *directories):
                self.add(source)
        except BaseException:
            self.close()
            raise

    def set_log(self, log: Optional[Log], level: int = 2) -> None:
        """Has `log` told each line of the library's log: level, category, text. None: no longer, and no lines are made.

        level    up to which lines are made: 1 fatal, 2 error, 3 info, 4 warning, 5 debug. The first one opens a log file, below
                 "out/logs" in the root.
        Threads  it runs on any, several at once, and calls nothing of this package; what it raises goes to sys.unraisablehook.
                 The one before runs no more when this returns, so hold no lock here that it waits for.
        """
        callback = _native.LogCallback(_told(log)) if log else _native.LogCallback(0)
        with Mount._guard:
            c.set_log(callback, None)
            Mount._callback = callback
            c.log_level(level if log else 0)

    def add(self, path: DiskName, prefix: str = "", flags: Optional[Flags] = None) -> None:
        """Mounts one more pack or directory, its names below `prefix`. FileExistsError when it is mounted already."""
        is_directory = stat.S_ISDIR(os.stat(path).st_mode)  # the library would mount a directory that is yet to come
        if not is_directory and not os.fspath(path).lower().endswith((".pak", ".mpak")):
            raise NotADirectoryError(errno.ENOTDIR, "This is no directory, and no pack by its name", os.fspath(path))
        if flags is None:
            flags = Flags.TREE if is_directory else Flags.NONE
        check(c.add_source_at(disk_path(path), encode(prefix), flags), os.fspath(path))

    def remove(self, path: DiskName) -> None:
        """Takes a source away; its open files stay usable."""
        check(c.remove_source(disk_path(path)), os.fspath(path))

    def refresh(self) -> None:
        """Reads anew what the disk holds, after others have changed it."""
        check(c.refresh(None))

    def sources(self) -> list[Source]:
        """All sources, in the order in which they are asked."""
        return _sources(c.sources())

    def holders(self, name: _native.Name) -> list[Source]:
        """The sources that hold a file of this name, also by its end; the first one wins."""
        return _sources(c.holders(encode(name), 0))

    open = staticmethod(open_file)

    def close(self) -> None:
        """Stops the file system. Nothing happens when it was stopped before."""
        with Mount._guard:
            if Mount._current is not self or self._process != os.getpid():  # a fork has none of the library's threads
                return
            check(c.shutdown(), self.root)
            self.set_log(None)
            Mount._current = None
        atexit.unregister(self.close)
        self._drop_temporary()

    def _drop_temporary(self) -> None:
        if self._temporary is not None:
            shutil.rmtree(self._temporary, ignore_errors=True)

    def __enter__(self) -> Mount:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], *_: Any) -> None:
        self.close()


def _told(log: Log) -> Callable[[int, bytes, bytes, Any], None]:
    def tell(level: int, category: bytes, text: bytes, _: Any) -> None:
        log(level, category.decode("utf-8", "replace"), text.decode("utf-8", "replace").rstrip("\r\n"))

    return tell


def _sources(handle: Optional[int]) -> list[Source]:
    return [Source(path, Flags(info.flags), bool(info.is_writable), bool(info.is_protected))
            for path, info in _native.items(handle, None, c.source_at, _native.SourceInfo)]

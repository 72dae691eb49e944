"""The C interface as ctypes sees it: the library, its functions and structures, and its failures as OSError.

Every call goes through ctypes.CDLL, which lets go of the interpreter's lock: a call may wait for a lock of the library whose
owner waits for the interpreter in a log callback. So nothing here may become a PyDLL.
"""
from __future__ import annotations

import ctypes
import errno
import os
import sys
from ctypes import POINTER, byref, c_char, c_char_p, c_int, c_int32, c_int64, c_uint32, c_uint64, c_void_p
from operator import index
from pathlib import Path as DiskPath
from pathlib import PurePath
from types import SimpleNamespace
from typing import Any, Optional, Union

__version__ = "1.0.0"

DiskName = Union[str, "os.PathLike[str]"]
Name = Union[DiskName, PurePath]

READ, WRITE, APPEND, READ_WRITE = range(4)
CREATE, REPLACE, WHOLE_NAME, SEEKABLE = 0x20, 0x400, 0x800, 0x1000
DIRECTORY = 2
NOT_FOUND = 1

_ERRNO = {
    1: errno.ENOENT, 2: errno.EACCES, 3: errno.EBUSY, 4: errno.EEXIST, 5: errno.EACCES, 6: errno.ENOSPC, 7: errno.EINVAL,
    8: errno.EINVAL, 9: errno.ENODEV, 10: errno.EBADMSG, 11: errno.ENOTSUP, 12: errno.EFBIG, 13: errno.ENOMEM,
    14: errno.ECANCELED, 15: errno.EIO,
}


class Struct(ctypes.Structure):
    """A structure that tells the library how much of it this package knows."""

    def __init__(self, *values: Any) -> None:
        super().__init__(ctypes.sizeof(self), *values)


class Options(Struct):
    _fields_ = [("struct_size", c_uint32), ("flags", c_uint32), ("root", c_char_p), ("cache_dir", c_char_p),
                ("names", c_void_p), ("use_fallback", c_uint32), ("reserved", c_uint32)]


class Error(Struct):
    _fields_ = [("struct_size", c_uint32), ("code", c_int32), ("system_code", c_int32), ("reserved", c_uint32),
                ("path", c_char_p), ("text", c_char_p)]


class SourceInfo(Struct):
    _fields_ = [("struct_size", c_uint32), ("kind", c_uint32), ("flags", c_uint32), ("is_writable", c_uint32),
                ("is_protected", c_uint32), ("unlisted_directories", c_uint32)]


class FileInfo(Struct):
    _fields_ = [("struct_size", c_uint32), ("type", c_uint32), ("size", c_int64), ("time", c_int64), ("kind", c_uint32),
                ("is_read_only", c_uint32), ("is_protected", c_uint32), ("reserved", c_uint32)]


class EntryInfo(Struct):
    _fields_ = [("struct_size", c_uint32), ("method", c_uint32), ("size", c_uint64), ("packed_size", c_uint64),
                ("time", c_int64), ("crc", c_uint32), ("reserved", c_uint32)]


LogCallback = ctypes.CFUNCTYPE(None, c_int, c_char_p, c_char_p, c_void_p)

# What functions answer, and what they take.
_SIGNATURES: dict[tuple[Any, ...], str] = {
    (None, LogCallback, c_void_p): "set_log",
    (None, c_void_p): "free",
    (c_uint32,): "version",
    (c_int,): "shutdown",
    (c_int, c_int): "log_level",
    (c_int, POINTER(Options)): "init",
    (c_int, POINTER(Error)): "last_error",
    (c_int, c_char_p): "remove_source refresh",
    (c_int, c_char_p, c_char_p, c_uint32): "add_source_at rename copy",
    (c_int, c_char_p, c_uint32): "remove remove_dir mkdir",
    (c_int, c_char_p, c_uint32, POINTER(FileInfo)): "stat",
    (c_int, c_char_p, c_void_p, c_uint64, c_uint32): "save",
    (c_int, c_void_p): "close set_end list_free pack_finish pack_cancel",
    (c_int, c_void_p, c_int64, c_int): "seek",
    (c_int, c_void_p, c_uint64, POINTER(SourceInfo)): "source_at",
    (c_int, c_void_p, c_uint64, POINTER(EntryInfo)): "pack_entry_at",
    (c_int, c_void_p, c_char_p, c_void_p, c_uint64, c_int, c_int, c_int64): "pack_add",
    (c_int64, c_void_p): "tell length",
    (c_int64, c_void_p, c_void_p, c_uint64): "read write",
    (c_void_p,): "sources",
    (c_void_p, c_char_p): "pack_create pack_list",
    (c_void_p, c_char_p, c_int): "dirs",
    (c_void_p, c_char_p, c_uint32): "holders",
    (c_void_p, c_char_p, c_char_p, c_int): "search",
    (c_void_p, c_char_p, c_int, c_uint32): "open",
    (c_void_p, c_void_p, POINTER(c_uint64)): "list_block",
}


def _library_path() -> str:
    """ENGINEFS_LIBRARY, else the library inside of the package (that of the wheel), else the one that the system finds."""
    name = "engine_filesystem.dll" if sys.platform == "win32" else "libengine_filesystem.so"
    beside = DiskPath(__file__).with_name(name)
    installed = name if sys.platform == "win32" else name + ".1"
    return os.environ.get("ENGINEFS_LIBRARY") or (str(beside) if beside.exists() else installed)


def _load() -> SimpleNamespace:
    """The functions of the library under their names without the prefix, or an ImportError that says what does not fit."""
    path = _library_path()
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        raise ImportError(f"enginefs {__version__} cannot load its library: {error}. Install engine_filesystem or the wheel, "
                          "or name the file in ENGINEFS_LIBRARY", path=path) from error
    functions, missing = SimpleNamespace(version=lambda: 0), []
    for (result, *arguments), names in _SIGNATURES.items():
        for name in names.split():
            function = getattr(library, "enginefs_" + name, None)
            if function is None:
                missing.append("enginefs_" + name)
                continue
            function.restype, function.argtypes = result, arguments
            setattr(functions, name, function)
    number = functions.version()
    found, wanted = (number >> 16, number >> 8 & 0xFF, number & 0xFF), tuple(map(int, __version__.split(".")))
    if missing or found[0] != wanted[0] or found < wanted:
        text = ".".join(map(str, found)) if number else "of no known version"
        lacks = f", and it lacks {', '.join(missing[:3])}{' and more' if missing[3:] else ''}" if missing else ""
        raise ImportError(f"enginefs {__version__} needs a library engine_filesystem {wanted[0]}.x, {__version__} or newer, "
                          f"and {path} is {text}{lacks}", path=path)
    return functions


c: Any = _load()

# A new bytes object of this size with nothing in it yet, for the library to fill: reading then copies nothing.
new_bytes = ctypes.pythonapi.PyBytes_FromStringAndSize
new_bytes.restype = ctypes.py_object
new_bytes.argtypes = [c_void_p, ctypes.c_ssize_t]


class Single:
    """What stands for one thing of the library, and so is neither copied nor pickled."""

    def __reduce_ex__(self, _: Any) -> Any:
        raise TypeError(f"cannot copy or pickle a {type(self).__name__}")


def encode(name: Name) -> bytes:
    """A name of the mounted file system as the library takes it."""
    text = str(name) if isinstance(name, PurePath) else os.fspath(name)
    if not isinstance(text, str):
        raise TypeError(f"names are str or paths, not {type(text).__name__}")
    if "\0" in text:
        raise ValueError("embedded null character in a name")
    return b"" if text == "." else text.encode("utf-8", "surrogateescape")


def disk_path(path: DiskName) -> bytes:
    """A path of the disk as the library takes it: full."""
    return encode(os.path.abspath(os.fspath(path)))


def int64(number: int) -> int:
    """The number, which ctypes would cut to 64 bits without a word."""
    number = index(number)
    if not -(1 << 63) <= number < 1 << 63:
        raise OverflowError(f"{number} does not fit into 64 bits")
    return number


def address(data: Any) -> tuple[Any, int]:
    """The bytes of a buffer for a c_void_p argument, and how many. Only what is read-only and no bytes object is copied."""
    if not isinstance(data, bytes):
        view = memoryview(data)
        if view.nbytes and view.c_contiguous and not view.readonly:
            return byref(c_char.from_buffer(view)), view.nbytes
        data = view.tobytes()
    return data, len(data)


def failure(name: Any = None, second: Any = None) -> OSError:
    """The thread's most recent failure: FileNotFoundError, PermissionError and so on, with the library's sentence."""
    error = Error()
    code = c.last_error(byref(error))
    number = _ERRNO.get(code, errno.EIO)
    text = (error.text or b"").decode("utf-8", "replace") or os.strerror(number)
    names = [str(one) if isinstance(one, PurePath) else one for one in (name, second)]
    return OSError(number, text, names[0], None, names[1])


def check(status: int, name: Any = None, second: Any = None) -> None:
    if status:
        raise failure(name, second)


def texts(handle: Optional[int], name: Any = None) -> list[str]:
    """The texts of a list, which ends with this."""
    return [text for text, _ in items(handle, name)]


def items(handle: Optional[int], name: Any = None, tell: Any = None, kind: Any = None) -> list[tuple[str, Any]]:
    """The texts of a list, which ends with this, and what `tell(handle, index, kind)` knows of each, where that is wanted."""
    if handle is None:
        raise failure(name)
    try:
        size = c_uint64()
        block = ctypes.string_at(c.list_block(handle, byref(size)), size.value)
        found = [(text, kind and kind()) for text in block.decode("utf-8", "surrogateescape").split("\0")[:-1]]
        for at, (_, info) in enumerate(found if tell else ()):
            check(tell(handle, at, byref(info)), name)
        return found
    finally:
        c.list_free(handle)


def seconds(time: int) -> float:
    """Since 1970, of a time in units of 100 ns since 1601; 0.0 for one that is not known."""
    return time / 10_000_000 - 11_644_473_600 if time > 0 else 0.0

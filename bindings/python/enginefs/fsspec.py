"""fsspec over the mounted file system, for those who have fsspec: `fsspec.open("enginefs://levels/one.txt")`.

A wheel tells fsspec of it; without a wheel, `fsspec.register_implementation("enginefs", EngineFileSystem)` does. Mount first.
"""
from __future__ import annotations

import os
from typing import Any, Optional

from fsspec import AbstractFileSystem

from . import _files, _native
from ._path import Path


class EngineFileSystem(AbstractFileSystem):  # type: ignore[misc]
    """The files of the enginefs.Mount that this process has. Failures are as in enginefs."""

    protocol = "enginefs"
    root_marker = ""
    cachable = False

    @classmethod
    def _strip_protocol(cls, path: Any) -> Any:
        stripped = super()._strip_protocol(path)
        return stripped if isinstance(stripped, list) else stripped.strip("/")

    def info(self, path: str, **_: Any) -> dict[str, Any]:
        path = self._strip_protocol(path)
        found = _files.find(path)
        if found is None:
            raise FileNotFoundError(path)
        kind = "directory" if _files.is_directory(found) else "file"
        return {"name": path, "size": found.size if kind == "file" else 0, "type": kind, "mtime": _native.seconds(found.time)}

    def ls(self, path: str, detail: bool = True, **_: Any) -> list[Any]:
        info = self.info(path)
        names = [str(one) for one in Path(info["name"]).iterdir()] if info["type"] == "directory" else [info["name"]]
        return [self.info(name) for name in names] if detail else names

    def _open(self, path: str, mode: str = "rb", block_size: Optional[int] = None, autocommit: bool = True,
              cache_options: Optional[dict[str, Any]] = None, **_: Any) -> Any:
        file: Any = _files.open_file(path, mode)
        if "r" in mode:
            file.size = file.seek(0, os.SEEK_END)  # which fsspec asks for where it counts from the end
            file.seek(0)
        return file

    def cat_file(self, path: str, start: Optional[int] = None, end: Optional[int] = None, **kwargs: Any) -> bytes:
        if start is end is None:
            return _files.read_bytes(self._strip_protocol(path))
        return bytes(super().cat_file(path, start, end, **kwargs))

    def modified(self, path: str) -> Any:
        from datetime import datetime, timezone

        return datetime.fromtimestamp(self.info(path)["mtime"], timezone.utc)

    def cp_file(self, path1: str, path2: str, **_: Any) -> None:
        if self.isdir(path1):
            self.makedirs(path2, exist_ok=True)
        else:
            _files.copy(self._strip_protocol(path1), self._strip_protocol(path2))

    def _rm(self, path: str) -> None:
        (Path.rmdir if self.isdir(path) else Path.unlink)(Path(self._strip_protocol(path)))

    def rmdir(self, path: str) -> None:
        Path(self._strip_protocol(path)).rmdir()

    def mkdir(self, path: str, create_parents: bool = True, **_: Any) -> None:
        self.makedirs(path)

    def makedirs(self, path: str, exist_ok: bool = False) -> None:
        if not exist_ok and self.exists(path):
            raise FileExistsError(path)
        Path(self._strip_protocol(path)).mkdir()

"""The file system of a game engine: directories and packs as one tree of names.

    import enginefs

    with enginefs.Mount("game", packs=["game/base.pak"]):
        for path in enginefs.Path("levels").glob("*.json"):
            print(path, json.loads(path.read_text()))
        with enginefs.open("saves/one.txt", "w") as file:
            file.write("level two")

The library is loaded with this import: ImportError when there is none, or one that does not fit. Failures are OSError with the
library's reason. Calls run without the interpreter's lock, so threads read side by side.
"""
from ._files import RawFile, copy
from ._files import open_file as open  # noqa: A004
from ._mount import Flags, Mount, Source
from ._native import __version__
from ._packs import Method, PackEntry, PackWriter, list_pack
from ._path import Path, Stat

__all__ = ["Flags", "Method", "Mount", "PackEntry", "PackWriter", "Path", "RawFile", "Source", "Stat", "__version__", "copy",
           "list_pack", "open"]

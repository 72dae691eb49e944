#!/usr/bin/env python3
"""A folder is a floor: a file includes only from its own floor or a lower one, and never in a circle.

A public header stands on the floor of the room that it is named after. tools/ and examples/ see the
public headers alone.

usage: floors.py ROOT
"""
import os
import re
import sys

import sources

ROOMS = {"formats": 1.5, "log": 1.5, "contract": 2, "registry": 3, "access": 4, "handles": 5, "streams": 6, "sources": 7, "containers": 7,
         "startup": 8}
# Public headers that are named after no room: marks and declarations which every room needs.
OTHERS = {"include/engine/filesystem/api.h": 0, "include/engine/filesystem/request.h": 2, "include/engine/filesystem.h": 9}
ROOM = re.compile(r"^(?:include/)?engine/filesystem/([a-z_]+)(?:\.h$|/)")


def floor(path):
    """The floor of a file, or None when it stands nowhere. The kernel stands under the log: it never logs."""
    if path in OTHERS:
        return OTHERS[path]
    if path.startswith("engine/platform/"):
        return 0
    if path.startswith(("engine/kernel/", "include/engine/kernel/")):
        return 1
    if path.startswith(("tools/", "examples/")):
        return 9
    room = ROOM.match(path)
    return ROOMS.get(room.group(1)) if room else None


class Tree:
    def __init__(self, root):
        self.root = root
        self.paths = list(sources.files(root, "engine", "include", "tools", "examples"))
        self.known = set(self.paths)
        self.complaints = []
        self.graph = {path: self.edges(path) for path in self.paths}

    def resolve(self, path, kind, name):
        beside = os.path.normpath(os.path.join(os.path.dirname(path), name)).replace(os.sep, "/")
        places = ["include/" + name] if kind == "<" else [beside, name, "include/" + name]
        return next((place for place in places if place in self.known), None)

    def edges(self, path):
        found = []
        for line, kind, name in sources.includes(self.root, path):
            target = self.resolve(path, kind, name)
            if target:
                found.append((line, target))
            elif name.startswith("engine/"):
                self.complaints.append(f"{path}:{line}: {name} is not in the tree")
        return found

    def check_floors(self):
        for path in self.paths:
            here = floor(path)
            if here is None:
                self.complaints.append(f"{path}: stands on no floor; tests/checks/floors.py names them")
                continue
            for line, target in self.graph[path]:
                there = floor(target)
                if there is not None and there > here:
                    self.complaints.append(f"{path}:{line}: floor {here} includes {target} of floor {there}")
                if path.startswith(("tools/", "examples/", "include/")) and target.startswith("engine/"):
                    self.complaints.append(f"{path}:{line}: includes {target}, which is private")

    def check_circles(self):
        done, chain = set(), []

        def visit(path):
            if path in chain:
                self.complaints.append("circle: " + " -> ".join(chain[chain.index(path):] + [path]))
                return
            if path in done:
                return
            chain.append(path)
            for _, target in self.graph[path]:
                visit(target)
            chain.pop()
            done.add(path)

        for path in self.paths:
            visit(path)


def main(root):
    tree = Tree(root)
    tree.check_floors()
    tree.check_circles()
    sources.finish("floors", tree.complaints)


if __name__ == "__main__":
    main(sys.argv[1])

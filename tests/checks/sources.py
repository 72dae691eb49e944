"""What the checks share: the sources of a tree and their include lines."""
import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def files(root, *folders, suffixes=(".h", ".hpp", ".cpp", ".c", ".inc")):
    """Paths relative to root, with '/', in a fixed order."""
    for folder in folders:
        for where, names, found in os.walk(os.path.join(root, folder)):
            names.sort()
            for name in sorted(found):
                if name.endswith(suffixes):
                    yield os.path.relpath(os.path.join(where, name), root).replace(os.sep, "/")


def includes(root, path):
    """(line number, '<' or '"', name) of each include of a file."""
    with open(os.path.join(root, path), encoding="utf-8", errors="replace") as text:
        for number, line in enumerate(text, 1):
            match = INCLUDE.match(line)
            if match:
                yield number, match.group(1), match.group(2)


def finish(name, complaints):
    for complaint in complaints:
        print(complaint)
    print(f"{name}: {len(complaints)} complaint(s)" if complaints else f"{name}: good")
    sys.exit(1 if complaints else 0)

#!/usr/bin/env python3
"""The project speaks of itself alone: no file and no commit message points to papers that a reader does not have.

usage: words.py ROOT
"""
import os
import re
import subprocess
import sys

import sources

# Written in pieces, so that this file does not complain of itself.
PATTERNS = [re.compile(text) for text in (
    r"(?i)\bspeci" + r"fications?\b",
    r"(?i)\bspec" + r"\.md\b",
    r"(?i)\b(?:the|our|this) spe" + r"c\b",
    r"\bPar" + r"ts? \d+\.\d+",
    r"(?i)\biss" + r"ues? #?\d+\b",
)]


def git(root, *arguments):
    result = subprocess.run(["git", "-C", root, *arguments], capture_output=True, check=False)
    return result.stdout.decode("utf-8", "replace") if result.returncode == 0 else ""


def tracked(root):
    names = git(root, "ls-files", "-z", "--cached", "--others", "--exclude-standard")
    return [name for name in names.split("\0") if name and os.path.isfile(os.path.join(root, name))]


def walk(root):
    """For a tree without its history: every file that is not built or fetched."""
    for where, folders, found in os.walk(root):
        folders[:] = sorted(set(folders) - {"build", ".deps", ".git"})
        for name in sorted(found):
            yield os.path.relpath(os.path.join(where, name), root)


def find(label, text):
    for number, line in enumerate(text.splitlines(), 1):
        for pattern in PATTERNS:
            match = pattern.search(line)
            if match:
                yield f"{label}:{number}: \"{match.group(0)}\""


def main(root):
    complaints = []
    for name in tracked(root) or walk(root):
        with open(os.path.join(root, name), "rb") as data:
            content = data.read()
        if b"\0" not in content:
            complaints += find(name, content.decode("utf-8", "replace"))
    for message in git(root, "log", "--format=%h%n%B%x00").split("\0"):
        commit, _, text = message.strip().partition("\n")
        complaints += find(f"commit {commit}", text)
    sources.finish("words", complaints)


if __name__ == "__main__":
    main(sys.argv[1])

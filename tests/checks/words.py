#!/usr/bin/env python3
"""The project speaks of itself alone: no file and no commit message points to papers that a reader does not have.

usage: words.py ROOT
"""
import subprocess
import sys

import sources

# Written in pieces, so that this file does not complain of itself.
PATTERN = "|".join((
    r"(?i:\bspeci" + r"fications?\b)",
    r"(?i:\bspec" + r"\.md\b)",
    r"(?i:\b(?:the|our|this) spe" + r"c\b)",
    r"\bPar" + r"ts? \d+\.\d+",
    r"(?i:\biss" + r"ues? #?\d+\b)",
))


def git(root, *arguments):
    result = subprocess.run(["git", "-C", root, *arguments], capture_output=True, check=False)
    return result.returncode, result.stdout.decode("utf-8", "replace").splitlines()


def main(root):
    # Without an index, so that a tree without its history is read too; what is built or fetched is left out.
    status, complaints = git(root, "grep", "--no-index", "--exclude-standard", "-InP", PATTERN, "--", ".", ":!build", ":!.deps")
    if status > 1:
        complaints = ["git cannot read the tree"]
    complaints += git(root, "log", "--format=commit %h: %s", "-P", f"--grep={PATTERN}")[1]
    sources.finish("words", complaints)


if __name__ == "__main__":
    main(sys.argv[1])

#!/usr/bin/env python3
"""Every command and option of enginefs stands in its manual page, and both shells complete what is typed.

usage: pages_test.py PROGRAM PAGES-DIR
"""
import os
import re
import shutil
import subprocess
import sys

# What a shell offers for the last of these words; the other words are typed already.
TYPED = (("pa", {"pack", "patch"}), ("container e", {"export"}), ("--root ls unp", {"unpack"}), ("pack --de", {"--deterministic"}),
         ("ls --root x --col", {"--color"}), ("pack --method ", {"deflate", "zstd"}), ("--color ne", {"never"}),
         ("ls --mask d", set()), ("cat readme", set()), ("load --urgent pa", set()))
BASH = """. "$1"; shift
COMP_WORDS=(enginefs "$@"); COMP_CWORD=$#; _enginefs; printf '%s\\n' "${COMPREPLY[@]}" """
# zsh takes what its own functions would choose from; here they choose by the beginning of the word.
ZSH = """_files() {}
compadd() { shift; print -l -- ${(M)@:#$words[CURRENT]*} }
_describe() { compadd -- ${(P@)2%%:*} }
page=$1; shift; words=(enginefs "$@"); CURRENT=$#words; . $page"""


def output(*command):
    return subprocess.run(command, capture_output=True, check=True, text=True).stdout


def commands(program, words=()):
    """(words, options) of every command, asked of the tool itself."""
    text = output(program, *words, "--help")
    yield words, {name for names in re.findall(r"^  (-\S+)", text, re.M) for name in names.split(",")}
    for name in re.findall(r"^  ([\w-]+)", text.partition("Subcommands:\n")[2].partition("\n\n")[0], re.M):
        yield from commands(program, (*words, name))


def check_page(page, known):
    with open(page, encoding="utf-8") as text:
        sections = re.split(r"^\.S[SH] ", text.read().replace("\\-", "-"), flags=re.M)
    for words, options in known:
        title = f'"enginefs {" ".join(words)} ' if words else "OPTIONS\n"
        section = next((text for text in sections if text.startswith(title)), "")
        yield from (f"{page}: {title.strip()}: {name} is missing" for name in options - {"-h", "--help"}
                    if not re.search(rf"\\fB.*{name}[,\\]", section))
    if shutil.which("man"):
        said = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page], capture_output=True, check=False,
                              text=True, env={**os.environ, "MANROFFSEQ": "", "MANWIDTH": "80"}).stderr
        yield from [f"{page}: {said}"] if said else []


def main(program, pages):
    known = list(commands(program))
    complaints = list(check_page(f"{pages}/enginefs.1", known))
    for name, shell in (("enginefs", ("bash", "--norc", "-c", BASH, "bash")), ("_enginefs", ("zsh", "-f", "-c", ZSH, "zsh"))):
        for typed, wanted in TYPED if shutil.which(shell[0]) else ():
            found = set(output(*shell, f"{pages}/{name}", *typed.split(" ")).split())
            complaints += [] if found == wanted else [f"{shell[0]}: {typed!r} offers {found}, wanted {wanted}"]
    print(*complaints, f"{len(known)} commands, {len(complaints)} complaint(s)", sep="\n")
    sys.exit(1 if complaints or len(known) < 30 else 0)


if __name__ == "__main__":
    main(*sys.argv[1:])

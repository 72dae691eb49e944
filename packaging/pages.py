#!/usr/bin/env python3
"""Makes enginefs.1 and the completions of bash and zsh from the tool's own help.

usage: pages.py OUT-DIR VERSION PROGRAM...        (PROGRAM: enginefs, behind its emulator where it needs one)
"""
import dataclasses
import os
import re
import subprocess
import sys

COLUMN = 30  # where the help's explanations begin


@dataclasses.dataclass
class Command:
    """What the help of one command says. An item is (label, explanation)."""
    words: tuple
    about: str
    usage: str
    notes: str
    positionals: list
    options: list
    subcommands: list


@dataclasses.dataclass
class Option:
    names: list
    value: str      # "" when it takes none
    choices: list
    about: str


def items(lines):
    """Pairs of a section. A long label has its explanation on the next line; one in brackets may have a blank at the column."""
    found = []
    for line in lines:
        if line.startswith(" " * COLUMN):
            found[-1][1] = (found[-1][1] + " " + line.strip()).strip()
        else:
            label = line[:COLUMN]
            is_long = len(line) < COLUMN or label[-1] != " " or label.count("[") != label.count("]")
            found.append([line.strip(), ""] if is_long else [label.strip(), line[COLUMN:].strip()])
    return found


def option(label, about):
    names, _, rest = label.partition(" ")
    rest = re.sub(r" ?(REQUIRED|\b(Excludes|Needs): .*)", "", rest)
    choices = re.search(r":\{([^}]*)\}", rest)
    return Option(names.split(","), re.split(r"[: ]", rest)[0], choices[1].split(",") if choices else [], about)


def positional(label):
    """"NAME TEXT ... REQUIRED" is NAME..."""
    return label.split(" ")[0] + ("..." if " ..." in label else "")


def read_help(program, words=()):
    """This command and those below it, in the order of the help."""
    text = subprocess.run([*program, *words, "--help"], capture_output=True, check=True, text=True).stdout
    paragraphs = text.replace("\r", "").rstrip("\n").split("\n\n")
    about, usage = paragraphs[0].split("\nUsage: ")
    sections = {"": []}
    for paragraph in paragraphs[1:]:
        title, *lines = paragraph.split("\n")
        if title.endswith(":") and lines:
            sections[title[:-1]] = items(lines)
        else:
            sections[""].append(paragraph)
    command = Command(words, about, usage, " ".join(sections[""]), sections.get("Positionals", []),
                      [option(*item) for item in sections.get("Options", [])],
                      [name for name, _ in sections.get("Subcommands", [])])
    return [command] + [found for name in command.subcommands for found in read_help(program, (*words, name))]


def roff(text):
    text = text.replace("\\", "\\e")
    return "\\&" + text if text[:1] in (".", "'") else text


def roff_item(label, about):
    return f".TP\n\\fB{roff(label)}\\fR\n{roff(about) or '.br'}\n"


def roff_items(command):
    lines = [roff_item(positional(label), about) for label, about in command.positionals if about]
    for one in command.options:
        if command.words and "--help" in one.names:
            continue
        value = f" \\fI{one.value}\\fR" if one.value else ""
        about = one.about + (f" ({', '.join(one.choices)})" if one.choices else "")
        lines.append(f".TP\n\\fB{', '.join(one.names)}\\fR".replace("-", "\\-") + f"{value}\n{roff(about)}\n")
    return "".join(lines)


def manual(commands, version):
    top, *rest = commands
    notes, _, status = top.notes.partition("Exit status: ")
    page = [f'.TH ENGINEFS 1 "" "engine_filesystem {version}" "User Commands"\n',
            ".SH NAME\nenginefs \\- use the file system of the engine from the command line\n",
            ".SH SYNOPSIS\n.B enginefs\n[OPTIONS] COMMAND ...\n",
            f".SH DESCRIPTION\n{roff(top.about)}\n.PP\n{roff(notes)}\n",
            ".SH OPTIONS\n", roff_items(top), ".SH COMMANDS\n"]
    for command in rest:
        page.append(f'.SS "{roff(command.usage)}"\n{roff(command.about)}.\n{roff_items(command)}')
    page.append(f".SH EXIT STATUS\n{roff(status)}\n")
    return "".join(page)


# How both shells find the command that is being typed, and the option before the word under the cursor. A path such as
# "container/get" is a command in a group.
WALK = """\
    local command= previous= word
    for word in {typed}; do
        case $command:$previous in
            {valued}) ;;
            *) case $command/$word in {known}) command=${{command:+$command/}}$word ;; esac ;;
        esac
        previous=$word
    done
"""
BASH = """\
# bash completion of enginefs
_enginefs() {{
    local cur=${{COMP_WORDS[COMP_CWORD]}} offered=
    COMPREPLY=()
{walk}    case $command:$previous in
{values}        {valued}) return ;;
    esac
    if [[ -z $offered && $cur == -* ]]; then
        offered="{common}"
        case $command in
{options}        esac
    elif [[ -z $offered ]]; then
        case $command in
{commands}        esac
    fi
    COMPREPLY=($(compgen -W "$offered" -- "$cur"))
}}
complete -o default -F _enginefs enginefs
"""
ZSH = """\
#compdef enginefs
_enginefs() {{
    local -a offered
{walk}    case $command:$previous in
{values}        {valued}) _files; return ;;
    esac
    if [[ $words[CURRENT] == -* ]]; then
        offered=({common})
        case $command in
{options}        esac
        _describe option offered
        return
    fi
    case $command in
{commands}    esac
    if (( $#offered )); then _describe command offered; else _files; fi
}}
_enginefs "$@"
"""


def cases(rows, indent):
    """The branches of a shell's case: (patterns, what is done)."""
    return "".join(f"{indent}{'|'.join(patterns)}) {done} ;;\n" for patterns, done in rows)


def complete(template, typed, commands, offer, add, answer):
    """Fills a shell's template. `typed` are the words before the cursor, `offer` makes a word of (name, explanation), `add`
    the command that offers such words, `answer` the one that offers an option's values."""
    top, paths = commands[0], {"/".join(command.words): command for command in commands}

    def offers(options):
        return " ".join(offer(name, one.about) for one in options for name in one.names)

    def names_below(path, command):
        return " ".join(offer(name, paths[f"{path}/{name}".lstrip("/")].about) for name in command.subcommands)

    valued = [([f"{path or '*'}:{name}" for name in one.names], one.choices)
              for path, command in paths.items() for one in command.options if one.value]
    keys = "|".join(sorted({key for names, _ in valued for key in names}))
    known = "|".join(path if "/" in path else "/" + path for path in paths if path)
    return template.format(
        walk=WALK.format(typed=typed, valued=keys, known=known), valued=keys, common=offers(top.options),
        values=cases(((names, answer(choices)) for names, choices in valued if choices), " " * 8),
        options=cases((([path], add(offers(command.options[1:]))) for path, command in paths.items()
                       if path and command.options[1:]), " " * 12),
        commands=cases((([path or '""'], add(names_below(path, command))) for path, command in paths.items()
                        if command.subcommands), " " * 12))


def bash(commands):
    return complete(BASH, '"${COMP_WORDS[@]:1:COMP_CWORD-1}"', commands, lambda name, about: name,
                    lambda words: f'offered+=" {words}"', lambda choices: f'offered="{" ".join(choices)}"')


def zsh(commands):
    def offer(name, about):
        return "'" + f"{name}:{about}".replace("'", "'\\''") + "'"
    return complete(ZSH, '"${(@)words[2,CURRENT-1]}"', commands, offer, lambda words: f"offered+=({words})",
                    lambda choices: f"compadd -- {' '.join(choices)}; return")


def main(out, version, *program):
    commands = read_help(program)
    os.makedirs(out, exist_ok=True)
    pages = {"enginefs.1": manual(commands, version), "enginefs": bash(commands), "_enginefs": zsh(commands)}
    for name, text in pages.items():
        with open(os.path.join(out, name), "w", encoding="utf-8", newline="\n") as page:
            page.write(text)


if __name__ == "__main__":
    main(*sys.argv[1:])

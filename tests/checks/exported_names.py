#!/usr/bin/env python3
"""The library exports exactly what its headers mark, and exported_names.txt lists each of these names once.

A name of the list is a marked function, variable or class, or a member of a marked class that callers rely on.
Every name of the list must be in the symbol table, every symbol must belong to a name of the list, and a
marked function has as many symbols as it has marked declarations.

usage: exported_names.py ROOT LIBRARY        (libengine_filesystem.so or engine_filesystem.dll)
       exported_names.py ROOT LIBRARY --list (prints the marked names)
"""
import collections
import os
import re
import subprocess
import sys

import sources

MARK = "ENGINE_FS_API"
TOKEN = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'|[A-Za-z_]\w*|::|<<|>>|==|!=|->|\d[\w.]*|\S')


def tokens(text):
    text = re.sub(r"/\*.*?\*/|//[^\n]*", " ", text, flags=re.S)
    text = re.sub(r'\bENGINE_CAPABILITY\("\w+"\)', " ", text)
    text = re.sub(r"^[ \t]*#(?:.*\\\n)*.*$", "", text, flags=re.M)
    return TOKEN.findall(text)


class Header:
    """Collects the marked names of one header by following its braces."""

    def __init__(self, text):
        self.tokens = tokens(text)
        self.scopes = []  # one for each open brace: the name it adds, or None
        self.names = collections.Counter()
        self.classes = set()
        self.read()

    def qualified(self, name):
        return "::".join([scope for scope in self.scopes if scope] + [name])

    def read(self):
        statement = []
        at = 0
        while at < len(self.tokens):
            token = self.tokens[at]
            if token == "{":
                if MARK in statement:
                    self.add(statement, body=True)
                self.scopes.append(self.scope_name(statement))
                statement = []
            elif token == "}":
                if self.scopes:
                    self.scopes.pop()
                statement = []
            elif token == ";":
                if MARK in statement:
                    self.add(statement, body=False)
                statement = []
            elif token == ":" and len(statement) == 1 and statement[0] in ("public", "protected", "private"):
                statement = []
            else:
                statement.append(token)
            at += 1

    @staticmethod
    def scope_name(statement):
        if "namespace" in statement:
            after = statement[statement.index("namespace") + 1:]
            return "".join(after) or None
        for keyword in ("class", "struct", "union"):
            if keyword in statement and "(" not in statement:
                return class_name(statement, keyword)
        return None

    def add(self, statement, body):
        for keyword in ("class", "struct"):
            if keyword in statement and statement[statement.index(keyword) + 1] == MARK:
                if body:
                    name = self.qualified(class_name(statement, keyword))
                    self.names[name] += 1
                    self.classes.add(name)
                return
        self.names[self.qualified(declared_name(statement))] += 1


def class_name(statement, keyword):
    after = [token for token in statement[statement.index(keyword) + 1:] if token != MARK]
    name = ""
    for token in after:  # stops at "final", ":" of the base list and the like
        if token != "::" and name and not name.endswith("::"):
            break
        name += token
    return name


def declared_name(statement):
    if "operator" in statement:
        at = statement.index("operator")
        name = "operator"
        for token in statement[at + 1:]:
            if token == "(" and name != "operator":
                break
            name += " " + token if token[0].isalpha() else token
        return name
    for stop in ("(", "=", "["):
        if stop in statement:
            return statement[statement.index(stop) - 1]
    return statement[-1]


def marked(root):
    names, classes = collections.Counter(), set()
    for path in sources.files(root, "include", suffixes=(".h",)):
        with open(os.path.join(root, path), encoding="utf-8") as text:
            header = Header(text.read())
        names += header.names
        classes |= header.classes
    return names, classes


def run(*command, data=None):
    return subprocess.run(command, input=data, capture_output=True, check=True, text=True).stdout


def exported_symbols(library):
    if library.endswith(".dll"):
        table = run("x86_64-w64-mingw32-objdump", "-p", library).partition("[Ordinal/Name Pointer] Table")[2]
        return re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+[0-9a-f]+\s+)?(\S+)$", table.partition("\n\n")[0], re.M)
    return [line.split()[-1] for line in run("nm", "-D", "--defined-only", library).splitlines()]


def plain(symbol):
    """The qualified name of a demangled symbol, without what surrounds it: kinds, parameters, return types."""
    symbol = re.sub(r"^(?:vtable|typeinfo name|typeinfo|VTT|guard variable|construction vtable) for ", "", symbol)
    symbol = re.sub(r"^(?:non-virtual|virtual) thunk to ", "", symbol)
    symbol = symbol.replace("[abi:cxx11]", "").replace("(anonymous namespace)", "<anonymous>")
    name, depth = "", 0
    for at, letter in enumerate(symbol):
        if name.endswith("operator") and letter in "<>(":
            return name + re.match(r"\(\)|<<|>>|<=|>=|<|>", symbol[at:]).group(0)
        depth += (letter == "<") - (letter == ">")
        if letter == "(" and depth == 0:
            break
        if letter != ">" and depth == 0:
            name = "" if letter == " " and "operator" not in name else name + letter
    return name


def owner(name, known):
    """The listed name that a symbol belongs to: itself, or the class that it is a member of."""
    parts = name.split("::")
    for length in range(len(parts), 0, -1):
        candidate = "::".join(parts[:length])
        if candidate in known:
            return candidate
    return None


def is_stray_type(symbol, names):
    return symbol.startswith("typeinfo for ") and owner(plain(symbol), names) is None


def read_list(root):
    path = os.path.join(root, "tests", "checks", "exported_names.txt")
    with open(path, encoding="utf-8") as text:
        return [line.strip() for line in text if line.strip() and not line.startswith("#")]


def compare(names, classes, listed, symbols):
    complaints = [f"{name} is listed {count} times" for name, count in collections.Counter(listed).items() if count > 1]
    complaints += [f"{name} is marked but not listed" for name in sorted(set(names) - set(listed))]
    for name in sorted(set(listed) - set(names)):
        if owner(name.rpartition("::")[0], classes) is None:
            complaints.append(f"{name} is listed, but no header marks it or the class that it belongs to")
    count, members = collections.Counter(), set()
    for symbol in symbols:
        name = plain(symbol)
        found = owner(name, names)
        members.add(name)
        if found is None or (found != name and found not in classes):
            complaints.append(f"{symbol} is exported, but not marked")
        else:
            count[found] += 1
    for name in sorted(set(listed)):
        if name not in members and not count[name]:
            complaints.append(f"{name} is listed, but not in the symbol table")
        elif name in names and name not in classes and count[name] != names[name]:
            complaints.append(f"{name} has {names[name]} marked declaration(s), but {count[name]} symbol(s)")
    return complaints


def main(root, library):
    names, classes = marked(root)
    if "--list" in sys.argv:
        print("\n".join(sorted(names)))
        return
    if not os.path.isfile(library):
        sources.finish("exported_names", [f"{library} is not built"])
    symbols = run("c++filt", data="\n".join(exported_symbols(library))).splitlines()
    if library.endswith(".dll"):
        # MinGW's compiler exports the type information of some classes that no one marked: bases and children of
        # marked ones, and what is caught beside them. A caller cannot name it, and nothing turns it off.
        symbols = [symbol for symbol in symbols if not is_stray_type(symbol, names)]
    sources.finish("exported_names", compare(names, classes, read_list(root), symbols))


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])

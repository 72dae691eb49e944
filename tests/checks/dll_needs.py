#!/usr/bin/env python3
"""A Windows program or DLL of ours needs nothing but Windows' own DLLs and the library beside it.

usage: dll_needs.py FILE...
"""
import os
import re
import subprocess
import sys

import sources

WINDOWS = {"kernel32.dll", "msvcrt.dll", "user32.dll", "advapi32.dll", "shell32.dll", "ole32.dll", "dbghelp.dll", "ntdll.dll",
           "version.dll", "ws2_32.dll"}


def main(files):
    complaints = []
    for file in files:
        if not os.path.isfile(file):
            complaints.append(f"{file} is not built")
            continue
        table = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", file], capture_output=True, check=True, text=True).stdout
        needed = {name.lower() for name in re.findall(r"DLL Name: (\S+)", table)}
        for name in sorted(needed - WINDOWS - {"engine_filesystem.dll"}):
            complaints.append(f"{file} needs {name}")
    sources.finish("dll_needs", complaints)


if __name__ == "__main__":
    main(sys.argv[1:])

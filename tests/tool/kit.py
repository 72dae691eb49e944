"""What the tests of enginefs share: the tool over a small tree of its own, and what its runs are held against."""
import os
import re
import shlex
import subprocess
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))
import complaints

PLAIN = b"one line of plain text\n" * 4000


class Tool(complaints.Complaints):
    """The program (and its emulator) that the command line names, over a tree with a file."""

    def __init__(self, where):
        super().__init__(where)
        program, *emulator = sys.argv[1:]
        self.command = [*filter(None, emulator), program]
        self.native = len(self.command) == 1  # else it runs in an emulator, which has limits of its own
        self.write("root/Readme.txt", b"hello\n")

    def words(self, line):
        """As a shell splits them; a line that does not begin with the program's name is for the tool's own root."""
        words = shlex.split(line)
        return self.command + (words[1:] if words[0] == "enginefs" else ["--root", "root", "--no-fallback", *words])

    def start(self, line):
        return subprocess.Popen(self.words(line), cwd=self.where, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def run(self, line, status=0, out="", err="", **options):
        """`out` is the whole standard output, or "~" and an expression that it holds; `err` a text in standard error, which
        is empty when it is ""."""
        options = {"cwd": self.where, "stdout": subprocess.PIPE, "timeout": 120, **options}
        result = subprocess.run(self.words(line), stderr=subprocess.PIPE, check=False, **options)
        printed, said = ((text or b"").decode("utf-8", "replace") for text in (result.stdout, result.stderr))
        said = said.replace("\r\n", "\n")
        good = re.search(out[1:], printed) if out.startswith("~") else printed == out
        good = good and result.returncode == status and (err in said if err else not said) and "\r" not in said
        if status == 1:
            good = good and said.startswith(("enginefs: ", "\x1b[31menginefs\x1b[0m: "))
        self.runs += 1
        self.check(good, f"{line}: wanted {status}, {out[:400]!r} and {err!r}, but got {result.returncode}, {printed[:400]!r} and "
                         f"{said[:400]!r}")

    def table(self, *rows):
        for row in rows:
            self.run(*row)

    def fails(self, *rows):
        for line, err in rows:
            self.run(line, 1, err=err)


def main(parts):
    """Runs `parts` one after another on one tree."""
    complaints.main(Tool, *parts)

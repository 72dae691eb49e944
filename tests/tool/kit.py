"""What the tests of enginefs share: the tool over a small tree of its own, and what its runs are held against."""
import glob
import os
import re
import subprocess
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))
import complaints

PLAIN = b"one line of plain text\n" * 4000


class Tool(complaints.Complaints):
    def __init__(self, command, where):
        super().__init__(where)
        self.command = command
        self.native = len(command) == 4  # else it runs in an emulator, which has limits of its own

    def path(self, *names):
        return os.path.join(self.where, *names)

    def write(self, name, data):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as out:
            out.write(data)

    def read(self, name):
        with open(self.path(name), "rb") as data:
            return data.read()

    def files(self):
        """Every file by its path, with its bytes."""
        return {path: self.read(path) for path in glob.glob(self.path("**"), recursive=True) if os.path.isfile(path)}

    def is_file(self, name, data):
        there = os.path.exists(self.path(name))
        self.check((self.read(name) if there else None) == data, f"{name} is not as it should be")

    def words(self, line):
        """`line` is split at blanks ("_" stands for one within a word, '""' for an empty word). A root of its own takes the
        place of the tool's."""
        command = self.command[:-3] if line.startswith("--root") and "--root" in self.command else self.command
        return command + [word if self.where in word else word.replace("_", " ").replace('""', "") for word in line.split()]

    def start(self, line):
        return subprocess.Popen(self.words(line), cwd=self.where, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def run(self, line, status=0, out="", err="", **options):
        """`out` is the whole standard output, or "~" and an expression that it holds; `err` a text in standard error, which
        is empty when it is ""."""
        result = subprocess.run(self.words(line), capture_output=True, check=False, timeout=120, **{"cwd": self.where, **options})
        said = result.stderr.replace(b"\r\n", b"\n").decode("utf-8", "replace")
        self.runs += 1
        self.check(result.returncode == status, f"{line}: status {result.returncode}, not {status}; {said[:400]!r}")
        self.check("\r" not in said, f"{line}: a stray return on standard error: {said!r}")
        self.check(err in said if err else not said, f"{line}: standard error is {said[:400]!r}, wanted {err!r}")
        self.check(status != 1 or said.startswith(("enginefs: ", "\x1b[31menginefs\x1b[0m: ")), f"{line}: no word about the failure")
        if isinstance(out, str) and out.startswith("~"):
            good = re.search(out[1:], result.stdout.decode("utf-8", "replace"))
        else:
            good = result.stdout == (out if isinstance(out, bytes) else out.encode())
        self.check(good, f"{line}: standard output is {result.stdout[:400]!r}, wanted {out[:400]!r}")

    def table(self, *rows):
        for row in rows:
            self.run(*row)

    def fails(self, *rows):
        for line, err in rows:
            self.run(line, 1, err=err)


def make(where):
    """The program (and its emulator) that the command line names, over a tree with a file."""
    program, *emulator = sys.argv[1:]
    tool = Tool([*filter(None, emulator), program, "--root", "root", "--no-fallback"], where)
    tool.write("root/Readme.txt", b"hello\n")
    return tool


def main(parts):
    """Runs `parts` one after another on one tree."""
    complaints.main(make, *parts)

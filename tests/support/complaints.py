"""What tests of programs share: a folder of their own, complaints about what runs there, and the status that they end with."""
import os
import shutil
import sys
import tempfile


class Complaints:
    def __init__(self, where):
        self.where, self.failures, self.runs = where, [], 0

    def check(self, holds, what):
        if not holds:
            self.failures.append(what)

    def path(self, *names):
        return os.path.join(self.where, *names)

    def write(self, name, data):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as out:
            out.write(data)

    def tree(self, files):
        """Writes all of {name: data}."""
        for name, data in files.items():
            self.write(name, data)

    def read(self, name):
        with open(self.path(name), "rb") as data:
            return data.read()

    def is_file(self, name, data):
        """None for no such file."""
        there = os.path.exists(self.path(name))
        self.check((self.read(name) if there else None) == data, f"{name} is not as it should be")


def skip(lacking):
    print(f"not available: {lacking}")
    sys.exit(77)


def main(make, *parts):
    """Calls each of `parts` with what `make(where)` makes: Complaints that know how to run what is tested."""
    where = tempfile.mkdtemp(prefix="enginefs-test-")
    try:
        tested = make(where)
        for part in parts:
            part(tested)
    finally:
        shutil.rmtree(where, ignore_errors=True)
    print(*tested.failures, f"{tested.runs} runs, {len(tested.failures)} complaint(s)", sep="\n")
    sys.exit(1 if tested.failures else 0)

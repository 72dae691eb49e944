"""What tests of programs share: a folder of their own, complaints about what runs there, and the status that they end with."""
import shutil
import sys
import tempfile


class Complaints:
    def __init__(self, where):
        self.where, self.failures, self.runs = where, [], 0

    def check(self, holds, what):
        if not holds:
            self.failures.append(what)


def main(make, *parts):
    """Calls each of `parts` with what `make(where)` makes: Complaints that know how to run what is tested."""
    where = tempfile.mkdtemp(prefix="enginefs-test-")
    try:
        tested = make(where)
        for part in parts:
            part(tested)
    finally:
        shutil.rmtree(where, ignore_errors=True)
    for failure in tested.failures:
        print(failure)
    print(f"{tested.runs} runs, {len(tested.failures)} complaint(s)")
    sys.exit(1 if tested.failures else 0)

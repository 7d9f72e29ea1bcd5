"""What the tests of the command-line tool share: running it, folders, data."""

import functools
import itertools
import os
import pathlib
import random
import shlex
import subprocess
import sys
import tempfile
import unittest

OK, ERROR, WARNING = 0, 1, 2
LEVELS = (1, 6, 9)  # one for each level of the library
PIECE = 1 << 20  # what the tool codes at a time

# What runs the program where the system cannot: Wine, for the Windows build of the tool.
LAUNCHER = shlex.split(os.environ.get("ZEBDC_TEST_LAUNCHER", ""))
# Whether the program is slow: started by another one, or watched by sanitizers.
SLOW = bool(LAUNCHER or os.environ.get("ZEBDC_TEST_SLOW"))

_program = None


def main():
    """Runs the tests of the calling script: test_x.py PROGRAM [unittest arguments]."""
    global _program
    _program = os.path.abspath(sys.argv.pop(1))
    sys.modules.setdefault("support", sys.modules[__name__])
    unittest.main(module="__main__")


def command(*arguments):
    """The command line that runs the tool."""
    return [*LAUNCHER, _program, *arguments]


# Of the Windows build: it has no modes, signals, pipes by name or terminals of this system.
is_windows = bool(LAUNCHER)
posix_only = unittest.skipIf(is_windows, "the Windows tool differs here")


def some(cases, step=11):
    """All of many similar cases, or every so many where the tool is slow."""
    return list(cases)[::step] if SLOW else cases


def some_of_each(*sets, step=11):
    """The same of all combinations."""
    return some(itertools.product(*sets), step)


class ToolTest(unittest.TestCase):
    """Each test runs in a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_tool(self, *arguments, input=b"", status=OK):
        """Runs the tool in the test's folder and demands its exit code. Text results are lists of
        lines."""
        result = subprocess.run(command(*arguments), input=input, cwd=self.folder,
                                capture_output=True, env={**os.environ, "LC_ALL": "C"})
        if is_windows:
            result.stderr = result.stderr.replace(b"\r\n", b"\n")
        self.assertEqual(result.returncode, status,
                         f"{arguments}: {result.stderr.decode(errors='replace')}")
        return result

    def filter(self, *arguments, input):
        """Standard input to standard output, without complaints."""
        result = self.run_tool(*arguments, input=input)
        self.assertEqual(result.stderr, b"")
        return result.stdout

    def assert_message(self, result, *parts):
        text = result.stderr.decode(errors="replace")
        for part in parts:
            self.assertIn(part, text)

    def write(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def read(self, name):
        return (self.folder / name).read_bytes()

    def names(self):
        return sorted(os.listdir(self.folder))


def random_bytes(count, seed=1):
    return random.Random(seed).randbytes(count)


@functools.cache
def text(count, seed=2):
    """Words with a skewed frequency, as text has them."""
    source = random.Random(seed)
    words = [bytes(source.choices(b"etaoinshrdlucmfw", k=source.randint(2, 9)))
             for _ in range(2000)]
    weights = [1 / (rank + 1) for rank in range(len(words))]
    out = b" ".join(source.choices(words, weights, k=count // 4 + 1))
    return out[:count]


@functools.cache
def mixed(count):
    """Text, noise and runs in turn, so that a stream has blocks of all kinds."""
    parts = []
    size = 0
    kind = 0
    while size < count:
        part = [lambda: text(150_000, kind), lambda: random_bytes(90_000, kind),
                lambda: bytes(70_000)][kind % 3]()
        parts.append(part)
        size += len(part)
        kind += 1
    return b"".join(parts)[:count]


@functools.cache
def samples():
    """(name, data) of every shape that matters to the tool."""
    return [("nothing", b""), ("one byte", b"x"), ("two bytes", b"ab"), ("short", b"hello, hello"),
            ("noise", random_bytes(100_000)), ("zeros", bytes(300_000)), ("text", text(200_000)),
            ("mixed", mixed(400_000))]

"""Runs the example programs and checks what they write with Python's zlib."""

import gzip
import os
import pathlib
import random
import shlex
import subprocess
import sys
import unittest
import zlib

ZLIB_COMPRESS = None
GUNZIP = None
# What runs the programs where the system cannot: Wine, for those of Windows.
LAUNCHER = shlex.split(os.environ.get("ZEBDC_TEST_LAUNCHER", ""))
LEVELS = (0, 1, 6, 9) if LAUNCHER else range(10)
EVERY = 20 if LAUNCHER else 1  # how many cases of damage count for one


def inputs():
    rng = random.Random(1)
    words = [bytes(rng.choices(b"etaoinshrdlu", k=rng.randint(1, 9))) for _ in range(300)]
    text = b" ".join(words[int(300 * rng.random() ** 2)] for _ in range(60000))
    return {
        "empty": b"",
        "one byte": b"x",
        "two bytes": b"ab",
        "random": rng.randbytes(200000),
        "zeros": bytes(300000),
        "text": text,
        "a program": pathlib.Path(sys.executable).read_bytes()[:1 << 20],
    }


def run(arguments, data):
    return subprocess.run([*LAUNCHER, *arguments], input=data, capture_output=True, check=False)


class ZlibCompress(unittest.TestCase):
    def test_every_level_inflates_to_the_input(self):
        for name, data in inputs().items():
            for level in LEVELS:
                with self.subTest(name=name, level=level):
                    result = run([ZLIB_COMPRESS, str(level)], data)
                    self.assertEqual((result.returncode, result.stderr), (0, b""))
                    self.assertEqual(zlib.decompress(result.stdout), data)

    def test_higher_levels_compress_better(self):
        data = inputs()["text"]
        sizes = [len(run([ZLIB_COMPRESS, level], data).stdout) for level in ("0", "1", "5", "9")]
        self.assertEqual(sizes, sorted(sizes, reverse=True))
        self.assertEqual(len(set(sizes)), len(sizes))

    def test_bad_arguments_are_refused(self):
        for arguments in (["10"], ["-1"], ["1", "2"]):
            self.assertEqual(run([ZLIB_COMPRESS, *arguments], b"").returncode, 2)


class Gunzip(unittest.TestCase):
    def test_files_of_every_level_decompress(self):
        for name, data in inputs().items():
            for level in LEVELS:
                with self.subTest(name=name, level=level):
                    result = run([GUNZIP], gzip.compress(data, level))
                    self.assertEqual((result.returncode, result.stderr), (0, b""))
                    self.assertEqual(result.stdout, data)

    def test_members_follow_one_another(self):
        result = run([GUNZIP], gzip.compress(b"one, ") + gzip.compress(b"two"))
        self.assertEqual((result.returncode, result.stdout), (0, b"one, two"))

    def test_damage_is_found(self):
        coded = gzip.compress(inputs()["text"][:20000])
        for length in range(0, len(coded), 97 * EVERY):
            self.assertEqual(run([GUNZIP], coded[:length]).returncode, 1, length)
        for at in range(10, len(coded), 211 * EVERY):
            changed = coded[:at] + bytes([coded[at] ^ 0x10]) + coded[at + 1:]
            self.assertEqual(run([GUNZIP], changed).returncode, 1, at)


if __name__ == "__main__":
    ZLIB_COMPRESS = sys.argv.pop(1)
    GUNZIP = sys.argv.pop(1)
    unittest.main(verbosity=1)

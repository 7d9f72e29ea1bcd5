"""Every family of coders gives the same bytes in the Windows programs as in those of this system.

test_same_output.py ZEBZ ZLIB_COMPRESS NATIVE_ZEBZ NATIVE_ZLIB_COMPRESS

zlib_compress stands for the stream-style deflate functions, zebz for all others.
"""

import subprocess
import sys
import unittest

import support
from support import mixed, random_bytes, text

# The operating system in the header of a gzip file is meant to differ.
GZIP_SYSTEM = 9

PROGRAMS = {}


def inputs():
    return {"mixed": mixed(400_000), "text": text(1_200_000), "noise": random_bytes(70_000),
            "runs": b"".join(bytes([n % 7]) * (n % 400) for n in range(2000)), "nothing": b""}


def output(command, data):
    result = subprocess.run(command, input=data, capture_output=True, check=True)
    return result.stdout


class SameOutput(unittest.TestCase):
    def assert_same(self, program, *arguments):
        here, there = PROGRAMS[program]
        for name, data in inputs().items():
            with self.subTest(program=program, arguments=arguments, data=name):
                expected = bytearray(output([there, *arguments], data))
                found = bytearray(output([*support.LAUNCHER, here, *arguments], data))
                if found[:2] == b"\x1f\x8b":
                    self.assertEqual((expected[GZIP_SYSTEM], found[GZIP_SYSTEM]), (3, 11))
                    expected[GZIP_SYSTEM] = found[GZIP_SYSTEM]
                self.assertTrue(found == expected, "the bytes differ")

    def test_deflate_of_every_level(self):
        self.assert_same("zebz", "-1", "--format=gzip")
        self.assert_same("zebz", "-6", "--format=zlib")
        self.assert_same("zebz", "-9", "--format=deflate")
        self.assert_same("zebz", "-6", "-T2", "--format=gzip")

    def test_stream_style_deflate(self):
        for level in ("0", "4", "9"):
            self.assert_same("zlib_compress", level)

    def test_bzip2(self):
        self.assert_same("zebz", "-9", "--format=bzip2")

    def test_the_librarys_own_coders(self):
        for method in ("huff", "git", "lzss", "rle", "lzo"):
            self.assert_same("zebz", "--format=zeb", f"--method={method}")


if __name__ == "__main__":
    windows, native = sys.argv[1:3], sys.argv[3:5]
    del sys.argv[1:5]
    PROGRAMS = dict(zip(("zebz", "zlib_compress"), zip(windows, native)))
    unittest.main()

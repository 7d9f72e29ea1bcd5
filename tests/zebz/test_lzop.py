"""lzop files: exchange with lzop, files made by hand, damage."""

import itertools
import random
import shutil
import struct
import subprocess
import unittest
import zlib

import support
from support import ERROR, WARNING, mixed, random_bytes, samples, some, some_of_each, text

MAGIC = b"\x89LZO\0\r\n\x1a\n"
BLOCK = 256 << 10
DATA_ADLER, CODE_ADLER, EXTRA, DATA_CRC, CODE_CRC = 1, 2, 0x40, 0x100, 0x200
MULTIPART, FILTER, HEADER_CRC = 0x400, 0x800, 0x1000

# Five literals, a match of 8 bytes at distance 5, the end.
CODE = b"\x16abcde" + b"\x26\x10\x00" + b"\x11\x00\x00"
CODED = b"abcdeabcdeabc"

# Behind the match here is a literal, and behind that an instruction that only the thorough
# compressor of method 3 writes: two bytes from distance 1.
THOROUGH_CODE = b"\x16abcde" + b"\x26\x11\x00x" + b"\x00\x00" + b"\x11\x00\x00"
THOROUGHLY_CODED = b"abcdeabcdeabcxxx"
NOT_SUPPORTED = "is damaged, or has code of lzop -7 to -9 that is not supported"

# The checksums of a block, in the order in which they stand, and whether they need code.
BLOCK_CHECKS = ((DATA_ADLER, False), (DATA_CRC, False), (CODE_ADLER, True), (CODE_CRC, True))
ALL_CHECKS = HEADER_CRC | DATA_ADLER | DATA_CRC | CODE_ADLER | CODE_CRC


def header(flags=DATA_ADLER, name=b"", method=1, version=0x1040, needed=0x0940, time=0, filter=0,
           extra=b"", checksum=None):
    fields = struct.pack(">HHHBBI", version, 0x20A0, needed, method, 5, flags)
    if flags & FILTER:
        fields += struct.pack(">I", filter)
    fields += struct.pack(">IIIB", 0o100644, time, 0, len(name)) + name
    check = zlib.crc32 if flags & HEADER_CRC else zlib.adler32
    out = MAGIC + fields + struct.pack(">I", check(fields) if checksum is None else checksum)
    if flags & EXTRA:
        field = struct.pack(">I", len(extra)) + extra
        out += field + struct.pack(">I", check(field))
    return out


def block(data, code=None, flags=DATA_ADLER):
    out = struct.pack(">II", len(data), len(data if code is None else code))
    kinds = [(DATA_ADLER, zlib.adler32, data), (DATA_CRC, zlib.crc32, data)]
    if code is not None:
        kinds += [(CODE_ADLER, zlib.adler32, code), (CODE_CRC, zlib.crc32, code)]
    for flag, check, content in kinds:
        if flags & flag:
            out += struct.pack(">I", check(content))
    return out + (data if code is None else code)


def whole(*blocks, **fields):
    return header(**fields) + b"".join(blocks) + bytes(4)


class ByHand(support.ToolTest):
    def test_coded_and_stored_blocks_decode(self):
        coded = whole(block(b"stored"), block(CODED, CODE), block(b"x"))
        self.assertEqual(self.filter("-d", input=coded), b"stored" + CODED + b"x")
        self.assertEqual(self.filter("-d", input=whole()), b"")

    def test_every_combination_of_checksums(self):
        for bits, others in some_of_each(range(16), (0, HEADER_CRC), step=3):
            flags = bits & 3 | (bits & 12) << 6
            with self.subTest(flags=flags | others):
                coded = whole(block(CODED, CODE, flags), block(b"stored", flags=flags),
                              flags=flags | others)
                self.assertEqual(self.filter("-d", input=coded), CODED + b"stored")

    def test_each_checksum_is_checked(self):
        for flag, needs_code in BLOCK_CHECKS:
            first = block(b"first", flags=flag)
            blocks = [block(CODED, CODE, flag)] + ([] if needs_code else [block(b"data", flags=flag)])
            for good, at in itertools.product(blocks, range(8, 12)):
                bad = good[:at] + bytes([good[at] ^ 0x20]) + good[at + 1:]
                with self.subTest(flag=flag, good=good, at=at):
                    result = self.run_tool("-d", input=whole(first, bad, flags=flag), status=ERROR)
                    self.assert_message(result, "zebz: stdin: ", "checksum error")
                    self.assertEqual(result.stdout, b"first")

    def test_each_of_several_checksums_is_checked(self):
        flags = ALL_CHECKS
        for good, count in ((block(CODED, CODE, flags), 4), (block(b"data", flags=flags), 2)):
            for at in range(8, 8 + 4 * count, 4):
                bad = good[:at] + bytes([good[at] ^ 0x20]) + good[at + 1:]
                with self.subTest(good=good, at=at):
                    result = self.run_tool("-d", input=whole(bad, flags=flags), status=ERROR)
                    self.assert_message(result, "checksum error")
                    self.assertEqual(result.stdout, b"")

    def test_every_header_field_is_read(self):
        for fields in ({"flags": EXTRA | DATA_ADLER, "extra": b"more\0of it"},
                       {"flags": EXTRA | DATA_ADLER | HEADER_CRC, "extra": b""},
                       {"flags": FILTER | DATA_ADLER}, {"name": b"n" * 255}, {"method": 2},
                       {"method": 3}, {"version": 0x0940}, {"flags": DATA_ADLER | 3 << 24}):
            with self.subTest(fields=fields):
                self.assertEqual(self.filter("-d", input=whole(block(b"data"), **fields)), b"data")

    def test_bad_headers_are_refused(self):
        for fields, message in (({"method": 0}, "unknown method 0"),
                                ({"method": 4}, "unknown method 4"),
                                ({"flags": MULTIPART}, "several parts"),
                                ({"flags": FILTER, "filter": 1}, "has a filter"),
                                ({"needed": 0x1050}, "another version"),
                                ({"version": 0x0900}, "another version"),
                                ({"checksum": 0}, "header checksum error"),
                                ({"checksum": 0, "flags": HEADER_CRC}, "header checksum error")):
            with self.subTest(fields=fields):
                result = self.run_tool("-d", input=whole(block(b"data"), **fields), status=ERROR)
                self.assert_message(result, message)
        for flags in (EXTRA, EXTRA | HEADER_CRC):
            damaged = bytearray(whole(flags=flags, extra=b"extra"))
            damaged[-6] ^= 1
            result = self.run_tool("-d", input=damaged, status=ERROR)
            self.assert_message(result, "header checksum")

    def test_code_of_the_thorough_levels_is_refused(self):
        coded = whole(block(b"first"), block(THOROUGHLY_CODED, THOROUGH_CODE), method=3)
        self.write("a.lzo", coded)
        for action in ("-d", "-t"):
            result = self.run_tool(action, "a.lzo", status=ERROR)
            self.assertEqual(result.stderr.decode(), f"zebz: a.lzo: {NOT_SUPPORTED}\n")
        self.assertEqual(self.names(), ["a.lzo"])
        self.assertEqual(self.read("a.lzo"), coded)
        result = self.run_tool("-dc", input=coded, status=ERROR)
        self.assert_message(result, NOT_SUPPORTED)
        self.assertEqual(result.stdout, b"first")

        # Other methods have no such code: there the file is damaged.
        for method in (1, 2):
            other = whole(block(THOROUGHLY_CODED, THOROUGH_CODE), method=method)
            result = self.run_tool("-d", input=other, status=ERROR)
            self.assert_message(result, "format violated")

    def test_files_are_joined_and_rests_told(self):
        coded = whole(block(b"one")) + whole(block(b"two", flags=DATA_CRC), flags=DATA_CRC)
        self.assertEqual(self.filter("-d", input=coded), b"onetwo")
        self.assertEqual(self.filter("-d", input=coded + bytes(5000)), b"onetwo")
        for rest in (b"x", b"\x89LZ", MAGIC[:8]):
            result = self.run_tool("-d", input=coded + rest, status=WARNING)
            self.assertEqual(result.stdout, b"onetwo")

    def test_the_name_is_used_on_demand_and_safely(self):
        self.write("a.lzo", whole(block(b"data"), name=b"../b", time=1_000_000_000))
        self.run_tool("-dkN", "a.lzo")
        self.assertEqual(self.names(), ["a.lzo", "b"])
        self.assertEqual((self.folder / "b").stat().st_mtime, 1_000_000_000)


class Written(support.ToolTest):
    def parts(self, coded):
        """The header's fields and the (data length, code length) of each block."""
        fields = struct.unpack(">HHHBBIIIIB", coded[9:34])
        at = 34 + fields[-1] + 4
        sizes = []
        while size := int.from_bytes(coded[at:at + 4], "big"):
            code = int.from_bytes(coded[at + 4:at + 8], "big")
            sizes.append((size, code))
            at += 12 + code
        self.assertEqual(at + 4, len(coded))
        return fields, sizes

    def test_the_file_is_laid_out_as_the_format_says(self):
        data = text(BLOCK + 1000) + random_bytes(BLOCK)
        path = self.write("data", data)
        coded = self.filter("--format=lzop", "-c", "data", input=b"")
        self.assertEqual(coded[:9], MAGIC)
        self.assertEqual(coded[34:38], b"data")
        self.assertEqual(coded[38:42], struct.pack(">I", zlib.adler32(coded[9:38])))
        fields, sizes = self.parts(coded)
        self.assertEqual(fields[3:6], (1, 5, DATA_ADLER | 3 << 24))
        self.assertEqual(fields[7:9], (int(path.stat().st_mtime), 0))
        self.assertEqual([size for size, _ in sizes], [BLOCK, BLOCK, 1000])
        self.assertLess(sizes[0][1], BLOCK // 2)
        self.assertEqual(sizes[2][1], 1000, "noise is stored")

    def test_every_sample_comes_back(self):
        for name, data in [*samples(), ("long", mixed(3 * BLOCK + 1))]:
            with self.subTest(data=name):
                coded = self.filter("--format=lzop", input=data)
                self.parts(coded)
                self.assertEqual(self.filter("-d", input=coded), data)

    def test_levels_make_no_difference(self):
        data = text(50_000)
        results = {self.filter("--format=lzop", f"-{level}", input=data) for level in (1, 6, 9)}
        self.assertEqual(len(results), 1)

    def test_files_get_the_suffix_and_lose_it(self):
        data = text(5000)
        self.write("data", data)
        self.run_tool("--format=lzop", "data")
        self.assertEqual(self.names(), ["data.lzo"])
        self.assert_message(self.run_tool("-tv", "data.lzo"), "data.lzo:\t OK")
        row = self.run_tool("-lv", "data.lzo").stdout.decode().splitlines()[1].split()
        self.assertEqual(row[:2], ["lzo", f"{zlib.adler32(data):08x}"])
        self.assertEqual(row[-1], "data")
        self.run_tool("-d", "data")
        self.assertEqual(self.read("data"), data)
        (self.folder / "data").rename(self.folder / "archive.tzo")
        self.write("archive.tzo", whole(block(b"tar")))
        self.run_tool("-d", "archive.tzo")
        self.assertEqual(self.read("archive.tar"), b"tar")


@unittest.skipUnless(shutil.which("lzop"), "no lzop")
class Exchange(support.ToolTest):
    def lzop(self, *arguments, input):
        return subprocess.run(["lzop", *arguments], input=input, capture_output=True,
                              check=True).stdout

    def test_lzop_reads_what_the_tool_writes(self):
        for name, data in [*samples(), ("long", mixed(3 * BLOCK + 1))]:
            with self.subTest(data=name):
                coded = self.filter("--format=lzop", input=data)
                self.lzop("-t", input=coded)
                self.assertEqual(self.lzop("-d", input=coded), data)

    def test_the_tool_reads_what_lzop_writes(self):
        for level, (name, data) in some_of_each(range(1, 7), samples()):
            with self.subTest(level=level, data=name):
                coded = self.lzop(f"-{level}", input=data)
                self.assertEqual(self.filter("-d", input=coded), data)

    def expect_both_refuse(self, coded, *message):
        self.assertNotEqual(subprocess.run(["lzop", "-t"], input=coded, capture_output=True).returncode,
                            0, "lzop takes it")
        self.assert_message(self.run_tool("-t", "--format=lzop", input=coded, status=ERROR), *message)

    def test_checksums_that_lzop_may_write(self):
        code_checks = ["-C", "-C"]
        for arguments, flags in (([], DATA_ADLER), (["-F"], 0), (["--crc32"], HEADER_CRC | DATA_CRC),
                                 (code_checks, DATA_ADLER | CODE_ADLER),
                                 (["--crc32", *code_checks],
                                  HEADER_CRC | DATA_CRC | CODE_CRC)):
            coded = self.lzop(*arguments, input=mixed(600_000))
            with self.subTest(arguments=arguments):
                self.assertEqual(int.from_bytes(coded[19:21], "big") & ALL_CHECKS, flags)
                self.assertEqual(self.filter("-d", input=coded), mixed(600_000))
            for data, is_stored in ((text(9000), False), (random_bytes(9000), True)):
                coded = bytearray(self.lzop(*arguments, input=data))
                begin = 34 + coded[33] + 4
                count = sum(1 for flag, needs_code in BLOCK_CHECKS
                            if flags & flag and not (needs_code and is_stored))
                for at in (begin - 1, *range(begin + 11, begin + 8 + 4 * count, 4)):
                    with self.subTest(arguments=arguments, is_stored=is_stored, at=at - begin):
                        coded[at] ^= 0x10
                        self.expect_both_refuse(coded, "checksum error")
                        coded[at] ^= 0x10

    def test_damage_to_what_the_tool_writes_is_found_by_both(self):
        data = text(BLOCK) + random_bytes(1000)
        coded = bytearray(self.filter("--format=lzop", input=data))
        second = len(coded) - 4 - 1000 - 12
        self.assertEqual(coded[second:second + 8], struct.pack(">II", 1000, 1000))
        places = [35, 37]  # the header's checksum
        places += [38 + at for at in range(8, 12)] + [60, 10_000]  # that of a coded block; its code
        places += [second + at for at in range(8, 12)] + [second + 12, len(coded) - 5]
        for at in places:
            with self.subTest(at=at):
                coded[at] ^= 0x04
                self.expect_both_refuse(coded, "zebz: stdin: ")
                coded[at] ^= 0x04

    def test_lzop_agrees_on_files_made_by_hand(self):
        for fields in ({"flags": EXTRA | DATA_ADLER, "extra": b"more\0of it"},
                       {"flags": EXTRA | DATA_CRC | HEADER_CRC, "extra": b"x"},
                       {"flags": DATA_ADLER | CODE_ADLER | DATA_CRC | CODE_CRC}):
            with self.subTest(fields=fields):
                coded = whole(block(CODED, CODE, fields["flags"]), **fields)
                self.assertEqual(self.lzop("-d", input=coded), CODED)
                self.assertEqual(self.filter("-d", input=coded), CODED)

    def test_what_only_the_thorough_levels_write_is_refused(self):
        by_hand = whole(block(THOROUGHLY_CODED, THOROUGH_CODE), method=3)
        self.assertEqual(self.lzop("-d", input=by_hand), THOROUGHLY_CODED)
        for level in (7, 8, 9):
            coded = self.lzop(f"-{level}", input=text(100_000))
            result = self.run_tool("-d", input=coded, status=ERROR)
            self.assert_message(result, NOT_SUPPORTED)
            self.assertEqual(result.stdout, b"")


class Damage(support.ToolTest):
    def test_every_cut_is_an_unexpected_end(self):
        coded = whole(block(b"stored"), block(CODED, CODE), name=b"name")
        for length in some(range(len(coded))):
            with self.subTest(length=length):
                result = self.run_tool("-d", "--format=lzop", input=coded[:length], status=ERROR)
                self.assert_message(result, "unexpected end of file")

    def test_every_change_of_a_byte_is_found(self):
        flags = DATA_ADLER | CODE_ADLER
        coded = whole(block(b"stored"), block(CODED, CODE, flags), name=b"name", flags=flags)
        for at, change in some_of_each(range(len(coded) - 4), (0x01, 0x80)):
            damaged = bytearray(coded)
            damaged[at] ^= change
            with self.subTest(at=at, change=change):
                self.run_tool("-t", "--format=lzop", input=damaged, status=ERROR)

    def test_bad_sizes_are_refused(self):
        for data, code in ((10, 11), (10, 0), (1 << 27, 5), (0xFFFFFFFF, 0xFFFFFFFF)):
            coded = header() + struct.pack(">III", data, code, 1) + bytes(100)
            result = self.run_tool("-d", input=coded, status=ERROR)
            self.assert_message(result, "format violated")

    def test_hostile_code_is_refused(self):
        source = random.Random(3)
        for _ in some(range(100)):
            damaged = bytearray(CODE)
            for _ in range(source.randint(1, 4)):
                damaged[source.randrange(len(damaged))] = source.randrange(256)
            result = self.run_tool("-d", input=whole(block(bytes(60_000), bytes(damaged), 0), flags=0),
                                   status=ERROR)
            self.assert_message(result, "zebz: stdin: ", "format violated")

    def test_blocks_before_the_damage_come_out(self):
        data = text(3 * BLOCK)
        coded = self.filter("--format=lzop", input=data)
        damaged = bytearray(coded)
        damaged[-100] ^= 0x40
        for bad in (damaged, coded[:-100]):
            result = self.run_tool("-d", input=bad, status=ERROR)
            self.assertEqual(result.stdout, data[:2 * BLOCK])


if __name__ == "__main__":
    support.main()

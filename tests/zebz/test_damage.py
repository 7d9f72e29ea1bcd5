"""Damaged and unusual compressed files: what is refused, with which words and exit code."""

import gzip
import struct
import zlib

import support
from support import ERROR, WARNING, mixed, some, some_of_each, text


def raw_deflate(data):
    coder = zlib.compressobj(6, zlib.DEFLATED, -15)
    return coder.compress(data) + coder.flush()


def member(data, flags=0, fields=b"", method=8):
    header = b"\x1f\x8b" + bytes([method, flags]) + struct.pack("<IBB", 0, 0, 3) + fields
    return header + raw_deflate(data) + struct.pack("<II", zlib.crc32(data), len(data))


class Headers(support.ToolTest):
    data = b"the data " * 20

    def test_every_header_field_is_read(self):
        extra = struct.pack("<H", 5) + b"\0abc\0"
        name, comment = b"name\0", b"comment\0"
        for flags in some(range(32)):
            fields = (extra if flags & 4 else b"") + (name if flags & 8 else b"")
            fields += comment if flags & 16 else b""
            if flags & 2:
                head = b"\x1f\x8b\x08" + bytes([flags]) + struct.pack("<IBB", 0, 0, 3) + fields
                fields += struct.pack("<H", zlib.crc32(head) & 0xFFFF)
            with self.subTest(flags=flags):
                self.assertEqual(self.filter("-d", input=member(self.data, flags, fields)),
                                 self.data)

    def test_a_wrong_header_crc_is_refused(self):
        coded = member(self.data, 2, b"\0\0")
        result = self.run_tool("-d", input=coded, status=ERROR)
        self.assert_message(result, "zebz: stdin: ", "header crc error")

    def test_reserved_flags_are_refused(self):
        for bit in (5, 6, 7):
            result = self.run_tool("-d", input=member(self.data, 1 << bit), status=ERROR)
            self.assert_message(result, "reserved flags")

    def test_another_method_is_refused(self):
        result = self.run_tool("-d", input=member(self.data, method=7), status=ERROR)
        self.assert_message(result, "unknown method 7")

    def test_a_name_without_end_is_refused_in_little_memory(self):
        coded = b"\x1f\x8b\x08\x08" + bytes(6) + b"n" * 5_000_000
        result = self.run_tool("-d", input=coded, status=ERROR)
        self.assert_message(result, "unexpected end of file")

    def test_headers_of_zlib_are_checked(self):
        coded = zlib.compress(self.data)
        for first, second in ((0x78, coded[1] ^ 1), (0x79, 0), (0x88, 0x1C)):
            result = self.run_tool("-d", "--format=zlib", input=bytes([first, second]) + coded[2:],
                                   status=ERROR)
            self.assert_message(result, "not in zlib format")


class Truncation(support.ToolTest):
    def test_every_cut_is_an_unexpected_end(self):
        coded = member(b"some data, some more data", 8, b"name\0")
        for length in some(range(len(coded))):
            with self.subTest(length=length):
                result = self.run_tool("-d", input=coded[:length], status=ERROR)
                self.assert_message(result, "unexpected end of file")

    def test_cuts_of_zlib_and_deflate_streams_are_unexpected_ends(self):
        data = text(3000)
        for format, coded in (("zlib", zlib.compress(data)), ("deflate", raw_deflate(data))):
            for length in some([*range(0, 40), len(coded) // 2, len(coded) - 1]):
                with self.subTest(format=format, length=length):
                    result = self.run_tool("-d", f"--format={format}", input=coded[:length],
                                           status=ERROR)
                    self.assert_message(result, "unexpected end of file")

    def test_what_can_be_read_of_a_cut_stream_is_written(self):
        data = mixed(900_000)
        coded = gzip.compress(data)
        result = self.run_tool("-d", input=coded[:len(coded) // 2], status=ERROR)
        self.assertGreater(len(result.stdout), 100_000)
        self.assertTrue(data.startswith(result.stdout))


class Corruption(support.ToolTest):
    def setUp(self):
        super().setUp()
        self.data = text(5000)
        self.coded = bytearray(member(self.data))

    def test_a_wrong_crc_is_named(self):
        self.coded[-5] ^= 1
        self.assert_message(self.run_tool("-d", input=self.coded, status=ERROR), "crc error")

    def test_a_wrong_length_is_named(self):
        self.coded[-1] ^= 1
        self.assert_message(self.run_tool("-t", input=self.coded, status=ERROR), "length error")

    def test_a_wrong_adler32_is_named(self):
        coded = bytearray(zlib.compress(self.data))
        coded[-1] ^= 1
        result = self.run_tool("-d", "--format=zlib", input=coded, status=ERROR)
        self.assert_message(result, "adler32 error")

    def test_a_reserved_block_type_is_refused(self):
        for first in (b"\x06", b"\x07"):
            result = self.run_tool("-d", "--format=deflate", input=first + bytes(20), status=ERROR)
            self.assert_message(result, "format violated")

    def test_a_stored_length_without_its_complement_is_refused(self):
        result = self.run_tool("-d", "--format=deflate", input=b"\x01\x01\x00\x00\x00x",
                               status=ERROR)
        self.assert_message(result, "format violated")

    def test_a_distance_before_the_start_is_refused(self):
        # Fixed block: literal 'a' (0x91: 8 bits), length 3 (257), distance 2 (code 1): only one
        # byte stands before the match.
        stream = fixed_block([literal(ord("a")), "0000001" + "00001"])
        result = self.run_tool("-d", "--format=deflate", input=stream, status=ERROR)
        self.assert_message(result, "format violated")
        stream = fixed_block([literal(ord("a")), "0000001" + "00000"])
        self.assertEqual(self.filter("-d", "--format=deflate", input=stream), b"aaaa")

    def test_every_change_of_a_byte_that_matters_is_noticed(self):
        data = b"a few words, a few words more, and then no more words"
        coded = member(data)
        last_of_stream = len(coded) - 9
        places = [0, 1, 2, *range(10, last_of_stream), *range(last_of_stream + 1, len(coded))]
        for index, change in some_of_each(places, (0x01, 0x80, 0xFF)):
            damaged = bytearray(coded)
            damaged[index] ^= change
            with self.subTest(index=index, change=change):
                self.run_tool("-t", input=damaged, status=ERROR)


class DynamicHeaders(support.ToolTest):
    """The code lengths at the beginning of a dynamic block; the first four lengths of the code that
    they are sent in are those of the symbols 16 (repeat), 17, 18 (zeros) and 0."""

    def refused(self, code_lengths, rest):
        bits = "1" + "01" + number(0, 5) + number(0, 5) + number(len(code_lengths) - 4, 4)
        bits += "".join(number(length, 3) for length in code_lengths) + rest + "0" * 400
        result = self.run_tool("-d", "--format=deflate", input=packed(bits), status=ERROR)
        self.assert_message(result, "format violated")

    def test_more_codes_than_patterns(self):
        self.refused([1, 1, 1, 0], "")
        self.refused([2, 2, 2, 2, 7], "")

    def test_no_codes_and_codes_that_no_symbol_has(self):
        self.refused([0, 0, 0, 0], "")
        self.refused([0, 0, 0, 1], "1")

    def test_nothing_to_repeat(self):
        self.refused([1, 0, 0, 1], "1" + "00")

    def test_repeats_beyond_the_last_length(self):
        self.refused([0, 0, 1, 0], ("0" + "1" * 7) * 2)

    def test_no_end_of_block(self):
        self.refused([0, 0, 1, 1], ("1" + "1" * 7) + ("1" + number(258 - 138 - 11, 7)))


class Distances(support.ToolTest):
    def setUp(self):
        super().setUp()
        self.window = support.random_bytes(32768)

    def stream(self, before, matches):
        """A stored block, and in a fixed one matches of 258 bytes at distance 32768."""
        stored = b"\0" + struct.pack("<HH", len(before), len(before) ^ 0xFFFF) + before
        return stored + fixed_block(["11000101" + "11101" + "1" * 13] * matches)

    def test_the_farthest_distance_reaches_across_any_buffer(self):
        decoded = self.filter("-d", "--format=deflate", input=self.stream(self.window, 4000))
        self.assertEqual(decoded, (self.window * 33)[:32768 + 4000 * 258])

    def test_one_byte_farther_than_there_is_data_is_refused(self):
        result = self.run_tool("-d", "--format=deflate", input=self.stream(self.window[1:], 1),
                               status=ERROR)
        self.assert_message(result, "format violated")
        self.assertEqual(result.stdout, self.window[1:])

    def test_data_before_a_bad_distance_comes_out(self):
        # 'a', a match of 3 at distance 1, 'b', a match of 3 at distance 6.
        stream = fixed_block([literal(97), "0000001" + "00000", literal(98),
                              "0000001" + "00100" + "1"])
        result = self.run_tool("-d", "--format=deflate", input=stream, status=ERROR)
        self.assertEqual(result.stdout, b"aaaab")


def number(value, count):
    """A number as it stands in the stream: least significant bit first."""
    return format(value, f"0{count}b")[::-1]


def literal(byte):
    return format(0x30 + byte, "08b")


def fixed_block(codes):
    """A final fixed block of the codes, given with their first bit first."""
    return packed("1" + "10" + "".join(codes) + "0000000")


def packed(bits):
    bits += "0" * (-len(bits) % 8)
    return bytes(int(bits[i:i + 8][::-1], 2) for i in range(0, len(bits), 8))


class Members(support.ToolTest):
    def test_members_are_joined(self):
        parts = [b"first", b"", text(40_000), b"last"]
        self.assertEqual(self.filter("-d", input=b"".join(map(member, parts))), b"".join(parts))

    def test_a_thousand_members_are_joined(self):
        parts = [b"%d " % number for number in range(1000)]
        self.assertEqual(self.filter("-d", input=b"".join(map(member, parts))), b"".join(parts))

    def test_zeros_at_the_end_are_padding(self):
        for count in (1, 511, 600_000):
            self.assertEqual(self.filter("-d", input=member(b"data") + bytes(count)), b"data")

    def test_other_bytes_at_the_end_are_a_warning(self):
        for rest in (b"x", b"\0\0x", b"\x1f", b"\x1f\x8c", bytes(400_000) + b"x"):
            with self.subTest(rest=rest[:4]):
                result = self.run_tool("-d", input=member(b"data") + rest, status=WARNING)
                self.assertEqual(result.stdout, b"data")
                self.assert_message(result, "zebz: stdin: ", "trailing garbage ignored")

    def test_a_quiet_tool_keeps_the_warning_to_the_exit_code(self):
        result = self.run_tool("-dq", input=member(b"data") + b"rest", status=WARNING)
        self.assertEqual(result.stderr, b"")

    def test_a_damaged_second_member_is_an_error(self):
        second = bytearray(member(b"more"))
        second[-5] ^= 1
        result = self.run_tool("-d", input=member(b"data") + second, status=ERROR)
        self.assert_message(result, "crc error")
        self.assertEqual(result.stdout, b"datamore")

    def test_the_end_of_a_member_may_fall_anywhere_in_the_buffer(self):
        # The decoder takes bytes ahead of the stream's end and gives them back; here across every
        # place where the input is read on.
        buffer = 256 << 10
        for kind, tail in (("fixed", member(b"tail")), ("stored", stored_member(b"tail")),
                           ("dynamic", member(text(300)))):
            for offset in some(range(30)):
                coded = filler(buffer - len(tail) + offset - 15) + tail + member(b"after")
                with self.subTest(kind=kind, offset=offset):
                    self.assertEqual(self.filter("-d", input=coded),
                                     gzip.decompress(tail) + b"after")


def stored_member(data):
    coder = zlib.compressobj(0, zlib.DEFLATED, 31)
    return coder.compress(data) + coder.flush()


def filler(length):
    """Members without data that take just so many bytes."""
    coded = b""
    while length > 0:
        size = length if length < 65_000 else 60_000
        coded += member(b"", 4, struct.pack("<H", size - 22) + bytes(size - 22))
        length -= size
    return coded


class Unknown(support.ToolTest):
    def test_other_data_is_refused(self):
        for data in (b"plain text", b"\0\0\0\0", b"PK\x03\x04"):
            result = self.run_tool("-d", input=data, status=ERROR)
            self.assert_message(result, "zebz: stdin: not in a known format")
            result = self.run_tool("-d", "--format=gzip", input=data, status=ERROR)
            self.assert_message(result, "zebz: stdin: not in gzip format")

    def test_force_to_standard_output_passes_other_data_on(self):
        data = text(600_000)
        self.assertEqual(self.filter("-dcf", input=data), data)


if __name__ == "__main__":
    support.main()

"""bzip2 files: exchange with the format's own implementation, threads, damage."""

import bz2
import os
import pathlib
import random
import re
import shutil
import subprocess
import threading
import unittest

import support
from support import ERROR, OK, WARNING, mixed, random_bytes, samples, some, some_of_each, text

BLOCK_MAGIC = 0x314159265359
END_MAGIC = 0x177245385090
TEXT_LIMIT = 899_981  # what bzip2 and the tool put into a block of level 9


def fibonacci_word(length):
    a, b = b"a", b"ab"
    while len(b) < length:
        a, b = b, b + a
    return b[:length]


def repetitive():
    """(name, data) of blocks whose rotations are hard to sort."""
    noise = random_bytes(200_000, 5)
    return [("one byte", b"a" * 500_000), ("period 2", b"ab" * 200_000),
            ("period 3", b"abc" * 100_000), ("period 7", b"abcabcd" * 60_000),
            ("period 1000", random_bytes(1000, 6) * 300), ("fibonacci", fibonacci_word(400_000)),
            ("twice the same", noise + noise), ("runs", b"".join(bytes([v]) * (v + 1)
                                                               for v in range(256)) * 5)]


def crc_of(data):
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte << 24
        for _ in range(8):
            crc = (crc << 1 ^ (0x04C11DB7 if crc & 0x80000000 else 0)) & 0xFFFFFFFF
    return crc ^ 0xFFFFFFFF


class Bits:
    """A stream of bits under construction."""

    def __init__(self):
        self.text = ""

    def put(self, value, count):
        self.text += format(value, f"0{count}b")
        return self

    def bytes(self):
        padded = self.text + "0" * (-len(self.text) % 8)
        return int("1" + padded, 2).to_bytes(len(padded) // 8 + 1, "big")[1:]


class HandmadeBlock:
    """A block with all byte values in use and codes such that the symbols 0 to 253 are coded as the
    bytes 0 to 253, and four more, the last of them the end of the block, in 9 bits each."""

    def __init__(self, symbols, origin=0):
        self.symbols = symbols
        self.fields = {"randomised": 0, "origin": origin, "rows": 0xFFFF, "tables": 2,
                       "selectors": len(symbols) // 50 + 1, "first_length": 8, "crc": None}

    def data(self):
        """What the block stands for: here, texts hold no runs of four."""
        ranks, run, weight = [], 0, 1
        for symbol in [*self.symbols, None]:
            if symbol in (0, 1):
                run += (symbol + 1) * weight
                weight *= 2
                continue
            ranks += [0] * run
            run, weight = 0, 1
            if symbol is not None:
                ranks.append(symbol - 1)
        values, column = list(range(256)), []
        for rank in ranks:
            values.insert(0, values.pop(rank))
            column.append(values[0])
        order = sorted(range(len(column)), key=lambda row: column[row])
        row, out = order[self.fields["origin"]], []
        for _ in column:
            out.append(column[row])
            row = order[row]
        return bytes(out)

    def put_to(self, bits, **changes):
        fields = {**self.fields, **changes}
        crc = crc_of(self.data()) if fields["crc"] is None else fields["crc"]
        bits.put(BLOCK_MAGIC, 48).put(crc, 32).put(fields["randomised"], 1)
        bits.put(fields["origin"], 24).put(fields["rows"], 16)
        for _ in range(bin(fields["rows"]).count("1")):
            bits.put(0xFFFF, 16)
        bits.put(fields["tables"], 3).put(fields["selectors"], 15)
        bits.text += "0" * fields["selectors"]
        for _ in range(fields["tables"]):
            bits.put(fields["first_length"], 5)
            bits.text += "0" * 254 + "100" + "0" * 3
        for symbol in self.symbols:
            bits.put(*((symbol, 8) if symbol < 254 else (254 + symbol, 9)))
        bits.put(254 + 257, 9)
        return crc


def handmade_file(*blocks, level=9, **changes):
    bits = Bits().put(int.from_bytes(b"BZh", "big"), 24).put(ord("0") + level, 8)
    stream_crc = 0
    for block in blocks:
        crc = block.put_to(bits, **changes)
        stream_crc = (stream_crc << 1 | stream_crc >> 31) & 0xFFFFFFFF ^ crc
    return bits.put(END_MAGIC, 48).put(stream_crc, 32).bytes()


def coded_block():
    """The bits of a whole block, filled up to bytes, that are symbols of a handmade block."""
    for seed in range(100):
        coded = bz2.compress(text(40, seed))
        block = coded[4:-10]
        if max(block) < 254:
            return block
    raise AssertionError("no such block")


class Exchange(support.ToolTest):
    def assert_exchange(self, data, level=9, threads=1):
        coded = self.filter("--format=bzip2", f"-{level}", f"-T{threads}", input=data)
        self.assertEqual(coded[:4], b"BZh%d" % level)
        self.assertEqual(bz2.decompress(coded), data)
        self.assertEqual(self.filter("-d", f"-T{threads}", input=coded), data)
        peers = bz2.compress(data, level)
        self.assertEqual(self.filter("-d", f"-T{threads}", input=peers), data)
        return coded, peers

    def test_all_levels_both_ways(self):
        data = mixed(1_000_000)
        for level in some(range(1, 10), step=4):
            with self.subTest(level=level):
                coded, peers = self.assert_exchange(data[:100_000 * (level + 1)], level)
                self.assertLess(len(coded), len(peers) * 1.01)

    def test_samples_both_ways(self):
        for level, (name, data) in some_of_each((1, 9), samples(), step=3):
            with self.subTest(level=level, data=name):
                coded, peers = self.assert_exchange(data, level)
                self.assertLess(len(coded), len(peers) * 1.01 + 8)

    def test_repetitive_blocks_both_ways(self):
        for name, data in repetitive():
            with self.subTest(data=name):
                coded, peers = self.assert_exchange(data)
                self.assertLess(len(coded), len(peers) * 1.01 + 16)

    def test_all_byte_values_and_single_ones(self):
        for name, data in (("all once", bytes(range(256))), ("all falling", bytes(range(255, -1, -1))),
                           ("all mixed", random_bytes(5000)),
                           *((f"only {v}", bytes([v]) * 3) for v in (0, 1, 127, 128, 255))):
            with self.subTest(data=name):
                self.assert_exchange(data)

    def test_lengths_from_1_to_a_full_block(self):
        data = text(900_001)
        for level, lengths in ((1, (1, 2, 3, 4, 5, 49, 50, 51, 99, 100, 101, 599, 1000, 2399, 32_769,
                                    99_980, 99_981, 99_982, 100_001)),
                               (9, (TEXT_LIMIT - 1, TEXT_LIMIT, TEXT_LIMIT + 1, 900_001))):
            for length in lengths:
                with self.subTest(level=level, length=length):
                    self.assert_exchange(data[:length], level)

    def test_runs_of_all_lengths_around_the_limits(self):
        lengths = (3, 4, 5, 254, 255, 256, 258, 259, 260, 263, 264, 517, 518, 519)
        data = b"".join(bytes([65 + i]) * length for i, length in enumerate(lengths))
        self.assert_exchange(data)
        for length in lengths:
            with self.subTest(length=length):
                self.assert_exchange(b"z" * length)

    def test_a_run_over_the_end_of_a_block(self):
        # The block is full before, within or right behind a run.
        noise = random_bytes(99_981 + 4, 3)
        for before in range(99_981 - 8, 99_981 + 1):
            with self.subTest(before=before):
                self.assert_exchange(noise[:before] + b"r" * 300 + b"end", level=1)

    def test_data_that_shrinks_to_almost_nothing(self):
        self.assert_exchange(bytes(50_000_000), threads=2)

    @unittest.skipUnless(shutil.which("bzip2"), "no bzip2")
    def test_bzip2_itself_accepts_the_result(self):
        for threads in (1, 2):
            coded = self.filter("--format=bzip2", f"-T{threads}", input=mixed(1_500_000))
            subprocess.run(["bzip2", "-t"], input=coded, check=True)

    def test_files_of_parallel_tools(self):
        data = mixed(1_500_000)
        for tool, threads in (("lbzip2", "-n2"), ("pbzip2", "-p2")):
            if not shutil.which(tool):
                continue
            with self.subTest(tool=tool):
                peers = subprocess.run([tool, "-zc", threads, "-1"], input=data, check=True,
                                       capture_output=True).stdout
                for own_threads in (1, 3):
                    self.assertEqual(self.filter("-d", f"-T{own_threads}", input=peers), data)
                coded = self.filter("--format=bzip2", "-T2", input=data)
                back = subprocess.run([tool, "-dc", threads], input=coded, check=True,
                                      capture_output=True).stdout
                self.assertEqual(back, data)

    def test_the_default_level_is_9(self):
        data = text(1000)
        self.assertEqual(self.filter("--format=bzip2", input=data),
                         self.filter("--format=bzip2", "-9", input=data))

    def test_nothing_is_a_stream_without_blocks(self):
        coded = self.filter("--format=bzip2", input=b"")
        self.assertEqual(coded, bz2.compress(b""))
        self.assertEqual(self.filter("-d", input=coded), b"")


class Threads(support.ToolTest):
    def test_any_number_of_threads_gives_the_same(self):
        data = mixed(1_500_000)
        results = {self.filter("--format=bzip2", "-2", f"-T{n}", input=data) for n in (1, 2, 3, 8)}
        self.assertEqual(len(results), 1)
        for threads in (1, 2, 3, 8):
            self.assertEqual(self.filter("-d", f"-T{threads}", input=results.copy().pop()), data)

    def test_many_small_blocks_and_streams(self):
        parts = [text(size, size) for size in range(0, 1500, 25)]
        coded = b"".join(bz2.compress(part, 1 + i % 9) for i, part in enumerate(parts))
        for threads in (1, 3):
            self.assertEqual(self.filter("-d", f"-T{threads}", input=coded), b"".join(parts))

    def test_a_magic_inside_a_block_is_no_block(self):
        magic = list(BLOCK_MAGIC.to_bytes(6, "big"))
        filling = list(random.Random(4).choices(range(2, 254), k=120))
        for name, inside in (("the magic alone", magic), ("twice", magic + [9] + magic),
                             ("a whole block", list(coded_block())),
                             ("at the end", filling + magic)):
            block = HandmadeBlock(filling + inside + filling[:60])
            other = HandmadeBlock(filling[::-1])
            data = block.data() + other.data()
            coded = handmade_file(block, other)
            self.assertEqual(bz2.decompress(coded), data)
            for threads in (1, 2, 5):
                with self.subTest(inside=name, threads=threads):
                    self.assertEqual(self.filter("-d", f"-T{threads}", input=coded), data)
                    many = self.filter("-d", f"-T{threads}", input=coded * 10)
                    self.assertEqual(many, data * 10)

    def test_blocks_at_every_bit_offset(self):
        # The end of the block before moves by one bit with each symbol of 9 bits.
        offsets = set()
        for count in range(8):
            filling = random.Random(count).choices(range(2, 254), k=40)
            first = HandmadeBlock(filling + [254, 255, 256, 255, 256, 254, 256][:count])
            second = HandmadeBlock([9, 8, 7])
            bits = Bits()
            first.put_to(bits)
            offsets.add(len(bits.text) % 8)
            coded = handmade_file(first, second)
            with self.subTest(count=count):
                self.assertEqual(bz2.decompress(coded), first.data() + second.data())
                self.assertEqual(self.filter("-d", "-T2", input=coded),
                                 first.data() + second.data())
        self.assertEqual(offsets, set(range(8)))

    def test_magics_without_blocks_do_not_hurt(self):
        rest = BLOCK_MAGIC.to_bytes(6, "big") * 50_000
        for threads in (1, 3):
            result = self.run_tool("-d", f"-T{threads}", input=bz2.compress(b"data") + rest,
                                   status=WARNING)
            self.assertEqual(result.stdout, b"data")


@unittest.skipIf(support.SLOW or not os.path.exists("/proc/self/status"),
                 "memory of the tool itself is not to be seen")
class Memory(support.ToolTest):
    """What the tool holds is as much as its threads work on, however long the stream."""

    def peak(self, *arguments, pieces):
        """The most bytes in memory until all pieces but the last few bytes are taken."""
        with subprocess.Popen(support.command(*arguments), stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE) as process:
            drain = threading.Thread(target=process.stdout.read)
            drain.start()
            for piece in pieces:
                process.stdin.write(piece)
            process.stdin.flush()
            status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
            process.stdin.close()
            drain.join()
        self.assertEqual(process.returncode, OK)
        return 1024 * int(re.search(r"VmHWM:\s*(\d+) kB", status)[1])

    def assert_bounded(self, *arguments, piece):
        short = self.peak(*arguments, "-T3", pieces=[piece] * 4)
        long = self.peak(*arguments, "-T3", pieces=[piece] * 40)
        # Either side of the 36 pieces between them is larger than this.
        self.assertLess(long - short, 8_000_000)

    def test_compression(self):
        self.assert_bounded("--format=bzip2", "-1", piece=mixed(1_000_000))

    def test_decompression(self):
        self.assert_bounded("-d", piece=bz2.compress(mixed(1_000_000), 1))


class Files(support.ToolTest):
    def test_names(self):
        data = text(3000)
        self.write("data", data)
        self.run_tool("--format=bzip2", "data")
        self.assertEqual(self.names(), ["data.bz2"])
        self.run_tool("-d", "data")
        self.assertEqual(self.names(), ["data"])
        for name, original in (("a.tbz2", "a.tar"), ("b.tbz", "b.tar"), ("c.bz", "c")):
            self.write(name, bz2.compress(data))
            self.run_tool("-d", name)
            self.assertEqual(self.read(original), data)

    def test_the_list_tells_sizes_and_the_stream_crc(self):
        data = text(30_000)
        coded = bz2.compress(data) * 2
        self.write("data.bz2", coded)
        row = self.run_tool("-lv", "data.bz2").stdout.decode().splitlines()[1].split()
        # In a stream of one block, its CRC.
        self.assertEqual(row[:2], ["bzip2", f"{crc_of(data):08x}"])
        self.assertEqual(row[-4:-2], [str(len(coded)), "60000"])
        self.assertEqual(row[-1], "data")

    def test_a_sound_file_passes_the_test(self):
        self.write("data.bz2", bz2.compress(text(3000)))
        self.assert_message(self.run_tool("-tv", "data.bz2"), "data.bz2:\t OK")


class Streams(support.ToolTest):
    def test_streams_are_joined(self):
        parts = [text(200_000), b"", b"x", bytes(100_000), b""]
        coded = b"".join(bz2.compress(part, 1) for part in parts)
        for threads in (1, 2):
            self.assertEqual(self.filter("-d", f"-T{threads}", input=coded), b"".join(parts))

    def test_zeros_at_the_end_are_padding(self):
        for count in (1, 511, 400_000, 3_000_000):
            self.assertEqual(self.filter("-d", input=bz2.compress(b"data") + bytes(count)), b"data")

    def test_other_bytes_at_the_end_are_a_warning(self):
        for rest in (b"x", b"\0\0x", b"B", b"BZh", b"BZh0" + bytes(20), b"BZx9",
                     bytes(300_000) + b"x", random_bytes(6_000_000)):
            for threads in (1, 2):
                with self.subTest(rest=rest[:4], size=len(rest), threads=threads):
                    result = self.run_tool("-d", f"-T{threads}", input=bz2.compress(b"data") + rest,
                                           status=WARNING)
                    self.assertEqual(result.stdout, b"data")
                    self.assert_message(result, "trailing garbage ignored")


class Damage(support.ToolTest):
    def refused(self, coded, message, threads=1):
        result = self.run_tool("-d", f"-T{threads}", "--format=bzip2", input=coded, status=ERROR)
        self.assert_message(result, "zebz: stdin: ", message)
        return result

    def test_bad_headers(self):
        good = bz2.compress(b"data")
        for head in (b"BZg9", b"BZh0", b"BZh:", b"XZh9"):
            self.refused(head + good[4:], "not in bzip2 format")

    def test_every_cut_is_an_unexpected_end(self):
        coded = bz2.compress(b"some data, some more data")
        for length in some(range(len(coded))):
            with self.subTest(length=length):
                self.refused(coded[:length], "unexpected end of file", threads=1 + length % 2)

    def test_wrong_checksums(self):
        block = HandmadeBlock([7, 8, 9, 10])
        self.refused(handmade_file(block, crc=1), "invalid compressed data--crc error")
        coded = bytearray(handmade_file(block))
        coded[-2] ^= 0x10
        result = self.refused(coded, "stream crc error")
        self.assertEqual(result.stdout, block.data())

    def test_bad_fields(self):
        block = HandmadeBlock([7, 8, 9, 10])
        self.assertEqual(self.filter("-d", input=handmade_file(block)), block.data())
        for changes in ({"selectors": 0}, {"tables": 0}, {"tables": 1}, {"tables": 7},
                        {"origin": 4}, {"origin": 0xFFFFFF}, {"rows": 0}, {"first_length": 0},
                        {"first_length": 20}, {"first_length": 7}):
            with self.subTest(changes=changes):
                coded = handmade_file(block, crc=0, **changes)
                self.assertRaises((OSError, EOFError, ValueError), bz2.decompress, coded)
                self.refused(coded + bytes(50), "format violated")
        self.refused(handmade_file(block, randomised=1), "randomised block -- not supported")

    def test_more_selectors_than_a_block_can_use(self):
        block = HandmadeBlock([7, 8, 9, 10])
        for count in (2, 18_002, 18_003, 32_767):
            coded = handmade_file(block, selectors=count)
            self.assertEqual(self.filter("-d", input=coded), block.data())
        long = HandmadeBlock([7, 8, 9, 10] * 30)
        self.refused(handmade_file(long, selectors=2) + bytes(50), "format violated")

    def test_a_block_larger_than_its_level_is_refused(self):
        coded = bz2.compress(random_bytes(150_000), 2)
        self.refused(b"BZh1" + coded[4:], "format violated")
        # A run of 2^20 - 1 equal bytes: 20 digits.
        coded = handmade_file(HandmadeBlock([0] * 20), crc=0)
        self.refused(coded + bytes(20), "format violated")

    def test_blocks_before_the_damage_come_out(self):
        data = text(450_000)
        good = bz2.compress(data, 1)
        for threads in (1, 2, 4):
            for at in (len(good) // 2, len(good) - 100):
                with self.subTest(threads=threads, at=at):
                    coded = bytearray(good)
                    coded[at] ^= 0x55
                    result = self.refused(coded, "invalid compressed data", threads)
                    blocks = 4 if at > len(good) // 2 else 2
                    self.assertEqual(len(result.stdout) // 99_000, blocks)
                    self.assertTrue(data.startswith(result.stdout))

    def test_blocks_before_a_cut_come_out(self):
        data = text(450_000)
        coded = bz2.compress(data, 1)
        for threads in (1, 3):
            result = self.refused(coded[:-20], "unexpected end of file", threads)
            self.assertTrue(data.startswith(result.stdout))
            self.assertGreater(len(result.stdout), 350_000)

    def test_changed_bits_are_found(self):
        coded = bz2.compress(text(2000))
        places = range(4, len(coded) - 1, len(coded) // 150)
        for at, change in some_of_each(places, (0x01, 0x80)):
            damaged = bytearray(coded)
            damaged[at] ^= change
            result = self.run_tool("-t", "--format=bzip2", input=damaged, status=ERROR)
            self.assertEqual(result.stdout, b"")

    def test_a_damaged_second_stream_is_an_error(self):
        second = bytearray(bz2.compress(b"more"))
        second[12] ^= 1
        result = self.refused(bz2.compress(b"data") + second, "crc error")
        self.assertEqual(result.stdout, b"data")


if __name__ == "__main__":
    support.main()

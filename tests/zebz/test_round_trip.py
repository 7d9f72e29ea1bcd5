"""Data goes through the tool and through independent implementations of the formats, both ways."""

import fcntl
import gzip
import os
import struct
import subprocess
import termios
import time
import zlib

import support
from support import LEVELS, PIECE, mixed, random_bytes, samples, some_of_each, text


def raw_deflate(data, level=6, strategy=zlib.Z_DEFAULT_STRATEGY):
    coder = zlib.compressobj(level, zlib.DEFLATED, -15, 8, strategy)
    return coder.compress(data) + coder.flush()


class RoundTrip(support.ToolTest):
    def test_every_level_of_every_format_comes_back_unchanged(self):
        formats = ("gzip", "zlib", "deflate")
        for format, level, (name, data) in some_of_each(formats, LEVELS, samples()):
            with self.subTest(format=format, level=level, data=name):
                coded = self.filter(f"-{level}", f"--format={format}", input=data)
                self.assertEqual(self.filter("-d", f"--format={format}", input=coded), data)

    def test_lengths_around_a_piece_come_back_unchanged(self):
        data = mixed(2 * PIECE + 1)
        for length in (PIECE - 1, PIECE, PIECE + 1, 2 * PIECE, 2 * PIECE + 1):
            for threads in ("-T1", "-T2"):
                with self.subTest(length=length, threads=threads):
                    coded = self.filter(threads, input=data[:length])
                    self.assertEqual(gzip.decompress(coded), data[:length])
                    self.assertEqual(self.filter("-d", input=coded), data[:length])

    def test_noise_grows_by_little(self):
        data = random_bytes(3 * PIECE)
        for level in (1, 6, 9):
            with self.subTest(level=level):
                coded = self.filter(f"-{level}", input=data)
                self.assertLess(len(coded), len(data) * 1.0005 + 50)

    def test_nine_levels_are_three_of_the_library(self):
        data = text(50_000)
        results = [self.filter(f"-{level}", "--format=deflate", input=data)
                   for level in range(1, 10)]
        self.assertEqual(results, 3 * results[:1] + 4 * results[3:4] + 2 * results[8:])
        self.assertEqual(len(set(results)), 3)

    def test_higher_levels_do_not_give_larger_results(self):
        data = text(2_000_000)
        sizes = [len(self.filter(f"-{level}", input=data)) for level in (1, 6, 9)]
        self.assertEqual(sizes, sorted(sizes, reverse=True))

    def test_the_default_is_level_6_of_gzip(self):
        data = text(100_000)
        self.assertEqual(self.filter(input=data), self.filter("-6", "--format=gzip", input=data))


class Exchange(support.ToolTest):
    def test_peers_read_what_the_tool_writes(self):
        decoders = {"gzip": gzip.decompress, "zlib": zlib.decompress,
                    "deflate": lambda coded: zlib.decompress(coded, -15)}
        for format, level, (name, data) in some_of_each(decoders, LEVELS, samples()):
            with self.subTest(format=format, level=level, data=name):
                coded = self.filter(f"-{level}", f"--format={format}", input=data)
                self.assertEqual(decoders[format](coded), data)

    def test_gzip_itself_accepts_the_result(self):
        data = mixed(3 * PIECE)
        for arguments in (["-1"], ["-6"], ["-9"], ["-T2"]):
            with self.subTest(arguments=arguments):
                coded = self.filter(*arguments, input=data)
                subprocess.run(["gzip", "-t"], input=coded, check=True)

    def test_streams_of_every_level_and_strategy_of_a_peer_decode(self):
        strategies = (zlib.Z_DEFAULT_STRATEGY, zlib.Z_FILTERED, zlib.Z_HUFFMAN_ONLY, zlib.Z_RLE,
                      zlib.Z_FIXED)
        cases = some_of_each((0, 1, 5, 9), strategies, samples())
        for level, strategy, (name, data) in cases:
            with self.subTest(level=level, strategy=strategy, data=name):
                coded = raw_deflate(data, level, strategy)
                self.assertEqual(self.filter("-d", "--format=deflate", input=coded), data)

    def test_gzip_and_zlib_streams_of_a_peer_decode(self):
        for name, data in samples():
            with self.subTest(data=name):
                self.assertEqual(self.filter("-d", input=gzip.compress(data)), data)
                self.assertEqual(self.filter("-d", "--format=zlib", input=zlib.compress(data)),
                                 data)

    def test_flushed_streams_of_many_small_blocks_decode(self):
        # Every kind of block after every other, stored blocks of a few bytes among them: a decoder
        # that had looked ahead must not lose what it had in hand.
        data = mixed(120_000)
        for flush in (zlib.Z_SYNC_FLUSH, zlib.Z_FULL_FLUSH, zlib.Z_PARTIAL_FLUSH, zlib.Z_BLOCK):
            for step in (1, 7, 100, 5000):
                part = data[90_000:90_000 + 400 * step]
                with self.subTest(flush=flush, step=step):
                    coder = zlib.compressobj(6, zlib.DEFLATED, -15)
                    coded = b""
                    for start in range(0, len(part), step):
                        coded += coder.compress(part[start:start + step])
                        coded += coder.flush(flush)
                    coded += coder.flush()
                    self.assertEqual(self.filter("-d", "--format=deflate", input=coded), part)

    @support.posix_only
    def test_streams_that_come_byte_by_byte_decode(self):
        # A new byte is only sent when the tool has taken the one before.
        data = text(400)
        for name, strategy in (("dynamic", zlib.Z_DEFAULT_STRATEGY), ("fixed", zlib.Z_FIXED)):
            coder = zlib.compressobj(9, zlib.DEFLATED, -15, 8, strategy)
            coded = coder.compress(data) + coder.flush(zlib.Z_SYNC_FLUSH) + raw_deflate(data)
            with self.subTest(blocks=name):
                process = subprocess.Popen(support.command("-d", "--format=deflate"),
                                           stdin=subprocess.PIPE, stdout=subprocess.PIPE)
                for byte in coded:
                    while unread_in(process.stdin):
                        time.sleep(0)
                    os.write(process.stdin.fileno(), bytes([byte]))
                self.assertEqual(process.communicate()[0], data * 2)
                self.assertEqual(process.returncode, 0)

    def test_a_change_of_level_within_a_stream_decodes(self):
        # Stored, fast and thorough blocks in one stream, matches reaching from each into the last.
        data = text(60_000)
        coded = b""
        for level in (0, 9, 0, 1, 0, 6):
            coder = zlib.compressobj(level, zlib.DEFLATED, -15, zdict=data[-32768:])
            coded += coder.compress(data) + coder.flush(zlib.Z_SYNC_FLUSH)
        coded = raw_deflate_prefix(data) + coded + b"\x03\x00"
        self.assertEqual(self.filter("-d", "--format=deflate", input=coded), data * 7)


def unread_in(pipe):
    return struct.unpack("i", fcntl.ioctl(pipe, termios.FIONREAD, b"\0" * 4))[0]


def raw_deflate_prefix(data):
    coder = zlib.compressobj(6, zlib.DEFLATED, -15)
    return coder.compress(data) + coder.flush(zlib.Z_SYNC_FLUSH)


class Dictionary(support.ToolTest):
    def setUp(self):
        super().setUp()
        self.dictionary = text(50_000, seed=7)
        self.data = self.dictionary[30_000:45_000] + text(20_000, seed=8)
        self.write("dictionary", self.dictionary)

    def test_a_peer_reads_a_stream_with_a_dictionary(self):
        for level in (1, 6, 9):
            for threads in ("-T1", "-T2"):
                with self.subTest(level=level, threads=threads):
                    coded = self.filter(f"-{level}", threads, "--format=zlib", "--dict=dictionary",
                                        input=self.data)
                    decoder = zlib.decompressobj(zdict=self.dictionary)
                    self.assertEqual(decoder.decompress(coded), self.data)
                    plain = self.filter(f"-{level}", "--format=zlib", input=self.data)
                    self.assertLess(len(coded), len(plain) - 1000)

    def test_a_stream_of_a_peer_with_a_dictionary_decodes(self):
        coder = zlib.compressobj(zdict=self.dictionary)
        coded = coder.compress(self.data) + coder.flush()
        decoded = self.filter("-d", "--format=zlib", "--dict=dictionary", input=coded)
        self.assertEqual(decoded, self.data)

    def test_short_dictionaries_work(self):
        for length in (1, 2, 3, 300):
            self.write("short", self.dictionary[:length])
            with self.subTest(length=length):
                coded = self.filter("--format=zlib", "--dict=short", input=self.data)
                decoder = zlib.decompressobj(zdict=self.dictionary[:length])
                self.assertEqual(decoder.decompress(coded), self.data)
                self.assertEqual(
                    self.filter("-d", "--format=zlib", "--dict=short", input=coded), self.data)

    def test_a_missing_or_wrong_dictionary_is_an_error(self):
        coded = self.filter("--format=zlib", "--dict=dictionary", input=self.data)
        result = self.run_tool("-d", "--format=zlib", input=coded, status=support.ERROR)
        self.assert_message(result, "needs a dictionary")
        self.write("other", b"something else")
        result = self.run_tool("-d", "--format=zlib", "--dict=other", input=coded,
                               status=support.ERROR)
        self.assert_message(result, "needs another dictionary")
        self.assertEqual(result.stdout, b"")


class Threads(support.ToolTest):
    def test_any_number_of_threads_gives_one_member_that_peers_read(self):
        data = mixed(5 * PIECE + 12345)
        results = set()
        for threads in (2, 3, 8):
            with self.subTest(threads=threads):
                coded = self.filter(f"-T{threads}", input=data)
                decoder = zlib.decompressobj(31)
                self.assertEqual(decoder.decompress(coded), data)
                self.assertTrue(decoder.eof)
                self.assertEqual(decoder.unused_data, b"")
                results.add(coded)
        self.assertEqual(len(results), 1, "the number of threads does not show in the result")

    def test_zlib_and_deflate_streams_of_threads_are_whole(self):
        data = mixed(3 * PIECE)
        coded = self.filter("-T2", "--format=zlib", input=data)
        self.assertEqual(zlib.decompress(coded), data)
        coded = self.filter("-T2", "--format=deflate", input=data)
        self.assertEqual(zlib.decompress(coded, -15), data)

    def test_pieces_use_what_stands_before_them(self):
        data = text(30_000) * 150
        one = self.filter("-T1", input=data)
        two = self.filter("-T2", input=data)
        self.assertLess(len(two), len(one) * 1.01)

    def test_zero_stands_for_every_processor(self):
        data = mixed(2 * PIECE)
        self.assertEqual(gzip.decompress(self.filter("-T0", input=data)), data)


if __name__ == "__main__":
    support.main()

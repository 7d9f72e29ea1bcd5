"""The container of the library's own coders."""

import struct

import support
from support import ERROR, WARNING, mixed, random_bytes, samples, some, some_of_each, text

METHODS = ("huff", "git", "lzss", "rle", "lzo")


def crc32c(data):
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = crc >> 1 ^ (0x82F63B78 if crc & 1 else 0)
    return crc ^ 0xFFFFFFFF


def block(content, code=None):
    code = content if code is None else code
    return struct.pack("<III", len(content), len(code), crc32c(content)) + code


def container(method, *blocks, length):
    return b"ZEB\x1a" + bytes([method]) + b"".join(blocks) + struct.pack("<IQ", 0, length)


class RoundTrip(support.ToolTest):
    def test_every_method_brings_every_sample_back(self):
        for method, (name, data) in some_of_each(METHODS, samples()):
            with self.subTest(method=method, name=name):
                coded = self.filter("--format=zeb", f"--method={method}", input=data)
                self.assertEqual(self.filter("-d", input=coded), data)

    def test_more_than_a_block(self):
        data = mixed(2_500_000)
        for method in METHODS:
            coded = self.filter("--format=zeb", f"--method={method}", input=data)
            self.assertEqual(self.filter("-d", input=coded), data)

    def test_each_method_makes_its_kind_of_data_smaller(self):
        for method, data in (("huff", text(200_000)), ("git", text(200_000)),
                             ("lzss", text(200_000)), ("lzo", text(200_000)),
                             ("rle", b"a" * 1000 + b"b" * 1000)):
            coded = self.filter("--format=zeb", f"--method={method}", input=data)
            self.assertLess(len(coded), len(data) * 3 // 4, method)

    def test_noise_is_stored(self):
        data = random_bytes(100_000)
        for method in METHODS:
            coded = self.filter("--format=zeb", f"--method={method}", input=data)
            self.assertEqual(len(coded), 5 + len(data) + 12 * -(-len(data) // (1 << 17)) + 12)

    def test_files_get_the_suffix_and_lose_it(self):
        self.write("data", text(5000))
        self.run_tool("--format=zeb", "data")
        self.assertEqual(self.names(), ["data.zeb"])
        self.run_tool("-t", "data.zeb")
        self.run_tool("-d", "data.zeb")
        self.assertEqual(self.read("data"), text(5000))


class Layout(support.ToolTest):
    def test_files_made_by_hand_decode(self):
        self.assertEqual(self.filter("-d", input=container(1, length=0)), b"")
        two = container(4, block(b"stored"), block(b"aaaaaabc", b"aa\x04bc"), length=14)
        self.assertEqual(self.filter("-d", input=two), b"storedaaaaaabc")

    def test_the_file_is_laid_out_as_described(self):
        coded = self.filter("--format=zeb", "--method=rle", input=b"a" * 20)
        self.assertEqual(coded, container(4, block(b"a" * 20, b"aa\x12"), length=20))


class Damage(support.ToolTest):
    def refused(self, coded, *parts):
        result = self.run_tool("-d", "--format=zeb", input=coded, status=ERROR)
        self.assert_message(result, "zebz: stdin: ", *parts)
        return result

    def test_bad_headers_and_sizes(self):
        good = container(4, block(b"stored"), length=6)
        self.refused(b"ZEC" + good[3:], "not in zeb format")
        self.refused(good[:4] + b"\x06" + good[5:], "unknown method 6")
        self.refused(good[:5] + struct.pack("<III", 1 << 21, 4, 0), "invalid block sizes")
        self.refused(good[:5] + struct.pack("<III", 4, 5, 0), "invalid block sizes")
        self.refused(good[:5] + struct.pack("<III", 4, 0, 0), "invalid block sizes")
        self.refused(container(4, block(b"stored"), length=7), "length error")

    def test_every_cut_is_an_unexpected_end(self):
        for method in METHODS:
            coded = self.filter("--format=zeb", f"--method={method}", input=text(2000))
            places = [*range(5, 40), len(coded) // 2, len(coded) - 13, len(coded) - 1]
            for length in some(places):
                self.refused(coded[:length], "unexpected end of file")

    def test_changed_bytes_are_found(self):
        for method in METHODS:
            data = text(3000)
            coded = self.filter("--format=zeb", f"--method={method}", input=data)
            for at in some(range(17, len(coded) - 12, len(coded) // 60)):
                changed = coded[:at] + bytes([coded[at] ^ 0x41]) + coded[at + 1:]
                result = self.run_tool("-d", input=changed, status=ERROR)
                self.assertEqual(result.stdout, b"")

    def test_blocks_before_the_damage_come_out(self):
        first = block(b"before")
        bad = block(b"damaged")[:-1] + b"!"
        result = self.refused(container(4, first, bad, length=13), "crc error")
        self.assertEqual(result.stdout, b"before")

    def test_what_follows_is_a_warning(self):
        coded = container(4, block(b"stored"), length=6)
        self.assertEqual(self.filter("-d", input=coded + bytes(100)), b"stored")
        result = self.run_tool("-d", input=coded + b"more", status=WARNING)
        self.assertEqual(result.stdout, b"stored")


class Options(support.ToolTest):
    def test_methods_go_with_this_format_alone(self):
        result = self.run_tool("--format=zeb", "--method=zip", input=b"", status=ERROR)
        self.assert_message(result, "--method=zip does not go with --format=zeb")
        result = self.run_tool("--method=huff", input=b"", status=ERROR)
        self.assert_message(result, "--method=huff does not go with --format=gzip")


if __name__ == "__main__":
    support.main()

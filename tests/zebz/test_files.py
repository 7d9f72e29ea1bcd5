"""Named files: what is created, replaced, kept and refused."""

import gzip
import os
import signal
import stat
import struct
import subprocess
import time
import unittest

import support
from support import ERROR, OK, WARNING, is_windows, mixed, posix_only, text

DATA = b"what the file says\n" * 50


class Names(support.ToolTest):
    def test_a_file_is_replaced_and_comes_back(self):
        self.write("file", DATA)
        result = self.run_tool("file")
        self.assertEqual((result.stdout, result.stderr), (b"", b""))
        self.assertEqual(self.names(), ["file.gz"])
        self.assertEqual(gzip.decompress(self.read("file.gz")), DATA)
        self.run_tool("-d", "file.gz")
        self.assertEqual(self.names(), ["file"])
        self.assertEqual(self.read("file"), DATA)

    def test_keep_leaves_the_input(self):
        self.write("file", DATA)
        self.run_tool("-k", "file")
        self.assertEqual(self.names(), ["file", "file.gz"])
        os.remove(self.folder / "file")
        self.run_tool("-dk", "file.gz")
        self.assertEqual(self.names(), ["file", "file.gz"])

    def test_standard_output_leaves_the_input(self):
        self.write("a", b"first ")
        self.write("b", b"second")
        coded = self.filter("-c", "a", "b", input=b"")
        self.assertEqual(gzip.decompress(coded), b"first second")
        self.write("c.gz", coded)
        self.assertEqual(self.filter("-dc", "c.gz", "c.gz", input=b""), b"first second" * 2)
        self.assertEqual(self.names(), ["a", "b", "c.gz"])

    def test_a_dash_is_the_standard_input_among_files(self):
        self.write("a", b"file ")
        coded = self.filter("-c", "a", "-", input=b"pipe")
        self.assertEqual(gzip.decompress(coded), b"file pipe")

    def test_unicode_names_work(self):
        for name in ("a b", "-k", "ü", "Å", "Å", "файл", "日本語", "😀", "x" * 100):
            with self.subTest(name=name):
                self.write(name, DATA)
                self.run_tool("--", name)
                self.assertEqual(self.names(), [name + ".gz"])
                self.assertEqual(self.rows(name + ".gz")[1].split(maxsplit=3)[3], name)
                self.run_tool("-dN", "--", name + ".gz")
                self.assertEqual(self.names(), [name])
                self.assertEqual(self.read(name), DATA)
                os.remove(self.folder / name)

    def rows(self, name):
        return self.run_tool("-l", "--", name).stdout.decode().splitlines()

    @posix_only
    def test_names_with_odd_bytes_work(self):
        for name in (" ", "a b", "-k", "\n", "ü", "*?[", b"\xff\xfe", "x" * 240, ".hidden", "'\""):
            with self.subTest(name=name):
                encoded = os.fsencode(name)
                path = os.path.join(os.fsencode(self.folder), encoded)
                with open(path, "wb") as file:
                    file.write(DATA)
                self.run_tool("--", encoded)
                self.assertEqual(os.listdir(os.fsencode(self.folder)), [encoded + b".gz"])
                self.run_tool("-d", "--", encoded + b".gz")
                self.assertEqual(os.listdir(os.fsencode(self.folder)), [encoded])
                os.remove(path)

    def test_folders_in_names_stay(self):
        (self.folder / "sub").mkdir()
        self.write("sub/file", DATA)
        self.run_tool("sub/file")
        self.assertEqual(os.listdir(self.folder / "sub"), ["file.gz"])

    def test_the_suffix_may_be_left_out(self):
        self.write("file.gz", gzip.compress(DATA))
        self.run_tool("-d", "file")
        self.assertEqual(self.names(), ["file"])

    def test_tgz_becomes_tar(self):
        self.write("file.tgz", gzip.compress(DATA))
        self.run_tool("-d", "file.tgz")
        self.assertEqual(self.names(), ["file.tar"])

    def test_every_format_has_its_suffix(self):
        for format, suffix in (("gzip", ".gz"), ("zlib", ".zz"), ("deflate", ".deflate")):
            with self.subTest(format=format):
                self.write("file", DATA)
                self.run_tool(f"--format={format}", "file")
                self.assertEqual(self.names(), ["file" + suffix])
                self.run_tool("-d", "file" + suffix)
                self.assertEqual(self.read("file"), DATA)

    def test_another_suffix_may_be_chosen(self):
        self.write("file", DATA)
        self.run_tool("-S", ".packed", "file")
        self.assertEqual(self.names(), ["file.packed"])
        self.run_tool("-d", "file.packed", status=WARNING)
        self.run_tool("-d", "-S", ".packed", "file.packed")
        self.assertEqual(self.names(), ["file"])

    def test_an_unknown_suffix_is_left_alone(self):
        self.write("file.txt", gzip.compress(DATA))
        result = self.run_tool("-d", "file.txt", status=WARNING)
        self.assert_message(result, "zebz: file.txt: unknown suffix -- ignored")
        self.assertEqual(self.names(), ["file.txt"])
        self.write(".gz", gzip.compress(DATA))
        self.run_tool("-d", ".gz", status=WARNING)

    def test_a_compressed_file_is_not_compressed_again(self):
        self.write("file.gz", gzip.compress(DATA))
        result = self.run_tool("file.gz")
        self.assert_message(result, "file.gz: already has the suffix -- unchanged")
        self.assertEqual(self.names(), ["file.gz"])
        self.run_tool("-f", "file.gz")
        self.assertEqual(self.names(), ["file.gz.gz"])


class OriginalNames(support.ToolTest):
    def test_name_and_time_are_stored_unless_refused(self):
        path = self.write("file", DATA)
        os.utime(path, (1, 1_000_000_000))
        header = self.filter("-c", "file", input=b"")[:15]
        self.assertEqual(header[3:8], b"\x08" + struct.pack("<I", 1_000_000_000))
        self.assertEqual(header[10:], b"file\0")
        self.assertEqual(self.filter("-nc", "file", input=b"")[3:8], bytes(5))

    def test_the_stored_name_is_used_on_demand_alone(self):
        self.write("before", DATA)
        self.run_tool("before")
        os.rename(self.folder / "before.gz", self.folder / "after.gz")
        self.run_tool("-dk", "after.gz")
        self.assertEqual(self.names(), ["after", "after.gz"])
        self.run_tool("-dN", "after.gz")
        self.assertEqual(self.names(), ["after", "before"])

    def test_a_stored_folder_is_not_followed(self):
        (self.folder / "sub").mkdir()
        for stored in (b"/tmp/../x\0", b"../x\0", b"a/b/x\0"):
            with self.subTest(stored=stored):
                coded = gzip.compress(DATA)
                self.write("sub/file.gz", coded[:3] + b"\x08" + coded[4:10] + stored + coded[10:])
                self.run_tool("-dN", "sub/file.gz")
                self.assertEqual(os.listdir(self.folder / "sub"), ["x"])
                os.remove(self.folder / "sub/x")
        for stored in (b"\0", b"..\0", b".\0", b"a/\0"):
            with self.subTest(stored=stored):
                coded = gzip.compress(DATA)
                self.write("sub/file.gz", coded[:3] + b"\x08" + coded[4:10] + stored + coded[10:])
                self.run_tool("-dN", "sub/file.gz")
                self.assertEqual(os.listdir(self.folder / "sub"), ["file"])
                os.remove(self.folder / "sub/file")


class Metadata(support.ToolTest):
    def test_the_time_passes_to_the_result(self):
        path = self.write("file", DATA)
        os.utime(path, ns=(1, 1_234_567_890_123_456_700))
        self.run_tool("file")
        self.assertEqual((self.folder / "file.gz").stat().st_mtime_ns, 1_234_567_890_123_456_700)
        self.run_tool("-d", "file.gz")
        self.assertEqual(path.stat().st_mtime_ns, 1_234_567_890_123_456_700)

    @posix_only
    def test_mode_and_time_pass_to_the_result(self):
        for mode in (0o600, 0o640, 0o755, 0o444):
            with self.subTest(mode=oct(mode)):
                path = self.write("file", DATA)
                path.chmod(mode)
                os.utime(path, ns=(1, 1_234_567_890_123_456_789))
                self.run_tool("file")
                status = (self.folder / "file.gz").stat()
                self.assertEqual(stat.S_IMODE(status.st_mode), mode)
                self.assertEqual(status.st_mtime_ns, 1_234_567_890_123_456_789)
                self.run_tool("-d", "file.gz")
                status = path.stat()
                self.assertEqual(stat.S_IMODE(status.st_mode), mode)
                self.assertEqual(status.st_mtime_ns, 1_234_567_890_123_456_789)
                path.unlink()


class Refusals(support.ToolTest):
    def test_a_missing_file_is_an_error_and_the_others_are_done(self):
        self.write("b", DATA)
        result = self.run_tool("a", "b", status=ERROR)
        self.assert_message(result, "zebz: a: ", "" if is_windows else "No such file or directory")
        self.assertEqual(self.names(), ["b.gz"])

    def test_an_existing_result_is_not_overwritten_unless_forced(self):
        self.write("file", DATA)
        self.write("file.gz", b"precious")
        result = self.run_tool("file", status=WARNING)
        self.assert_message(result, "file.gz already exists -- not overwritten")
        self.assertEqual(self.read("file.gz"), b"precious")
        self.run_tool("-f", "file")
        self.assertEqual(gzip.decompress(self.read("file.gz")), DATA)
        self.assertEqual(self.names(), ["file.gz"])

    def test_a_failure_leaves_the_file_that_it_was_to_replace(self):
        self.write("file", b"precious")
        self.write("file.gz", gzip.compress(DATA)[:-1])
        self.run_tool("-df", "file.gz", status=ERROR)
        self.assertEqual(self.read("file"), b"precious")
        self.assertEqual(self.names(), ["file", "file.gz"])

    @posix_only
    def test_folders_and_pipes_are_ignored(self):
        (self.folder / "sub").mkdir()
        os.mkfifo(self.folder / "pipe")
        result = self.run_tool("sub", "pipe", status=WARNING)
        self.assert_message(result, "sub: is a directory -- ignored",
                            "pipe: is not a directory or a regular file -- ignored")
        self.assertEqual(self.names(), ["pipe", "sub"])

    @posix_only
    def test_links_are_left_alone_unless_forced(self):
        self.write("file", DATA)
        os.symlink("file", self.folder / "link")
        self.run_tool("link", status=ERROR)
        self.assertEqual(self.names(), ["file", "link"])
        self.assertEqual(gzip.decompress(self.filter("-c", "link", input=b"")), DATA)
        self.run_tool("-f", "link")
        self.assertEqual(self.names(), ["file", "link.gz"])
        self.assertFalse((self.folder / "link.gz").is_symlink())

    def test_hard_links_are_left_alone_unless_forced(self):
        os.link(self.write("file", DATA), self.folder / "other")
        result = self.run_tool("file", status=WARNING)
        self.assert_message(result, "file: has 1 other link -- ignored")
        self.run_tool("-f", "file")
        self.assertEqual(self.names(), ["file.gz", "other"])

    @posix_only
    def test_files_with_a_special_mode_are_left_alone_unless_forced(self):
        self.write("file", DATA).chmod(0o4755)
        self.run_tool("file", status=WARNING)
        self.assertEqual(self.names(), ["file"])
        self.run_tool("-f", "file")
        self.assertEqual(stat.S_IMODE((self.folder / "file.gz").stat().st_mode), 0o755)

    def test_a_folder_in_the_way_is_an_error(self):
        self.write("file", DATA)
        (self.folder / "file.gz").mkdir()
        self.run_tool("-f", "file", status=ERROR)
        self.assertEqual(self.names(), ["file", "file.gz"])

    def test_damaged_files_leave_nothing_behind(self):
        self.write("file.gz", gzip.compress(mixed(600_000))[:-4])
        result = self.run_tool("-d", "file.gz", status=ERROR)
        self.assert_message(result, "zebz: file.gz: unexpected end of file")
        self.assertEqual(self.names(), ["file.gz"])

    def test_trailing_garbage_does_not_keep_the_result(self):
        self.write("file.gz", gzip.compress(DATA) + b"rest")
        result = self.run_tool("-d", "file.gz", status=WARNING)
        self.assert_message(result, "zebz: file.gz: decompression OK, trailing garbage ignored")
        self.assertEqual(self.names(), ["file"])

    @posix_only
    @unittest.skipUnless(os.path.exists("/dev/full"), "no /dev/full")
    def test_a_full_device_is_an_error(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run(support.command(), input=text(2_000_000), stdout=full,
                                    stderr=subprocess.PIPE)
        self.assertEqual(result.returncode, ERROR)
        self.assertIn(b"zebz: stdout: No space left on device", result.stderr)

    @posix_only
    @unittest.skipIf(os.geteuid() == 0, "root may do everything")
    def test_a_forbidden_file_is_an_error(self):
        self.write("file", DATA).chmod(0)
        result = self.run_tool("file", status=ERROR)
        self.assert_message(result, "zebz: file: Permission denied")


@posix_only
class Interruption(support.ToolTest):
    def interrupted(self, *arguments):
        """Starts the tool on a file that a pipe feeds forever, and interrupts it."""
        process = subprocess.Popen(support.command(*arguments), cwd=self.folder,
                                   stdin=subprocess.DEVNULL)
        deadline = time.monotonic() + 30
        while len(self.names()) < 2 and time.monotonic() < deadline:
            time.sleep(0.01)
        names = self.names()
        process.send_signal(signal.SIGTERM)
        process.wait()
        return names

    def test_an_interrupted_tool_leaves_no_half_file(self):
        os.mkfifo(self.folder / "file")
        keep_open = os.open(self.folder / "file", os.O_RDWR)
        self.addCleanup(os.close, keep_open)
        self.assertEqual(self.interrupted("-f", "file"), ["file", "file.gz"])
        self.assertEqual(self.names(), ["file"])


if __name__ == "__main__":
    support.main()

"""What the options print and how they combine."""

import gzip
import os
import pty
import select
import subprocess
import time
import zlib

import support
from support import ERROR, OK, WARNING, posix_only, text

DATA = text(20_000)


class Help(support.ToolTest):
    def test_help_and_version_are_printed(self):
        shown = self.run_tool("--help").stdout.decode()
        for option in ("-d", "-c", "-k", "-f", "-t", "-l", "-v", "-q", "-S", "-n", "-N", "-1", "-9",
                       "-T", "--format", "--dict"):
            self.assertIn(option, shown)
        self.assertIn("lzop wrote at its levels 7 to 9 cannot be decompressed", shown)
        self.assertRegex(self.run_tool("--version").stdout.decode(), r"^zebz .*8\.2")

    def test_wrong_usage_is_an_error(self):
        for arguments in (["--nothing"], ["-0"], ["--format=none"], ["-T", "-1"], ["-T", "x"],
                          ["--dict=missing", "--format=zlib"], ["--dict=x", "--format=gzip"],
                          ["--dict=x"], ["-S", ""], ["-S", "a/b"]):
            with self.subTest(arguments=arguments):
                result = self.run_tool(*arguments, status=ERROR)
                self.assertEqual(result.stdout, b"")
                self.assert_message(result, "zebz: ")


class Order(support.ToolTest):
    def test_the_last_level_and_the_last_action_count(self):
        self.assertEqual(self.filter("-1", "-9", input=DATA), self.filter("-9", input=DATA))
        self.assertEqual(self.filter("-9", "-1", input=DATA), self.filter("-1", input=DATA))
        self.assertEqual(self.filter("--best", "--fast", input=DATA), self.filter("-1", input=DATA))
        self.assertEqual(gzip.decompress(self.filter("-d", "-z", input=DATA)), DATA)

    def test_short_options_combine(self):
        self.write("file", DATA)
        coded = self.filter("-kc9", "file", input=b"")
        self.assertEqual(gzip.decompress(coded), DATA)
        self.assertEqual(self.filter("-kc9T2", "file", input=b"")[:2], b"\x1f\x8b")


class Test(support.ToolTest):
    def test_a_sound_file_passes_silently(self):
        self.write("file.gz", gzip.compress(DATA))
        result = self.run_tool("-t", "file.gz")
        self.assertEqual((result.stdout, result.stderr), (b"", b""))
        self.assertEqual(self.names(), ["file.gz"])
        self.assert_message(self.run_tool("-tv", "file.gz"), "file.gz:\t OK")

    def test_any_name_may_be_tested(self):
        self.write("file.bin", gzip.compress(DATA))
        self.run_tool("-t", "file.bin")

    def test_one_unsound_file_among_others_is_reported(self):
        self.write("a.gz", gzip.compress(DATA))
        self.write("b.gz", gzip.compress(DATA)[:-1])
        result = self.run_tool("-t", "a.gz", "b.gz", "a.gz", status=ERROR)
        self.assertEqual(result.stderr.decode(), "zebz: b.gz: unexpected end of file\n")

    def test_an_error_outweighs_a_warning(self):
        self.write("a.gz", gzip.compress(DATA) + b"rest")
        self.write("b.gz", gzip.compress(DATA)[:-1])
        for names in (["a.gz", "b.gz"], ["b.gz", "a.gz"]):
            self.run_tool("-t", *names, status=ERROR)


class Verbose(support.ToolTest):
    def test_compression_tells_what_was_saved(self):
        self.write("file", DATA)
        result = self.run_tool("-v", "file")
        self.assertRegex(result.stderr.decode(),
                         r"^file:\t *\d+\.\d% -- replaced with file\.gz\n$")
        result = self.run_tool("-dvk", "file.gz")
        self.assertRegex(result.stderr.decode(), r"^file\.gz:\t *\d+\.\d% -- created file\n$")

    def test_no_progress_line_goes_to_a_file(self):
        self.assertEqual(self.run_tool(input=text(5_000_000)).stderr, b"")


class List(support.ToolTest):
    def rows(self, *arguments):
        return self.run_tool("-l", *arguments).stdout.decode().splitlines()

    def test_sizes_and_names_are_listed(self):
        coded = gzip.compress(DATA)
        self.write("file.gz", coded)
        rows = self.rows("file.gz")
        self.assertEqual(rows[0].split(),
                         ["compressed", "uncompressed", "ratio", "uncompressed_name"])
        saved = 100 * (1 - len(coded) / len(DATA))
        self.assertEqual(rows[1].split(), [str(len(coded)), "20000", f"{saved:.1f}%", "file"])
        self.assertEqual(len(rows), 2)
        self.assertEqual(self.names(), ["file.gz"])

    def test_all_members_count(self):
        self.write("file.gz", gzip.compress(DATA) * 3)
        self.assertEqual(self.rows("file.gz")[1].split()[1], "60000")

    def test_several_files_have_totals(self):
        self.write("a.gz", gzip.compress(DATA))
        self.write("b.gz", gzip.compress(DATA[:5000]))
        last = self.rows("a.gz", "b.gz")[-1].split()
        self.assertEqual((last[1], last[3]), ("25000", "(totals)"))

    def test_the_verbose_list_has_the_checksum(self):
        self.write("file.gz", gzip.compress(DATA))
        rows = self.rows("-v", "file.gz")
        self.assertEqual(rows[1].split()[:2], ["defla", f"{zlib.crc32(DATA):08x}"])
        header, row = rows
        self.assertEqual(len(header.rsplit(" ", 1)[0]), len(row.rsplit(" ", 1)[0]))

    def test_the_stored_name_is_listed_on_demand(self):
        self.write("before", DATA)
        self.run_tool("before")
        (self.folder / "before.gz").rename(self.folder / "after.gz")
        self.assertEqual(self.rows("after.gz")[1].split()[3], "after")
        self.assertEqual(self.rows("-N", "after.gz")[1].split()[3], "before")

    def test_an_empty_file_saves_nothing(self):
        self.write("file.gz", gzip.compress(b""))
        self.assertEqual(self.rows("file.gz")[1].split()[1:3], ["0", "0.0%"])

    def test_the_list_agrees_with_gzip_on_sizes(self):
        self.write("file.gz", self.filter(input=DATA))
        peer = subprocess.run(["gzip", "-l", "file.gz"], cwd=self.folder, capture_output=True,
                              check=True).stdout.decode().splitlines()
        self.assertEqual(self.rows("file.gz")[1].split()[:2], peer[1].split()[:2])


@posix_only
class Terminal(support.ToolTest):
    """The tool with a terminal on some of its standard streams."""

    def setUp(self):
        super().setUp()
        self.master, self.terminal = pty.openpty()
        self.addCleanup(os.close, self.master)
        self.addCleanup(os.close, self.terminal)

    def shown(self):
        """What has come to the terminal."""
        output = b""
        while select.select([self.master], [], [], 0)[0]:
            output += os.read(self.master, 4096)
        return output

    def start(self, *arguments, **streams):
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                   "stderr": subprocess.PIPE, **streams}
        return subprocess.Popen(support.command(*arguments), cwd=self.folder, **streams)

    def test_compressed_data_does_not_go_to_a_terminal_unless_forced(self):
        self.write("file", DATA)
        process = self.start("-c", "file", stdout=self.terminal)
        self.assertIn(b"not written to a terminal", process.communicate()[1])
        self.assertEqual(process.returncode, ERROR)
        self.assertEqual(self.shown(), b"")
        process = self.start("-cf", "file", stdout=self.terminal)
        process.communicate()
        self.assertEqual(process.returncode, OK)
        self.assertNotEqual(self.shown(), b"")

    def test_compressed_data_is_not_read_from_a_terminal(self):
        process = self.start("-d", stdin=self.terminal)
        self.assertIn(b"not read from a terminal", process.communicate()[1])
        self.assertEqual(process.returncode, ERROR)

    def test_the_user_is_asked_before_a_file_is_overwritten(self):
        for answer, status, content in ((b"n\n", WARNING, b"old"), (b"\n", WARNING, b"old"),
                                        (b"yes\n", OK, None)):
            with self.subTest(answer=answer):
                self.write("file", DATA)
                self.write("file.gz", b"old")
                process = self.start("file", stdin=self.terminal)
                os.write(self.master, answer)
                self.assertIn(b"file.gz already exists; do you wish to overwrite",
                              process.communicate()[1])
                self.assertEqual(process.returncode, status)
                if content is None:
                    self.assertEqual(gzip.decompress(self.read("file.gz")), DATA)
                else:
                    self.assertEqual(self.read("file.gz"), content)

    def test_long_work_shows_its_progress_and_takes_it_away(self):
        process = self.start(stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                             stderr=self.terminal)
        shown = b""
        deadline = time.monotonic() + 60
        while b"MB/s" not in shown and time.monotonic() < deadline:
            process.stdin.write(DATA)
            process.stdin.flush()
            time.sleep(0.001)
            shown += self.shown()
        process.stdin.close()
        process.wait()
        self.assertRegex(shown, rb"^\rstdin: \d+ MB  \d+ MB/s")
        shown += self.shown()
        self.assertRegex(shown, rb"\r +\r$")


if __name__ == "__main__":
    support.main()

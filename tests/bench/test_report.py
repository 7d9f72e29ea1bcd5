"""The tables and the picture of bench/report, from results made up for the purpose."""

import json
import os
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

CONTEXT = {"date": "2024-05-06T07:08:09+00:00", "num_cpus": 4, "mhz_per_cpu": 3000}


def entry(name, megabytes_per_second, **others):
    return {"run_name": name, "run_type": "iteration",
            "bytes_per_second": megabytes_per_second * 1e6, **others}


class Report(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.results = os.path.join(folder.name, "results.json")
        self.picture = os.path.join(folder.name, "picture.svg")

    def run_report(self, entries, *arguments):
        with open(self.results, "w", encoding="utf-8") as file:
            json.dump({"context": CONTEXT, "benchmarks": entries}, file)
        return subprocess.run([sys.executable, report, self.results, *arguments], text=True,
                              capture_output=True)

    def rows(self, entries):
        result = self.run_report(entries)
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = [line for line in result.stdout.splitlines() if line.startswith("|")]
        return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines]

    def test_the_fastest_repetition_counts_and_is_divided_by_the_peers(self):
        rows = self.rows([entry("sum/crc/1M/zebdc", 900), entry("sum/crc/1M/peer", 300),
                          entry("sum/crc/1M/zebdc", 1200), entry("sum/crc/1M/peer", 400)])
        self.assertEqual(rows[0], ["data", "zebdc", "peer", "zebdc : peer"])
        self.assertEqual(rows[2], ["1M", "1200", "400", "3.00"])

    def test_several_data_have_a_geometric_mean(self):
        rows = self.rows([entry("f/o/a/zebdc", 200), entry("f/o/a/peer", 100),
                          entry("f/o/b/zebdc", 800), entry("f/o/b/peer", 100)])
        self.assertEqual(rows[-1], ["geometric mean", "", "", "4.00"])

    def test_aggregates_and_rows_without_throughput_do_not_count(self):
        aggregate = entry("f/o/a/zebdc", 999)
        aggregate["run_type"] = "aggregate"
        rows = self.rows([entry("f/o/a/zebdc", 200), aggregate,
                          {"run_name": "f/o/b/zebdc", "run_type": "iteration"}])
        self.assertEqual(rows, [["data", "zebdc"], rows[1], ["a", "200"]])

    def test_missing_measurements_leave_cells_empty(self):
        rows = self.rows([entry("f/o/a/zebdc", 200), entry("f/o/a/peer", 100),
                          entry("f/o/b/zebdc", 20)])
        self.assertEqual(rows[3], ["b", "20.0", "", ""])

    def test_compressed_sizes_stand_beside_the_speed(self):
        rows = self.rows([entry("f/o/a/zebdc", 200, percent=36.125)])
        self.assertEqual(rows[2], ["a", "200 (36.12 %)"])

    def test_the_picture_is_well_formed_and_has_a_bar_for_each_pair(self):
        result = self.run_report([entry("f/o/a&b/zebdc", 200), entry("f/o/a&b/x<y", 100),
                                  entry("f/o/a&b/z", 400)], "--svg", self.picture)
        self.assertEqual(result.returncode, 0, result.stderr)
        root = xml.etree.ElementTree.parse(self.picture).getroot()
        texts = [text.text for text in root.iter("{http://www.w3.org/2000/svg}text")]
        self.assertIn("zebdc : x<y", texts)
        self.assertIn("2.00", texts)
        self.assertIn("0.50", texts)

    def test_results_without_measurements_are_refused(self):
        self.assertNotEqual(self.run_report([]).returncode, 0)

    def test_a_name_without_four_parts_is_refused(self):
        result = self.run_report([entry("only/three/parts", 1)])
        self.assertIn("only/three/parts", result.stderr)


if __name__ == "__main__":
    report = os.path.abspath(sys.argv.pop(1))
    unittest.main()

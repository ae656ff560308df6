"""Runs the program with --junit and reads the document with an XML parser: junit_test.py <corvane>"""

import os
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

CORVANE = os.path.abspath(sys.argv.pop(1))
SMALL = ["--commands", "3000", "--seed", "5", "--set", "Min Queue Size=100", "--set", "Max Queue Size=200"]


class JunitTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def run_corvane(self, *arguments):
        """The exit status and the root of the document."""
        done = subprocess.run(
            [CORVANE, "run", *arguments, "--output", "out", "--junit", "result.xml"],
            cwd=self.folder.name, capture_output=True, timeout=100, check=False)
        return done.returncode, ElementTree.parse(os.path.join(self.folder.name, "result.xml")).getroot()

    def test_clean_drives_pass(self):
        name = "a&<b>\"'.img"
        status, suite = self.run_corvane("--drive", f"file:{name},size=4m,direct=off", "--drive", "sim:64m", *SMALL)
        self.assertEqual(status, 0)
        self.assertEqual(suite.tag, "testsuite")
        self.assertEqual({key: suite.get(key) for key in ("tests", "failures", "errors", "skipped")},
                         {"tests": "2", "failures": "0", "errors": "0", "skipped": "0"})
        self.assertEqual(suite.find("properties/property").attrib, {"name": "seed", "value": "5"})
        cases = suite.findall("testcase")
        self.assertEqual([case.get("name") for case in cases], ["a__b___.img", "sim1"])
        for case in cases:
            self.assertGreaterEqual(float(case.get("time")), 0)
            self.assertLessEqual(float(case.get("time")), float(suite.get("time")) + 0.01)
            self.assertEqual([part.tag for part in case], ["system-out"])
            self.assertIn("Repeat with:\ncorvane run --drive 'file:a&<b>", case.find("system-out").text)

    def test_a_data_failure_is_a_failure(self):
        status, suite = self.run_corvane("--drive", "sim:64m", "--drive", "sim:64m", *SMALL,
                                         "--fault", "lost-write:rate=0.05,drive=1")
        self.assertEqual(status, 1)
        self.assertEqual((suite.get("failures"), suite.get("errors")), ("1", "0"))
        failed, passed = suite.findall("testcase")
        failure = failed.find("failure")
        self.assertEqual(failure.get("type"), "data failure")
        self.assertRegex(failure.get("message"), r"^Miscompare Detected at LBA 0x[0-9A-F]+")
        self.assertTrue(failure.text.startswith(failure.get("message") + "\nstatus of the agent: -1046\nLBA: "))
        files = [line.removeprefix("file: ") for line in failure.text.splitlines() if line.startswith("file: ")]
        self.assertEqual(len(files), 3)
        for file in files:
            self.assertTrue(os.path.isfile(os.path.join(self.folder.name, file)), file)
        self.assertIn("DATA FAILURE", failed.find("system-out").text)
        self.assertIsNone(passed.find("failure"))

    def test_a_test_that_cannot_begin_is_an_error(self):
        status, suite = self.run_corvane("--drive", "sim:4k", "--xfer", "64")
        self.assertEqual(status, 2)
        self.assertEqual((suite.get("failures"), suite.get("errors")), ("0", "1"))
        case = suite.find("testcase")
        self.assertEqual(case.get("name"), "sim:4k")
        self.assertEqual(case.find("error").get("type"), "configuration error")
        self.assertIn("--xfer: ", case.find("error").get("message"))


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/python3
"""Has a test program on the harness write its reports, and reads them as JUnit's.

veltest_junit_test.py PROGRAM: the program's cases come from the environment. Reports have no
element around them, so that they can be appended to one another; the reader gets one."""
import datetime
import os
import random
import subprocess
import sys
import tempfile
import unittest

import junitparser

PROGRAM = ""


def run(arguments, name, cases, directory, runs=True):
    """Runs the program. Each case is a text of "." and "x", a letter for each check."""
    environment = {
        **os.environ,
        "VEL_TEST_SUITE": name,
        "VEL_TEST_CASES": " ".join(case or "-" for case in cases),
        "VEL_TEST_RUN": "1" if runs else "0",
    }
    return subprocess.run([PROGRAM, *arguments], env=environment, cwd=directory, text=True,
                          capture_output=True, timeout=60)


def read_report(directory):
    with open(os.path.join(directory, "report.xml"), encoding="utf-8") as file:
        text = file.read()
    return list(junitparser.JUnitXml.fromstring(f"<testsuites>\n{text}</testsuites>\n"))


class Reports(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)

    def run_program(self, arguments, name, cases, runs=True):
        return run(arguments, name, cases, self.directory.name, runs)

    def check_suite(self, suite, name, cases):
        failed = sum(case == "" or "x" in case for case in cases)
        self.assertEqual(suite.name, name)
        self.assertEqual(suite.hostname, "localhost")
        self.assertEqual(suite.tests, len(cases))
        self.assertEqual(suite.errors, 0)
        self.assertEqual(suite.failures, failed)
        stamp = datetime.datetime.strptime(suite.timestamp, "%Y-%m-%dT%H:%M:%S")
        self.assertLess(abs(datetime.datetime.now() - stamp), datetime.timedelta(minutes=5))

        found = list(suite)
        self.assertEqual(len(found), len(cases))
        before = 0.0
        for testcase, case in zip(found, cases):
            self.check_case(testcase, case)
            self.assertGreaterEqual(testcase.time, before, "times run from the start of the run")
            before = testcase.time
        self.assertGreaterEqual(suite.time, before)

    def check_case(self, testcase, case):
        self.assertEqual(testcase.name, "XXX testcase name XXX")
        self.assertEqual(testcase.classname, "XXX classname XXX")
        self.assertEqual(testcase._elem.get("assertions"), str(len(case)))
        self.assertEqual(testcase._elem.get("status"), "")
        self.assertEqual(testcase.system_out, "XXX")
        self.assertEqual(testcase.system_err, "XXX")
        failures = case.count("x")
        if failures == 0:
            self.assertEqual(testcase.result, [])
            return
        (result,) = testcase.result
        self.assertIsInstance(result, junitparser.Failure)
        self.assertEqual(result.message, f"{failures}/{len(case)} checks failed")
        self.assertEqual(result.type, "failed expectation")

    def test_reports_of_random_suites(self):
        rng = random.Random(1)
        for number in range(20):
            cases = ["".join(rng.choices(".x", [8, 1], k=rng.choice([0, 1, 2, 5])))
                     for _ in range(rng.randrange(0, 8))]
            name = f"suite {number} in UTF-8: \u00e9\u4e16"
            done = self.run_program(["-o", "report.xml"], name, cases)
            bad = any(case == "" or "x" in case for case in cases)
            self.assertEqual(done.returncode, 1 if bad else 0)
            self.assertEqual(done.stdout, "")
            (suite,) = read_report(self.directory.name)
            self.check_suite(suite, name, cases)

    def test_appended_reports(self):
        runs = [("one", ["."]), ("two", ["x", "", ".."]), ("three", [])]
        for name, cases in runs:
            self.run_program(["--append", "--output", "report.xml"], name, cases)
        suites = read_report(self.directory.name)
        self.assertEqual(len(suites), 3)
        for suite, (name, cases) in zip(suites, runs):
            self.check_suite(suite, name, cases)

        self.run_program(["--output=report.xml"], "anew", ["."])
        (suite,) = read_report(self.directory.name)
        self.check_suite(suite, "anew", ["."])

    def test_report_without_run(self):
        done = self.run_program(["-o", "report.xml"], "unrun", ["..", "x"], runs=False)
        self.assertEqual(done.returncode, 0)
        (suite,) = read_report(self.directory.name)
        self.assertEqual((suite.tests, suite.failures, suite.time), (2, 4, 0.0))
        for testcase in suite:
            (result,) = testcase.result
            self.assertIsInstance(result, junitparser.Error)
            self.assertEqual(result.message, "testcase was not run at all")
            self.assertEqual(result.type, "testcase not run")
            self.assertEqual(testcase.time, 0.0)

    def test_texts(self):
        done = self.run_program([], "texts", ["..", ".x", ""])
        self.assertEqual(done.returncode, 1)
        error, *summary = done.stderr.splitlines()
        self.assertRegex(error, r"^ERROR: .*veltest_program\.cpp:\d+ failed condition: check == '\.'$")
        self.assertEqual(summary, [
            "texts: testcase 2, 1/2 checks succeeded, 1 failed",
            "texts: testcase 3, no checks were performed, considering test failed",
            "texts: 1/3 test cases (3/4 checks) succeeded, 2 (1) failed"])
        self.assertEqual(os.listdir(self.directory.name), [])

    def test_help(self):
        done = self.run_program(["--help"], "help", ["x"])
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertTrue(done.stdout.startswith("usage: PROGRAM OPTIONS\nOPTIONS:\n -x, --xml  "))


if __name__ == "__main__":
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()

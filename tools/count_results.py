#!/usr/bin/env python3
"""Counts what passed and failed in a run of ctest: count_results.py JUNIT RESULTS

Every case of a GoogleTest program counts, by the XML that the program wrote to RESULTS; a test of
another kind counts once. A program that ended without writing its XML, or that failed although
all its cases passed (a leak, say), counts as one failure more. Prints "PASSED FAILED"."""
import pathlib
import re
import sys
import xml.etree.ElementTree as ET


def count(junit, results):
    passed = failed = 0
    for case in ET.parse(junit).getroot().iter("testcase"):
        ok = case.get("status") == "run"
        xml = results / (case.get("name").replace("/", "-") + ".xml")
        if not xml.exists():
            passed, failed = passed + ok, failed + (not ok)
            continue
        # Not by a parser: GoogleTest writes the bytes of parameters as they are.
        head = re.search(rb"<testsuites ([^>]*)>", xml.read_bytes()).group(1)
        sums = {name: int(value) for name, value in re.findall(rb'(\w+)="(\d+)"', head)}
        bad = sums[b"failures"] + sums[b"errors"]
        passed += sums[b"tests"] - bad - sums[b"disabled"]
        failed += bad if bad or ok else 1
    return passed, failed


if __name__ == "__main__":
    print(*count(sys.argv[1], pathlib.Path(sys.argv[2])))

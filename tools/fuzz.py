#!/usr/bin/env python3
"""Runs every fuzz target: fuzz.py BUILD SECONDS

Each target runs so long, from its corpus and from what earlier runs found worth keeping in
BUILD/found. This prints the executions, the edges and features of the code that the inputs together
reach, and the findings, whose inputs lie in BUILD/found: crashes, leaks, and inputs that take long
or too much memory."""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys

import quality


def run(program, found, seconds):
    name = program.name.removesuffix("_fuzz")
    (found / name).mkdir(parents=True, exist_ok=True)
    done = subprocess.run(
        [str(program), f"-max_total_time={seconds}", "-print_final_stats=1", f"-artifact_prefix={found}/{name}-",
         str(found / name), f"fuzz/corpus/{name}"],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, errors="replace")
    executions = re.findall(r"^stat::number_of_executed_units: (\d+)", done.stderr, re.M)
    reached = re.findall(r" cov: (\d+) ft: (\d+) corp: (\d+)", done.stderr)
    (found / f"{name}.log").write_text(done.stderr)
    return name, int(executions[-1]) if executions else 0, *(reached[-1] if reached else (0, 0, 0)), done.returncode


def main():
    build, seconds = pathlib.Path(sys.argv[1]), sys.argv[2]
    programs = sorted((build / "fuzz").glob("*_fuzz"))
    rows, total, findings = [], 0, 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for name, executions, edges, features, inputs, code in pool.map(
                lambda program: run(program, build / "found", seconds), programs):
            print(f"    {name}: {executions} executions" + (f", FOUND: {build}/found/{name}.log" if code else ""), flush=True)
            rows.append([f"`{name}`", f"{executions:,}", edges, features, inputs, int(code != 0)])
            total, findings = total + executions, findings + (code != 0)
    print(quality.leave("fuzz", [["target", "executions", "edges", "features", "inputs kept", "findings"], *rows,
                                 ["sum", f"{total:,}", "", "", "", findings]]))
    sys.exit(findings > 0)


if __name__ == "__main__":
    main()

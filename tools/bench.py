#!/usr/bin/env python3
"""Runs benchmarks and shows them beside their peers: bench.py DIRECTORY [AREA]...

DIRECTORY has the built benchmarks, bench-<area>. A case is named <case>/<who>, where <who> is vellib
or a peer; those of one case are measured interleaved in one process, and the medians are compared.
The ratio is the peer's time over ours: above 1, ours is faster. For each area this prints a table and
writes it with a chart to build/bench/<area>.md and .svg. A program that prints a report of its own
(no JSON) is run and shown as it is."""
import json
import pathlib
import re
import subprocess
import sys
from xml.sax.saxutils import escape

OURS = "vellib"
ARGUMENTS = [
    "--benchmark_format=json",
    "--benchmark_enable_random_interleaving=true",
    "--benchmark_repetitions=7",
    "--benchmark_min_time=0.05",
    "--benchmark_report_aggregates_only=true",
]
FACTOR = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def measure(program):
    """{case: {who: nanoseconds}} in the order of the program."""
    done = subprocess.run([program, *ARGUMENTS], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{program} failed:\n{done.stderr}{done.stdout}")
    try:
        report = json.loads(done.stdout)
    except json.JSONDecodeError:
        return done.stdout
    cases = {}
    for run in report["benchmarks"]:
        if run.get("aggregate_name", "median") != "median" or run.get("error_occurred"):
            continue
        name = re.sub(r"/(manual_time|real_time|process_time|iterations:\d+|repeats:\d+)", "", run["run_name"])
        case, who = name.rsplit("/", 1)
        manual = "manual_time" in run["run_name"] or "real_time" in run["run_name"]
        time = run["real_time"] if manual else run["cpu_time"]
        cases.setdefault(case, {})[who] = time * FACTOR[run["time_unit"]]
    return cases


def show_time(nanoseconds):
    for unit in ("ns", "us", "ms"):
        if nanoseconds < 1000:
            return f"{nanoseconds:.3g} {unit}"
        nanoseconds /= 1000
    return f"{nanoseconds:.3g} s"


def table(cases):
    peers = []
    for times in cases.values():
        peers += [who for who in times if who != OURS and who not in peers]
    rows = [["case", OURS] + [f"{peer} (peer : ours)" for peer in peers]]
    for case, times in cases.items():
        row = [case, show_time(times[OURS]) if OURS in times else ""]
        for peer in peers:
            if peer not in times or OURS not in times:
                row.append("")
            else:
                row.append(f"{show_time(times[peer])} ({times[peer] / times[OURS]:.2f})")
        rows.append(row)
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    lines = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |" for row in rows]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(lines)


def chart(area, cases):
    """Bars of speed relative to ours, one group a case; the line is 1, ours."""
    rows = []
    for case, times in cases.items():
        for who, time in times.items():
            if who != OURS and OURS in times:
                rows.append((case, who, times[OURS] / time))
    height, width, left = 16, 900, 360
    scale = (width - left - 90) / max([1.2] + [min(ratio, 3) for _, _, ratio in rows])
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{len(rows) * height + 60}" '
           'font-family="Helvetica,sans-serif" font-size="11">'
           '<rect width="100%" height="100%" fill="white"/>',
           f'<text x="10" y="20" font-size="14">{escape(area)}: speed of the peers; vellib is 1</text>']
    for i, (case, who, speed) in enumerate(rows):
        y = 36 + i * height
        colour = "#7fb069" if speed <= 1 else "#c8553d"
        out.append(f'<text x="{left - 8}" y="{y + 11}" text-anchor="end">{escape(case)} {escape(who)}</text>'
                   f'<rect x="{left}" y="{y + 2}" width="{min(speed, 3) * scale:.1f}" height="{height - 4}" fill="{colour}"/>'
                   f'<text x="{left + min(speed, 3) * scale + 4:.1f}" y="{y + 11}">{speed:.2f}</text>')
    out.append(f'<line x1="{left + scale:.1f}" y1="30" x2="{left + scale:.1f}" y2="{40 + len(rows) * height}" '
               'stroke="#333" stroke-dasharray="3 3"/></svg>')
    return "\n".join(out)


def main():
    directory = pathlib.Path(sys.argv[1])
    programs = {p.name.removeprefix("bench-"): p for p in sorted(directory.glob("bench-*")) if p.is_file()}
    wanted = sys.argv[2:] or list(programs)
    output = pathlib.Path("build/bench")
    output.mkdir(parents=True, exist_ok=True)
    for area in wanted:
        if area not in programs:
            sys.exit(f"bench: '{area}' is none of: {' '.join(programs)}")
        print(f"\n{area}", flush=True)
        cases = measure(programs[area])
        text = cases if isinstance(cases, str) else table(cases)
        print(text, flush=True)
        (output / f"{area}.md").write_text(text + "\n")
        if not isinstance(cases, str):
            (output / f"{area}.svg").write_text(chart(area, cases) + "\n")
    print(f"\ntables and charts: {output}")


if __name__ == "__main__":
    main()

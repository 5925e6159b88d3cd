#!/usr/bin/env python3
"""Runs benchmarks and shows them beside their peers: bench.py DIRECTORY [AREA]...

DIRECTORY has the built benchmarks, bench-<area>. Each measures its contenders interleaved in one
process and prints tab-separated tables (bench/bench.h): a line "# unit", the library, the peers, and
then a row a case, where smaller is better. The ratio is the peer's value over ours: above 1, ours is
better. For each area this prints a table, and writes it with a chart to build/bench/<area>.md and
.svg. With --record before the areas the tables also go into docs/performance.md, between the marks
"<!-- bench: AREA -->" and "<!-- end -->"."""
import pathlib
import re
import subprocess
import sys
from xml.sax.saxutils import escape


def measure(program):
    """The tables that a program prints: [(unit, contenders, [(case, values)])]."""
    done = subprocess.run([program], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{program} failed:\n{done.stderr}{done.stdout}")
    tables = []
    for line in done.stdout.splitlines():
        words = line.split("\t")
        if line.startswith("# "):
            tables.append((words[0][2:], words[1:], []))
        else:
            tables[-1][2].append((words[0], [float(word) for word in words[1:]]))
    return tables


def show(unit, contenders, rows):
    cells = [[unit, contenders[0]] + [f"{peer} (x ours)" for peer in contenders[1:]]]
    for case, values in rows:
        row = [case, f"{values[0]:.4g}"]
        for value in values[1:]:
            row.append(f"{value:.4g} ({value / values[0]:.2f})" if value else "")
        cells.append(row)
    widths = [max(len(row[i]) for row in cells) for i in range(len(cells[0]))]
    lines = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |" for row in cells]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(lines)


def chart(area, tables):
    """Bars: how many times our value the peer's is. The line is 1, ours; green bars reach it."""
    rows = [(case, peer, value / values[0]) for _, contenders, cases in tables for case, values in cases
            for peer, value in zip(contenders[1:], values[1:]) if value]
    height, width, left, most = 16, 900, 380, 4
    scale = (width - left - 80) / most
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{len(rows) * height + 60}" '
           'font-family="Helvetica,sans-serif" font-size="11">',
           '<rect width="100%" height="100%" fill="white"/>',
           f'<text x="10" y="20" font-size="14">{escape(area)}: cost of each peer, in times of ours</text>']
    for i, (case, peer, ratio) in enumerate(rows):
        y, length = 36 + i * height, min(ratio, most) * scale
        colour = "#7fb069" if ratio >= 1 else "#c8553d"
        out.append(f'<text x="{left - 8}" y="{y + 11}" text-anchor="end">{escape(case)}: {escape(peer)}</text>'
                   f'<rect x="{left}" y="{y + 2}" width="{length:.1f}" height="{height - 4}" fill="{colour}"/>'
                   f'<text x="{left + length + 4:.1f}" y="{y + 11}">{ratio:.2f}</text>')
    out.append(f'<line x1="{left + scale:.1f}" y1="30" x2="{left + scale:.1f}" y2="{40 + len(rows) * height}" '
               'stroke="#333" stroke-dasharray="3 3"/></svg>')
    return "\n".join(out)


def record(area, text):
    page = pathlib.Path("docs/performance.md")
    marked = re.compile(rf"(<!-- bench: {area} -->\n).*?(<!-- end -->)", re.S)
    content, count = marked.subn(lambda match: f"{match[1]}\n{text}\n\n{match[2]}", page.read_text())
    if count != 1:
        sys.exit(f"{page} has no place for {area}")
    page.write_text(content)


def main():
    directory = pathlib.Path(sys.argv[1])
    recording = "--record" in sys.argv[2:]
    areas = [word for word in sys.argv[2:] if word != "--record"]
    programs = {p.name.removeprefix("bench-"): p for p in sorted(directory.glob("bench-*")) if p.is_file()}
    output = pathlib.Path("build/bench")
    output.mkdir(parents=True, exist_ok=True)
    for area in areas or list(programs):
        if area not in programs:
            sys.exit(f"bench: '{area}' is none of: {' '.join(programs)}")
        print(f"\n{area}", flush=True)
        tables = measure(programs[area])
        text = "\n\n".join(show(*table) for table in tables)
        print(text, flush=True)
        (output / f"{area}.md").write_text(text + "\n")
        (output / f"{area}.svg").write_text(chart(area, tables) + "\n")
        if recording:
            record(area, text)
    print(f"\ntables and charts: {output}")


if __name__ == "__main__":
    main()

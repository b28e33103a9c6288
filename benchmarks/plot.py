#!/usr/bin/env python3
"""Draws the times of a benchmark run: plot.py TIMES.json DIRECTORY

One SVG for each group. A row is a job, a dot a contestant, placed by its time against ours on a
logarithmic scale: to the right of the line is slower than this library."""

import html
import json
import math
import sys

LEFT, WIDTH, ROW, TOP = 330, 560, 24, 54
LOW, HIGH = 0.125, 16  # times of ours that the scale spans

STYLE = """text { font: 12px sans-serif; fill: #333 } .title { font-size: 15px; font-weight: bold }
.small { font-size: 10px; fill: #777 } .grid { stroke: #ddd } .ours { stroke: #0969da; stroke-width: 2 }
.peer { fill: #d1701a } .limit { stroke: #1a7f37; stroke-width: 3 }
@media (prefers-color-scheme: dark) { text { fill: #ddd } .small { fill: #999 } .grid { stroke: #444 }
.ours { stroke: #58a6ff } .peer { fill: #f0a050 } .limit { stroke: #4ac26b } }"""


def place(ratio):
    ratio = min(max(ratio, LOW), HIGH)
    return LEFT + WIDTH * math.log(ratio / LOW) / math.log(HIGH / LOW)


def text(x, y, content, extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" {extra}>{html.escape(content)}</text>'


def line(x, y1, y2, style):
    return f'<line class="{style}" x1="{x:.1f}" y1="{y1:.0f}" x2="{x:.1f}" y2="{y2:.0f}"/>'


def draw(group, rows):
    bottom = TOP + ROW * len(rows)
    width = LEFT + WIDTH + 110
    yield (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {bottom + 44}" '
           f'width="{width}" role="img"><style>{STYLE}</style>')
    yield text(10, 22, group, 'class="title"')
    yield text(LEFT, 22, "time against ours: line = ours, dots = peers, bar = limit")
    ratio = LOW
    while ratio <= HIGH:
        yield line(place(ratio), TOP - 12, bottom, "ours" if ratio == 1 else "grid")
        yield text(place(ratio), bottom + 16, f"{ratio:g}×", 'class="small" text-anchor="middle"')
        ratio *= 2
    for i, (job, times) in enumerate(rows):
        y = TOP + ROW * i
        yield text(LEFT - 16, y + 4, job, 'text-anchor="end"')
        ours = times.pop("ours")
        if "limit" in times:
            yield line(place(times.pop("limit") / ours), y - 7, y + 7, "limit")
        for name, time in times.items():
            yield (f'<circle class="peer" cx="{place(time / ours):.1f}" cy="{y}" r="4">'
                   f"<title>{html.escape(name)}: {time / ours:.2f}</title></circle>")
        if times:
            best = min(times, key=times.get)
            yield text(place(times[best] / ours) + 7, y - 3, best, 'class="small"')
    yield "</svg>"


STANDARD = {"name", "run_name", "run_type", "family_index", "per_family_instance_index", "repetitions",
            "repetition_index", "threads", "iterations", "real_time", "cpu_time", "time_unit"}
groups = {}
for run in json.load(open(sys.argv[1]))["benchmarks"]:
    group, job = run["run_name"].split("/iterations:")[0].split("/", 1)
    times = {name: value for name, value in run.items() if name not in STANDARD}
    groups.setdefault(group, []).append((job, times))
for group, rows in groups.items():
    with open(f"{sys.argv[2]}/{group}.svg", "w") as file:
        file.write("\n".join(draw(group, rows)) + "\n")

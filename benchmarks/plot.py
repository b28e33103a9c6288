#!/usr/bin/env python3
"""Draws the times of a benchmark run: plot.py TIMES.json DIRECTORY

One SVG for each group. A row is a job, a dot a contestant, placed by its time against ours on a
logarithmic scale: to the right of the line is slower than this library. The best peer is named."""

import html
import json
import math
import sys

LEFT, WIDTH, RIGHT, ROW, TOP = 330, 440, 230, 22, 54
LOW, HIGH = 0.125, 16  # times of ours that the scale spans

STYLE = """:root { color-scheme: light dark }
text { font: 12px sans-serif; fill: #333 } .title { font-size: 15px; font-weight: bold }
.small { font-size: 11px; fill: #777 } .grid { stroke: #ddd } .ours { stroke: #0969da; stroke-width: 2 }
.peer { fill: #d1701a; fill-opacity: 0.4 } .best { fill: #d1701a } .limit { stroke: #1a7f37; stroke-width: 3 }
@media (prefers-color-scheme: dark) { text { fill: #ddd } .small { fill: #999 } .grid { stroke: #444 }
.ours { stroke: #58a6ff } .peer { fill: #f0a050; fill-opacity: 0.4 } .best { fill: #f0a050 } .limit { stroke: #4ac26b } }"""


def place(ratio):
    ratio = min(max(ratio, LOW), HIGH)
    return LEFT + WIDTH * math.log(ratio / LOW) / math.log(HIGH / LOW)


def text(x, y, content, extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" {extra}>{html.escape(content)}</text>'


def line(x, y1, y2, style):
    return f'<line class="{style}" x1="{x:.1f}" y1="{y1:.0f}" x2="{x:.1f}" y2="{y2:.0f}"/>'


def dot(x, y, style, title=""):
    return (f'<circle class="{style}" cx="{x:.1f}" cy="{y}" r="4">'
            f"<title>{html.escape(title)}</title></circle>")


def draw(group, rows):
    bottom = TOP + ROW * len(rows)
    width = LEFT + WIDTH + RIGHT
    yield (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {bottom + 44}" '
           f'width="{width}" role="img"><style>{STYLE}</style>')
    yield text(10, 22, group, 'class="title"')
    for x, mark, meaning in ((LEFT, line(LEFT, 11, 25, "ours"), "this library"),
                             (LEFT + 110, line(LEFT + 110, 11, 25, "limit"), "limit"),
                             (LEFT + 180, dot(LEFT + 180, 18, "best"), "best peer"),
                             (LEFT + 270, dot(LEFT + 270, 18, "peer"), "other peers")):
        yield mark
        yield text(x + 10, 22, meaning)
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
        best = min(times, key=times.get)
        for name, time in times.items():
            yield dot(place(time / ours), y, "best" if name == best else "peer",
                      f"{name}: {time / ours:.2f}×")
        yield text(LEFT + WIDTH + 14, y + 4, f"{times[best] / ours:.2f}× {best}", 'class="small"')
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

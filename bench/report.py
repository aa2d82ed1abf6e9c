#!/usr/bin/env python3
"""Tables, out/bench.json and docs/performance.md from the benchmarks' results.

    report.py [--whole] RESULT.json ...     --whole: every program ran, so the page is written too
"""

import json
import re
import statistics
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
OURS = "ours"
SUFFIXES = re.compile(
    r"(/(real_time|process_time|manual_time|threads:\d+|min_time:[\d.]+|iterations:\d+|repeats:\d+))+$"
)
UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


class Figure:
    """The repetitions of one variant: their median, and what the middle half of them spans."""

    def __init__(self, values):
        self.values = sorted(values)
        self.median = statistics.median(self.values)
        quarter = len(self.values) // 4
        self.low = self.values[quarter]
        self.high = self.values[-1 - quarter]

    def spread(self):
        return (self.high - self.low) / 2 / self.median if self.median else 0.0


def read_results(paths):
    """{area: {name: {variant: Figure}}}, in the order of the files; and the context of the first."""
    samples = {}
    context = None
    for path in paths:
        result = json.loads(Path(path).read_text())
        context = context or result.get("context", {})
        for run in result["benchmarks"]:
            if run.get("run_type") == "aggregate":
                continue
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run.get('error_message')}")
            full = run.get("run_name", run["name"])
            area, name, variant = SUFFIXES.sub("", full).split("/")
            if "value" in run:
                value = run["value"]
            else:
                is_wall = "/real_time" in full or "/manual_time" in full
                value = run["real_time" if is_wall else "cpu_time"] * UNITS[run["time_unit"]]
            samples.setdefault(area, {}).setdefault(name, {}).setdefault(variant, []).append(value)
    figures = {
        area: {
            name: {variant: Figure(values) for variant, values in variants.items()}
            for name, variants in names.items()
        }
        for area, names in samples.items()
    }
    return figures, context


def reference_of(goal, variants):
    """(its name, its Figure) or (None, None) for a goal that is a plain number."""
    wanted = goal.get("reference")
    if wanted is None:
        return None, None
    if wanted == "best peer":
        peers = {
            name: figure
            for name, figure in variants.items()
            if name != OURS and not name.startswith("limit")
        }
        best = min(peers, key=lambda name: peers[name].median)
        return best, peers[best]
    return wanted, variants[wanted]


def goal_text(goal):
    sign = ">=" if goal.get("at_least") else "<="
    unit = goal.get("unit", "ns")
    parts = []
    if goal.get("reference") is not None:
        factor = goal.get("factor", 1.0)
        parts.append(f"{factor:g} x {goal['reference']}")
    if goal.get("plus") is not None:
        parts.append(f"{goal['plus']:g} {unit}")
    return f"{sign} {' + '.join(parts)}"


def judge(goals, figures):
    """One row per goal whose measurement is there."""
    rows = []
    for goal in goals:
        subject = goal.get("subject", OURS)
        variants = figures.get(goal["area"], {}).get(goal["name"])
        if not variants or subject not in variants:
            continue
        if "plus" not in goal and "reference" not in goal:
            continue  # says the unit only
        if goal.get("reference") not in (None, "best peer", *variants):
            continue
        reference, figure = reference_of(goal, variants)
        mine = variants[subject]
        factor = goal.get("factor", 1.0)
        allowed = (factor * figure.median if figure else 0.0) + goal.get("plus", 0.0)
        ratio = mine.median / figure.median if figure and figure.median else None
        spread = (mine.spread() ** 2 + figure.spread() ** 2) ** 0.5 if figure else mine.spread()
        # Half a percent is below what the figures resolve.
        if goal.get("at_least"):
            met = mine.median >= allowed
        else:
            met = mine.median <= allowed * 1.005
        rows.append(
            {
                "area": goal["area"],
                "name": goal["name"],
                "subject": subject,
                "ours_ns": round(mine.median, 4),
                "reference": reference,
                "reference_ns": round(figure.median, 4) if figure else None,
                "ratio": round(ratio, 4) if ratio is not None else None,
                "goal": goal_text(goal),
                "unit": goal.get("unit", "ns"),
                "spread": round(spread, 4),
                "met": met,
            }
        )
    return rows


def number(value):
    if value is None:
        return "-"
    if abs(value) >= 1e5:
        return f"{value:,.0f}".replace(",", " ")
    return f"{value:.4g}" if abs(value) < 1000 else f"{value:.0f}"


def in_order(item):
    """Ours first, numbers by their size."""
    name = item[0]
    parts = re.split(r"(\d+)", name)
    return name != OURS, [(part.isdigit(), int(part) if part.isdigit() else part) for part in parts]


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return lines


def area_tables(area, figures, rows, goals):
    """What was measured, then how it stands to the goals."""
    units = {goal["name"]: goal.get("unit", "ns") for goal in goals if goal["area"] == area}
    measured = []
    for name, variants in sorted(figures[area].items(), key=in_order):
        mine = variants.get(OURS)
        for variant, figure in sorted(variants.items(), key=in_order):
            ratio = mine.median / figure.median if mine and figure.median else None
            measured.append(
                [
                    name,
                    variant,
                    f"{number(figure.median)} {units.get(name, 'ns')}",
                    f"{100 * figure.spread():.1f} %",
                    "" if variant == OURS or ratio is None else f"{ratio:.3g}",
                ]
            )
    lines = table(["work", "variant", "median", "spread", "ours / this"], measured)
    judged = [
        [
            row["name"] if row["subject"] == OURS else f"{row['name']} ({row['subject']})",
            row["goal"],
            number(row["ours_ns"]) + " " + row["unit"],
            "" if row["ratio"] is None else f"{row['ratio']:.3g} +- {100 * row['spread']:.1f} %",
            "met" if row["met"] else "**not met**",
        ]
        for row in rows
        if row["area"] == area
    ]
    if judged:
        lines += [""] + table(["work", "goal", "ours", "ratio", ""], judged)
    return lines


def machine(context):
    model = "unknown processor"
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith(("model name", "CPU part")):
            model = line.split(":", 1)[1].strip()
            break
    return f"{model}, {context.get('num_cpus', '?')} cores"


def plot_growth(names):
    """docs/growth.svg: what a track, or a frame, costs when there are more of them."""
    panels = []
    for name, variants in names.items():
        points = sorted((int(variant.split()[0]), figure.median) for variant, figure in variants.items())
        unit = next(iter(variants)).split()[1].rstrip("s")
        data = "\n".join(f"{count} {total / count}" for count, total in points)
        panels.append(
            f'$data << EOD\n{data}\nEOD\nset title "{name}"\nset xlabel "{unit}s"\n'
            f'set ylabel "ns for each {unit}"\nset logscale x 2\nset yrange [0:*]\n'
            f'set xrange [{points[0][0] * 0.8}:{points[-1][0] * 1.3}]\n'
            'plot $data using 1:2:xtic(1) with linespoints pointtype 7 notitle\n'
        )
    script = (
        f'set terminal svg size {420 * len(panels)},300\nset output "{ROOT}/docs/growth.svg"\n'
        f"set grid\nset multiplot layout 1,{len(panels)}\n" + "".join(panels) + "unset multiplot\n"
    )
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def write_page(figures, rows, goals, context):
    """The page is the template with {{machine}}, {{date}} and {{AREA}} filled in."""
    template = (ROOT / "bench/performance.md.in").read_text()

    def fill(match):
        key = match.group(1)
        if key == "machine":
            return machine(context)
        if key == "date":
            return context.get("date", "")[:10]
        if key not in figures:
            sys.exit(f"performance.md.in wants the area '{key}', which was not measured")
        return "\n".join(area_tables(key, figures, rows, goals))

    text = re.sub(r"\{\{([^}]+)\}\}", fill, template)
    (ROOT / "docs/performance.md").write_text(text)


def main(arguments):
    whole = "--whole" in arguments
    paths = [argument for argument in arguments if argument != "--whole"]
    figures, context = read_results(paths)
    goals = json.loads((ROOT / "bench/goals.json").read_text())
    rows = judge(goals, figures)
    for area in figures:
        print(f"\n{area}\n")
        print("\n".join(area_tables(area, figures, rows, goals)))
    (ROOT / "out").mkdir(exist_ok=True)
    (ROOT / "out/bench.json").write_text(json.dumps(rows, indent=1) + "\n")
    if whole:
        plot_growth(figures["growth"])
        write_page(figures, rows, goals, context)
        missed = [row for row in rows if not row["met"]]
        print(f"\n{len(rows) - len(missed)} of {len(rows)} goals met; docs/performance.md is written.")


main(sys.argv[1:])

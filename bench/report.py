#!/usr/bin/env python3
"""Tables, out/bench.json and docs/performance.md from the benchmarks' results.

    report.py [--whole] RESULT.json ...     --whole: every program ran, so the page is written too
"""

import json
import re
import statistics
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


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return lines


def area_tables(area, figures, rows):
    """What was measured, then how it stands to the goals."""
    units = {row["name"]: row["unit"] for row in rows if row["area"] == area}
    measured = []
    for name, variants in figures[area].items():
        mine = variants.get(OURS)
        for variant, figure in variants.items():
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


def write_page(figures, rows, context):
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
        return "\n".join(area_tables(key, figures, rows))

    text = re.sub(r"\{\{([^}]+)\}\}", fill, template)
    (ROOT / "docs/performance.md").write_text(text)


def main(arguments):
    whole = "--whole" in arguments
    paths = [argument for argument in arguments if argument != "--whole"]
    figures, context = read_results(paths)
    rows = judge(json.loads((ROOT / "bench/goals.json").read_text()), figures)
    for area in figures:
        print(f"\n{area}\n")
        print("\n".join(area_tables(area, figures, rows)))
    (ROOT / "out").mkdir(exist_ok=True)
    (ROOT / "out/bench.json").write_text(json.dumps(rows, indent=1) + "\n")
    if whole:
        write_page(figures, rows, context)
        missed = [row for row in rows if not row["met"]]
        print(f"\n{len(rows) - len(missed)} of {len(rows)} goals met; docs/performance.md is written.")


main(sys.argv[1:])

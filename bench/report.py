#!/usr/bin/env python3
"""Tables, out/bench.json and docs/performance.md from the benchmarks' results.

    report.py [--whole] RESULT.json ...     --whole: every program ran, so the page is written too
    report.py --unsettled RESULT.json ...   prints the filter of a benchmark program for what these
                                            rounds of it leave without a verdict, nothing when all is
                                            settled

A result is a round; verdict.py says what is made of the rounds.
"""

import json
import re
import subprocess
import sys
from pathlib import Path

from verdict import FAILS, HOLDS, KINDS, NOISY, OURS, Figure, compare, filter_of, judge, unsettled

ROOT = Path(__file__).resolve().parent.parent
SUFFIXES = re.compile(
    r"(/(real_time|process_time|manual_time|threads:\d+|min_time:[\d.]+|iterations:\d+|repeats:\d+))+$"
)
UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


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
            rounds = samples.setdefault(area, {}).setdefault(name, {}).setdefault(
                variant, {"is_time": "value" not in run, "rounds": {}}
            )["rounds"]
            rounds.setdefault(run.get("round", path), []).append(value)
    figures = {
        area: {
            name: {variant: Figure(**sample) for variant, sample in variants.items()}
            for name, variants in names.items()
        }
        for area, names in samples.items()
    }
    return figures, context


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


def goal_name(goal):
    subject = goal.get("subject", OURS)
    return goal["name"] if subject == OURS else f"{goal['name']} ({subject})"


def row_of(judged):
    """A row of out/bench.json."""
    goal, reference, figure, mine, verdict, ratio, spread = judged
    return {
        "area": goal["area"],
        "name": goal["name"],
        "subject": goal.get("subject", OURS),
        "kind": goal["kind"],
        "ours_ns": round(mine.value, 4),
        "reference": reference,
        "reference_ns": round(figure.value, 4) if figure else None,
        "ratio": round(ratio, 4) if ratio is not None else None,
        "goal": goal_text(goal),
        "unit": goal.get("unit", "ns"),
        "spread": round(spread, 4),
        "verdict": verdict,
    }


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


def area_tables(area, figures, judged, goals):
    """What was measured, then how it stands to the goals."""
    units = {goal["name"]: goal.get("unit", "ns") for goal in goals if goal["area"] == area}
    measured = []
    for name, variants in sorted(figures[area].items(), key=in_order):
        mine = variants.get(OURS)
        for variant, figure in sorted(variants.items(), key=in_order):
            ratio = compare(mine, figure)[0] if mine and variant != OURS else None
            measured.append(
                [
                    name,
                    variant,
                    f"{number(figure.value)} {units.get(name, 'ns')}",
                    f"{100 * figure.spread():.1f} %",
                    "" if ratio is None else f"{ratio:.3g}",
                ]
            )
    lines = table(["work", "variant", "figure", "spread", "ours / this"], measured)
    rows = [
        [
            goal_name(goal),
            goal["kind"],
            goal_text(goal),
            f"{number(mine.value)} {goal.get('unit', 'ns')}",
            "" if ratio is None else f"{ratio:.3g}",
            f"{100 * spread:.1f} %",
            verdict if verdict == HOLDS else f"**{verdict}**",
        ]
        for goal, _, _, mine, verdict, ratio, spread in judged
        if goal["area"] == area
    ]
    if rows:
        lines += [""] + table(["work", "kind", "goal", "ours", "ratio", "spread", ""], rows)
    return lines


def summary(judged):
    """How many goals hold, and which do not or cannot be told."""
    lines = []
    for verdict in (HOLDS, FAILS, NOISY):
        these = [entry for entry in judged if entry[4] == verdict]
        lines.append(f"- **{len(these)} of {len(judged)}**: {verdict}")
        if verdict == HOLDS:
            continue
        for goal, _, _, mine, _, ratio, spread in these:
            shown = f"{number(mine.value)} {goal.get('unit', 'ns')}" if ratio is None else f"{ratio:.3g} x"
            lines.append(
                f"  - {goal['area']}, {goal_name(goal)}: {goal_text(goal)}; measured {shown} "
                f"+- {100 * spread:.1f} %"
            )
    return lines


def kinds():
    return table(["kind", "what is compared"], [[kind, text] for kind, text in KINDS.items()])


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
        points = sorted((int(variant.split()[0]), figure.value) for variant, figure in variants.items())
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


def write_page(figures, judged, goals, context):
    """The page is the template with {{machine}}, {{date}}, {{summary}}, {{kinds}}, {{AREA}} filled in."""
    template = (ROOT / "bench/performance.md.in").read_text()
    words = {
        "machine": machine(context),
        "date": context.get("date", "")[:10],
        "summary": "\n".join(summary(judged)),
        "kinds": "\n".join(kinds()),
    }

    def fill(match):
        key = match.group(1)
        if key in words:
            return words[key]
        if key not in figures:
            sys.exit(f"performance.md.in wants the area '{key}', which was not measured")
        return "\n".join(area_tables(key, figures, judged, goals))

    text = re.sub(r"\{\{([^}]+)\}\}", fill, template)
    (ROOT / "docs/performance.md").write_text(text)


def main(arguments):
    options = [argument for argument in arguments if argument.startswith("--")]
    figures, context = read_results(argument for argument in arguments if argument not in options)
    goals = json.loads((ROOT / "bench/goals.json").read_text())
    if "--unsettled" in options:
        works = unsettled(goals, figures)
        if works:
            print(filter_of(works))
        return
    judged = judge(goals, figures)
    for area in figures:
        print(f"\n{area}\n")
        print("\n".join(area_tables(area, figures, judged, goals)))
    (ROOT / "out").mkdir(exist_ok=True)
    rows = [row_of(entry) for entry in judged]
    (ROOT / "out/bench.json").write_text(json.dumps(rows, indent=1) + "\n")
    print()
    print("\n".join(summary(judged)))
    if "--whole" in options:
        plot_growth(figures["growth"])
        write_page(figures, judged, goals, context)
        print("docs/performance.md is written.")


main(sys.argv[1:])

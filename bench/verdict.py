"""What a set of measurements says about the goals: figures, spreads, verdicts.

A round is one run of a benchmark program. In it all variants of a piece of work are repeated in random
order, so that whatever else the machine does meets them alike. A round's figure is the mean of the
fastest tenth of its repetitions; where the measurement is no time, their median. A ratio is made within
a round and never across two, as long as both sides were measured in the same rounds.
"""

import math
import re
import statistics

OURS = "ours"
LARGEST_SPREAD = 0.03
TOLERANCE = 1.005  # half a percent is below what the figures resolve

HOLDS = "holds"
FAILS = "fails"
NOISY = "too noisy here"

# What a bound may be made of; the work that it bounds is of the same kind.
KINDS = {
    "throughput": "time of work that a faster machine does faster, against the time of like work",
    "latency": "time of a chain of steps that wait for each other, against the time of such a chain",
    "delay": "time that passes until sound arrives, against a time that passes",
    "absolute time": "against a time that was chosen, whatever the machine",
    "quality": "against a value of the signal or a ratio that was chosen",
    "growth": "cost of more against the cost of little of the same work",
}


def fastest_tenth(values):
    ordered = sorted(values)
    return statistics.fmean(ordered[: max(1, len(ordered) // 10)])


def half_span(values):
    """Half of what the values span: the middle half of them once there are four or more."""
    ordered = sorted(values)
    quarter = len(ordered) // 4
    return (ordered[-1 - quarter] - ordered[quarter]) / 2


def relative_spread(values):
    middle = abs(statistics.median(values))
    return half_span(values) / middle if middle else 0.0


class Figure:
    """One variant of one piece of work: a value for each round it was measured in."""

    def __init__(self, rounds, is_time=True):
        """`rounds` maps the name of a round to the values of its repetitions."""
        take = fastest_tenth if is_time else statistics.median
        self.rounds = {name: take(values) for name, values in rounds.items()}
        self.value = statistics.median(self.rounds.values())

    def spread(self):
        return relative_spread(list(self.rounds.values()))


def ratios(mine, other):
    """Per round where both sides were in the same rounds, else None."""
    shared = [name for name in mine.rounds if name in other.rounds]
    if len(shared) != len(mine.rounds) or len(shared) != len(other.rounds):
        return None
    if not all(other.rounds[name] for name in shared):
        return None
    return [mine.rounds[name] / other.rounds[name] for name in shared]


def compare(mine, other):
    """(ratio, its spread); (None, 0) to nothing."""
    paired = ratios(mine, other)
    if paired is not None:
        return statistics.median(paired), relative_spread(paired)
    if not other.value:
        return None, 0.0
    return mine.value / other.value, math.hypot(mine.spread(), other.spread())


def reference_of(goal, variants):
    """(its name, its Figure), or (None, None) for a goal that is a plain number."""
    wanted = goal.get("reference")
    if wanted is None:
        return None, None
    if wanted == "best peer":
        peers = {
            name: figure
            for name, figure in variants.items()
            if name != OURS and not name.startswith("limit")
        }
        best = min(peers, key=lambda name: peers[name].value)
        return best, peers[best]
    return wanted, variants[wanted]


def is_measured(goal, figures):
    """Whether the goal bounds something and everything that it names was measured."""
    variants = figures.get(goal["area"], {}).get(goal["name"], {})
    reference = goal.get("reference")
    return (
        goal.get("subject", OURS) in variants
        and ("plus" in goal or reference is not None)
        and (reference in (None, "best peer") or reference in variants)
    )


def verdict_of(goal, mine, reference):
    """(verdict, ratio or None, spread) of one goal."""
    ratio, spread = compare(mine, reference) if reference else (None, mine.spread())
    if spread > LARGEST_SPREAD:
        return NOISY, ratio, spread
    factor = goal.get("factor", 1.0)
    plus = goal.get("plus", 0.0)
    if reference and ratio is not None and not plus:
        measured, allowed = ratio, factor
    else:
        measured, allowed = mine.value, (factor * reference.value if reference else 0.0) + plus
    if goal.get("at_least"):
        return (HOLDS if measured >= allowed else FAILS), ratio, spread
    # A bound below zero, as of decibels, is not widened by the factor but narrowed.
    allowed = allowed * TOLERANCE if allowed > 0 else allowed
    return (HOLDS if measured <= allowed else FAILS), ratio, spread


def judge(goals, figures):
    """[(goal, name of the reference, its Figure, our Figure, verdict, ratio, spread)]"""
    rows = []
    for goal in goals:
        if not is_measured(goal, figures):
            continue
        variants = figures[goal["area"]][goal["name"]]
        mine = variants[goal.get("subject", OURS)]
        name, reference = reference_of(goal, variants)
        rows.append((goal, name, reference, mine, *verdict_of(goal, mine, reference)))
    return rows


def unsettled(goals, figures):
    """(area, name) of each work that a goal bounds and whose spread leaves no verdict."""
    works = []
    for goal, _, _, _, verdict, _, _ in judge(goals, figures):
        work = (goal["area"], goal["name"])
        if verdict == NOISY and work not in works:
            works.append(work)
    return works


def filter_of(works):
    """The expression that selects these works and nothing else in a benchmark program."""
    quoted = (re.sub(r"([][.*+?^${}()|\\])", r"\\\1", "/".join(work)) for work in works)
    return "^(" + "|".join(quoted) + ")/"

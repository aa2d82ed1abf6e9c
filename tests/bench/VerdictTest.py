#!/usr/bin/env python3
"""What bench/verdict.py makes of measurements."""

import json
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "bench"))

import verdict  # noqa: E402  (found by the path above)
from verdict import FAILS, HOLDS, NOISY, Figure  # noqa: E402

GOAL = {"area": "a", "name": "n", "kind": "throughput", "reference": "peer", "factor": 1.0}


def steady(value, rounds=3):
    return Figure({name: [value] for name in range(rounds)})


def judged(goal, **variants):
    rows = verdict.judge([goal], {"a": {"n": variants}})
    return [row[4] for row in rows]


class FigureTest(unittest.TestCase):
    def test_a_time_is_the_mean_of_the_fastest_tenth(self):
        self.assertEqual(Figure({1: list(range(100, 120))}).value, 100.5)

    def test_a_value_that_is_no_time_is_the_median(self):
        self.assertEqual(Figure({1: [1, 2, 30]}, is_time=False).value, 2)

    def test_slow_repetitions_do_not_count(self):
        self.assertEqual(Figure({1: [10] + [1000] * 9}).value, 10)

    def test_the_rounds_are_represented_by_their_median(self):
        self.assertEqual(Figure({1: [10], 2: [11], 3: [90]}).value, 11)

    def test_spread_is_half_of_what_few_rounds_span(self):
        self.assertAlmostEqual(Figure({1: [98], 2: [100], 3: [104]}).spread(), 0.03)

    def test_spread_of_many_rounds_leaves_the_outermost_out(self):
        rounds = {1: [10], 2: [100], 3: [100], 4: [101], 5: [102], 6: [900]}
        self.assertAlmostEqual(Figure(rounds).spread(), 1 / 100.5)


class CompareTest(unittest.TestCase):
    def test_ratios_are_made_within_a_round(self):
        # The machine was twice as slow in the second round, for both sides alike.
        mine = Figure({1: [50], 2: [100], 3: [50]})
        other = Figure({1: [100], 2: [200], 3: [100]})
        self.assertEqual(verdict.compare(mine, other), (0.5, 0.0))

    def test_sides_of_different_rounds_carry_both_spreads(self):
        mine = Figure({1: [97], 2: [100], 3: [103]})
        other = Figure({"x": [192], "y": [200], "z": [208]})
        ratio, spread = verdict.compare(mine, other)
        self.assertEqual(ratio, 0.5)
        self.assertAlmostEqual(spread, 0.05)


class VerdictTest(unittest.TestCase):
    def test_a_ratio_at_the_bound_holds(self):
        self.assertEqual(judged(GOAL, ours=steady(100), peer=steady(100)), [HOLDS])

    def test_half_a_percent_beyond_the_bound_still_holds_and_more_fails(self):
        self.assertEqual(judged(GOAL, ours=steady(100.4), peer=steady(100)), [HOLDS])
        self.assertEqual(judged(GOAL, ours=steady(100.6), peer=steady(100)), [FAILS])

    def test_what_spreads_more_than_three_percent_gets_no_verdict(self):
        noisy = Figure({1: [20], 2: [21], 3: [22]})
        self.assertEqual(judged(GOAL, ours=noisy, peer=steady(100)), [NOISY])

    def test_noise_that_meets_both_sides_alike_leaves_a_verdict(self):
        mine = Figure({1: [50], 2: [80], 3: [60]})
        peer = Figure({1: [100], 2: [160], 3: [120]})
        self.assertEqual(judged(GOAL, ours=mine, peer=peer), [HOLDS])

    def test_the_best_peer_is_the_fastest_that_is_no_limit(self):
        goal = GOAL | {"reference": "best peer"}
        sides = {"ours": steady(100), "slow": steady(300), "fast": steady(90), "limit": steady(10)}
        rows = verdict.judge([goal], {"a": {"n": sides}})
        self.assertEqual((rows[0][1], rows[0][4]), ("fast", FAILS))

    def test_a_plain_number_is_compared_with_the_figure(self):
        goal = {"area": "a", "name": "n", "kind": "absolute time", "plus": 60}
        self.assertEqual(judged(goal, ours=steady(59)), [HOLDS])
        self.assertEqual(judged(goal, ours=steady(61)), [FAILS])

    def test_a_bound_may_be_a_reference_and_a_number(self):
        goal = GOAL | {"factor": 1.5, "plus": 20}
        self.assertEqual(judged(goal, ours=steady(169), peer=steady(100)), [HOLDS])
        self.assertEqual(judged(goal, ours=steady(172), peer=steady(100)), [FAILS])

    def test_a_lower_bound_is_met_from_above(self):
        goal = {"area": "a", "name": "n", "kind": "quality", "plus": -0.2, "at_least": True}
        self.assertEqual(judged(goal, ours=steady(-0.1)), [HOLDS])
        self.assertEqual(judged(goal, ours=steady(-0.3)), [FAILS])

    def test_an_upper_bound_below_zero_is_not_widened(self):
        goal = {"area": "a", "name": "n", "kind": "quality", "plus": -110}
        self.assertEqual(judged(goal, ours=steady(-109.9)), [FAILS])

    def test_a_goal_whose_sides_were_not_measured_is_passed_over(self):
        self.assertEqual(judged(GOAL, ours=steady(1)), [])
        self.assertEqual(judged(GOAL, peer=steady(1)), [])


class UnsettledTest(unittest.TestCase):
    def test_names_each_noisy_work_once_and_no_other(self):
        noisy = Figure({1: [20], 2: [21], 3: [22]})
        figures = {"a": {"n": {"ours": noisy, "peer": steady(9)}, "m": {"ours": steady(1)}}}
        goals = [GOAL, GOAL | {"factor": 2}, {"area": "a", "name": "m", "kind": "quality", "plus": 2}]
        self.assertEqual(verdict.unsettled(goals, figures), [("a", "n")])

    def test_the_filter_selects_all_variants_of_the_work_alone(self):
        found = verdict.filter_of([("a", "THD+N (dB)"), ("b", "x")])
        for name in ("a/THD+N (dB)/ours", "b/x/peer"):
            self.assertRegex(name, found)
        for name in ("a/THDN (dB)/ours", "b/x y/ours", "c/b/x/ours"):
            self.assertNotRegex(name, found)


class GoalsTest(unittest.TestCase):
    def test_every_goal_names_a_known_kind(self):
        goals = json.loads((ROOT / "bench/goals.json").read_text())
        self.assertEqual({goal["kind"] for goal in goals} - set(verdict.KINDS), set())


if __name__ == "__main__":
    unittest.main()

"""What `./dev check` runs to see that the goals of speed, and counts, are judged by what was measured."""

import unittest

import counts
import goals
import goals_page

MOST = goals.Goal("Start", "size, of a brick", "startup", ("a", "b"), "size", 1.5)
LEAST = goals.Goal("Requests", "rate < wind's", "requests", ("a", "b"), "rate", 0.9, at_least=True)


class JudgementTest(unittest.TestCase):
    def test_the_benchmark_furthest_from_the_goal_decides(self):
        figures = {"a": {"size": 1.2, "rate": 0.95}, "b": {"size": 1.6, "rate": 0.8}}
        self.assertEqual(goals.judge(MOST, figures), goals.Verdict(MOST, 1.6, "b"))
        self.assertEqual(goals.judge(LEAST, figures), goals.Verdict(LEAST, 0.8, "b"))
        self.assertEqual([goals.judge(goal, figures).text() for goal in (MOST, LEAST)], ["missed", "missed"])

    def test_a_goal_is_met_at_its_limit(self):
        figures = {name: {"size": 1.5, "rate": 0.9} for name in "ab"}
        self.assertTrue(goals.judge(MOST, figures).is_met)
        self.assertTrue(goals.judge(LEAST, figures).is_met)

    def test_what_was_not_measured_is_not_met(self):
        for figures in ({}, {"a": {"size": 1}}, {"a": {"size": 1}, "b": {"size": float("nan")}}):
            verdict = goals.judge(MOST, figures)
            self.assertEqual((verdict.is_met, verdict.text(), verdict.measured()), (False, "not measured", "–"))


class NamesTest(unittest.TestCase):
    def test_how_a_benchmark_was_measured_is_not_its_name(self):
        report = {"benchmarks": [{"name": "a/7/iterations:1/manual_time", "size": 2},
                                 {"name": "b/manual_time", "size": 3, "error_occurred": True}]}
        self.assertEqual(list(goals.figures_of(report)), ["a/7"])

    def test_peers_are_measured_with_the_subject(self):
        found = goals.pattern(["requests/HTTP1/1KB/1/ours", "read.it/5"])
        for name in ("requests/HTTP1/1KB/1/ours/iterations:1", "requests/HTTP1/1KB/1/curl", "read.it/5/manual_time"):
            self.assertRegex(name, found)
        for name in ("requests/HTTP1/1KB/16/ours", "readXit/5", "read.it/50"):
            self.assertNotRegex(name, found)

    def test_goals_are_chosen_by_subject_name_or_benchmark(self):
        self.assertEqual(goals.benches_of(goals.chosen("LIBPLIST")), ["documents"])
        self.assertEqual(goals.chosen("no such goal"), [])


class PageTest(unittest.TestCase):
    def test_only_what_stands_between_the_marks_is_replaced(self):
        page = f"before\n{goals_page.BEGIN}\nold\n{goals_page.END}\nafter\n"
        self.assertEqual(goals_page.replaced(page, "new\n"),
                         f"before\n{goals_page.BEGIN}\nnew\n{goals_page.END}\nafter\n")

    def test_a_missed_goal_is_shown_as_one(self):
        rows = list(goals_page.goal_rows([goals.Verdict(MOST, 1.6, "b"), goals.Verdict(LEAST)]))
        self.assertEqual(rows[2:], ["| Start | size, of a brick | at most 1.5 | **1.6** (b) | missed |",
                                    "| Requests | rate < wind's | at least 0.9 | **–** | not measured |"])

    def test_the_plot_shows_shares_of_what_is_allowed(self):
        drawn = goals_page.plot([goals.Verdict(MOST, 3, "b"), goals.Verdict(LEAST, 1.8), goals.Verdict(MOST)])
        self.assertIn(">2.00<", drawn)
        self.assertIn(">0.50<", drawn)
        self.assertIn("rate &lt; wind&#x27;s", drawn)
        self.assertEqual(drawn.count('height="15"'), 2)


class CountsTest(unittest.TestCase):
    def test_what_is_done_once_is_left_out(self):
        kind = counts.Kind("event", (), (10, 30), things=2)
        self.assertEqual(counts.per_thing(kind, lambda length: 1_000_000 + 600 * length), 300)

    def test_a_count_that_has_grown_too_much_fails(self):
        self.assertEqual(counts.judged({"event": 131}, {"event": 100})[1], False)
        self.assertEqual(counts.judged({"event": 130, "new one": 5}, {"event": 100})[1], True)

    def test_the_last_sum_of_a_profile_is_all_of_it(self):
        self.assertEqual(counts.total_of("summary: 7\nfn=a\ntotals: 12\n"), 12)
        with self.assertRaisesRegex(RuntimeError, "counted nothing"):
            counts.total_of("fn=a\n")


if __name__ == "__main__":
    unittest.main()

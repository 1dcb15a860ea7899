# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The results of a benchmark: written as they come, so that one that is cut off keeps its rows."""
import statistics
import sys
import time

COLUMNS = ("wall", "own", "children", "peak_kib")
PROGRESS_SECONDS = 10


def median_of(runs, key):
    """The median of one value of several runs."""
    return statistics.median(run[key] for run in runs)


def ratio_of(runs, key, program, base):
    """The median of a program's ratios to another one in the same round: both met the same mood of
    the machine."""
    return statistics.median(mine[key] / other[key]
                             for mine, other in zip(runs[program], runs[base]))


class Results:
    """Tells on the terminal and in a file what was measured, and notes which goals were missed.

    The file NAME.txt gets the terminal's lines, NAME.tsv a row for every single run.
    """

    def __init__(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        name = folder / time.strftime("%Y-%m-%d-%H%M%S")
        self.path = name.with_suffix(".txt")
        self._text = self.path.open("w", encoding="utf-8", buffering=1)
        self._rows = name.with_suffix(".tsv").open("w", encoding="utf-8", buffering=1)
        self._rows.write("\t".join(("workload", "round", "program", *COLUMNS)) + "\n")
        self._goals = []
        self._begin = time.monotonic()
        self._told = self._begin

    def say(self, text=""):
        """Writes a line."""
        print(text, flush=True)
        self._text.write(text + "\n")

    def run(self, workload, number, program, values):
        """Notes a single run, and now and then tells that the work goes on."""
        self._rows.write("\t".join((workload, str(number), program,
                                    *(str(values.get(key, "")) for key in COLUMNS))) + "\n")
        now = time.monotonic()
        if now - self._told >= PROGRESS_SECONDS:
            self._told = now
            print(f"  ... {workload}, round {number}: {program} took {values['wall']:.1f} s",
                  file=sys.stderr, flush=True)

    def goal(self, workload, what, value, limit):
        """Tells whether a value is at most what it should be."""
        verdict = "kept" if value <= limit else "MISSED"
        self._goals.append((verdict, f"{workload}: {what} {value:.3f}, goal {limit}"))
        self.say(f"  {what} {value:.3f}, goal {limit}: {verdict}")

    def finish(self):
        """Tells how many goals were kept, and which were not."""
        missed = [text for verdict, text in self._goals if verdict != "kept"]
        self.say(f"\n{len(self._goals) - len(missed)} goals kept, {len(missed)} missed, "
                 f"{(time.monotonic() - self._begin) / 60:.1f} minutes")
        for text in missed:
            self.say(f"  {text}")

# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Parts of a long run: which waits for which, side by side where nothing is waited for."""
import dataclasses
import queue
import threading
import time
import traceback
from typing import Callable

from kxscripts import common, processes
from kxscripts.results import FAILED, PASSED, Case


@dataclasses.dataclass(frozen=True)
class Part:
    """One part of a run."""
    name: str
    work: Callable  # no arguments; returns the cases, or raises Failed
    needs: tuple = ()  # parts without whose success it cannot be done, and then has failed
    after: tuple = ()  # parts that only have to be over before


@dataclasses.dataclass(frozen=True)
class Done:
    """What a part has left."""
    part: Part
    cases: list
    seconds: float

    @property
    def passed(self):
        """The number of cases that passed."""
        return sum(case.outcome == PASSED for case in self.cases)

    @property
    def failed(self):
        """The number of all others: what was skipped has not been shown to work."""
        return len(self.cases) - self.passed


def _do(part):
    """Does the work; whatever goes wrong with it is a failed case, and so is nothing at all."""
    try:
        cases = part.work()
    except common.Failed as failure:
        return [Case(part.name, FAILED, 0.0, str(failure))]
    except processes.Stopped:
        return [Case(part.name, FAILED, 0.0, "interrupted")]
    except Exception:  # pylint: disable=broad-exception-caught
        return [Case(part.name, FAILED, 0.0, traceback.format_exc())]
    return cases or [Case(part.name, FAILED, 0.0, "nothing was tested")]


def _timed(part, ended):
    start = time.monotonic()
    cases = _do(part)
    ended.put(Done(part, cases, time.monotonic() - start))


def _lacks(part, done):
    """The part that this one needs and that has failed, or None."""
    return next((name for name in part.needs if done[name].failed), None)


def run(parts, begun, ended):
    """Does all parts, each as soon as those it waits for are over.

    begun(part), ended(done)   are told of each, in this thread
    Returns what each has left, in the order of `parts`. Raises ValueError when a part waits for one
    that is not listed before it."""
    names = []
    for part in parts:
        unknown = {*part.needs, *part.after} - set(names)
        if unknown or part.name in names:
            raise ValueError(f"{part.name}: listed twice, or waits for {unknown} too early")
        names.append(part.name)

    done = {}
    waiting = list(parts)
    results = queue.Queue()
    while len(done) < len(parts):
        ready = [part for part in waiting if {*part.needs, *part.after} <= done.keys()]
        for part in ready:
            waiting.remove(part)
            lacking = _lacks(part, done)
            if lacking is not None:
                results.put(Done(part, [Case(part.name, FAILED, 0.0,
                                             f"not done, because {lacking} failed")], 0.0))
                continue
            begun(part)
            threading.Thread(target=_timed, args=(part, results), daemon=True).start()
        last = results.get()
        done[last.part.name] = last
        ended(last)
    return [done[name] for name in names]

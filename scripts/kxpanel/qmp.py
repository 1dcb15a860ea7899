# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The monitor of an emulated panel: questions with their answers, and the events between them."""
import itertools
import json
import threading
import time

from kxpanel import links
from kxscripts.common import Failed

PATIENCE = 60  # seconds for an answer


class Refused(Failed):
    """The emulator did not do what it was asked for; the text says what, and why."""


class Gone(Failed):
    """The emulator has ended, or its monitor does not answer."""


class Monitor:
    """Speaks to an emulator over a connected socket, which it closes at its end.

    listener   called with each event, from a thread of its own"""

    def __init__(self, connection, listener=lambda event: None):
        self._connection = connection
        self._listener = listener
        self._news = threading.Condition()
        self._numbers = itertools.count(1)
        self._answers = {}
        self._events = []
        self._over = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def greet(self):
        """Waits for the emulator and makes it ready for questions. Raises Gone."""
        with self._news:
            self._news.wait_for(lambda: self._over or self._answers.pop("greeting", None), PATIENCE)
        self.ask("qmp_capabilities")

    def _read(self):
        try:
            with self._connection.makefile("rb") as lines:
                for line in lines:
                    self._take(json.loads(line))
        except (OSError, ValueError):
            pass  # an emulator that was killed leaves half a line, or a broken link
        with self._news:
            self._over = True
            self._news.notify_all()

    def _take(self, told):
        if "event" in told:
            self._listener(told)
        with self._news:
            if "event" in told:
                self._events.append(told)
            elif "QMP" in told:
                self._answers["greeting"] = told
            else:
                self._answers[told.get("id")] = told
            self._news.notify_all()

    def ask(self, command, *, seconds=PATIENCE, **arguments):
        """Asks for something; returns the answer. An underscore in a name of an argument stands for
        a hyphen. Raises Refused with the emulator's own words, Gone when none come in time."""
        number = next(self._numbers)
        words = {name.replace("_", "-"): value for name, value in arguments.items()}
        question = {"execute": command, "arguments": words, "id": number}
        try:
            self._connection.sendall(json.dumps(question).encode() + b"\n")
        except OSError as error:
            raise Gone(f"{command}: the emulator has ended") from error
        with self._news:
            self._news.wait_for(lambda: self._over or number in self._answers, seconds)
            answer = self._answers.pop(number, None)
            over = self._over
        if answer is None:
            raise Gone(f"{command}: " + ("the emulator has ended" if over else
                                         f"the emulator gave no answer within {seconds:g} seconds"))
        if "error" in answer:
            raise Refused(f"{command}: {answer['error']['desc']}")
        return answer["return"]

    def mark(self):
        """A place in the events; those that come from now on are behind it."""
        with self._news:
            return len(self._events)

    def wait_for(self, name, *, since=0, seconds=PATIENCE, **wanted):
        """Waits for an event behind a mark; returns its data. `wanted` are members that its data must
        have. Raises Gone when none comes in time, or the emulator ends before."""
        def found():
            return next((event for event in self._events[since:] if event["event"] == name and
                         wanted.items() <= event.get("data", {}).items()), None)

        with self._news:
            self._news.wait_for(lambda: self._over or found(), seconds)
            event, over = found(), self._over
        if event is None:
            raise Gone(f"{name}: the emulator has ended" if over else
                       f"{name}: no such event within {seconds:g} seconds")
        return event.get("data", {})

    def finish_job(self, command, name, *, seconds=PATIENCE, **arguments):
        """Starts a job of the emulator's and waits for its end. Raises Refused when it failed."""
        until = time.monotonic() + seconds
        since = self.mark()
        self.ask(command, job_id=name, **arguments)
        self.wait_for("JOB_STATUS_CHANGE", since=since, seconds=until - time.monotonic(),
                      id=name, status="concluded")
        ended = [job for job in self.ask("query-jobs") if job["id"] == name]
        self.ask("job-dismiss", id=name)
        for job in ended:
            if "error" in job:
                raise Refused(f"{command}: {job['error']}")

    def close(self):
        """Ends the link."""
        links.end(self._connection, self._reader)

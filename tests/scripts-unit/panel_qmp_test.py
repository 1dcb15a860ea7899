# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How the monitor of an emulated panel is spoken to; the emulator is played."""
import json
import socket
import threading
import unittest

from kxpanel.qmp import Gone, Monitor, Refused

PATIENCE = 60  # seconds; what is expected comes at once


class Talk(unittest.TestCase):
    """The test is the emulator: it answers questions, tells events, or does not."""

    def setUp(self):
        ours, self.emulator = socket.socketpair()
        self.emulator.settimeout(PATIENCE)
        self.addCleanup(self.emulator.close)
        self.heard = []
        self.monitor = Monitor(ours, self.heard.append)
        self.addCleanup(self.monitor.close)
        self.lines = self.emulator.makefile("rb")
        self.addCleanup(self.lines.close)
        self.asked = []

    def tell(self, *told):
        """Sends lines."""
        self.emulator.sendall(b"".join(json.dumps(each).encode() + b"\r\n" for each in told))

    def play(self, *answers):
        """Answers questions in a thread, each with lines that follow from its number."""
        def run():
            for answer in answers:
                question = json.loads(self.lines.readline())
                self.asked.append({name: question[name] for name in ("execute", "arguments")})
                self.tell(*answer(question["id"]))
        thread = threading.Thread(target=run)
        thread.start()
        self.addCleanup(thread.join)

    def test_an_emulator_is_greeted_before_it_is_asked(self):
        self.play(lambda number: [{"return": {}, "id": number}])
        self.tell({"QMP": {}})

        self.monitor.greet()

        self.assertEqual(self.asked, [{"execute": "qmp_capabilities", "arguments": {}}])

    def test_each_question_gets_its_own_answer_whatever_comes_between(self):
        self.play(lambda number: [{"event": "X"}, {"return": "late", "id": number - 1},
                                  {"return": [1], "id": number}],
                  lambda number: [{"return": 2, "id": number}])

        self.assertEqual(self.monitor.ask("a", node_name="n", file={"file_name": 1}), [1])
        self.assertEqual(self.monitor.ask("b"), 2)
        self.assertEqual(self.asked, [
            {"execute": "a", "arguments": {"node-name": "n", "file": {"file_name": 1}}},
            {"execute": "b", "arguments": {}}])
        self.assertEqual(self.heard, [{"event": "X"}])

    def test_a_refusal_is_told_in_the_emulators_words(self):
        self.play(lambda number: [{"error": {"class": "X", "desc": "in use"}, "id": number}])

        with self.assertRaisesRegex(Refused, "^device_del: in use$"):
            self.monitor.ask("device_del")

    def test_an_emulator_that_is_silent_or_gone_is_told(self):
        with self.assertRaisesRegex(Gone, "^a: the emulator gave no answer within 0.05 seconds$"):
            self.monitor.ask("a", seconds=0.05)
        with self.assertRaisesRegex(Gone, "^X: no such event within 0.05 seconds$"):
            self.monitor.wait_for("X", seconds=0.05)
        self.emulator.sendall(b'{"ret')
        self.emulator.shutdown(socket.SHUT_RDWR)
        with self.assertRaisesRegex(Gone, "^X: the emulator has ended$"):
            self.monitor.wait_for("X", seconds=PATIENCE)
        with self.assertRaisesRegex(Gone, "^a: the emulator has ended$"):
            self.monitor.ask("a")

    def test_an_event_counts_from_a_mark_on_and_by_its_data(self):
        self.play(lambda number: [{"event": "GONE", "data": {"device": "a", "n": 1}},
                                  {"return": {}, "id": number}])
        self.monitor.ask("x")
        since = self.monitor.mark()

        self.assertEqual(self.monitor.wait_for("GONE", seconds=PATIENCE, device="a")["n"], 1)
        with self.assertRaises(Gone):
            self.monitor.wait_for("GONE", since=since, seconds=0.05)
        self.tell({"event": "GONE", "data": {"device": "b"}}, {"event": "OTHER"},
                  {"event": "GONE", "data": {"device": "a", "n": 2}})
        self.assertEqual(
            self.monitor.wait_for("GONE", since=since, seconds=PATIENCE, device="a")["n"], 2)

    def finish(self, **ended):
        """Lets a job end with these members."""
        self.play(lambda number: [{"return": {}, "id": number},
                                  {"event": "JOB_STATUS_CHANGE",
                                   "data": {"id": "other", "status": "concluded"}},
                                  {"event": "JOB_STATUS_CHANGE",
                                   "data": {"id": "j", "status": "concluded"}}],
                  lambda number: [{"return": [{"id": "other", "error": "no"}, {"id": "j", **ended}],
                                   "id": number}],
                  lambda number: [{"return": {}, "id": number}])
        self.monitor.finish_job("snapshot-save", "j", tag="t", seconds=PATIENCE)

    def test_a_job_is_waited_for(self):
        self.finish()
        self.assertEqual([one["execute"] for one in self.asked],
                         ["snapshot-save", "query-jobs", "job-dismiss"])
        self.assertEqual(self.asked[0]["arguments"], {"job-id": "j", "tag": "t"})

    def test_a_job_that_failed_is_told(self):
        with self.assertRaisesRegex(Refused, "^snapshot-save: no room$"):
            self.finish(error="no room")


if __name__ == "__main__":
    unittest.main()

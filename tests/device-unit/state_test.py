# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Which folders are taken for the state of a panel, and how they are made, held and removed."""

import json
import os
import stat
import tempfile
import unittest
from unittest import mock

from kxdevice import ids, state, trees
from kxdevice.linux import SandboxError

OWN = ids.Ids([(0, os.getuid() or 524288, 1)], [(0, os.getgid() or 524288, 1)])


class State(unittest.TestCase):
    """Each test has a folder of its own, where "s" is to be a state."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = f"{folder.name}/s"

    def record(self, **changes):
        """Makes a state and changes its record."""
        state.make_state(self.path, OWN)
        record = f"{self.path}/{state.RECORD}"
        with open(record, encoding="utf-8") as file:
            facts = {**json.load(file), **changes}
        with open(record, "w", encoding="utf-8") as file:
            json.dump(facts, file)

    def refused(self, text):
        """Expects that neither a run nor a removal takes the folder."""
        for action in (lambda: state.open_state(self.path), lambda: state.erase(self.path),
                       lambda: state.make_state(self.path, OWN)):
            with self.assertRaisesRegex(SandboxError, text):
                action()
        self.assertTrue(os.path.exists(self.path))

    def test_a_new_state_is_its_makers_alone(self):
        for mode in (None, 0o777):
            if mode:
                os.mkdir(self.path)
                os.chmod(self.path, mode)
            made = state.make_state(self.path, OWN)

            self.assertEqual(stat.S_IMODE(os.stat(self.path).st_mode), 0o700)
            self.assertEqual(sorted(os.listdir(self.path)), [
                "drive", "incoming", "kx-device-state", "lower", "merged", "mid", "panel", "proc",
                "root", "usr", "work"])
            opened = state.open_state(self.path)
            self.assertEqual((opened.ids.users, opened.ids.groups), (OWN.users, OWN.groups))
            self.assertEqual((made.ids, made.path, made.lock), (OWN, self.path, -1))
            state.erase(self.path)
            self.assertFalse(os.path.exists(self.path))

    def test_another_folder_is_no_state(self):
        os.mkdir(self.path, 0o700)
        with open(f"{self.path}/file", "x", encoding="ascii"):
            pass
        self.refused("is not the state of a panel; name a new or an empty folder$")
        for text in ("", "[]", "{}", '{"format": 1, "owner": 0}', "\0"):
            with open(f"{self.path}/{state.RECORD}", "w", encoding="ascii") as file:
                file.write(text)
            self.refused("is not the state of a panel")

    def test_the_state_of_another_version_is_refused(self):
        self.record(format=2)

        self.refused("was made by another version; erase it$")

    def test_the_state_of_another_user_is_refused(self):
        self.record(owner=os.geteuid() + 1)

        self.refused(f"was made by user {os.geteuid() + 1}; use it as that user$")

    def test_a_state_that_others_can_change_is_refused(self):
        state.make_state(self.path, OWN)
        for name in (self.path, f"{self.path}/{state.RECORD}"):
            usual = stat.S_IMODE(os.stat(name).st_mode)
            for bit in (0o020, 0o002):
                os.chmod(name, usual | bit)
                self.refused(f"^{name} belongs to somebody else, or somebody else can change it")
            os.chmod(name, usual)
        state.open_state(self.path)

    @unittest.skipUnless(os.geteuid() == 0, "only root gives files away")
    def test_a_state_that_belongs_to_another_is_refused(self):
        state.make_state(self.path, OWN)
        for name in (self.path, f"{self.path}/{state.RECORD}"):
            os.chown(name, 1, -1)
            self.refused(f"^{name} belongs to somebody else")
            os.chown(name, 0, -1)
        state.open_state(self.path)

    def test_a_record_that_is_a_link_is_refused(self):
        self.record()
        os.rename(f"{self.path}/{state.RECORD}", f"{self.path}/real")
        os.symlink("real", f"{self.path}/{state.RECORD}")

        self.refused("belongs to somebody else, or somebody else can change it")

    def test_root_of_the_machine_is_nobody_inside(self):
        for kind in ("users", "groups"):
            with mock.patch.object(state.os, "geteuid", return_value=0), \
                    mock.patch.object(state, "_check_owner"):
                self.record(owner=0, ids={"users": [[0, 1, 5]], "groups": [[0, 1, 5]],
                                          kind: [[0, 5, 1], [1, 0, 5]]})
                with self.assertRaisesRegex(SandboxError, "root inside the machine's root"):
                    state.open_state(self.path)
            for path, folders, files in os.walk(self.path, topdown=False):
                for name in files:
                    os.unlink(f"{path}/{name}")
                for name in folders:
                    os.rmdir(f"{path}/{name}")

    def test_a_state_is_held_by_one_at_a_time(self):
        first = state.make_state(self.path, OWN)
        second = state.open_state(self.path)

        self.assertTrue(first.try_lock())
        self.assertFalse(second.try_lock())
        self.assertEqual(second.lock, -1)
        with self.assertRaisesRegex(SandboxError, "^a panel is running in .*; end it first$"):
            state.erase(self.path)
        self.assertFalse(os.get_inheritable(first.lock))
        os.close(first.lock)
        self.assertTrue(second.try_lock())
        os.close(second.lock)

    def test_a_removal_that_was_interrupted_can_be_done_again(self):
        state.make_state(self.path, OWN)
        removed = []

        def remove(folder, name, really=trees.remove):
            removed.append(name)
            really(folder, name)

        with mock.patch.object(trees, "remove", remove):
            folder = os.path.dirname(self.path)
            state._erase_content(self.path)  # pylint: disable=protected-access
        self.assertEqual(removed.index(state.RECORD), len(removed) - 1)
        self.assertGreater(len(removed), 1)
        self.assertEqual(os.listdir(folder), ["s"])

    def test_a_child_that_fails_is_an_error(self):
        def fail():
            raise OSError(28, "No space left on device")

        with mock.patch.object(state.os, "write", lambda fd, data: (
                len(data) if fd == 2 else os.writev(fd, [data]))):
            with self.assertRaisesRegex(SandboxError, "^the files of the panel cannot be changed$"):
                state.run_as_panel(OWN, fail)
            state.run_as_panel(OWN, lambda: None)

    def test_notes_that_cannot_be_read_are_as_if_missing(self):
        state.make_state(self.path, OWN)
        folder = os.open(f"{self.path}/panel", trees.DIR_FLAGS)
        self.addCleanup(os.close, folder)
        self.assertEqual(state.read_json(folder, "x.json", {"a": 1}), {"a": 1})
        trees.write_file(folder, "x.json", b"{half")
        self.assertEqual(state.read_json(folder, "x.json", 7), 7)
        state.write_json(folder, "x.json", {"b": [1], "a": "\u00e9"})
        self.assertEqual(state.read_json(folder, "x.json", 7), {"b": [1], "a": "\u00e9"})


if __name__ == "__main__":
    unittest.main()

# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Which folders are taken for the state of a panel, and how they are made, held and removed."""

import errno
import json
import os
import stat
import tempfile
import unittest
from unittest import mock

from kxdevice import ids, state, trees
from kxdevice.linux import SandboxError
from played import play

OWN = ids.Ids([(0, os.getuid() or 524288, 1)], [(0, os.getgid() or 524288, 1)])


class State(unittest.TestCase):
    """Each test has a folder of its own, where "s" is to be a state."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = f"{os.path.realpath(folder.name)}/s"

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

    def test_a_state_that_could_not_be_made_whole_is_none(self):
        with mock.patch.object(state, "OWN_FOLDERS", ("work", "work")):
            with self.assertRaisesRegex(SandboxError, "cannot be made"):
                state.make_state(self.path, OWN)
        self.refused("is not the state of a panel; name a new or an empty folder$")

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
        with mock.patch.object(state, "PATIENCE", 0), \
                self.assertRaisesRegex(SandboxError, "^a panel is running in .*; end it first$"):
            state.erase(self.path)
        self.assertFalse(os.get_inheritable(first.lock))
        os.close(first.lock)
        self.assertTrue(second.try_lock())
        os.close(second.lock)

    def test_a_panel_that_is_ending_is_waited_for(self):
        first = state.make_state(self.path, OWN)
        self.assertTrue(first.try_lock())
        naps = []

        def sleep(seconds):
            naps.append(seconds)
            if len(naps) == 3:
                os.close(first.lock)
        with mock.patch.object(state.time, "sleep", sleep):
            state.erase(self.path)

        self.assertEqual(naps, [0.01] * 3)
        self.assertFalse(os.path.lexists(self.path))

    def test_a_lock_is_never_held_through_a_link(self):
        made = state.make_state(self.path, OWN)
        elsewhere = os.path.join(os.path.dirname(self.path), "elsewhere")
        os.symlink(elsewhere, f"{self.path}/lock")

        with self.assertRaises(OSError) as raised:
            made.try_lock()
        self.assertEqual((raised.exception.errno, made.lock), (errno.ELOOP, -1))
        self.assertFalse(os.path.lexists(elsewhere))

    def test_trouble_names_the_folder_and_what_helps(self):
        folder = os.path.dirname(self.path)
        with open(f"{folder}/file", "x", encoding="ascii"):
            pass
        for path, action, text in (
                (f"{folder}/file", state.open_state,
                 "is not the state of a panel; name a new or an empty folder"),
                (f"{folder}/none", state.open_state,
                 "is not the state of a panel; name a new or an empty folder")):
            with self.assertRaises(SandboxError) as raised:
                action(path)
            self.assertEqual(str(raised.exception), f"{path} {text}")
        with self.assertRaises(SandboxError) as raised:
            state.make_state(f"{folder}/file/s", OWN)
        self.assertEqual(str(raised.exception), f"the state {folder}/file/s cannot be made "
                         "(Not a directory); name a folder that you can write")
        self.record(format=2)
        self.refused(f"^{self.path} was made by another version; erase it$")
        with open(f"{self.path}/{state.RECORD}", "w", encoding="ascii") as file:
            json.dump({"format": 1, "owner": os.geteuid() + 1, "ids": OWN.as_dict()}, file)
        self.refused(f"^{self.path} was made by user {os.geteuid() + 1}; use it as that user$")
        os.chmod(self.path, 0o770)
        self.refused(f"^{self.path} belongs to somebody else, or somebody else can change it; use "
                     "a folder of your own$")

    def test_of_several_troubles_the_one_that_may_be_an_attack_is_told(self):
        self.record(format=2, owner=os.geteuid() + 1)
        self.refused("was made by another version")
        os.chmod(self.path, 0o770)
        self.refused("belongs to somebody else, or somebody else can change it")
        with open(f"{self.path}/{state.RECORD}", "w", encoding="ascii") as file:
            file.write("nonsense")
        self.refused("belongs to somebody else, or somebody else can change it")

    def test_a_held_state_is_told_by_its_name(self):
        first = state.make_state(self.path, OWN)
        self.assertTrue(first.try_lock())
        with mock.patch.object(state, "PATIENCE", 0), \
                self.assertRaises(SandboxError) as raised:
            state.erase(self.path)

        self.assertEqual(str(raised.exception), f"a panel is running in {self.path}; end it first")
        self.assertEqual(os.readlink(f"/proc/self/fd/{first.lock}"), f"{self.path}/lock")
        self.assertEqual(stat.S_IMODE(os.fstat(first.lock).st_mode), 0o600)
        os.close(first.lock)

    def test_a_lock_that_fails_is_told_and_a_link_is_none(self):
        made = state.make_state(self.path, OWN)
        before = len(os.listdir("/proc/self/fd"))
        for number, told in ((errno.EWOULDBLOCK, False), (errno.EACCES, False),
                             (errno.ENOLCK, True)):
            play(self, state, "fcntl", flock=OSError(number, "no"))
            if told:
                self.assertRaises(OSError, made.try_lock)
            else:
                self.assertIs(made.try_lock(), False)
            self.assertEqual((made.lock, len(os.listdir("/proc/self/fd"))), (-1, before))
        os.unlink(f"{self.path}/lock")
        os.symlink("elsewhere", f"{self.path}/lock")
        self.assertRaises(OSError, made.try_lock)

    def test_others_may_look_into_a_state(self):
        state.make_state(self.path, OWN)
        os.chmod(self.path, 0o755)

        state.open_state(self.path)

    def test_the_folders_of_a_state_are_made_whole(self):
        umask = os.umask(0)
        self.addCleanup(os.umask, umask)
        before = len(os.listdir("/proc/self/fd"))
        state.make_state(f"{self.path}/deep/er", OWN)
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

        own = (os.geteuid(), os.getegid())
        inside = OWN.root() if os.geteuid() == 0 else own
        for names, owner in ((("root", "usr", "drive", "incoming", "panel"), inside),
                             (("work", "mid", "lower", "merged", "proc"), own)):
            for name in names:
                facts = os.stat(f"{self.path}/deep/er/{name}")
                self.assertEqual((stat.S_IMODE(facts.st_mode), facts.st_uid, facts.st_gid),
                                 (0o755, *owner), name)
        with open(f"{self.path}/deep/er/{state.RECORD}", encoding="ascii") as file:
            text = file.read()
        self.assertTrue(text.endswith("}\n"))
        self.assertEqual(json.loads(text)["owner"], os.geteuid())

    def test_folders_that_were_shut_are_opened_for_their_removal(self):
        names = ("a", "a/b", "a/b/c", "outside")
        for name in names:
            os.makedirs(f"{self.path}/{name}")
        os.symlink(f"{self.path}/outside", f"{self.path}/a/link")
        for name, mode in (("a/b/c", 0), ("a/b", 0o500), ("a", 0o077)):
            os.chmod(f"{self.path}/{name}", mode)
        os.chmod(f"{self.path}/outside", 0)
        with open(f"{os.path.dirname(self.path)}/file", "x", encoding="ascii"):
            pass
        shut = {"a", "c"}  # as for a user who is not root
        real = os.open

        def open_it(name, flags, **place):
            if name in shut:
                shut.remove(name)
                raise PermissionError(errno.EACCES, "no")
            return real(name, flags, **place)
        folder = os.open(self.path, trees.DIR_FLAGS)
        self.addCleanup(os.close, folder)
        before = len(os.listdir("/proc/self/fd"))
        play(self, state, "os", open=open_it)
        state._open_up(folder, "a")
        state._open_up(folder, "none")

        modes = [stat.S_IMODE(os.stat(f"{self.path}/{name}").st_mode) for name in names]
        self.assertEqual((modes, shut), ([0o700] * 3 + [0], set()))
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    def test_only_folders_that_must_be_opened_are_changed(self):
        os.makedirs(f"{self.path}/a/b")
        os.chmod(f"{self.path}/a/b", 0o2751)
        folder = os.open(self.path, trees.DIR_FLAGS)
        self.addCleanup(os.close, folder)
        done = play(self, state, "os", fchmod=None, chmod=None)
        state._open_up(folder, "a")

        self.assertEqual(done, [])

    def test_everything_of_a_state_is_opened_before_it_is_removed(self):
        state.make_state(self.path, OWN)
        opened = []
        before = len(os.listdir("/proc/self/fd"))
        with mock.patch.object(state, "_open_up", lambda _, name: opened.append(name)):
            state._erase_content(self.path)

        self.assertEqual(sorted(opened), ["drive", "incoming", "lower", "merged", "mid", "panel",
                                          "proc", "root", "usr", "work"])
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

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

    def child(self, action, user=0, **answers):
        """Runs an action as the panel of a user; returns what the child did and who was mapped."""
        reader, writer = os.pipe()
        mapped = play(self, state, "ids_module", write_map=answers.get("write_map"))

        def note(text):
            os.writev(writer, [text.encode()])
        play(self, state, "os", geteuid=user, write=lambda fd, data: os.writev(
            writer if fd == 2 else fd, [data]))
        play(self, state, "linux", unshare=lambda flags: note(f"unshare {flags:x} "))
        before = len(os.listdir("/proc/self/fd"))
        problem = ""
        try:
            state.run_as_panel(OWN, lambda: action(note))
        except SandboxError as error:
            problem = str(error)
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)
        with self.assertRaises(ChildProcessError):
            os.waitpid(-1, os.WNOHANG)
        os.close(writer)
        with os.fdopen(reader, "rb") as file:
            return file.read(), [(name, *rest[1:]) for name, *rest in mapped], problem

    def test_root_acts_at_once_and_an_ordinary_user_with_his_panels_ids(self):
        def action(note):
            note("acted")
        self.assertEqual(self.child(action), (b"acted", [], ""))
        self.assertEqual(self.child(action, 7),
                         (b"unshare 10000000 acted", [("write_map", OWN)], ""))

    def test_trouble_of_the_child_is_one_line(self):
        cannot = "the files of the panel cannot be changed"

        def refuse(_):
            raise SandboxError("\udcff is nothing")

        def fail(_):
            raise OSError(errno.ENOSPC, "No space")

        self.assertEqual(self.child(refuse), (b"device: \xff is nothing\n", [], cannot))
        self.assertEqual(self.child(fail), (b"device: No space\n", [], cannot))
        self.assertEqual(self.child(lambda _: os._exit(3)), (b"", [], cannot))

    def test_a_child_without_ids_does_nothing(self):
        self.assertEqual(
            self.child(lambda note: note("acted"), 7, write_map=SandboxError("no ids")),
            (b"unshare 10000000 ", [("write_map", OWN)], "no ids"))

    def test_notes_that_cannot_be_read_are_as_if_missing(self):
        state.make_state(self.path, OWN)
        folder = os.open(f"{self.path}/panel", trees.DIR_FLAGS)
        self.addCleanup(os.close, folder)
        self.assertEqual(state.read_json(folder, "x.json", {"a": 1}), {"a": 1})
        trees.write_file(folder, "x.json", b"{half")
        self.assertEqual(state.read_json(folder, "x.json", 7), 7)
        state.write_json(folder, "x.json", {"b": [1], "a": "\u00e9"})
        self.assertEqual(state.read_json(folder, "x.json", 7), {"b": [1], "a": "\u00e9"})
        self.assertEqual(trees.read_file(folder, "x.json"), b'{"a": "\\u00e9", "b": [1]}\n')


if __name__ == "__main__":
    unittest.main()

# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Which ids of the machine stand for a panel's: never those of root or of somebody else."""

import io
import os
import subprocess
import unittest
from unittest import mock

from kxdevice import ids, linux

ALL = "0 0 4294967295\n"


class ForCaller(unittest.TestCase):
    """The choice for whoever starts the device, by the machine's files."""

    def chosen(self, user, files, tools=True):
        """Returns the maps of users and groups for a user named as in files."""
        def fake_open(path, **_):
            if path not in files:
                raise FileNotFoundError(path)
            return io.StringIO(files[path])

        with mock.patch.object(ids, "open", fake_open, create=True), \
                mock.patch.multiple(os, geteuid=lambda: user, getuid=lambda: user,
                                    getegid=lambda: user + 1,
                                    access=tools if callable(tools) else lambda *_: tools), \
                mock.patch.object(ids, "_own_name", lambda: "me"):
            made = ids.for_caller()
        return made.users, made.groups

    def test_root_gets_a_range_that_belongs_to_nobody(self):
        files = {"/proc/self/uid_map": ALL, "/proc/self/gid_map": ALL}

        self.assertEqual(self.chosen(0, files), ([(0, 524288, 65536)], [(0, 524288, 65536)]))

    def test_root_gets_the_range_that_was_given_to_root(self):
        files = {"/proc/self/uid_map": ALL, "/proc/self/gid_map": ALL,
                 "/etc/subuid": "other:100000:65536\nroot:200000:70000\n",
                 "/etc/subgid": "# comment\nroot:x:y\n0:300000:65536\nroot:400000:65536\n"}
        self.assertEqual(self.chosen(0, files), ([(0, 200000, 65536)], [(0, 300000, 65536)]))

    def test_a_range_that_is_small_holds_root_or_is_not_mapped_is_not_taken(self):
        for line in ("root:200000:65535", "root:0:65536", "root:4294960000:70000"):
            files = {"/proc/self/uid_map": ALL, "/proc/self/gid_map": ALL, "/etc/subuid": line}
            self.assertEqual(self.chosen(0, files)[0], [(0, 524288, 65536)], line)

    def test_root_of_a_container_gets_what_there_is_without_its_own_id(self):
        files = {"/proc/self/uid_map": "0 100000 65536\n",
                 "/proc/self/gid_map": "0 1000 1\n1 100000 30\n"}

        self.assertEqual(self.chosen(0, files), ([(0, 1, 65535)], [(0, 1, 30)]))

    def test_root_without_other_ids_is_refused(self):
        files = {"/proc/self/uid_map": "0 1000 1\n", "/proc/self/gid_map": ALL}

        with self.assertRaisesRegex(linux.SandboxError, "^root has no unprivileged ids to give to "
                                    "the panel; start it as an ordinary user$"):
            self.chosen(0, files)

    def test_root_of_a_container_gets_the_largest_range_there_is(self):
        files = {"/proc/self/uid_map": "0 1000 1\n1 200000 9\n20 300000 40\n100 1 3\n",
                 "/proc/self/gid_map": "0 1000 2\n5 7 1\n"}

        self.assertEqual(self.chosen(0, files), ([(0, 20, 40)], [(0, 1, 1)]))

    def test_a_range_at_the_very_edge_of_what_is_mapped_is_taken(self):
        for text, start in (("0 0 200000\n200000 200000 65536\n", 200000),
                            ("200000 0 65536\n0 0 9\n", 200000),
                            ("0 0 9\n200000 0 65535\n", 200000)):
            files = {"/proc/self/uid_map": text, "/proc/self/gid_map": ALL,
                     "/etc/subuid": "root:200000:65536\n"}
            self.assertEqual(self.chosen(0, files)[0], [(0, start, min(
                65536, 65535 if "65535" in text else 65536))])
        files = {"/proc/self/uid_map": "0 0 9\n200001 0 65536\n", "/proc/self/gid_map": ALL,
                 "/etc/subuid": "root:200000:65536\n"}
        self.assertEqual(self.chosen(0, files)[0], [(0, 200001, 65536)])

    def test_lines_of_another_form_are_left_out(self):
        files = {"/etc/subuid": "me:1\nme:1:2:3\nme:-1:5\nme:5:x\nme:300:9\n",
                 "/etc/subgid": "me:400:8\n"}

        self.assertEqual(self.chosen(7, files), ([(0, 7, 1), (1, 300, 9)],
                                                 [(0, 8, 1), (1, 400, 8)]))

    def test_ranges_need_both_tools_each_in_either_folder(self):
        files = {"/etc/subuid": "me:300:9\n", "/etc/subgid": "me:400:8\n"}
        for there, wanted in (
                (("/usr/bin/newuidmap", "/usr/bin/newgidmap"), 2),
                (("/bin/newuidmap", "/usr/bin/newgidmap"), 2),
                (("/bin/newuidmap", "/bin/newgidmap"), 2), (("/usr/bin/newuidmap",), 1),
                (("/bin/newgidmap",), 1), ((), 1)):
            def access(path, mode, there=there):
                return mode == os.X_OK and path in there
            self.assertEqual(len(self.chosen(7, files, access)[0]), wanted, there)

    def test_a_user_without_a_name_is_known_by_his_number(self):
        with mock.patch("pwd.getpwuid", side_effect=KeyError), \
                mock.patch.object(os, "getuid", lambda: 4321):
            self.assertEqual(ids._own_name(), "4321")
        with mock.patch("pwd.getpwuid", return_value=mock.Mock(pw_name="me")):
            self.assertEqual(ids._own_name(), "me")

    def test_an_ordinary_user_is_root_inside_and_has_the_ranges_of_his_name_or_number(self):
        files = {"/etc/subuid": "you:1:9\nme:200000:65536\n", "/etc/subgid": "7:300000:100\n"}

        self.assertEqual(self.chosen(7, files), ([(0, 7, 1), (1, 200000, 65535)],
                                                 [(0, 8, 1), (1, 300000, 100)]))
        files = {"/etc/subuid": "me:200000:7\n", "/etc/subgid": "me:300000:70000\n"}
        self.assertEqual(self.chosen(7, files), ([(0, 7, 1), (1, 200000, 7)],
                                                 [(0, 8, 1), (1, 300000, 65535)]))

    def test_an_ordinary_user_without_both_ranges_or_the_tools_has_only_root(self):
        ranges = {"/etc/subuid": "me:200000:65536\n", "/etc/subgid": "me:200000:65536\n"}
        only = ([(0, 7, 1)], [(0, 8, 1)])

        self.assertEqual(self.chosen(7, {}), only)
        self.assertEqual(self.chosen(7, ranges, tools=False), only)
        for kind in ranges:
            self.assertEqual(self.chosen(7, {kind: ranges[kind]}), only)


class Map(unittest.TestCase):
    """What a map tells."""

    def setUp(self):
        self.small = ids.Ids([[0, 7, 1]], [[0, 8, 1]])
        self.large = ids.Ids([(0, 7, 1), (1, 1000, 50)], [(0, 8, 1), (1, 2000, 20)])

    def test_it_is_written_and_recorded_as_it_is(self):
        self.assertEqual(self.large.text("users"), "0 7 1\n1 1000 50\n")
        self.assertEqual(self.large.text("groups"), "0 8 1\n1 2000 20\n")
        self.assertEqual(self.small.as_dict(), {"users": [(0, 7, 1)], "groups": [(0, 8, 1)]})
        self.assertEqual(self.large.root(), (7, 8))

    def test_it_knows_what_is_inside(self):
        self.assertTrue(self.small.only_root())
        self.assertFalse(self.large.only_root())
        self.assertFalse(ids.Ids([(0, 5, 2)], [(0, 5, 2)]).only_root())
        for pair, has in (((0, 0), True), ((50, 20), True), ((51, 20), False), ((50, 21), False)):
            self.assertEqual(self.large.has(*pair), has, pair)

    def test_files_are_given_to_the_ids_outside_or_inside_and_else_to_root(self):
        for is_outside, pair, given in ((True, (0, 0), (7, 8)), (True, (3, 2), (1002, 2001)),
                                        (True, (3, 21), (7, 8)), (False, (3, 2), (3, 2)),
                                        (False, (51, 2), (0, 0))):
            with mock.patch.object(os, "chown") as chown:
                ids.Owners(self.large, is_outside).give("path", *pair)
            chown.assert_called_once_with("path", *given, follow_symlinks=False)
        self.assertEqual(ids.Owners(self.large, True).root, (7, 8))
        self.assertEqual(ids.Owners(self.large, False).root, (0, 0))


class Write(unittest.TestCase):
    """How a process gets its map."""

    def written(self, user, ids_inside, results=()):
        """Returns what was written and which tools were called, in order."""
        done = []

        def run(words, **_):
            done.append(words)
            return mock.Mock(returncode=results[len(done) - 1], stderr=b"no\nmore")

        with mock.patch.object(ids, "_put", lambda *words: done.append(words)), \
                mock.patch.object(os, "geteuid", lambda: user), \
                mock.patch("subprocess.run", run):
            try:
                ids.write_map(42, ids_inside)
            except linux.SandboxError as error:
                done.append(str(error))
        return done

    def test_the_tools_get_nothing_of_the_caller(self):
        large = ids.Ids([(0, 7, 1), (1, 1000, 50)], [(0, 8, 1), (1, 2000, 20)])
        with mock.patch("subprocess.run") as run, mock.patch.object(os, "geteuid", lambda: 7):
            run.return_value.returncode = 0
            ids.write_map(42, large)

        for call in run.call_args_list:
            self.assertEqual(call.kwargs, {
                "env": {"PATH": "/usr/bin:/bin"}, "stdin": subprocess.DEVNULL,
                "capture_output": True, "check": False})

    def test_a_map_is_written_in_one_piece_and_trouble_is_told(self):
        reader, writer = os.pipe()
        opened = []

        def fake_open(*words):
            opened.append(words)
            return writer
        with mock.patch.object(ids.os, "open", fake_open):
            ids._put(42, "uid_map", "0 1 2\n")
        self.assertEqual(opened, [("/proc/42/uid_map", os.O_WRONLY | os.O_CLOEXEC)])
        self.assertRaises(OSError, os.fstat, writer)
        with os.fdopen(reader, "rb") as file:
            self.assertEqual(file.read(), b"0 1 2\n")

    def test_groups_are_given_up_before_an_ordinary_user_maps_his_own(self):
        small, large = ids.Ids([(0, 7, 1)], [(0, 8, 1)]), ids.Ids([(0, 1, 9)], [(0, 2, 9)])

        self.assertEqual(self.written(7, small), [
            (42, "setgroups", "deny"), (42, "gid_map", "0 8 1\n"), (42, "uid_map", "0 7 1\n")])
        self.assertEqual(self.written(0, large), [
            (42, "gid_map", "0 2 9\n"), (42, "uid_map", "0 1 9\n")])

    def test_ranges_are_mapped_by_the_machines_tools(self):
        large = ids.Ids([(0, 7, 1), (1, 1000, 50)], [(0, 8, 1), (1, 2000, 20)])
        groups = ["newgidmap", "42", "0", "8", "1", "1", "2000", "20"]
        users = ["newuidmap", "42", "0", "7", "1", "1", "1000", "50"]

        self.assertEqual(self.written(7, large, (0, 0)), [groups, users])
        self.assertEqual(self.written(7, large, (0, 1)), [
            groups, users, "newuidmap refused the id ranges of /etc/subuid (no); "
            "correct or remove them"])
        self.assertEqual(self.written(7, large, (1,)), [
            groups, "newgidmap refused the id ranges of /etc/subgid (no); correct or remove them"])


if __name__ == "__main__":
    unittest.main()

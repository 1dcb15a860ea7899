# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The control groups of a panel: which files get which text, in which order."""

import errno
import os
import unittest

from groups_file_system import GroupsFileSystem
from kxdevice import cgroups

V1 = "4:memory:/box\n3:cpu,cpuacct:/box\n2:pids:/\n1:name=systemd:/\n0::/\n"
V1_FOLDERS = ("memory/box", "pids", "unified")
V2 = "0::/user.slice/shell\n"
V2_FOLDERS = (".", "user.slice", "user.slice/shell")


def made(system, memory=100, processes=9):
    """Makes the groups kx on a file system."""
    groups = cgroups.Groups()
    groups.make("kx", memory, processes)
    return groups


class Version1(unittest.TestCase):
    """Memory and processes in hierarchies of their own."""

    def test_both_groups_are_limited_below_the_callers_own(self):
        with GroupsFileSystem(V1, V1_FOLDERS) as system:
            groups = made(system)

            self.assertEqual(system.journal(), [
                "mkdir memory/box/kx", "memory/box/kx/memory.limit_in_bytes = 100",
                "child: memory/box/kx/cgroup.procs = 0", "memory/box/kx/memory.swappiness = 0",
                "memory/box/kx/memory.memsw.limit_in_bytes = 100",
                "mkdir pids/kx", "pids/kx/pids.max = 9", "child: pids/kx/cgroup.procs = 0"])
            self.assertTrue(groups.has_memory)
            self.assertEqual([os.path.normpath(path) for path in groups.paths],
                             [f"{system.root}/memory/box/kx", f"{system.root}/pids/kx"])

    def test_a_kernel_without_counted_swap_limits_the_memory_all_the_same(self):
        with GroupsFileSystem(V1, V1_FOLDERS) as system:
            system.lacking = ("memory.memsw.limit_in_bytes", "memory.swappiness")

            self.assertTrue(made(system).has_memory)
            self.assertEqual(system.text("memory/box/kx/memory.limit_in_bytes"), "100")

    def test_what_cannot_be_limited_or_joined_is_taken_back(self):
        for trouble in ("write memory/box/kx/memory.limit_in_bytes",
                        "write memory/box/kx/cgroup.procs", "mkdir memory/box/kx"):
            for number in (errno.EACCES, errno.EBUSY, errno.ENOENT, errno.EROFS):
                with self.subTest(trouble, number=number), \
                        GroupsFileSystem(V1, V1_FOLDERS) as system:
                    system.errors[trouble] = [number]
                    groups = made(system)

                    self.assertFalse(groups.has_memory)
                    self.assertEqual(groups.oom_files, [])
                    self.assertEqual(system.groups(), ["memory/box", "pids", "pids/kx", "unified"])

    def test_processes_that_cannot_be_limited_or_joined_leave_the_memory_limited(self):
        for trouble in ("write pids/kx/pids.max", "write pids/kx/cgroup.procs", "mkdir pids/kx"):
            with self.subTest(trouble), GroupsFileSystem(V1, V1_FOLDERS) as system:
                system.errors[trouble] = [errno.EACCES]
                groups = made(system)

                self.assertTrue(groups.has_memory)
                self.assertEqual(system.groups(),
                                 ["memory/box", "memory/box/kx", "pids", "unified"])
                self.assertEqual(groups.paths, [f"{system.root}/memory/box/kx"])

    def test_a_group_of_that_name_is_left_alone(self):
        with GroupsFileSystem(V1, (*V1_FOLDERS, "memory/box/kx")) as system:
            groups = made(system)
            groups.remove()

            self.assertFalse(groups.has_memory)
            self.assertIn("memory/box/kx", system.groups())

    def test_version_2_beside_it_is_used_for_the_memory_that_version_1_lacks(self):
        own = "2:pids:/\n0::/\n"
        with GroupsFileSystem(own, ("pids", "unified"), ["unified"]) as system:
            self.assertTrue(made(system).has_memory)

            self.assertEqual(system.groups(), ["pids", "pids/kx", "unified", "unified/kx"])


class Version2(unittest.TestCase):
    """One hierarchy; a group with processes hands nothing down."""

    def test_the_callers_own_group_is_used_where_it_hands_down(self):
        with GroupsFileSystem(V2, V2_FOLDERS, ["user.slice/shell"]) as system:
            groups = made(system)

            self.assertEqual(system.journal(), [
                "mkdir user.slice/shell/kx", "user.slice/shell/kx/memory.max = 100",
                "user.slice/shell/kx/pids.max = 9", "child: user.slice/shell/kx/cgroup.procs = 0",
                "user.slice/shell/kx/memory.swap.max = 0"])
            self.assertTrue(groups.has_memory)

    def test_a_group_further_up_is_used_where_the_own_has_processes(self):
        with GroupsFileSystem(V2, V2_FOLDERS, ["user.slice"]) as system:
            groups = made(system)

            self.assertEqual(system.journal(), [
                "mkdir user.slice/shell/kx", "rmdir user.slice/shell/kx",
                "mkdir user.slice/kx", "user.slice/kx/memory.max = 100",
                "user.slice/kx/pids.max = 9", "child: user.slice/kx/cgroup.procs = 0",
                "user.slice/kx/memory.swap.max = 0"])
            self.assertEqual(groups.paths, [f"{system.root}/user.slice/kx"])

    def test_the_root_is_the_last_that_is_tried(self):
        with GroupsFileSystem(V2, V2_FOLDERS, [""]) as system:
            groups = made(system)

            self.assertTrue(groups.has_memory)
            self.assertEqual(groups.paths, [f"{system.root}/kx"])

    def test_a_caller_in_the_root_has_its_group_there(self):
        with GroupsFileSystem("0::/\n", V2_FOLDERS, [""]) as system:
            self.assertEqual(made(system).paths, [f"{system.root}/kx"])

    def test_without_any_group_that_hands_down_nothing_is_left(self):
        with GroupsFileSystem(V2, V2_FOLDERS) as system:
            groups = made(system)

            self.assertEqual(system.journal(), [
                "mkdir user.slice/shell/kx", "rmdir user.slice/shell/kx", "mkdir user.slice/kx",
                "rmdir user.slice/kx", "mkdir kx", "rmdir kx"])
            self.assertEqual((groups.has_memory, groups.paths), (False, []))

    def test_a_group_that_cannot_be_limited_or_joined_is_taken_back(self):
        # EBUSY where a group with processes would hand down, EOPNOTSUPP below a threaded group.
        for trouble in ("mkdir user.slice/shell/kx", "write user.slice/shell/kx/memory.max",
                        "write user.slice/shell/kx/pids.max",
                        "write user.slice/shell/kx/cgroup.procs"):
            for number in (errno.EACCES, errno.EBUSY, errno.EOPNOTSUPP, errno.ENOENT):
                with self.subTest(trouble, number=number), GroupsFileSystem(
                        V2, V2_FOLDERS, ["user.slice", "user.slice/shell"]) as system:
                    system.errors[trouble] = [number]
                    groups = made(system)

                    self.assertEqual(groups.paths, [f"{system.root}/user.slice/kx"])
                    self.assertEqual(groups.oom_files,
                                     [f"{system.root}/user.slice/kx/memory.events"])
                    self.assertEqual(system.groups(), [".", "user.slice", "user.slice/kx",
                                                       "user.slice/shell"][1:])

    def test_memory_without_processes_is_not_enough(self):
        with GroupsFileSystem(V2, V2_FOLDERS, ["user.slice"]) as system:
            system.lacking = ("pids.max",)
            groups = made(system)

            self.assertEqual((groups.has_memory, groups.paths), (False, []))

    def test_a_kernel_without_swap_limits_the_memory_all_the_same(self):
        with GroupsFileSystem(V2, V2_FOLDERS, ["user.slice"]) as system:
            system.lacking = ("memory.swap.max",)

            self.assertTrue(made(system).has_memory)

    def test_nothing_is_made_where_it_is_not_mounted(self):
        with GroupsFileSystem(V2, ("unified",), ["unified"]) as system:
            os.unlink(f"{system.root}/unified/cgroup.procs")
            made(system)

            self.assertEqual(system.journal(), [])

    def test_a_name_with_colons_is_a_name(self):
        with GroupsFileSystem("0::/a:b:c\n", (".", "a:b:c"), ["a:b:c"]) as system:
            self.assertEqual(made(system).paths, [f"{system.root}/a:b:c/kx"])


class Use(unittest.TestCase):
    """What happens after they were made."""

    def test_a_kernel_without_control_groups_has_none(self):
        for own in (None, ""):
            with GroupsFileSystem(own, ()) as system:
                groups = made(system)

                self.assertEqual((groups.has_memory, groups.paths, system.journal()),
                                 (False, [], []))
                self.assertEqual(groups.open_members(), ())
                self.assertFalse(groups.killed_for_memory())

    def test_a_process_joins_every_group(self):
        with GroupsFileSystem(V1, V1_FOLDERS) as system:
            members = made(system).open_members()
            for member in members:
                self.assertFalse(os.get_inheritable(member))
                os.write(member, b"7")
                os.close(member)

            self.assertEqual(len(members), 2)
            self.assertEqual([system.text("memory/box/kx/cgroup.procs"),
                              system.text("pids/kx/cgroup.procs")], ["7", "7"])

    def test_the_kernel_tells_whether_it_ended_a_process_for_memory(self):
        texts = {"oom_kill_disable 0\nunder_oom 0\noom_kill 1\n": True,
                 "oom_kill_disable 0\nunder_oom 1\noom_kill 0\n": False,
                 "oom_kill_disable 1\nunder_oom 1\n": False,
                 "low 0\nhigh 0\nmax 7\noom 2\noom_kill 12\noom_group_kill 0\n": True,
                 "low 3\nhigh 3\nmax 7\noom 2\noom_kill 0\n": False,
                 "\noom_kill\n": False, "": False}
        for own, folders, hands_down, file in (
                (V1, V1_FOLDERS, (), "memory/box/kx/memory.oom_control"),
                (V2, V2_FOLDERS, ["user.slice"], "user.slice/kx/memory.events")):
            with GroupsFileSystem(own, folders, hands_down) as system:
                groups = made(system)
                for text, killed in texts.items():
                    with self.subTest(file, text=text):
                        system.put(file, text)
                        self.assertEqual(groups.killed_for_memory(), killed)
                os.unlink(f"{system.root}/{file}")
                self.assertFalse(groups.killed_for_memory())

    def test_a_group_that_is_gone_does_not_hide_what_another_tells(self):
        with GroupsFileSystem(V1, V1_FOLDERS) as system:
            groups = made(system)
            system.put("memory/box/kx/memory.oom_control", "oom_kill 1\n")
            groups.oom_files.insert(0, f"{system.root}/memory/box/gone")

            self.assertTrue(groups.killed_for_memory())


class Removal(unittest.TestCase):
    """The end of the groups, whose processes may need a moment to be gone."""

    def test_all_are_removed_in_the_end(self):
        with GroupsFileSystem(V1, V1_FOLDERS) as system:
            groups = made(system)
            system.forget()
            groups.remove()
            groups.remove()

            self.assertEqual(system.journal(), ["rmdir memory/box/kx", "rmdir pids/kx"])
            self.assertEqual(system.groups(), ["memory/box", "pids", "unified"])
            self.assertEqual(system.sleeps, [])

    def test_a_busy_one_is_tried_again(self):
        with GroupsFileSystem(V1, V1_FOLDERS) as system:
            groups = made(system)
            system.errors["rmdir memory/box/kx"] = [errno.EBUSY] * 3
            groups.remove()

            self.assertEqual(system.groups(), ["memory/box", "pids", "unified"])
            self.assertEqual(system.sleeps, [0.01] * 3)

    def test_one_that_stays_busy_does_not_keep_the_others(self):
        with GroupsFileSystem(V1, V1_FOLDERS) as system:
            groups = made(system)
            system.errors["rmdir memory/box/kx"] = [errno.EBUSY] * 1000
            groups.remove()

            self.assertEqual(system.groups(), ["memory/box", "memory/box/kx", "pids", "unified"])
            self.assertEqual(len(system.sleeps), 200)  # of 10 ms each
            self.assertEqual(groups.paths, [])

    def test_one_that_somebody_else_removed_is_fine(self):
        with GroupsFileSystem(V2, V2_FOLDERS, ["user.slice"]) as system:
            groups = made(system)
            system.errors["rmdir user.slice/kx"] = [errno.ENOENT]
            groups.remove()

            self.assertEqual(system.sleeps, [])


if __name__ == "__main__":
    unittest.main()

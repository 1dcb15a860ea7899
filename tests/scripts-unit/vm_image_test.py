# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What is put into the virtual machine, and from where."""
import contextlib
import os
import pathlib
import subprocess
import unittest
from types import SimpleNamespace
from unittest import mock

from kxscripts import vm_image
from played import InProject


class Added(InProject):
    """The option --add."""

    def test_a_file_has_the_same_place_unless_another_one_is_told(self):
        file = self.write("a file")
        self.assertEqual(vm_image.parse_added(f"{file}"), (file, str(file)))
        self.assertEqual(vm_image.parse_added(f"{file}:/usr/bin/x"), (file, "/usr/bin/x"))
        self.assertEqual(vm_image.parse_added(f"{file}:/a/../b//"), (file, "/b"))
        with contextlib.chdir(self.root):
            self.assertEqual(vm_image.parse_added("a file"), (pathlib.Path("a file"), str(file)))

    def test_a_name_with_a_colon_is_a_file_where_there_is_one(self):
        file = self.write("a:/b")
        self.assertEqual(vm_image.parse_added(f"{file}"), (file, str(file)))
        self.assertEqual(vm_image.parse_added(f"{file}:/c"), (file, "/c"))

    def test_what_is_missing_and_what_is_no_place_is_refused(self):
        self.expect_failed(f"{self.root}/x: there is no such file to add to the virtual machine",
                           vm_image.parse_added, f"{self.root}/x:/y")
        file = self.write("a")
        self.expect_failed(f"{file}:b: behind the colon stands the place in the virtual machine, "
                           "which begins with '/'", vm_image.parse_added, f"{file}:b")


class Libraries(InProject):
    """What a program is loaded with."""

    def told_by_ldd(self, text, program=None):
        """The libraries where ldd tells this of a program."""
        program = program or self.write("program", "\x7fELF")
        done = subprocess.CompletedProcess([], 0, stdout=text)
        with mock.patch("subprocess.run", return_value=done) as run:
            found = vm_image.libraries(program)
        self.asked = run.call_args
        return found

    def test_the_loader_and_every_library_is_told(self):
        self.assertEqual(
            self.told_by_ldd("\tlinux-vdso.so.1 (0x00007ffc)\n"
                             "\tlibz.so.1 => /lib/x86_64-linux-gnu/libz.so.1 (0x00007f11)\n"
                             "\tlibc.so.6 => /lib/x86_64-linux-gnu/libc.so.6 (0x00007f12)\n"
                             "\t/lib64/ld-linux-x86-64.so.2 (0x00007f13)\n"),
            ["/lib/x86_64-linux-gnu/libz.so.1", "/lib/x86_64-linux-gnu/libc.so.6",
             "/lib64/ld-linux-x86-64.so.2"])
        self.assertEqual(self.asked.args, (["ldd", self.root / "program"],))
        self.assertNotIn("LD_LIBRARY_PATH", self.asked.kwargs["env"])

    def test_a_static_program_has_none_and_nobody_asks_about_a_script(self):
        self.assertEqual(self.told_by_ldd("\tnot a dynamic executable\n"), [])
        self.assertEqual(self.told_by_ldd("\tstatically linked\n"), [])
        self.assertEqual(self.told_by_ldd("/x (0x1)", self.write("script", "#!/bin/sh\n")), [])
        self.assertIsNone(self.asked)

    def test_a_library_that_is_missing_is_told(self):
        program = self.write("program", "\x7fELF")
        self.expect_failed(f"{program} needs libx.so.1 liby.so.2, which this computer lacks",
                           self.told_by_ldd, "\tlibx.so.1 => not found\n\tliby.so.2 => not found\n")

    def test_a_program_of_this_computer_has_some(self):
        found = vm_image.libraries("/bin/ls")
        self.assertTrue(any("/libc.so" in name for name in found), found)
        self.assertTrue(any("/ld-linux" in name for name in found), found)


class Archive(InProject):
    """The machine's files together."""

    def setUp(self):
        super().setUp()
        modules = self.root / "modules"
        self.write("modules/kernel/a.ko", "module")
        for name in vm_image.DEPENDENCIES:
            self.write(f"modules/{name}", name)
        self.asked = []
        self.kernel = SimpleNamespace(modules=modules, version="6.1", needed=self.needed)
        tools = self.root / "tools"
        for name in ("busybox", *vm_image.TOOLS):
            self.write(f"tools/{name}", f"#!/bin/{name}\n", 0o755)
        self.patch(vm_image, "TOOL_FOLDERS", [str(tools)])

    def needed(self, names):
        """Stands for the kernel's answer."""
        self.asked.append(names)
        return ["kernel/a.ko"]

    def made(self, *added):
        """Makes the archive; returns its files with their kind, mode and owner."""
        work = self.root / "made"
        work.mkdir()
        archive = vm_image.make(self.kernel, added, work)
        self.assertEqual(os.listdir(work), ["initramfs"])
        self.archive = archive
        listed = self.cpio("-itvn").decode()
        files = {}
        for line in listed.splitlines():
            mode, _, user, group, *_ = line.split()
            self.assertEqual((user, group), ("0", "0"))
            files[line.split(None, 8)[8]] = mode
        return files

    def cpio(self, *words):
        """What cpio prints of the archive."""
        with self.archive.open("rb") as archive:
            return subprocess.run(["cpio", "--quiet", *words], stdin=archive, check=True,
                                  capture_output=True, env={"LC_ALL": "C.UTF-8"}).stdout

    def content(self, name):
        """What a file of the archive holds."""
        return self.cpio("-i", "--to-stdout", name)

    def test_it_has_the_tools_the_modules_and_the_first_program(self):
        files = self.made()
        self.assertEqual(self.asked, [vm_image.MODULES])
        self.assertEqual({name: mode for name, mode in files.items() if mode[0] != "d"}, {
            "bin/busybox": "-rwxr-xr-x", "bin/sh -> busybox": "lrwxrwxrwx", "init": "-rwxr-xr-x",
            **{f"usr/sbin/{name}": "-rwxr-xr-x" for name in vm_image.TOOLS},
            **{f"lib/modules/6.1/{name}": "-rw-r--r--"
               for name in (*vm_image.DEPENDENCIES, "kernel/a.ko")}})
        self.assertEqual(self.content("init"), vm_image.INIT.read_bytes())

    def test_it_has_what_was_added_with_libraries_and_names_of_its_own(self):
        self.write("folder/deep/file", "text")
        self.write("folder/ü  ü")
        (self.root / "folder/link").symlink_to("deep/file")
        with mock.patch.object(vm_image, "libraries",
                               lambda name: ["/lib64/x.so"] if name.name == "file" else []):
            real = vm_image.shutil.copy

            def copy(source, target):
                return (real(self.write("x.so", "library"), target) if source == "/lib64/x.so"
                        else real(source, target))
            with mock.patch.object(vm_image.shutil, "copy", copy):
                files = self.made((self.root / "folder", "/srv/it"),
                                  (self.root / "folder/deep/file", "/one"))
        self.assertEqual(files["srv/it/deep/file"], "-rw-r--r--")
        self.assertEqual(files["srv/it/link"], "-rw-r--r--")
        self.assertIn("srv/it/ü  ü", files)
        self.assertIn("one", files)
        self.assertEqual(self.content("lib64/x.so"), b"library")
        self.assertEqual(self.content("srv/it/link"), b"text")

    def test_a_tool_that_is_missing_is_told(self):
        os.unlink(self.root / "tools/mkfs.exfat")
        self.expect_failed("mkfs.exfat is missing; scripts/setup vm installs it", self.made)

    def test_an_archive_that_cannot_be_written_is_told(self):
        real = subprocess.run

        def run(words, **more):
            return real(["sh", "-c", "echo no luck >&2; exit 2"] if words[0] == "cpio" else words,
                        **more)
        with mock.patch("subprocess.run", run):
            self.expect_failed(f"cpio could not make {self.root}/made/initramfs: no luck\n",
                               self.made)


class FirstProgram(InProject):
    """The script that the machine starts with."""

    def test_it_is_the_file_beside_the_module(self):
        self.assertTrue(os.access(vm_image.INIT, os.X_OK))
        self.assertEqual(vm_image.INIT.parent, pathlib.Path(vm_image.__file__).resolve().parent)


if __name__ == "__main__":
    unittest.main()

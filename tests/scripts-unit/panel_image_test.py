# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a panel's image is made of, and when it is made anew; the tools that make it are played."""
import json
import os
import pathlib
import struct
import subprocess
import unittest
import zlib

from kxpanel import desk, image, inside, parts, plan
from kxpanel.machine import Image
from kxscripts import debian, debs, sysroot, vm_kernel
from played import PROJECT, InProject


class Planned(InProject):
    """What image.toml says."""

    def test_both_processors_have_a_plan(self):
        armhf, arm64 = (plan.read(arch) for arch in plan.PROCESSORS)
        self.assertEqual((armhf.arch, armhf.processor, armhf.metapackage),
                         ("armhf", "arm", "linux-image-armmp"))
        self.assertEqual((arm64.arch, arm64.processor, arm64.metapackage),
                         ("arm64", "aarch64", "linux-image-arm64"))
        self.assertEqual(list(armhf.sizes), ["root", "user"])
        self.assertEqual(armhf.packages, sorted(armhf.packages))

    def test_what_is_enabled_is_there_and_not_masked(self):
        wanted = plan.read("armhf")
        for unit in wanted.enabled:
            self.assertTrue((plan.IMAGE / "root" / inside.UNITS / unit).is_file(), unit)
        self.assertFalse(set(wanted.enabled) & set(wanted.masked))
        self.assertEqual(wanted.masked, sorted(set(wanted.masked)))

    def test_what_cannot_be_read_is_told(self):
        file = self.write("image.toml", "[base]\n")
        self.expect_failed(f"{file} does not tell what the image for armhf is made of: "
                           "KeyError('units')", plan.read, "armhf", file)

    def test_a_digest_changes_with_names_contents_and_modes(self):
        folder = self.write("a/b", "x").parent
        seen = [plan.digest(folder)]
        self.assertEqual(plan.digest(folder), seen[0])
        for change in (lambda: self.write("a/b", "y"), lambda: self.write("a/c"),
                       lambda: (folder / "c").chmod(0o755), lambda: (folder / "d").symlink_to("b"),
                       lambda: (folder / "c").rename(folder / "e")):
            change()
            seen.append(plan.digest(folder))
        self.assertEqual(len(set(seen)), len(seen))
        self.assertNotEqual(plan.digest("ab", "c"), plan.digest("a", "bc"))


class Parts(InProject):
    """What comes from Debian."""

    def setUp(self):
        super().setUp()
        self.patch(debian, "folders", lambda name: [self.root / "system" / name, self.root / "user" / name])
        self.patch(os, "geteuid", lambda: 1000)
        self.patch(sysroot, "archive_address", lambda: "http://archive/")
        self.wanted = plan.read("armhf")

    def test_one_that_is_there_is_not_made_again(self):
        ran = []
        self.patch(parts.foreign, "run", lambda words, **_: ran.append(words) or
                   pathlib.Path(words[-2]).write_text("base") and 0)
        self.tell(parts.base, self.wanted)
        made = parts.base(self.wanted)
        self.assertEqual(len(ran), 1)
        self.assertEqual(made.read_text(), "base")
        self.assertEqual(made.parent, self.root / "user/panel-image")
        other = self.wanted._replace(packages=["else"])
        self.assertNotEqual(self.tell(parts.base, other), made)
        self.assertIn("--include=else", ran[1])
        self.assertEqual(ran[1][-1], "deb http://archive/ bookworm main")

    def test_a_failure_leaves_nothing_and_tells_the_end(self):
        def run(_words, output, **_):
            output.write(b"E: no luck\n")
            return 5
        self.patch(parts.foreign, "run", run)
        self.expect_failed("E: no luck\nmmdebstrap for armhf ended with 5", parts.base, self.wanted)
        self.assertEqual([path.suffix for path in parts.cache().iterdir()], [".lock"])

    def test_what_a_killed_process_left_goes(self):
        left = parts.cache() / "make.part.x"
        left.mkdir()
        with parts.making("part") as (place, work):
            self.assertFalse(left.exists())
            self.assertTrue(work.is_dir())
            self.assertEqual(place, parts.cache() / "part")

    def kernel(self, image_name="vmlinux", data=b"kernel"):
        """An unpacked kernel."""
        lines = "".join(f"kernel/{name}.ko: {needs}\n" for name, needs in (
            ("virtio_mmio", ""), ("virtio_blk", ""), ("crc32c-generic", ""), ("jbd2", ""),
            ("mbcache", ""), ("ext4", "kernel/jbd2.ko kernel/mbcache.ko")))
        modules = "part/kernel/lib/modules/6.1"
        self.write(f"{modules}/modules.dep", lines)
        for name in ("virtio_mmio", "virtio_blk", "crc32c-generic", "jbd2", "mbcache", "ext4"):
            self.write(f"{modules}/kernel/{name}.ko", name)
        self.write("part/bin/busybox", "busybox")
        self.write("part/kernel/boot/vmlinuz-6.1", "packed")
        (self.root / "part/kernel/boot" / image_name).write_bytes(data)
        return vm_kernel.Kernel(self.root / "part")

    def test_modules_are_loaded_after_those_that_they_need(self):
        work = self.root / "work"
        work.mkdir()
        parts.make_first_files(self.kernel(), self.wanted, self.root / "initrd", work)
        listed = subprocess.run(["cpio", "-i", "--quiet", "--to-stdout", "modules/order"],
                                input=(self.root / "initrd").read_bytes(), capture_output=True, check=True)
        self.assertEqual(listed.stdout.decode().split(), ["virtio_mmio.ko", "virtio_blk.ko",
                                                          "crc32c-generic.ko", "mbcache.ko", "jbd2.ko",
                                                          "ext4.ko"])
        names = subprocess.run(["cpio", "-t", "--quiet"], input=(self.root / "initrd").read_bytes(),
                               capture_output=True, check=True).stdout.decode().split()
        self.assertLessEqual({"init", "bin/busybox", "bin/sh", "modules/ext4.ko", "root", "proc"}, set(names))
        self.assertEqual(os.listdir(work), [])

    def test_a_module_that_is_missing_is_told(self):
        found = self.kernel()
        self.expect_failed(f"the kernel in {found.modules} lacks xfs, which packaging/image/image.toml "
                           "names", parts.in_order, found, "xfs")

    def test_an_unpacked_kernel_gets_a_head_that_the_emulator_knows(self):
        data = parts.bootable(self.kernel(), "armhf")
        head = struct.unpack(">7I4B32s", data[:64])
        self.assertEqual(head[0], 0x27051956)
        self.assertEqual(head[1], zlib.crc32(data[:4] + bytes(4) + data[8:64]))
        self.assertEqual(head[3:7], (6, 0x40208000, 0x40208000, zlib.crc32(b"kernel")))
        self.assertEqual(head[7:11], (5, 2, 2, 0))
        self.assertEqual(data[64:], b"kernel")

    def test_a_64_bit_kernel_stays_as_it_is(self):
        self.assertEqual(parts.bootable(self.kernel(), "arm64"), b"kernel")


class Files(InProject):
    """What is put into the panel's root."""

    def test_units_are_enabled_and_masked(self):
        folder = self.root / "units"
        folder.mkdir()
        (folder / "b.timer").write_text("x")
        inside.set_up_units(folder, plan.read("armhf")._replace(enabled=["a.service"], masked=["b.timer"]))
        links = {str(path.relative_to(folder)): os.readlink(path)
                 for path in folder.rglob("*") if path.is_symlink()}
        self.assertEqual(links, {"b.timer": "/dev/null",
                                 "default.target": "/usr/lib/systemd/system/multi-user.target",
                                 "multi-user.target.wants/a.service": "/etc/systemd/system/a.service"})

    def test_files_get_modes_of_their_own(self):
        self.write("from/bin/tool", "x", 0o700)
        self.write("from/etc/text", "y", 0o600)
        self.write("from/empty/.gitkeep")
        (self.root / "to").mkdir()
        inside.copy_tree(self.root / "from", self.root / "to")
        modes = {str(path.relative_to(self.root / "to")): path.stat().st_mode & 0o777
                 for path in (self.root / "to").rglob("*") if path.is_file()}
        self.assertEqual(modes, {"bin/tool": 0o755, "etc/text": 0o644})
        self.assertTrue((self.root / "to/empty").is_dir())


class Made(InProject):
    """When something is made anew."""

    def test_packages_are_made_when_their_sources_change(self):
        source = self.write("src/a.cpp", "1")
        self.patch(image, "ROOT", self.root)
        self.patch(image.common, "sources", lambda *patterns: ["src/a.cpp"])
        made = []

        def make(_root, arch):
            made.append(arch)
            return [self.write(f"build/{name}_1_{arch}.deb") for name in ("kx-updater", "kx-panel", "kx-package")]
        self.patch(debs, "make", make)
        files = image.own_packages("armhf", self.root)
        self.assertEqual([file.name for file in files], ["kx-updater_1_armhf.deb", "kx-panel_1_armhf.deb"])
        self.assertEqual(image.own_packages("armhf", self.root), files)
        self.assertEqual(len(made), 1)
        source.write_text("2")
        image.own_packages("armhf", self.root)
        self.assertEqual(len(made), 2)
        files[1].unlink()
        image.own_packages("armhf", self.root)
        self.assertEqual(len(made), 3)
        self.patch(debs, "make", lambda *_: [])
        source.write_text("3")
        self.expect_failed("scripts/packages armhf did not make kx-updater and kx-panel",
                           image.own_packages, "armhf", self.root)

    def test_the_key_stays_and_its_private_part_is_the_users_alone(self):
        public = image.key(self.root)
        private = (self.root / "key.pem").read_text()
        self.assertIn("PRIVATE", private)
        self.assertEqual((self.root / "key.pem").stat().st_mode & 0o777, 0o600)
        first = public.read_text()
        self.assertIn("BEGIN PUBLIC KEY", first)
        self.assertEqual(image.key(self.root).read_text(), first)
        self.assertEqual((self.root / "key.pem").read_text(), private)

    def test_an_image_counts_when_all_of_it_is_there_and_made_of_the_same(self):
        told = image.description(plan.read("armhf"), "abc")
        self.assertFalse(image.is_made(self.root, told))
        self.write("image.json", json.dumps(told))
        self.assertFalse(image.is_made(self.root, told))
        for name in ("kernel", "initrd", "root.img", "user.img"):
            self.write(name)
        self.assertTrue(image.is_made(self.root, told))
        self.assertFalse(image.is_made(self.root, image.description(plan.read("armhf"), "abd")))
        self.write("image.json", "{")
        self.assertFalse(image.is_made(self.root, told))


class OnDesk(InProject):
    """A panel that is looked at."""

    def test_the_emulator_is_told_everything_and_never_writes_to_the_image(self):
        wanted = plan.read("armhf")
        panel = Image("armhf", pathlib.Path("/i/kernel"), pathlib.Path("/i/initrd"), wanted.append,
                      {"root": "/i/root.img", "user": "/i/user.img"}, wanted.machine, None)
        words = desk.command(panel, "vnc=:1", desk.size_of("1024x600"), "/i/stick")
        self.assertIn("virtio-gpu-pci,xres=1024,yres=600", words)
        self.assertTrue(words[words.index("-append") + 1].endswith(" video=1024x600"))
        self.assertEqual(words[words.index("-display") + 1], "vnc=:1")
        drives = [words[place + 1] for place, word in enumerate(words) if word == "-drive"]
        self.assertEqual(drives, [
            "if=none,id=root,format=raw,snapshot=on,file=/i/root.img",
            "if=none,id=user,format=raw,snapshot=on,file=/i/user.img"])
        self.assertEqual(words[-2:], ["-blockdev",
                                      "driver=raw,node-name=stick,file.driver=file,file.filename=/i/stick"])

    def test_what_is_not_there_is_told(self):
        self.expect_failed("'big' is no size of a screen; write it as 800x480", desk.size_of, "big")
        self.expect_failed("/no/stick: there is no such file to plug in as a drive", desk.start, None,
                           "none", (1, 1), "/no/stick")


class Settings(InProject):
    """The panel's tool for settings, which keeps them in a file."""

    def setUp(self):
        super().setUp()
        text = (PROJECT / "packaging/image/root/usr/bin/kx-setting-cui").read_text(encoding="utf-8")
        self.assertEqual(text.count("/mnt/user/settings"), 1)
        self.tool = self.write("tool", text.replace("/mnt/user/settings", str(self.root / "settings")),
                               0o755)

    def call(self, *words):
        """Runs the tool; returns its status and what it printed."""
        done = subprocess.run([self.tool, *words], capture_output=True, text=True, check=False)
        return done.returncode, done.stdout, done.stderr

    def test_values_are_kept_and_the_last_one_counts(self):
        self.assertEqual(self.call("list"), (0, "", ""))
        self.assertEqual(self.call("set", "B=1", "A=x=y z", "B=2"), (0, "", ""))
        self.assertEqual(self.call("set", "C=", "A=%s\\n"), (0, "", ""))
        self.assertEqual(self.call("list"), (0, "A=%s\\n\nB=2\nC=\n", ""))

    def test_what_is_no_setting_changes_nothing(self):
        self.call("set", "A=1")
        usage = "usage: kx-setting-cui set NAME=VALUE... | list\n"
        for words in ((), ("set",), ("get",), ("list", "A")):
            self.assertEqual(self.call(*words), (2, "", usage))
        for word in ("B", "=1", "B=1\nC=2"):
            self.assertEqual(self.call("set", "A=2", word),
                             (2, "", f"kx-setting-cui: '{word}' is not NAME=VALUE in one line\n{usage}"))
        self.assertEqual(self.call("list"), (0, "A=1\n", ""))


if __name__ == "__main__":
    unittest.main()

# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How the Debian packages are made, and when they are refused; dpkg-buildpackage is played."""
import os
import pathlib
import shutil
import unittest
from types import SimpleNamespace
from unittest import mock

from kxscripts import common, debs, debs_root, debs_try, sysroot
from played import InProject, program

CHANGELOG = """\
kx-updater (0.2.0) bookworm; urgency=medium

  * Further packages.

 -- Somebody <somebody@example.org>  Thu, 01 Jan 1970 01:00:00 +0000

kx-updater (0.1.0) bookworm; urgency=medium
"""


class InSources(InProject):
    """A folder that stands for the sources, on a computer with the processor amd64."""

    def setUp(self):
        super().setUp()
        self.project = self.root / "project"
        self.write("project/packaging/debian/changelog", CHANGELOG)
        self.write("project/packaging/debian/rules", "#!", 0o755)
        self.write("project/src/main.cpp")
        self.patch(debs, "own_architecture", lambda: "amd64")
        self.patch(debs, "ROOT", self.project)
        self.results = self.project / debs.RESULTS
        self.results.mkdir(parents=True)


class Sources(InSources):
    """What is copied, and what the changelog tells."""

    def test_the_copy_has_the_packaging_where_debian_looks_for_it_and_the_time_of_the_release(self):
        copy = self.tell(debs.copied, self.project, self.root / "work")

        self.assertEqual(copy, self.root / "work/kx-updater-0.2.0")
        files = sorted(path.relative_to(copy).as_posix() for path in copy.rglob("*") if path.is_file())
        self.assertEqual(files, ["debian/changelog", "debian/rules", "src/main.cpp"])
        self.assertEqual({path.stat().st_mtime for path in copy.rglob("*")}, {3600})
        self.assertEqual((copy / "debian/rules").stat().st_mode & 0o777, 0o755)

    def test_a_changelog_without_version_or_time_is_refused(self):
        file = self.write("project/packaging/debian/changelog", "other (1) x; urgency=low\n")
        self.expect_failed(f"{file}: the first line does not begin with 'kx-updater (VERSION) '",
                           debs.version_of, self.project)
        for text in ("", " -- Somebody <a@b.example>  yesterday\n"):
            file.write_text(f"kx-updater (1) x; urgency=low\n{text}", encoding="utf-8")
            self.expect_failed(f"{file}: the first entry does not end with ' -- NAME <ADDRESS>  TIME'",
                               debs.time_of, self.project)


class Environment(InSources):
    """What decides about the bytes does not come from the caller."""

    def test_flags_and_options_of_the_caller_do_not_count(self):
        given = {"CFLAGS": "-g3", "CXXFLAGS": "-O0", "DEB_BUILD_OPTIONS": "noopt", "DH_VERBOSE": "1",
                 "SOURCE_DATE_EPOCH": "1", "KX_SYSROOT": "/x", "CMAKE_GENERATOR": "Unix Makefiles",
                 "CMAKE_CXX_COMPILER_LAUNCHER": "ccache", "PATH": "/bin", "LC_ALL": "ja_JP.UTF-8"}
        with mock.patch.dict(os.environ, given, clear=True), mock.patch("os.cpu_count", lambda: 3):
            self.assertEqual(debs.environment("amd64", self.root), {
                "CMAKE_CXX_COMPILER_LAUNCHER": "ccache", "PATH": "/bin", "LC_ALL": "C.UTF-8",
                "DEB_BUILD_OPTIONS": "parallel=3 nocheck noautodbgsym"})

    def test_for_another_processor_the_records_name_the_files_of_the_sysroot(self):
        there = self.root / "sysroot"
        self.write("sysroot/var/lib/dpkg/status", "Package: libx1\n")
        self.write("sysroot/var/lib/dpkg/info/libx1:armhf.list", "/usr\n/usr/lib/libx.so.1\n")
        asked = []
        self.patch(sysroot, "find_or_make", lambda arch: asked.append(arch) or there)

        made = debs.environment("armhf", self.root)

        self.assertEqual(asked, ["armhf"])
        self.assertEqual((made["KX_SYSROOT"], made["KX_ADMINDIR"]), (str(there), f"{self.root}/dpkg"))
        records = self.root / "dpkg"
        self.assertEqual((records / "info/libx1:armhf.list").read_text(encoding="utf-8"),
                         f"{there}/usr\n{there}/usr/lib/libx.so.1\n")
        self.assertEqual((records / "info/format").read_text(encoding="utf-8"), "1\n")
        self.assertEqual((records / "status").read_text(encoding="utf-8"), "Package: libx1\n")


class Making(InSources):
    """The packages, made by a dpkg-buildpackage that is played."""

    def setUp(self):
        super().setUp()
        self.bytes = [b"same", b"same"]
        self.commands = self.played(does=self.builds, printed={"dpkg-buildpackage": "words\n"})

    def builds(self, words):
        """Leaves what dpkg-buildpackage leaves beside the sources."""
        if words[0] == "dpkg-buildpackage":
            beside = self.commands.folders[-1].parent
            (beside / "kx-updater_0.2.0_amd64.changes").touch()
            (beside / "kx-panel_0.2.0_amd64.deb").write_bytes(self.bytes.pop(0))

    def test_what_comes_out_takes_the_place_of_earlier_packages_of_the_processor(self):
        self.write(f"project/{debs.RESULTS}/kx-panel_0.1.0_amd64.deb", "earlier")
        self.write(f"project/{debs.RESULTS}/kx-panel_0.1.0_armhf.deb", "other")

        files = self.tell(debs.make, self.project, "amd64")

        self.assertEqual([file.name for file in files],
                         ["kx-panel_0.2.0_amd64.deb", "kx-updater_0.2.0_amd64.changes"])
        self.assertEqual(sorted(path.name for path in self.results.glob("*.deb")),
                         ["kx-panel_0.1.0_armhf.deb", "kx-panel_0.2.0_amd64.deb"])
        self.assertEqual(list((self.results / "work").iterdir()), [])
        self.assertIn("--build=full --host-arch=amd64", self.commands.lines[0])
        self.assertNotIn("--no-check-builddeps", self.commands.lines[0])

    def test_for_another_processor_nothing_has_to_be_installed(self):
        self.patch(debs, "environment", lambda arch, work: {})
        self.tell(debs.make, self.project, "armhf")
        self.assertIn("--build=any --host-arch=armhf", self.commands.lines[0])
        self.assertIn("--no-check-builddeps", self.commands.lines[0])

    def test_a_build_that_fails_is_told_with_its_log_and_leaves_what_was_made_before(self):
        self.write(f"project/{debs.RESULTS}/kx-panel_0.1.0_amd64.deb", "earlier")
        self.commands.statuses["dpkg-buildpackage"] = 2
        self.expect_failed("dpkg-buildpackage for amd64 ended with 2; all of it: "
                           f"build/packages/amd64.log. {debs.REMEDY}", debs.make, self.project, "amd64")
        self.assertIn("words\n", self.err)
        self.assertTrue((self.results / "kx-panel_0.1.0_amd64.deb").exists())

    def test_made_twice_the_bytes_must_be_the_same(self):
        files = self.tell(debs.make, self.project, "amd64")
        self.tell(debs.compare, self.project, "amd64", files)
        self.assertNotEqual(*self.commands.folders)
        self.assertEqual(self.commands.added[1]["CCACHE_DISABLE"], "1")

        self.bytes = [b"other"]
        self.expect_failed("made twice, these packages differ: kx-panel_0.2.0_amd64.deb; diffoscope tells "
                           "in what", debs.compare, self.project, "amd64", files)

    def test_what_lintian_says_is_an_error(self):
        self.tell(debs.judge, ["a.changes"], self.project)
        line = self.commands.lines[0]
        self.assertTrue(line.startswith("lintian --fail-on error,warning,info,pedantic,experimental "))
        self.assertTrue(line.endswith(" a.changes"))
        self.commands.statuses["lintian"] = 2
        self.expect_failed("lintian is not content; what is right as it is gets an override in "
                           "packaging/debian, with its reason", debs.judge, ["a.changes"], self.project)


class Script(InSources):
    """The command line."""

    def setUp(self):
        super().setUp()
        self.did = []
        self.patch(common, "setup", lambda *groups: self.did.append(("setup", *groups)))
        for name in ("make", "judge", "compare", "tell", "try_out"):
            self.patch(debs, name, self.notes(name))

    def notes(self, name):
        """A function that notes that it was called, and for what processor."""
        def called(*words):
            self.did.append((name, *(word for word in words if isinstance(word, str))))
            return []
        return called

    def test_this_machines_packages_are_made_by_default(self):
        self.assertEqual(self.main(debs), 0)
        self.assertEqual(self.did, [("setup", "packages"), ("make", "amd64"), ("judge",), ("tell",)])

    def test_each_processor_is_worked_on_once(self):
        self.assertEqual(self.main(debs, "--twice", "--try", "arm64", "amd64", "arm64"), 0)
        self.assertEqual(self.did, [
            ("setup", "arm64", "build", "cross", "packages", "tools"),
            ("make", "arm64"), ("judge",), ("compare", "arm64"), ("tell",), ("try_out", "arm64"),
            ("make", "amd64"), ("judge",), ("compare", "amd64"), ("tell",), ("try_out", "amd64")])

    def test_what_was_made_can_be_tried(self):
        self.assertEqual(self.main(debs, "--made", "--try"), 0)
        self.assertEqual(self.did, [("setup", "cross", "packages"), ("try_out", "amd64")])

    def test_other_processors_are_refused(self):
        self.assertEqual(self.main(debs, "i386"), 2)
        self.assertIn("there are no packages for 'i386', only for amd64, arm64, armhf", self.err)
        self.assertEqual(self.did, [])

    def test_what_was_not_made_cannot_be_tried(self):
        self.expect_failed("build/packages holds no packages for arm64; scripts/packages arm64 makes them",
                           debs.in_results, self.project, "arm64")


class Trying(InProject):
    """What the trial of packages is prepared with."""

    def package(self, name, version, depends):
        """Makes a small package."""
        self.write(f"tree-{name}/DEBIAN/control",
                   f"Package: {name}\nVersion: {version}\nArchitecture: all\nDescription: x\n"
                   f"Maintainer: x <x@example.org>\nDepends: {depends}\n")
        self.write(f"tree-{name}/usr/share/doc/{name}/copyright", "x")
        file = self.root / f"{name}.deb"
        debs_try.subprocess.run(["dpkg-deb", "--root-owner-group", "--build", self.root / f"tree-{name}",
                                 file],
                                check=True, stdout=debs_try.subprocess.DEVNULL)
        return file

    def test_a_package_with_a_key_or_a_configuration_is_refused(self):
        debs.refuse_trust([self.package("a", "1", "unzip")])
        for number, (name, told) in enumerate((
                ("etc/kx_Updater/panel.toml", "etc/"),
                ("usr/share/doc/a/factory.pub.pem", "usr/share/doc/a/factory.pub.pem"),
                ("usr/lib/a/keys/factory", "usr/lib/a/keys/"))):
            self.write(f"tree-b{number}/{name}")
            self.expect_failed(f"b{number}.deb brings ./{told}; no package may bring a key, or anything "
                               "below /etc", debs.refuse_trust, [self.package(f"b{number}", "1", "unzip")])

    def test_what_packages_depend_on_besides_each_other(self):
        files = [self.package("kx-updater", "1.1.1+0.1.0", "unzip, libqt5gui5 (>= 5.2) | libqt5gui5-gles"),
                 self.package("kx-panel", "0.1.0", "kx-updater (>= 1.1.1), python3:any, unzip")]
        self.assertEqual(debs_try.dependencies(files), ["libqt5gui5", "python3", "unzip"])

    def test_an_older_version_has_lower_numbers_and_a_file_more(self):
        for name, version, lower in (("kx-updater", "1.1.1+0.1.0", "0.0.1+0.0.1"),
                                     ("kx-panel", "0.1.0", "0.0.1")):
            folder = self.root / f"older-{name}"
            folder.mkdir()
            debs_try.older(self.package(name, version, "kx-updater (>= 1.1.1)"), folder)
            made, = folder.iterdir()
            self.assertEqual(debs_try.field(made, "Version"), lower)
            self.assertEqual(debs_try.field(made, "Depends"), "kx-updater (>= 0.0.1)")
            listed = debs_try.subprocess.run(["dpkg-deb", "--contents", made], check=True,
                                             capture_output=True, text=True).stdout
            self.assertIn(f"./usr/share/doc/{name}/of-an-older-version\n", listed)

    def test_a_mount_or_an_emulator_that_is_left_is_an_error(self):
        self.patch(debs_try, "system", lambda arch, names: self.root / "system.tar")
        self.patch(debs_try, "run", lambda words, work, what: self.write("work/log", "line\n"))
        for states in ([(["/w/root"], []), ([], [])], [([], []), ([], ["qemu-arm"])], [([], []), ([], [])]):
            self.patch(debs_try, "left", lambda folder, states=states: states.pop(0))
            work = self.root / "work"
            shutil.rmtree(work, ignore_errors=True)
            work.mkdir()
            if states[0] == states[1]:
                self.assertEqual(debs_try.try_packages("amd64", [], work), ["line"])
                continue
            self.expect_failed(f"something of the trial is left: a mount below {work}, or an emulator in "
                               f"{debs_try.REGISTER}; umount the one, and write -1 into the other",
                               debs_try.try_packages, "amd64", [], work)

    def test_mounts_are_looked_for_below_the_folder(self):
        point = pathlib.Path("/proc/self/mountinfo").read_text(encoding="utf-8").split()[4]
        self.assertIn(point, debs_try.left(pathlib.Path("/"))[0])
        self.assertEqual(debs_try.left(self.root)[0], [])

    def test_a_system_that_was_made_is_taken_again(self):
        self.patch(debs_try.debian, "folders", lambda name: [self.root / "a" / name, self.root / "b" / name])
        self.patch(debs_try.debian, "source", lambda: "deb x y z\n")
        made = []
        self.patch(debs_try, "run", lambda words, work, what: (made.append(words[-1]),
                                                               (work / "system.tar").touch()))
        first = self.tell(debs_try.system, "armhf", ["libc6", "unzip"])
        self.assertEqual(self.tell(debs_try.system, "armhf", ["libc6", "unzip"]), first)
        self.assertEqual(made, ["deb x y z"])
        self.assertNotEqual(self.tell(debs_try.system, "armhf", ["libc6"]), first)


class Judging(InProject):
    """What is found out about a system that packages were installed in."""

    def setUp(self):
        super().setUp()
        self.commands = []
        self.trial = debs_root.Trial.__new__(debs_root.Trial)
        self.trial.names = ["kx-panel"]
        self.trial.system = SimpleNamespace(files=self.files, run=self.notes)
        self.trial.before = self.files()

    def notes(self, *words, **_):
        """Stands for a command in the system."""
        self.commands.append(" ".join(words))

    def files(self):
        """The files of the system."""
        system = debs_root.System.__new__(debs_root.System)
        system.root = self.root
        return system.files()

    def test_what_is_left_or_changed_or_lost_is_told_with_what_it_is(self):
        script = self.write("usr/bin/a", "a", 0o755)
        self.write("usr/bin/b", "b")
        before = self.files()
        debs_root.refuse_differences(before, self.files(), "same")

        script.chmod(0o700)
        (self.root / "usr/bin/b").unlink()
        (self.root / "usr/bin/c").symlink_to("a")
        with self.assertRaises(common.Failed) as raised:
            debs_root.refuse_differences(before, self.files(), "not the same")
        lines = str(raised.exception).splitlines()
        self.assertEqual([line.split()[:3] for line in lines[:-1]], [
            ["-", "usr/bin/a:", "-rwxr-xr-x"], ["+", "usr/bin/a:", "-rwx------"],
            ["-", "usr/bin/b:", "-rw-r--r--"], ["+", "usr/bin/c:", "lrwxrwxrwx"]])
        self.assertTrue(lines[3].endswith(" a"))
        self.assertEqual(lines[-1], "not the same")

    def test_what_dpkg_writes_down_and_what_is_not_on_the_disk_does_not_count(self):
        before = self.files()
        for name in ("var/lib/dpkg/status", "proc/1", "dev/null", "tmp/x", "var/log/dpkg.log"):
            self.write(name)
        self.assertEqual(sorted(self.files().keys() - before.keys()), ["var", "var/lib", "var/log"])

    def test_a_purge_that_leaves_a_file_is_an_error(self):
        self.trial.leave("purge", {})
        self.assertEqual(self.commands[0], "dpkg --purge kx-panel")
        self.write("left", "x")
        left = {"left": self.files()["left"]}
        self.trial.leave("purge", left)
        with self.assertRaisesRegex(common.Failed, "(?s)left.*after --purge is not what was there"):
            self.trial.leave("purge", {})

    def test_what_is_to_be_kept_and_is_gone_is_an_error(self):
        with self.assertRaisesRegex(common.Failed, "- etc/kx_Updater/panel.toml: kept"):
            self.trial.leave("remove", {"etc/kx_Updater/panel.toml": "kept"})


class Documents(InProject):
    """The links of documents, where these are installed."""

    def link(self):
        """Runs the program on what two packages install; returns its exit status."""
        return self.main(program("packaging/debian/link-documents"), *(str(self.root / name) for name in ("docs", "a", "b")))

    def test_documents_manual_pages_and_examples_are_named_where_they_are(self):
        text = "[x](two.md#part) [y](one.md) [z](tool.1) [e](../examples) [w](https://x.example/two.md) [p](#p)"
        one = self.write("a/usr/share/doc/a/one.md", text)
        two = self.write("b/usr/share/doc/b/two.md", "[x](one.md)")
        self.write("b/usr/share/man/man1/tool.1")
        self.write("b/usr/share/doc/kx-package/examples/hello")

        self.assertIsNone(self.link())

        self.assertEqual(one.read_text(encoding="utf-8"),
                         "[x](../b/two.md#part) [y](one.md) [z](../../man/man1/tool.1.gz) "
                         "[e](../kx-package/examples) [w](https://x.example/two.md) [p](#p)")
        self.assertEqual(two.read_text(encoding="utf-8"), "[x](../a/one.md)")

    def test_what_no_package_brings_is_named_as_a_file_of_the_sources(self):
        self.write("docs/other.md")
        self.write("docs/images/p.png")
        self.write("README.md")
        one = self.write("a/usr/share/doc/a/one.md",
                         "See [this](other.md#part), ![that](images/p.png), [it](../README.md).")
        self.assertIsNone(self.link())
        self.assertEqual(one.read_text(encoding="utf-8"),
                         "See this (docs/other.md of the sources), that (docs/images/p.png of the sources), "
                         "it (README.md of the sources).")

    def test_a_link_to_what_is_not_in_the_sources_either_is_an_error(self):
        file = self.write("a/usr/share/doc/a/one.md", "[x](other.md)")
        self.assertIn(f"{file} names what is not there: ", self.link())


if __name__ == "__main__":
    unittest.main()

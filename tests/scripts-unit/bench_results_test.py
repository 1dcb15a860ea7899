# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a benchmark writes down, and the packages that it measures."""
import json
import os
import subprocess
import sys
import time
import unittest
from types import SimpleNamespace
from unittest import mock

from kxbench import results, rivals, workloads
from played import InProject


class Numbers(unittest.TestCase):
    """What is made of several runs."""

    def test_programs_are_compared_within_each_round(self):
        # The medians of both are those of different rounds: their ratio would be another one.
        runs = {"a": [{"x": 11}, {"x": 40}, {"x": 21}], "b": [{"x": 10}, {"x": 20}, {"x": 30}]}
        self.assertEqual(results.median_of(runs["a"], "x"), 21)
        self.assertAlmostEqual(results.ratio_of(runs, "x", "a", "b"), 1.1)
        self.assertAlmostEqual(results.ratio_of(runs, "x", "b", "a"), 1 / 1.1)


class Written(InProject):
    """The files."""

    def setUp(self):
        super().setUp()
        self.now = 1000.0
        self.patch(time, "monotonic", lambda: self.now)
        self.patch(time, "strftime", {"%Y-%m-%d-%H%M%S": "now"}.get)
        self.results = results.Results(self.root / "a/b")
        for file in (self.results._text, self.results._rows):  # pylint: disable=protected-access
            self.addCleanup(file.close)

    def file(self, ending):
        """What stands in one of the files."""
        return (self.root / f"a/b/now{ending}").read_text(encoding="utf-8")

    def test_every_run_is_a_row_at_once(self):
        self.assertEqual(self.results.path, self.root / "a/b/now.txt")
        self.results.run("load", 2, "floor", {"wall": 2.5, "own": 0.25, "children": 2,
                                              "peak_kib": 9000, "cpu": 3})
        self.results.run("read", 1, "parse", {"wall": 0})
        self.assertEqual([line.split("\t") for line in self.file(".tsv").splitlines()], [
            "workload round program wall own children peak_kib".split(),
            "load 2 floor 2.5 0.25 2 9000".split(), ["read", "1", "parse", "0", "", "", ""]])

    def test_goals_are_kept_up_to_their_limit_and_summed_up(self):
        self.now += 90
        with self.told():
            self.results.say("words")
            self.results.say()
            self.results.goal("a", "x", 1.0, 1.0)
            self.results.goal("b", "y", 1.0001, 1.0)
            self.results.goal("c", "z", 0.5, 1.1)
            told = self.file(".txt")
            self.results.finish()
        self.assertEqual(told, "words\n\n  x 1.000, goal 1.0: kept\n  y 1.000, goal 1.0: MISSED\n"
                               "  z 0.500, goal 1.1: kept\n")
        self.assertEqual(self.file(".txt"), self.out)
        self.assertEqual(self.out[len(told):],
                         "\n2 goals kept, 1 missed, 1.5 minutes\n  b: y 1.000, goal 1.0\n")

    def test_a_line_is_told_at_once(self):
        stream = self.patch(sys, "stdout", mock.Mock())
        self.results.say("x")
        stream.flush.assert_called_once()

    def test_that_the_work_goes_on_is_told_now_and_then(self):
        told = []
        for seconds in (9.9, 0.1, 9.9, 0.1):
            self.now += seconds
            self.tell(self.results.run, "load", 3, "floor", {"wall": 2.25})
            told.append(self.err)
        self.assertEqual(told, ["", "  ... load, round 3: floor took 2.2 s\n"] * 2)
        self.assertEqual(self.out, "")


class Packages(InProject):
    """The packages that are measured."""

    def test_steps_of_every_kind(self):
        self.assertEqual(workloads.copy_step("SS_CopyFileStepSet", [("a", "/b", "644")]), {
            "$type": "Zt.Plugins.DB_CopyStepSet, Plexa",
            "SS_StepSetId": "Zt.Plugins.SS_CopyFileStepSet,  Plexa", "Comment": "",
            "CanSkip": False, "IsRelativePath": True, "IsRemove": True,
            "PathSetDatas": {"$type": "Zt.Plugins.DB_CopyFunctionDatas, Plexa", "$values": [{
                "$type": "Zt.Plugins.DB_CopyFunctionData, Plexa", "SourcePath": "a",
                "DestinationPath": "/b", "Permissions": "644"}]}})
        script = {"$type": "Zt.Plugins.DB_ScriptFunctionData, Plexa", "ScriptData": "x"}
        self.assertEqual(workloads.script_step("x"), {
            "$type": "Zt.Plugins.DB_ScriptStepSet, Plexa",
            "SS_StepSetId": "Zt.Plugins.SS_ScriptStepSet,  Plexa", "Comment": "a script",
            "CanSkip": False, "InstallScriptFunctionData": script,
            "UninstallScriptFunctionData": script})
        step = workloads.hardware_step(2, 3)
        self.assertEqual(step["SS_StepSetId"], "Zt.Plugins.SS_HardSettingStepSet,  Plexa")
        configs = step["HardSettingDatas"]["DB_HardwareConfigs"]
        self.assertEqual((configs["$type"], len(configs["$values"])),
                         ("Zt.DB_HardwareConfigs, Ruvelo", 2))
        config = configs["$values"][1]
        self.assertEqual((config["$type"], config["ConfigId"], config["IsUsed"]),
                         ("Zt.DB_HardwareConfig, Ruvelo",
                          "Zt.Plugins.HW_BacklightConfigSet,  Plexa", True))
        self.assertEqual([item["ItemName"] for item in config["HardwareItems"]["$values"]],
                         ["Item0", "Item1", "Item2"])
        self.assertEqual(config["HardwareItems"]["$values"][2]["Value"], "value 2")

    def test_a_description_is_the_panel_s(self):
        workloads.write_description(self.root / "d", [{"a": "ü"}])
        data = (self.root / "d").read_bytes()
        self.assertEqual(data[:3], b"\xef\xbb\xbf")
        self.assertEqual(json.loads(data[3:]), {
            "$type": "Zt.Plugins.DB_KxUserProject, Plexa", "ModelName": "bench", "OsVersion": "1",
            "PackageVersion": "1", "Title": "Bench", "Comment": "", "Date": "",
            "DB_StepSets": {"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": [{"a": "ü"}]}})

    def files(self):
        """The files of a package, with their sizes."""
        return {path.relative_to(self.root).as_posix(): path.stat().st_size
                for path in self.root.rglob("*") if path.is_file()}

    def test_the_files_of_folders_and_their_commands_agree(self):
        steps, commands = workloads.folder_step(self.root, 2, 1, 5)
        self.assertEqual(self.files(), {"0/0/d0000/f0000": 5, "0/0/d0001/f0000": 5})
        self.assertEqual(commands, ['mkdir -p "/mnt/user/target"', *(
            line for folder in ("d0000", "d0001") for line in (
                f'mkdir -p "/mnt/user/target/{folder}"',
                f'cp -f "/opt/bench/package/0/0/{folder}/f0000" "/mnt/user/target/{folder}/f0000" '
            ))])
        self.assertEqual(steps, [workloads.copy_step(
            "SS_CopyFolderStepSet", [("payload", "/mnt/user/target", "")])])

    def test_the_files_of_items_and_their_commands_agree(self):
        steps, commands = workloads.item_steps(self.root, 2, 7)
        self.assertEqual(self.files(), {"0/0/f0000": 7, "0/1/f0001": 7})
        self.assertEqual(commands, ['mkdir -p "/mnt/user/target/"', *(
            line for number in "01" for line in (
                f'cp -f "/opt/bench/package/0/{number}/f000{number}" '
                f'"/mnt/user/target/f000{number}" ', f'chmod 644 "/mnt/user/target/f000{number}" '
            ))])
        self.assertEqual(steps, [workloads.copy_step("SS_CopyFileStepSet", [
            (f"C:\\payload\\f000{number}", f"/mnt/user/target/f000{number}", "644")
            for number in "01"])])

    def test_an_installation_is_what_its_steps_run_and_what_is_around_them(self):
        self.assertEqual(workloads.expected_commands(["a", "b"]), [
            "sync", "/usr/bin/kxsystem/wprotect_off", "a", "b",
            'mkdir -p "/var/lib/KxUserPackages/package"',
            'cp -f "/opt/bench/package/UserPackage.kx-project" '
            '"/var/lib/KxUserPackages/package/UserPackage.kx-project" ', "sync"])

    def test_a_file_has_its_size_to_the_byte(self):
        for size in (0, 3, workloads.MIB, workloads.MIB + 1):
            workloads.fill(self.root / "x/file", size)
            self.assertEqual(self.files(), {"x/file": size})
        self.assertEqual((self.root / "x/file").read_bytes()[:257], bytes(range(256)) + b"\0")

    def test_what_a_workload_promises_it_makes(self):
        made = []
        self.patch(workloads, "folder_step", lambda package, *words: made.append(words) or words)
        self.patch(workloads, "item_steps", lambda package, *words: made.append(words) or words)
        mib = 1 << 20
        for name, words, files in (
                ("items-1k", (1000, 4096), 1000), ("one-512m", (1, 512 * mib), 1),
                ("files-300", (3, 100, 209715), 300), ("folder-1k", (10, 100, 4096), 1000),
                ("folder-parts", (10, 100, 4096), 1000), ("folder-10k", (100, 100, 4096), 10000),
                ("folder-50k", (100, 500, 64), 50000)):
            workload = workloads.WORKLOADS[name]
            workload.make(self.root)
            self.assertEqual((made[-1], workload.files), (words, files), name)
            self.assertEqual(workload.is_long, name == "folder-50k")
        self.assertEqual(workloads.WORKLOADS["no-steps"].make(self.root), ([], []))
        self.assertEqual(workloads.WORKLOADS["no-steps"].files, 0)
        self.assertEqual(workloads.WORKLOADS["folder-parts"].parts,
                         ("nothing", "format", "look", "record", "format+look+record"))
        self.assertEqual([(one.files, one.size) for one in workloads.WORKLOADS.values()
                          if isinstance(one, workloads.Packing)],
                         [(300, 209715), (1, 512 * mib)])
        self.assertEqual([(one.files, one.size) for one in workloads.WORKLOADS.values()
                          if isinstance(one, workloads.Deciding)],
                         [(300, 209715), (1, 512 * mib)])
        fast = workloads.WORKLOADS["fast-10k"]
        self.assertEqual((fast.folders, fast.files, fast.size), (100, 100, 4096))

    def test_goals_and_limits_of_the_workloads(self):
        self.assertEqual(
            {name: (one.rounds, getattr(one, "seconds", None), getattr(one, "goal", None))
             for name, one in workloads.WORKLOADS.items()}, {
                 "no-steps": (30, 30, None), "items-1k": (3, 60, None), "one-512m": (5, 60, None),
                 "files-300": (9, 40, None), "folder-1k": (7, 60, None),
                 "folder-parts": (9, 240, None), "folder-10k": (3, 160, None),
                 "folder-50k": (1, 300, None), "read-20k": (15, None, 2.0),
                 "read-hardware": (15, None, 4.5), "window-start": (9, 60, None),
                 "window-log": (5, 60, None), "pack-300": (5, 40, None),
                 "pack-512m": (3, 100, None), "fast-10k": (5, 240, None),
                 "panel-300": (9, 60, None), "panel-512m": (7, 90, None)})

    def test_descriptions_that_are_read_have_their_steps(self):
        read = workloads.WORKLOADS["read-20k"].make()
        self.assertEqual(len(read), 20000)
        self.assertEqual({step["$type"] for step in read[:2]},
                         {"Zt.Plugins.DB_CopyStepSet, Plexa", "Zt.Plugins.DB_ScriptStepSet, Plexa"})
        hardware = workloads.WORKLOADS["read-hardware"].make()
        configs = hardware[0]["HardSettingDatas"]["DB_HardwareConfigs"]["$values"]
        self.assertEqual((len(hardware), len(configs),
                          len(configs[0]["HardwareItems"]["$values"])), (50, 20, 20))

    def test_what_grows_differs_in_size_alone(self):
        self.assertEqual(workloads.GROWING, ("folder-1k", "folder-10k", "folder-50k"))


class Rivals(InProject):
    """The packages of other updaters; their tools are played."""

    def setUp(self):
        super().setUp()
        self.started = []

        def run(words, cwd, check, **keywords):
            self.assertEqual((cwd, check), (self.root, True))
            self.started.append(([os.fspath(word) for word in words], keywords.get("input")))
            return SimpleNamespace(stdout=b"0123  payload.tar.gz\n")
        self.patch(subprocess, "run", run)

    def test_a_bundle_holds_the_payload_and_is_signed_as_a_whole(self):
        self.write("payload.tar", "files")
        rivals.make_bundle(self.root, self.root / "b")
        self.assertEqual(self.started, [(
            ["rauc", "bundle", "--cert=certificate.pem", "--key=key.pem", f"{self.root}/bundle",
             f"{self.root}/b"], None)])
        self.assertEqual((self.root / "bundle/payload.tar").read_text(encoding="utf-8"), "files")
        self.assertIn("[bundle]\nformat=plain\n",
                      (self.root / "bundle/manifest.raucm").read_text(encoding="utf-8"))

    def test_an_image_s_signed_description_tells_the_digest_of_the_payload(self):
        rivals.make_image(self.root, self.root / "i")
        self.assertEqual([words[0] for words, _ in self.started], ["sha256sum", "openssl", "cpio"])
        self.assertEqual(self.started[0][0][1], "payload.tar.gz")
        self.assertIn('sha256 = "0123";',
                      (self.root / "sw-description").read_text(encoding="utf-8"))
        self.assertEqual(self.started[2][1], b"sw-description\nsw-description.sig\npayload.tar.gz\n")

    def test_key_and_payload_are_made_in_the_folder(self):
        rivals.make_certificate(self.root)
        rivals.pack_payload(self.root, self.root / "source")
        self.assertEqual([words[0] for words, _ in self.started], ["openssl", "tar", "gzip"])
        self.assertIn(f"{self.root}/source", self.started[1][0])


if __name__ == "__main__":
    unittest.main()

# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How an emulated panel is switched on, off and its drives are moved; the emulator is played."""
import json
import os
import pathlib
import tempfile
import time
import unittest
from unittest import mock

from kxpanel.machine import Machine, make_overlays, read_image
from kxscripts.common import Failed

# The played emulator: its links by name, and what it does, line by line of Python.
PLAYED = '''#!/usr/bin/python3 -IS
import json, os, socket, sys, time
links = {}
for word in sys.argv:
    if word.startswith("socket,id="):
        name, number = word[len("socket,id="):].split(",fd=")
        links[name] = socket.socket(fileno=int(number))
lines = links["monitor"].makefile("rb")
asked = []
def tell(what):
    links["monitor"].sendall(json.dumps(what).encode() + b"\\r\\n")
def answer(*events, **told):
    question = json.loads(lines.readline())
    asked.append([question["execute"], question["arguments"]])
    tell({**(told or {"return": {}}), "id": question["id"]})
    for event in events:
        tell(event)
def write():
    open(sys.argv[0] + ".half", "w").write(json.dumps(asked))
    os.rename(sys.argv[0] + ".half", sys.argv[0] + ".asked")
open(sys.argv[0] + ".pid", "w").write(str(os.getpid()))
tell({"QMP": {}})
answer()
'''


class Played(unittest.TestCase):
    """An image and an emulator that does nothing by itself."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        for name in ("vmlinuz", "initrd", "root.img", "user.img"):
            (self.folder / name).touch()
        self.told = {"processor": "armhf", "kernel": "vmlinuz", "initrd": "initrd", "key": "key.pem",
                     "append": "root=/dev/vda video=800x480 quiet", "machine": ["-M", "virt", "-m", "300"],
                     "drives": [{"file": "root.img", "format": "raw", "serial": "root"},
                                {"file": "user.img", "format": "raw", "serial": "user"}]}
        path = mock.patch.dict(os.environ, PATH=f"{self.folder}:{os.environ['PATH']}")
        path.start()
        self.addCleanup(path.stop)

    def image(self):
        """Writes what is told of the image, and reads it."""
        (self.folder / "image.json").write_text(json.dumps(self.told), encoding="utf-8")
        return read_image(self.folder / "image.json")

    def machine(self, *lines, **more):
        """A machine that does these lines after its start."""
        program = self.folder / "qemu-system-arm"
        program.write_text(PLAYED + "\n".join(lines) + "\n", encoding="utf-8")
        program.chmod(0o755)
        return Machine(self.image(), {"root": "/o/root.qcow2", "user": "/o/user.qcow2"},
                       self.folder / "out", **more)

    def asked(self):
        """What the emulator was asked for after the greeting."""
        file = self.folder / "qemu-system-arm.asked"
        until = time.monotonic() + 60
        while not file.exists() and time.monotonic() < until:
            time.sleep(0.02)
        return json.loads(file.read_text(encoding="utf-8"))[1:]

    def is_gone(self):
        """Whether the emulator's process has ended."""
        number = (self.folder / "qemu-system-arm.pid").read_text(encoding="utf-8")
        return not os.path.exists(f"/proc/{number}")


class Images(Played):
    """What is read of an image."""

    def test_files_lie_beside_the_description(self):
        image = self.image()
        self.assertEqual(image.kernel, self.folder / "vmlinuz")
        self.assertEqual(image.drives, {"root": self.folder / "root.img",
                                        "user": self.folder / "user.img"})

    def test_what_is_missing_or_damaged_is_told_with_the_remedy(self):
        with self.assertRaisesRegex(Failed, "there is no /no/image.json; scripts/panel-image makes"):
            read_image("/no/image.json")
        (self.folder / "user.img").unlink()
        with self.assertRaisesRegex(Failed, "names .*/user.img, which is missing"):
            self.image()
        del self.told["kernel"]
        with self.assertRaisesRegex(Failed, "does not describe an image .KeyError"):
            self.image()
        (self.folder / "image.json").write_text("{", encoding="utf-8")
        with self.assertRaisesRegex(Failed, "does not describe an image"):
            read_image(self.folder / "image.json")

    def test_a_processor_that_nothing_plays_is_told(self):
        self.told["processor"] = "vax"
        with self.assertRaisesRegex(Failed, "no emulator for a processor 'vax'"):
            self.image()

    def test_the_panel_writes_beside_the_image(self):
        tool = self.folder / "qemu-img"
        tool.write_text('#!/bin/sh\necho "$*" >>"$0.words"\n', encoding="utf-8")
        tool.chmod(0o755)
        overlays = make_overlays(self.image(), "/o")
        self.assertEqual({name: str(file) for name, file in overlays.items()},
                         {"root": "/o/root.qcow2", "user": "/o/user.qcow2"})
        self.assertEqual((self.folder / "qemu-img.words").read_text(encoding="utf-8"), "".join(
            f"create -q -f qcow2 -F raw -b {self.folder}/{name}.img /o/{name}.qcow2\n"
            for name in ("root", "user")))


class Life(Played):
    """From start to end."""

    def test_it_is_played_by_software_with_the_screen_that_is_asked_for(self):
        words = self.machine(size=(480, 272), tools="/t.tar").command({"monitor": 5}, "booted")
        line = " ".join(words)
        for part in ("qemu-system-arm -M virt -m 300 -accel tcg,", "-nic none", "-sandbox on,",
                     "virtio-gpu-pci,xres=480,yres=272", "-chardev socket,id=monitor,fd=5",
                     "node-name=user,discard=unmap,file.driver=file,file.filename=/o/user.qcow2",
                     "read-only=on,file.driver=file,file.filename=/t.tar", "-loadvm booted"):
            self.assertIn(part, line)
        self.assertEqual(words[words.index("-append") + 1], "root=/dev/vda quiet video=480x272")
        self.assertNotIn(str(self.folder / "root.img"), line)
        self.assertNotIn("-loadvm", self.machine().command({}))

    def test_the_end_of_the_body_ends_it(self):
        with self.machine("time.sleep(60)") as machine:
            machine.start()
            self.assertTrue(machine.is_on())
        self.assertFalse(machine.is_on())
        self.assertTrue(self.is_gone())

    def test_a_power_cut_gives_it_no_time(self):
        with self.machine("import signal", "signal.signal(signal.SIGTERM, signal.SIG_IGN)", "answer()",
                          "time.sleep(60)") as machine:
            machine.start()
            machine.monitor.ask("x")
            before = time.monotonic()
            machine.cut_power()
            self.assertLess(time.monotonic() - before, 2)
        self.assertTrue(self.is_gone())

    def test_an_emulator_that_does_not_start_is_told(self):
        program = self.machine()
        (self.folder / "qemu-system-arm").write_text("#!/bin/sh\necho no luck\nexit 1\n",
                                                     encoding="utf-8")
        with self.assertRaisesRegex(Failed, "qemu-system-arm did not start: no luck; scripts/setup"):
            program.start()
        self.assertFalse(program.is_on())

    def test_drives_are_plugged_and_pulled_until_they_are_out(self):
        gone = '{"event": "DEVICE_DELETED", "data": {"device": "stick-plug"}}'
        with self.machine("answer()", "answer()", f"answer({gone})", "answer()", "write()",
                          "time.sleep(60)") as machine:
            machine.start()
            machine.plug("/d.img")
            machine.pull()
            self.assertEqual(self.asked(), [
                ["blockdev-add", {"driver": "raw", "node-name": "stick",
                                  "file": {"driver": "file", "filename": "/d.img"}}],
                ["device_add", {"driver": "usb-storage", "id": "stick-plug", "drive": "stick",
                                "bus": "usb.0", "removable": True}],
                ["device_del", {"id": "stick-plug"}], ["blockdev-del", {"node-name": "stick"}]])

    def test_the_state_is_saved_in_all_overlays(self):
        done = '{"event": "JOB_STATUS_CHANGE", "data": {"id": "save-b", "status": "concluded"}}'
        with self.machine(f"answer({done})", "answer(**{'return': []})", "answer()", "write()",
                          "time.sleep(60)") as machine:
            machine.start()
            machine.save("b")
            self.assertEqual(self.asked()[0], ["snapshot-save", {
                "job-id": "save-b", "tag": "b", "vmstate": "root", "devices": ["root", "user"]}])

    def test_it_is_asked_to_shut_down_and_waited_for(self):
        with self.machine('line = links["console"].makefile("rb").readline()',
                          'asked.append(line.decode())', "write()",
                          'tell({"event": "SHUTDOWN"})', "time.sleep(60)") as machine:
            machine.start()
            machine.power_off(60)
        self.assertEqual(self.asked(), ["poweroff\n"])

    def test_a_program_that_leaves_the_port_has_ended(self):
        for event in ('{"event": "VSERPORT_CHANGE", "data": {"open": False, "id": "probe"}}',
                      '{"event": "RESET", "data": {"guest": True}}'):
            with self.machine('links["probe"].sendall(b\'{"front": "a"}\\n\')', f"tell({event})",
                              "time.sleep(60)") as machine:
                machine.start()
                self.assertTrue(machine.probe.wait_for_end(60))
                self.assertEqual(machine.probe.state, {"front": "a"})


if __name__ == "__main__":
    unittest.main()

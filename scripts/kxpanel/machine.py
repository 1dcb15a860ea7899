# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""An emulated panel while it is on: the emulator as a child that ends with this process, and the links
to its monitor, its serial console and its probe. It is played by software alone, has no network, sees no
file of this computer but the image and its drives, and never writes to the image's own files."""
import contextlib
import json
import os
import pathlib
import re
import signal
import socket
from typing import NamedTuple

from kxpanel.console import Console
from kxpanel.drives import run
from kxpanel.probe import RelayedProbe
from kxpanel.qmp import Gone, Monitor
from kxpanel.screen import Screen
from kxscripts import common
from kxscripts.common import Failed
from kxscripts.demo_processes import Processes

EMULATORS = {"armhf": "qemu-system-arm", "arm64": "qemu-system-aarch64"}
PATIENCE = 2       # seconds from the request to end until force
OVERHEAD = 3072    # MiB of address space that the emulator needs besides the panel's memory
TRANSLATED = 256   # MiB for translated code
LETTING_GO = 20    # seconds until the panel has let go of a drive that was pulled
LINKS = ("monitor", "console", "probe")
TOOLS = "kxtests"  # the serial number of the drive that brings what the tests need


class Image(NamedTuple):
    """An image as its image.json tells it; `drives` are its files by their serial numbers."""

    processor: str
    kernel: pathlib.Path
    initrd: pathlib.Path
    append: str
    drives: dict
    machine: list
    key: pathlib.Path


def read_image(file):
    """Reads an image.json, whose files lie beside it. Raises Failed with the remedy."""
    file = pathlib.Path(file)
    remedy = "scripts/panel-image makes the image"
    try:
        told = json.loads(file.read_text(encoding="utf-8"))
        place = file.resolve().parent
        image = Image(told["processor"], place / told["kernel"], place / told["initrd"],
                      told["append"],
                      {drive["serial"]: place / drive["file"] for drive in told["drives"]},
                      list(told["machine"]), place / told.get("key", "key.pem"))
    except FileNotFoundError as error:
        raise Failed(f"there is no {file}; {remedy}") from error
    except (KeyError, TypeError, ValueError) as error:
        raise Failed(f"{file} does not describe an image ({error!r}); {remedy} anew") from error
    for path in (image.kernel, image.initrd, *image.drives.values()):
        if not path.exists():
            raise Failed(f"{file} names {path}, which is missing; {remedy} anew")
    if image.processor not in EMULATORS:
        raise Failed(f"{file}: there is no emulator for a processor '{image.processor}'")
    return image


def make_overlays(image, folder):
    """Makes a file for each drive of the image which holds what a panel writes; returns them by their
    serial numbers. Raises Failed."""
    overlays = {}
    for serial, file in image.drives.items():
        overlays[serial] = pathlib.Path(folder) / f"{serial}.qcow2"
        run(["qemu-img", "create", "-q", "-f", "qcow2", "-F", "raw", "-b", file, overlays[serial]])
    return overlays


def board(image, size):
    """The beginning of the emulator's command line: the board, its kernel, a screen of a size in pixels,
    pointer and sockets for USB drives, with a bound on the memory of the emulator itself."""
    width, height = size
    memory = int(re.search(r"-m (\d+)", " ".join(image.machine) + " -m 512")[1])
    append = re.sub(r"\bvideo=\S+", "", image.append) + f" video={width}x{height}"
    return ["prlimit", "--core=0", f"--as={(memory + TRANSLATED + OVERHEAD) << 20}", "--",
            EMULATORS[image.processor], *image.machine, "-accel", f"tcg,thread=multi,tb-size={TRANSLATED}",
            "-nodefaults", "-no-user-config", "-nic", "none",
            "-kernel", str(image.kernel), "-initrd", str(image.initrd),
            "-append", " ".join(append.split()),
            "-device", f"virtio-gpu-pci,xres={width},yres={height}",
            "-device", "qemu-xhci,id=usb", "-device", "usb-tablet,bus=usb.0"]


class Machine:
    """A panel that is on from start() to stop(), cut_power() or its own end.

    image     as read_image() returns it
    overlays  what it writes to: as make_overlays() returns them
    folder    gets console.log and emulator.log
    size      of the screen in pixels
    tools     a file that the panel finds as a drive of its own, or None"""

    # pylint: disable=too-many-instance-attributes
    def __init__(self, image, overlays, folder, *, size=(800, 480), tools=None):
        self._image, self._overlays = image, overlays
        self._folder = pathlib.Path(folder)
        self._size, self._tools = size, tools
        self._processes = Processes(PATIENCE)
        self._child = None
        self._tail = contextlib.ExitStack()
        self.monitor = self.console = self.probe = self.screen = None

    def command(self, numbers, loaded=None):
        """The command line of the emulator.

        numbers   the descriptor of each link
        loaded    the saved state to begin with; None: the panel starts"""
        image = self._image
        words = [*board(image, self._size), "-display", "none",
                 "-sandbox", "on,obsolete=deny,elevateprivileges=deny,spawn=deny",
                 "-device", "virtio-serial-pci"]
        for name, number in numbers.items():
            words += ["-chardev", f"socket,id={name},fd={number}"]
        words += ["-mon", "chardev=monitor,mode=control", "-serial", "chardev:console",
                  "-device", "virtserialport,id=probe,chardev=probe,name=kx.probe"]
        for serial, file in self._overlays.items():
            words += ["-blockdev", f"driver=qcow2,node-name={serial},discard=unmap,"
                                   f"file.driver=file,file.filename={file}",
                      "-device", f"virtio-blk-device,drive={serial},serial={serial}"]
        if self._tools:
            words += ["-blockdev", f"driver=raw,node-name=tools,read-only=on,file.driver=file,"
                                   f"file.filename={self._tools}",
                      "-device", f"virtio-blk-pci,drive=tools,serial={TOOLS}"]
        return [*words, *(["-loadvm", loaded] if loaded else [])]

    def start(self, loaded=None):
        """Switches the panel on, or goes on from a saved state. Raises Failed."""
        self._folder.mkdir(parents=True, exist_ok=True)
        ours, numbers = {}, {}
        with contextlib.ExitStack() as theirs:
            for name in LINKS:
                ours[name], other = socket.socketpair()
                theirs.enter_context(other)
                numbers[name] = other.fileno()
            self._child = self._processes.start(*self.command(numbers, loaded), keep=[*numbers.values()],
                                                log=self._folder / "emulator.log")
        self.probe = self._closed(RelayedProbe(ours["probe"]))
        self.console = self._closed(Console(ours["console"], self._folder / "console.log"))
        self.monitor = self._closed(Monitor(ours["monitor"], self._note))
        self.screen = Screen(self.monitor, self._size)
        try:
            self.monitor.greet()
        except Gone as error:
            self.stop()
            said = common.tail_of(self._folder / "emulator.log")
            raise Failed(f"{EMULATORS[self._image.processor]} did not start: {said or error}; "
                         "scripts/setup emulator installs it") from error

    def _closed(self, link):
        self._tail.callback(link.close)
        return link

    def _note(self, event):
        """Takes an event of the monitor's."""
        left = event["event"] == "VSERPORT_CHANGE" and not event["data"]["open"]
        if left or event["event"] == "RESET":
            self.probe.note_closed()

    def is_on(self):
        """Tells whether the emulator runs."""
        return self._child is not None and self._child.poll() is None

    def stop(self):
        """Ends the emulator, whatever the panel is doing, and the links to it."""
        if self._child is not None:
            self._processes.stop(self._child)
            self._child.wait()
            self._child = None
        self._tail.close()

    def cut_power(self):
        """Takes the power away: what the panel has not handed to its storage is lost."""
        os.kill(self._child.pid, signal.SIGKILL)
        self.stop()

    def power_off(self, seconds=180):
        """Lets the panel shut down, and waits for that. Raises Failed when it does not in time."""
        since = self.monitor.mark()
        self.console.begin("poweroff")
        self.monitor.wait_for("SHUTDOWN", since=since, seconds=seconds)
        self.stop()

    def save(self, name):
        """Saves the state of the panel, its memory included, in its overlays. Raises Failed."""
        first, *_ = self._overlays
        self.monitor.finish_job("snapshot-save", f"save-{name}", seconds=300, tag=name, vmstate=first,
                                devices=[*self._overlays])

    def plug(self, file, name="stick"):
        """Plugs a drive in: a file in this computer, of the user's. Raises Failed."""
        self.monitor.ask("blockdev-add", driver="raw", node_name=name,
                         file={"driver": "file", "filename": str(file)})
        self.monitor.ask("device_add", driver="usb-storage", id=f"{name}-plug", drive=name,
                         bus="usb.0", removable=True)

    def pull(self, name="stick"):
        """Pulls a drive out, as a hand does; returns when it is out. Raises Failed."""
        since = self.monitor.mark()
        self.monitor.ask("device_del", id=f"{name}-plug")
        self.monitor.wait_for("DEVICE_DELETED", since=since, seconds=LETTING_GO,
                              device=f"{name}-plug")
        self.monitor.ask("blockdev-del", node_name=name)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

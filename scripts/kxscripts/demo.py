# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What scripts/demo starts."""
import os
import pathlib
import signal
import sys

SCRIPTS = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(SCRIPTS), str(SCRIPTS.parent / "device")]

# pylint: disable=wrong-import-position
from kxscripts import demo_headless, demo_rest, demo_served, demo_signed, hello  # noqa: E402
from kxscripts.common import Failed, ROOT, build, say, setup  # noqa: E402
from kxscripts.demo_options import UsageError, parse, usage  # noqa: E402
from kxscripts.demo_processes import end_on_signals, ignore_signals  # noqa: E402
from kxscripts.demo_stage import Stage  # noqa: E402
from kxscripts.processes import Interrupted  # noqa: E402

BROKEN_PIPE = 141  # as a shell tells that SIGPIPE ended a program


def _mode(options):
    """Tells how the panel is shown: "served", "display" or "headless"."""
    if options.ports():
        return "served"
    if not options.headless and os.environ.get("DISPLAY"):
        return "display"
    if not options.headless and os.environ.get("WAYLAND_DISPLAY"):
        print("This display is reached by Wayland only; the panel needs X. "
              "Going on without a display.")
    return "headless"


def _prepare(stage, mode):
    """Installs what is missing, builds, and makes the drive with the package. Raises Failed."""
    further = {"display": mode == "display", "web": stage.options.web, "vnc": stage.options.vnc}
    setup("build", "tools", "demo", *(group for group, wanted in further.items() if wanted))
    say("Building the updater")
    build("release", "kx_Updater", "kx-package", "kx-panel", "kx_probe")
    print("build/release/kx_Updater")
    stage.claim_folder()
    say(f"Packing the package: {stage.package.name}")
    hello.pack(stage.package)
    stage.need("unzip", "-l", stage.package)


def _show(stage, mode):
    """Shows the panel; returns how it was shown in the end. Raises Failed."""
    if mode == "display":
        if demo_served.open_display(stage):
            demo_served.show_on_display(stage)
            return mode
        print(f"No window can be opened on the display {os.environ['DISPLAY']}. "
              "Going on without a display.")
    if mode == "served":
        demo_served.serve(stage)
        return mode
    demo_headless.show(stage)
    return "headless"


def _run(options, caller):
    """Runs the demonstration; returns the exit status. Raises Failed, OSError, Interrupted."""
    for port in options.ports():
        if demo_served.is_taken(port):
            raise Failed(f"port {port} is taken; name another one behind --web or --vnc")
    mode = _mode(options)
    stage = Stage(options, caller)
    try:
        _prepare(stage, mode)
        mode = _show(stage, mode)
        stage.processes.stop_all()
        demo_rest.tell(stage, must_be_recorded=mode == "headless")
        demo_signed.show(stage)
    finally:
        ignore_signals()
        stage.clear()
    if mode == "headless":
        demo_headless.tell_files(stage)
    demo_rest.tell_way_in(stage)
    return 0


def _start(arguments):
    """Does what the command line asks for; returns the exit status. Raises Failed, OSError,
    UsageError, Interrupted."""
    options = parse(arguments)
    if options is None:
        print(usage(), end="")
        return 0
    end_on_signals()
    caller = pathlib.Path.cwd()
    os.chdir(ROOT)
    return _run(options, caller)


def _tell(error):
    """Prints why the demonstration ends; returns the exit status."""
    if isinstance(error, Interrupted):
        if error.number == signal.SIGINT:
            print("\nEnded.")
        return 130 if error.number == signal.SIGINT else 143
    if isinstance(error, UsageError):
        print(f"scripts/demo: {error}; see scripts/demo --help", file=sys.stderr)
        return 2
    if isinstance(error, BrokenPipeError):
        raise error
    print(f"scripts/demo: {error}", file=sys.stderr)
    return 1


def main(arguments):
    """Runs scripts/demo; returns the exit status."""
    # What other programs print comes in between.
    sys.stdout.reconfigure(line_buffering=True)
    try:
        try:
            status = _start(arguments)
        except (Failed, OSError, UsageError, Interrupted) as error:
            status = _tell(error)
        sys.stdout.flush()
    except BrokenPipeError:
        status = BROKEN_PIPE
    except OSError:
        status = 1
    else:
        return status
    # Nobody gets the rest, and the interpreter would complain of it at its end.
    os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

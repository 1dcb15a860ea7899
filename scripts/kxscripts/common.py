# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the project's scripts share: headlines, setting up, building, the list of sources."""
import fnmatch
import functools
import os
import pathlib
import subprocess
import sys

from kxscripts import processes

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
TAIL = 60  # lines of a log that tell why something failed
NO_SOURCES = {"build", ".git", ".hg", ".svn", ".cache", "__pycache__"}  # folders without sources


class Failed(Exception):
    """Something that the script needs did not work; the text says what, and where to look."""


def say(text):
    """Prints a headline."""
    print(f"\n== {text}", flush=True)


def tail_of(log, lines=TAIL):
    """The last lines of a file as one text; empty when there is no such file."""
    try:
        text = pathlib.Path(log).read_text(encoding="utf-8", errors="replace")
    except OSError:
        return ""
    return "\n".join(text.splitlines()[-lines:])


def setup(*groups):
    """Installs what the groups of scripts/setup need and this machine lacks. Raises Failed."""
    if subprocess.run([ROOT / "scripts" / "setup", *groups], check=False).returncode != 0:
        raise Failed("what is missing could not be installed")


def try_build(preset, *targets, root=ROOT, options=()):
    """Configures and builds; all output goes to build/PRESET.log.

    options   what the configuring is told besides
    Returns None, or the end of the log and one line that tells what failed."""
    log = root / "build" / f"{preset}.log"
    log.parent.mkdir(exist_ok=True)
    command = ["cmake", "--build", "--preset", preset]
    if targets:
        command += ["--target", *targets]
    with log.open("wb") as output:
        for step in (["cmake", "--preset", preset, *options], command):
            if processes.run(step, cwd=root, output=output) != 0:
                break
        else:
            return None
    return (f"{tail_of(log)}\n"
            f"building the preset {preset} failed; all of it: {log.relative_to(root)}")


def build(preset, *targets, root=ROOT, options=()):
    """Configures and builds, quietly when all is well; the output is kept in build/PRESET.log.

    options   what the configuring is told besides
    Raises Failed after it has printed the end of the log on standard error."""
    problem = try_build(preset, *targets, root=root, options=options)
    if problem is not None:
        end, _, reason = problem.rpartition("\n")
        print(end, file=sys.stderr, flush=True)
        raise Failed(reason)


def _listed_by_git(root):
    """What git knows and what is new, or Failed with git's own words."""
    try:
        done = subprocess.run(
            ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", "--deduplicate"],
            cwd=root, capture_output=True, check=False)
    except FileNotFoundError as error:
        raise Failed("git is missing; scripts/setup installs it") from error
    if done.returncode != 0:
        # Where the owner is one that it does not trust, git tells the remedy, too.
        raise Failed("git cannot tell the files of this folder:\n" +
                     done.stderr.decode(errors="replace").rstrip())
    names = (os.fsdecode(name) for name in done.stdout.split(b"\0") if name)
    # A file that was removed and not yet committed is no source any more.
    return sorted(name for name in names if os.path.lexists(root / name))


def _found_below(root):
    """Every file of a folder that is no repository, as one has it from an archive of sources."""
    names = []
    for folder, folders, files in os.walk(root):
        folders[:] = [name for name in folders if name not in NO_SOURCES]
        here = pathlib.Path(folder).relative_to(root)
        names += [(here / name).as_posix() for name in files]
    return sorted(names)


@functools.lru_cache
def _all_sources(root):
    """Every source; a script is told of the same ones from its beginning to its end."""
    if os.path.lexists(root / ".git"):
        return _listed_by_git(root)
    print(f"No repository in {root}: every file outside of build/ counts as a source.",
          file=sys.stderr, flush=True)
    return _found_below(root)


def sources(*patterns, root=ROOT):
    """The sources that match one of the patterns of fnmatch (all without one), sorted, as names
    relative to the root: what git knows or would add; without a repository every file but those of
    build/, which is told on standard error.

    Raises Failed when nothing matches, and when there is a repository that git does not read."""
    names = [name for name in _all_sources(root)
             if not patterns or any(fnmatch.fnmatchcase(name, pattern) for pattern in patterns)]
    if not names:
        raise Failed(f"no source in {root} {' '.join(patterns)}".rstrip())
    return names


def run_script(name, work, interrupted=""):
    """Does the work of a script, which a signal ends with all that it has started; further signals
    do not disturb that.

    interrupted   what is told besides when a signal has ended it
    Returns the exit status of the script: what the work returns, or 1 when it raises Failed or
    OSError, which is told on standard error, or what a shell gives to whom a signal has ended."""
    with processes.signals_end_the_script():
        try:
            return work()
        except (Failed, OSError) as failure:
            print(f"{name}: {failure}", file=sys.stderr, flush=True)
            return 1
        except processes.Interrupted as end:
            processes.stop_all()
            print(f"{name}: interrupted by {end}{interrupted}", file=sys.stderr, flush=True)
            return 128 + end.number


def main():
    """For the scripts of the shell, in the working directory: `build PRESET [TARGET...]`, or
    `sources [PATTERN...]`, which prints the sources, one a line."""
    _, action, *words = sys.argv
    try:
        if action == "build":
            build(*words, root=pathlib.Path.cwd())
        else:
            assert action == "sources"
            print("\n".join(sources(*words, root=pathlib.Path.cwd())))
    except Failed as failure:
        print(failure, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

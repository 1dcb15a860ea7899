# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Whether check, show, plan and try say the same of a package, and what a panel does with it.

Compared are the recorded folders and files, whether the archive unpacks, and the step that fails.
What may differ stands in the tables here, each with its reason.
"""

import json
import re
import subprocess

import panel

# Findings of severity error at a step that do not make the step fail: all of a rule, or those of its
# messages with a text.
NO_FAILURE = {
    ("permissions", "a question to chmod"): "chmod answers and succeeds",
    ("target-empty", "arrives in the root folder"): "the folder is copied, to the root folder",
    "target-relative": "the file is copied, to where the updater was started",
    "target-root": "the file is copied, into the root folder",
    "target-folder": "the file is copied, under its own name into the folder",
    "target-folder-mode": "the mode is given, to the folder",
    "target-shell": "the shell makes another path of it, which may be there or not",
    "source-shell": "the shell makes another path of it, which may be there or not",
    "payload-folder": "a folder that is not there is copied as an empty one",
    "permissions": "the shell makes something of a mode that holds a blank or a sign",
    "script-interpreter": "what a script's interpreter is, only a panel knows",
    "script-mark": "what the shell makes of the script, only a panel knows",
    "script-first-line": "what the shell makes of the script, only a panel knows",
    "script-zero": "the script is run, up to the zero byte",
    "script-carriage": "the start-up script is written, and read at the next start",
    "setting-shell": "the setting tool's result ends nothing",
    "setting-blank": "the setting tool's result ends nothing",
    "setting-name": "the setting tool's result ends nothing",
    "user-quote": "the result of setting a password is not known",
    "user-escape": "the result of setting a password is not known",
    "user-line": "the result of setting a password is not known",
    "user-missing": "the result of setting a password is not known",
    "user-name": "the result of setting a password is not known",
    "target-line": "the file is copied; the record's list cannot tell its name",
    "payload-link": "a link that leads out of the package may meet something on the panel",
}
# Findings of severity error about an archive that unpacks all the same.
NO_UNPACK_FAILURE = {
    "path-locale": "unzip makes another name of it in some locales, without a complaint",
    "entry-link": "a link is made",
    "archive-bomb": "contents were not looked at; there may be room on a panel",
    ("entry-method", "cannot be checked here"): "unzip knows the method",
}
# Findings of severity error for which plan lets unzip fail, and unzip may unpack the archive.
UNPACKED_ALL_THE_SAME = {
    "entry-overlap": "unzip takes some entries that share bytes for an attack, and others not",
}
OF_THE_ARCHIVE = ("archive-", "entry-", "path-")
STEP = re.compile(r"DB_StepSets\.\$values\[(\d+)\]")
PAYLOAD = re.compile(r"(\d+)/")


def is_in(table, found):
    """Whether a finding stands in one of the tables."""
    return found["id"] in table or any(
        not isinstance(key, str) and key[0] == found["id"] and key[1] in found["message"]
        for key in table)


def told(tool, words, job):
    """The exit status of a command of kx-package, and its document."""
    done = subprocess.run([tool, words[0], "--json", *words[1:], job["file"]], capture_output=True,
                          timeout=120, check=False)
    if done.returncode not in (0, 1, 3) or done.stderr:
        raise SystemExit(f"{job['file']} ({job['how']}): {words[0]} ends with {done.returncode} "
                         f"{done.stderr.decode(errors='replace')}")
    return done.returncode, json.loads(done.stdout)


def step_of(finding):
    """The step at which a finding stands, from 1; 0 when it is none's."""
    place = finding["place"]
    found = STEP.match(place.get("path") or "") or (None if place.get("path") else
                                                PAYLOAD.match(place.get("file") or ""))
    return int(found[1]) + 1 if found else 0


def recorded(document):
    """Folders and files of a document of plan or show."""
    if "recorded" in document:
        return [document["recorded"]["folders"], document["recorded"]["files"]]
    return [document["recordedFolders"], document["recordedFiles"]]


def is_open(plan):
    """The steps in which a command's result is not known before a panel has run it."""
    return {command["step"] for command in plan["commands"]
            if command["unknownResult"] or command["readDifferently"] or command["afterScript"]}


def by_show(job):
    """Where show and plan differ."""
    (shown, show), (planned, plan) = job["show"], job["plan"]
    if "error" in plan or "error" in show:
        if planned == 0 or (shown == 0 and show["recorded"]["why"] is None):
            yield "show or plan tells an error, and the other one that it is recorded"
        return
    if recorded(show) != recorded(plan):
        yield f"show records {recorded(show)}, plan {recorded(plan)}"
    if (show["recorded"]["why"] is None) != plan["installed"]:
        yield f"show says {show['recorded']['why']}, plan installed {plan['installed']}"


def by_check(job):
    """Where check and plan differ."""
    planned, plan = job["plan"]
    errors = [found for found in job["findings"] if found["severity"] == "error"]
    if job["clean"] and planned != 0:
        yield f"check finds nothing, plan says {plan.get('error') or plan['log'][-1:]}"
    if "error" in plan:
        return
    archive = [found["id"] for found in errors if found["id"].startswith(OF_THE_ARCHIVE)
               and not is_in(NO_UNPACK_FAILURE, found)]
    if plan["unpacked"] and archive:
        yield f"check says {archive}, plan unpacks it"
    if not plan["unpacked"] and not any(found["id"].startswith(OF_THE_ARCHIVE)
                                        for found in errors):
        yield "plan does not unpack it, check finds no fault of the archive"
    failed = plan["failedStep"]
    if failed and failed not in map(step_of, errors):
        yield f"plan fails in step {failed}, check finds nothing there"
    if not plan["installed"]:
        return
    for found in errors:
        if step_of(found) and not found["id"].startswith(OF_THE_ARCHIVE) and \
                not is_in(NO_FAILURE, found):
            yield f"check says {found['id']} in step {step_of(found)}, plan goes on"


def by_panel(job):
    """Where plan and the panel differ."""
    planned, plan = job["plan"]
    result = job["result"]
    unpacks = result["unzip"] == [0, 0]
    if "error" in plan:
        if result["install"] == 0:
            yield f"plan says {plan['error']}, the panel installs it"
        return
    # Whether a name can be written may depend on the panel's locale.
    is_allowed = 0 in result["unzip"] and "path-locale" in job["ids"] if plan["unpacked"] else \
        any(rule in UNPACKED_ALL_THE_SAME for rule in job["ids"])
    if unpacks != plan["unpacked"] and not is_allowed:
        yield f"the panel's unzip ends with {result['unzip']}, plan unpacked {plan['unpacked']}"
    if not plan["started"] or result["install"] is None:
        return
    record = result["record"] and [
        [text.encode("latin1").decode("utf-8", "backslashreplace") for text in texts]
        for texts in result["record"]]
    yield from by_installation(plan, result["install"] == 0, result["failedStep"], record)
    if planned == 0 and result["install"] == 0 and result["kept"] is None and job["promise"]:
        yield "nobody looked whether it keeps its promises"


def by_installation(plan, is_installed, failed, record):
    """Where a plan and an installation differ, which had the panel's tools and scripts."""
    if is_open(plan) & {failed} and failed != plan["failedStep"]:
        return  # the plan says that it cannot know
    if is_installed != plan["installed"] and not is_open(plan):
        yield f"the panel installs {is_installed}, plan {plan['installed']}"
    if failed != plan["failedStep"] and not (is_installed and is_open(plan)):
        yield f"the panel fails in step {failed}, plan in step {plan['failedStep']}"
    if is_installed and plan["installed"] and record is not None:
        # A list has a line for each path, whatever is in it; JSON shows bytes that are no UTF-8.
        listed = ["\n".join(texts) for texts in record]
        if listed != ["\n".join(texts) for texts in recorded(plan)]:
            yield f"the record lists {record}, plan {recorded(plan)}"


def by_trial(options, job):
    """Where plan and a trial differ."""
    _, plan = told(options.tool, ["plan"], job)
    status, trial = told(options.tool, ["try", "--updater", options.updater], job)
    if "error" in trial or "error" in plan:
        if status == 0 or plan.get("installed"):
            yield f"try says {trial.get('error')}, plan {plan.get('error') or plan['installed']}"
        return
    last = trial["installations"][-1]
    # A trial takes a package without a description for one that was not unpacked.
    has_description = not plan["log"][-1:] or "Unable to access" not in plan["log"][-1]
    if last["unpacked"] != (plan["unpacked"] and has_description):
        yield f"try unpacks {last['unpacked']}, plan {plan['unpacked']}"
    if not plan["started"]:
        return  # a trial has an updater of its own
    log = "".join(line + "\n" for line in last["log"]).encode()
    record = last["record"]
    yield from by_installation(plan, last["installed"], panel.failed_step(log),
                               record and [record["folders"], record["files"]])


def sample(jobs, count):
    """Some packages of all kinds: the first built ones, then those that plan says fail, and others."""
    def kind(job):
        plan = job["plan"][1]
        return "error" in plan or (plan["unpacked"], plan["started"], plan["failedStep"],
                                   plan["installed"])
    seen, chosen = {}, []
    for job in jobs:
        seen.setdefault(kind(job), []).append(job)
    while len(chosen) < min(count, len(jobs)):
        for found in seen.values():
            chosen += [found.pop(0)] if found and len(chosen) < count else []
    return chosen


def report(options, jobs, tries):
    """Prints where they differ; returns the exit status."""
    wrong = 0
    for job in jobs:
        for found in [*by_show(job), *by_check(job), *by_panel(job)]:
            print(f"{job['file']} ({job['how']}): {found}")
            wrong += 1
    for job in tries:
        for found in by_trial(options, job):
            print(f"{job['file']} ({job['how']}): try: {found}")
            wrong += 1
    failing = sum(bool(job["plan"][1].get("failedStep")) for job in jobs)
    alone = sum("installation-fails" in job["ids"] for job in jobs)
    records = sum(job["result"]["record"] is not None for job in jobs)
    print(f"show, plan, check and the panel compared: {wrong} differences; {failing} packages fail in "
          f"a step, {alone} of all by the rehearsal alone; {records} records; "
          f"{len(tries)} tries")
    # A comparison of nothing has failed.
    return 1 if wrong or not failing or not records or (options.tries and not tries) else 0

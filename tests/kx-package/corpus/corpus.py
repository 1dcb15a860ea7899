#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Compares what `kx-package` says of packages with what happens on the sandboxed device.

Builds packages with zip, 7z, bsdtar and Python, damages archives and descriptions by chance (the
same chance every time), asks `kx-package check` about each, unpacks each with the device's unzip in
two locales, and installs those that unpack with the real updater. A package is faultless when all
of this succeeds and files and settings are what its description says. What `show`, `plan` and `try`
say is compared with each other, with the check and with the panel, too: see agreement.py.

  corpus.py --tool build/dev/kx-package --updater build/release/kx_Updater [--archives N]
            [--descriptions N] [--seed N] [--keep DIR] [--tries N] [--second TOOL]

--second names another build of the same tool, which show and plan are asked of: one with
sanitizers, which starts slowly, then reads each package once, for its check. --tries says how many packages are installed by `kx-package try` besides, -1 for all of them.

Exit status 0: no package that the check calls clean had a fault, of those that it refuses fewer than
1 in 100 had none, and all agree. 1: it is otherwise. 77: there is no sandboxed device here.
"""

import argparse
import concurrent.futures
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.realpath(__file__))
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(HERE)))
sys.path.insert(0, HERE)
sys.dont_write_bytecode = True

# pylint: disable=wrong-import-position
import agreement  # noqa: E402
import checking  # noqa: E402
from packages import Corpus  # noqa: E402


def arguments():
    """The command line."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--updater", required=True)
    parser.add_argument("--archives", type=int, default=400)
    parser.add_argument("--descriptions", type=int, default=130)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--tries", type=int, default=8)
    parser.add_argument("--second", help="the tool that show and plan are asked of")
    parser.add_argument("--keep", help="keep the packages in this folder")
    return parser.parse_args()


def check_all(tool, jobs):
    """Notes what the check finds in each package."""
    for job, told in zip(jobs, checking.of_all(checking.documents, [tool], jobs)):
        job["clean"], job["findings"] = told["clean"], told["findings"]
        job["ids"] = [found["id"] for found in told["findings"] if found["severity"] == "error"]
        if bool(job["ids"]) == job["clean"]:
            raise SystemExit(f"{job['file']}: has errors and is clean, or none and is not")


def ask(options, job):
    """Notes what show and plan say of a package."""
    job["show"] = agreement.told(options.second or options.tool, ["show"], job)
    job["plan"] = agreement.told(options.second or options.tool, ["plan", "--at", "/mnt/user"], job)


def on_panel(options, corpus, jobs):
    """Runs packages on one panel and returns what came of each."""
    lines = "".join(json.dumps({
        "file": job["file"].replace(corpus.folder, "/packages"), "install": job["install"],
        "promise": job["promise"]}) + "\n" for job in jobs)
    done = subprocess.run(
        [os.path.join(ROOT, "device/run"), "--seconds", "580", "--share",
         f"{corpus.folder}=/packages", "--share", f"{options.updater}=/opt/kx/kx_Updater",
         "--share", f"{HERE}/panel.py=/opt/kx/panel.py", "--", "/usr/bin/python3",
         "/opt/kx/panel.py"], input=lines.encode(), capture_output=True, check=False)
    results = [json.loads(line) for line in done.stdout.splitlines()]
    if len(results) != len(jobs):
        raise SystemExit(f"the panel ended early ({done.returncode}) at "
                         f"{jobs[len(results)]['how']}: {done.stderr.decode(errors='replace')}")
    return results


def all_on_panels(options, corpus, jobs):
    """Runs packages on panels of their own, some on each, two at a time."""
    pieces = [jobs[i:i + 40] for i in range(0, len(jobs), 40)]
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        return [result for piece in pool.map(lambda piece: on_panel(options, corpus, piece), pieces)
                for result in piece]


def judge(job, result, whole):
    """Whether a package was faultless; None when it must be installed to know."""
    if result["unzip"] != [0, 0] or not result["runs"]:
        return False
    if result["install"] is not None:
        return result["install"] == 0 and result["kept"] is not False
    # What unpacks to the same files installs like the package that it was made of.
    return True if result["trees"] == [whole, whole] else None


def report(jobs):
    """Prints the agreement; returns the exit status."""
    clean = [job for job in jobs if job["clean"]]
    refused = [job for job in jobs if not job["clean"]]
    missed = [job for job in clean if not job["faultless"]]
    alarms = [job for job in refused if job["faultless"]]
    for title, found in [("clean, but had a fault", missed), ("refused, but faultless", alarms)]:
        for job in found:
            print(f"{title}: {job['file']} ({job['how']}): {' '.join(job['ids'])} "
                  f"unzip {job['result']['unzip']} install {job['result']['install']} "
                  f"kept {job['result']['kept']} runs {job['result']['runs']}")
    share = len(alarms) / max(len(refused), 1)
    print(f"{len(jobs)} packages: {len(clean)} clean, of these {len(missed)} with a fault; "
          f"{len(refused)} refused, of these {len(alarms)} faultless ({share:.2%})")
    installed = sum(job["result"]["install"] is not None for job in jobs)
    print(f"{installed} were installed by the updater")
    return 1 if missed or share >= 0.01 or not clean or not refused else 0


def main():
    """Builds, asks, tries, compares."""
    options = arguments()
    options.updater = os.path.realpath(options.updater)
    if subprocess.run([os.path.join(ROOT, "device/run"), "--", "true"], check=False,
                      capture_output=True).returncode != 0:
        return 77
    with tempfile.TemporaryDirectory() as temporary:
        os.chmod(temporary, 0o755)
        folder = options.keep or temporary
        os.makedirs(folder, exist_ok=True)
        corpus = Corpus(folder, options.seed, options.tool)
        corpus.add_built()
        corpus.add_damaged(options.archives)
        corpus.add_spoiled(options.descriptions)
        check_all(options.tool, corpus.jobs)
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            list(pool.map(lambda job: ask(options, job), corpus.jobs))
        results = all_on_panels(options, corpus, corpus.jobs)
        whole = results[0]["trees"][0]
        again = []
        for job, result in zip(corpus.jobs, results):
            job["result"] = result
            job["faultless"] = judge(job, result, whole)
            if job["faultless"] is None:
                job["install"] = True
                again.append(job)
        for job, result in zip(again, all_on_panels(options, corpus, again)):
            job["result"] = result
            job["faultless"] = judge(job, result, whole)
        tries = corpus.jobs if options.tries < 0 else agreement.sample(corpus.jobs, options.tries)
        return max(report(corpus.jobs), agreement.report(options, corpus.jobs, tries))


sys.exit(main())

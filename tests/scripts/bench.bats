#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What scripts/bench makes of its measurements. Nothing is measured here.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

# python: runs the program on standard input, which knows the benchmark's modules.
python() {
    PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$ROOT/tests/bench /usr/bin/python3 -
}

@test "results and rows are on the disk as soon as they are told" {
    cd "$BATS_TEST_TMPDIR"

    run python <<'END'
import os, pathlib
from kxbench.results import Results
results = Results(pathlib.Path("results"))
results.say("folder-1k: a thousand files")
results.run("folder-1k", 1, "floor", {"wall": 2.5, "own": 0.25, "children": 2, "peak_kib": 9000})
results.run("read-20k", 1, "parse", {"wall": 0.5})
results.goal("folder-1k", "wall updater/floor", 1.01, 1.01)
results.goal("folder-1k", "cpu updater/floor", 1.011, 1.01)
print(results.path.read_text(), end="")
print(results.path.with_suffix(".tsv").read_text(), end="", flush=True)
os._exit(9)
END

    echo "$output"
    [ "$status" -eq 9 ]
    diff <(printf '%s\n' "$output") - <<'END'
folder-1k: a thousand files
  wall updater/floor 1.010, goal 1.01: kept
  cpu updater/floor 1.011, goal 1.01: MISSED
folder-1k: a thousand files
  wall updater/floor 1.010, goal 1.01: kept
  cpu updater/floor 1.011, goal 1.01: MISSED
workload	round	program	wall	own	children	peak_kib
folder-1k	1	floor	2.5	0.25	2	9000
read-20k	1	parse	0.5			
END
}

@test "the end tells how many goals were kept, and which were missed" {
    cd "$BATS_TEST_TMPDIR"

    run python <<'END'
import pathlib
from kxbench.results import Results
results = Results(pathlib.Path("."))
for value in (0.9, 1.2, 1.0):
    results.goal("growth", "dearest/cheapest file", value, 1.1)
results.finish()
END

    [ "$status" -eq 0 ]
    diff <(printf '%s\n' "${lines[@]:3}") - <<'END'
2 goals kept, 1 missed, 0.0 minutes
  growth: dearest/cheapest file 1.200, goal 1.1
END
}

@test "programs are compared within each round" {
    run python <<'END'
from kxbench.results import median_of, ratio_of
runs = {"updater": [{"wall": 11}, {"wall": 22}, {"wall": 90}],
        "floor": [{"wall": 10}, {"wall": 20}, {"wall": 30}]}
print(ratio_of(runs, "wall", "updater", "floor"), median_of(runs["updater"], "wall"))
END

    [ "$output" = '1.1 22' ]
}

@test "a package's files and the commands of its installation agree" {
    cd "$BATS_TEST_TMPDIR"

    run python <<'END'
import pathlib
from kxbench import workloads
package = pathlib.Path("package")
steps, commands = workloads.folder_step(package, 1, 2, 5)
print("\n".join(workloads.expected_commands(commands)))
print(len(steps), sorted(str(path) for path in package.rglob("f*")),
      (package / "0/0/d0000/f0001").read_bytes())
END

    diff <(printf '%s\n' "$output") - <<'END'
sync
/usr/bin/kxsystem/wprotect_off
mkdir -p "/mnt/user/target"
mkdir -p "/mnt/user/target/d0000"
cp -f "/opt/bench/package/0/0/d0000/f0000" "/mnt/user/target/d0000/f0000" 
cp -f "/opt/bench/package/0/0/d0000/f0001" "/mnt/user/target/d0000/f0001" 
mkdir -p "/var/lib/KxUserPackages/package"
cp -f "/opt/bench/package/UserPackage.kx-project" "/var/lib/KxUserPackages/package/UserPackage.kx-project" 
sync
1 ['package/0/0/d0000/f0000', 'package/0/0/d0000/f0001'] b'\x00\x01\x02\x03\x04'
END
}

@test "the help names every workload, and no other is taken" {
    run "$ROOT/scripts/bench" --help
    [ "$status" -eq 0 ]
    named=$(tr -s ' \n' ' ' <<<"$output" | sed 's/.*Workloads: \([^(]*\) (.*/\1/')
    known=$(echo 'from kxbench import workloads; print(*workloads.WORKLOADS)' | python)
    [ "$named" = "$known" ]

    run "$ROOT/scripts/bench" folder-2k
    [ "$status" -eq 2 ]
    [[ $output == *"no workload 'folder-2k'; there are: no-steps "* ]]
}

@test "programs are measured on the sandboxed device only" {
    [ ! -e /.kx-device ]

    run "$ROOT/tests/bench/measure.py" </dev/null

    [ "$status" -eq 1 ]
    [ "$output" = 'measure: only on the sandboxed device' ]
}

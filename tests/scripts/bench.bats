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

# bench_tree: the benchmark with a sandboxed device that is played: it traces what $TRACE holds, and
# every program takes the time that $TIMES tells.
bench_tree() {
    TREE=$BATS_TEST_TMPDIR/tree
    mkdir -p "$TREE/tests" "$TREE/device" "$TREE/bin"
    cp -R "$ROOT/scripts" "$TREE/scripts"
    cp -R "$ROOT/tests/bench" "$TREE/tests"
    export TRACE=$TREE/trace
    printf '#!/bin/sh\n' | tee "$TREE/scripts/setup" >"$TREE/bin/cmake"
    cat >"$TREE/device/run" <<'END'
#!/usr/bin/python3
import json, os, shutil, sys
words = sys.argv
if "--trace" in words:
    shutil.copy(os.environ["TRACE"], words[words.index("--trace") + 1])
else:
    job = json.load(sys.stdin)
    for name in job["programs"]:
        print(json.dumps({"round": 1, "name": name, "status": 9 * (name == os.environ.get("BAD")),
                          "wall": 1, "own": 0.5, "cpu": 1, "children": 0.5, "peak_kib": 1024}))
END
    chmod +x "$TREE"/{bin/cmake,scripts/setup,device/run}
    printf 'shell\t%s\n' sync /usr/bin/kxsystem/wprotect_off \
        'mkdir -p "/var/lib/KxUserPackages/package"' \
        'cp -f "/opt/bench/package/UserPackage.kx-project" "/var/lib/KxUserPackages/package/UserPackage.kx-project" ' \
        sync >"$TRACE"
    echo $'tool\twprotect_off' >>"$TRACE"
}

# bench_no_steps: leaves $status and $output.
bench_no_steps() {
    run env PATH="$TREE/bin:$PATH" "$TREE/scripts/bench" --quick no-steps
    echo "$output"
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

@test "an installation is measured when its commands are those that it must run, in their order" {
    bench_tree
    bench_no_steps
    [ "$status" -eq 0 ]
    [[ $output == *'0 goals kept, 0 missed'* ]]

    sed -i '2{h;d};3{G}' "$TRACE"
    bench_no_steps
    [ "$status" -eq 1 ]
    [[ $output == *'no-steps: the updater ran 5 commands, not the 5 that are specified;'* ]]

    sed -i 1d "$TRACE"
    bench_no_steps
    [ "$status" -eq 1 ]
    [[ $output == *'no-steps: the updater ran 4 commands, not the 5 that are specified;'* ]]
}

@test "a program that fails while it is measured ends the benchmark" {
    bench_tree

    BAD=floor bench_no_steps

    [ "$status" -eq 1 ]
    [ "${lines[-1]}" = 'floor ended with 9' ]
}

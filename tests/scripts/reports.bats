#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The reports that bats (tests/support/bats-report) and a binary on the sandboxed device leave.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

# python: runs the program on standard input, which knows the modules of the scripts.
python() {
    PYTHONPATH=$ROOT/scripts /usr/bin/python3 -B -
}

# report <STREAM: what the formatter prints of an extended TAP stream, and the report's cases.
report() {
    KX_BATS_REPORT=$BATS_TEST_TMPDIR/report.xml "$ROOT/tests/support/bats-report"
    python <<END
import pathlib
from kxscripts import results
for case in results.read(pathlib.Path("$BATS_TEST_TMPDIR/report.xml")):
    print(case.outcome, case.name, case.seconds, repr(case.text))
END
}

# played_device: on-device in a tree of its own, whose device/run notes what it is asked for in
# $TREE/log, leaves what a binary would and ends with $ENDS; with $NONE it can make no panel.
played_device() {
    TREE=$BATS_TEST_TMPDIR/tree
    mkdir -p "$TREE/tests/support" "$TREE/device"
    cp "$ROOT/tests/support/on-device" "$TREE/tests/support"
    cat >"$TREE/device/run" <<'END'
#!/bin/bash
printf '%s\n' "$*" >>"$(dirname "$0")/../log"
[ "$*" != '-- true' ] || { [ -z "$NONE" ] || { echo "no namespaces" >&2; exit 1; }; exit 0; }
[ "$1" != --erase ] || exec rm -r "$3"
state=$(sed -n 's/.*--state \([^ ]*\).*/\1/p' <<<"$*")
[ -z "$state" ] || mkdir -p "$state/root/var"
[[ $* != */var/report.xml* ]] || echo "a report" >"$state/root/var/report.xml"
[[ $* != *GCOV_PREFIX=/var/gcov* ]] || { mkdir "$state/root/var/gcov"; echo 1 >"$state/root/var/gcov/a.gcda"; }
exit "${ENDS:-0}"
END
    chmod +x "$TREE/device/run"
    printf '#!/bin/sh\n' >"$TREE/binary"
    chmod +x "$TREE/binary"
    unset ASAN_OPTIONS UBSAN_OPTIONS KX_COVERAGE_OUT CI
    export TMPDIR=$TREE
}

# on_device ARG...: leaves $status, $output and the lines of what was asked of the device in $asked.
on_device() {
    rm -f "$TREE/log"
    run "$TREE/tests/support/on-device" "$@"
    echo "$output"
    mapfile -t asked < <(cat "$TREE/log")
    # What is kept of the panel while its binary runs is gone.
    [ -z "$(find "$TREE" -name 'tmp.*')" ]
}

@test "every case of a run of bats is reported, with its output" {
    run report <<'END'
1..5
suite /tests/one.bats
begin 1 a <good> & "odd" name
# told while it runs
ok 1 a <good> & "odd" name in 1500ms
begin 2 takes 3 in 7ms
ok 2 takes 3 in 7ms in 20ms # skip no way
suite /tests/two.bats
begin 3 is bad
not ok 3 is bad in 2ms
# (in test file two.bats, line 4)
#   `false' failed
begin 4 skipped without a reason
ok 4 skipped without a reason in 3ms # skip
begin 5 too slow
not ok 5 too slow in 9ms # timeout after 1s
END

    echo "$output"
    [ "$status" -eq 0 ]
    diff <(printf '%s\n' "$output") - <<'END'
1..5
# told while it runs
ok 1 a <good> & "odd" name in 1500ms
ok 2 takes 3 in 7ms in 20ms # skip no way
not ok 3 is bad in 2ms
# (in test file two.bats, line 4)
#   `false' failed
ok 4 skipped without a reason in 3ms # skip
not ok 5 too slow in 9ms # timeout after 1s
passed one.a <good> & "odd" name 1.5 ''
skipped one.takes 3 in 7ms 0.02 'no way'
failed two.is bad 0.002 "(in test file two.bats, line 4)\n  `false' failed"
skipped two.skipped without a reason 0.003 'no reason given'
failed two.too slow 0.009 ''
END
}

@test "an interrupted run leaves its report: the formatter reads on until bats has ended" {
    cd "$BATS_TEST_TMPDIR"
    mkfifo stream
    KX_BATS_REPORT=report.xml env --default-signal=INT "$ROOT/tests/support/bats-report" \
        <stream >told 3>&- &
    local formatter=$! tries
    exec 4>stream
    printf '1..2\nbegin 1 first\nok 1 first in 1ms\nbegin 2 second\n' >&4
    for tries in {1..100}; do
        ! grep -q '^ok 1' told || break
        sleep 0.1
    done
    echo "$tries"

    kill -INT "$formatter"
    printf 'not ok 2 second in 2ms\n# Interrupted\n' >&4
    exec 4>&-
    wait "$formatter"

    grep -qx '# Interrupted' told
    grep -q 'name="second" time="0.002"><failure>Interrupted</failure>' report.xml
}

@test "bats itself works with the formatter" {
    cd "$BATS_TEST_TMPDIR"
    sed 's/^test/@&/' >some.bats <<'END'
test "good" { true; }
test "bad" { echo words; false; }
test "killed" { kill -9 $$; }
END

    # In an environment of its own: it is bats that runs this test, too.
    run env -i PATH=/usr/bin:/bin KX_BATS_REPORT="$PWD/report.xml" bats --timing \
        --formatter "$ROOT/tests/support/bats-report" some.bats
    echo "$output"
    [ "$status" -ne 0 ]
    run python <<'END'
import pathlib
from kxscripts import results
for case in results.read(pathlib.Path("report.xml")):
    print(case.outcome, case.name, "words" in case.text)
END

    diff <(printf '%s\n' "$output") - <<'END'
passed some.good False
failed some.bad True
failed some.killed False
END
}

@test "a report is brought out of the sandboxed device" {
    cat >"$BATS_TEST_TMPDIR/binary" <<'END'
#!/bin/sh
echo "$*"
[ "$2" = crash ] && exit 9
echo '<testsuite tests="1"><testcase name="a"/></testsuite>' >"${1#*:}"
END
    chmod +x "$BATS_TEST_TMPDIR/binary"
    run "$ROOT/tests/support/on-device" "$BATS_TEST_TMPDIR/binary" \
        "--gtest_output=xml:$BATS_TEST_TMPDIR/new/report.xml" x
    echo "$output"
    [ "$status" -ne 77 ] || skip "the sandboxed device cannot be made here"
    [ "$status" -eq 0 ]
    [ "$output" = '--gtest_output=xml:/var/report.xml x' ]
    grep -q 'name="a"' "$BATS_TEST_TMPDIR/new/report.xml"

    rm "$BATS_TEST_TMPDIR/new/report.xml"
    run "$ROOT/tests/support/on-device" "$BATS_TEST_TMPDIR/binary" \
        "--gtest_output=xml:$BATS_TEST_TMPDIR/new/report.xml" crash
    [ "$status" -eq 9 ]
    [ ! -e "$BATS_TEST_TMPDIR/new/report.xml" ]
}

@test "a binary is started on the sandboxed device with the settings of its tools" {
    played_device
    local support=$TREE/tests/support options

    ENDS=7 on_device "$TREE/binary" -x "a b"
    [ "$status" -eq 7 ]
    options="--seconds 280 --processes 256 --share $TREE/binary=/opt/test/binary"
    options+=" --share $support/lsan.supp=/opt/test/lsan.supp"
    options+=" --env LSAN_OPTIONS=suppressions=/opt/test/lsan.supp:print_suppressions=0"
    [ "${asked[0]}" = '-- true' ]
    [ "${asked[1]}" = "$options -- /opt/test/binary -x a b" ]
    [ ${#asked[@]} -eq 2 ]

    ASAN_OPTIONS=a UBSAN_OPTIONS='b c' GTEST_FILTER='' on_device "$TREE/binary"
    [ "$status" -eq 0 ]
    [ "${asked[1]}" = "$options --env ASAN_OPTIONS=a --env UBSAN_OPTIONS=b c --env GTEST_FILTER= -- /opt/test/binary" ]
}

@test "a report and counts are brought out of the panel, whose files are erased" {
    played_device
    mkdir "$TREE/counts"
    local report=$TREE/new/report.xml

    ENDS=1 on_device "$TREE/binary" "--gtest_output=xml:$report" -x
    [ "$status" -eq 1 ]
    [ "$(cat "$report")" = 'a report' ]
    [[ ${asked[1]} == *' --state '*' -- /opt/test/binary --gtest_output=xml:/var/report.xml -x' ]]
    [[ ${asked[1]} != *GCOV_PREFIX* ]]
    [[ ${asked[2]} == '--erase --state '* ]]
    [ -z "$(ls "$TREE/counts")" ]

    local number
    for number in 1 2; do
        KX_COVERAGE_OUT=$TREE/counts on_device "$TREE/binary"
        [ "$status" -eq 0 ]
        [[ ${asked[1]} == *' --state '*' --env GCOV_PREFIX=/var/gcov -- /opt/test/binary' ]]
        [ "$(cat "$TREE"/counts/device.*/a.gcda | wc -l)" -eq "$number" ]
    done
}

@test "where no panel can be made nothing is started, which is a failure where everything must run" {
    played_device
    export NONE=1
    on_device "$TREE/binary"
    [ "$status" -eq 77 ]
    [ "$output" = 'no namespaces' ]
    [ ${#asked[@]} -eq 1 ]
    CI=false on_device "$TREE/binary"
    [ "$status" -eq 77 ]
    CI=true on_device "$TREE/binary"
    [ "$status" -eq 1 ]

    on_device
    [ "$status" -eq 2 ]
    [ "$output" = 'usage: on-device BINARY [ARG...]' ]
    on_device "$TREE/none"
    [ "$status" -eq 2 ]
    [ ${#asked[@]} -eq 0 ]
}

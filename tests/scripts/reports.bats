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

#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The report that bats leaves (tests/support/bats-report), the order of the gate's parts, and the
# report that a binary on the sandboxed device leaves.

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

@test "a case that was cut off, and those that were not run, are errors" {
    run report <<'END'
1..4
suite /tests/one.bats
begin 1 first
ok 1 first in 1ms
begin 2 second
END

    [ "$status" -eq 0 ]
    diff <(printf '%s\n' "${lines[@]:2}") - <<'END'
passed one.first 0.001 ''
failed one.second 0.0 'bats ended before this case did'
failed one.a case that was not run 0.0 'bats ended before this case did'
failed one.a case that was not run 0.0 'bats ended before this case did'
END
}

@test "a run without a plan is an error, and one of no cases leaves none" {
    run report </dev/null
    [ "$output" = "failed a case that was not run 0.0 'bats ended before this case did'" ]

    run report <<<'1..0'
    [ "$status" -ne 0 ]
    [[ $output == *'reported no case in'* ]]
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

@test "characters that no XML file can hold do not spoil a report" {
    run report < <(printf '1..1\nbegin 1 x\nnot ok 1 x\033[1m in 1ms\n# \033[31mred\001\377 \302\200\n')

    [ "$status" -eq 0 ]
    [[ ${lines[-1]} == "failed x?[1m 0.001 '?[31mred?"* ]]
    # Any reader can read it.
    /usr/bin/python3 -c 'import sys, xml.etree.ElementTree as tree; tree.parse(sys.argv[1])' \
        "$BATS_TEST_TMPDIR/report.xml"
}

@test "nor do they spoil what another program wrote" {
    cd "$BATS_TEST_TMPDIR"
    printf '<testsuite><testcase name="a"><failure>&#27;[1m&#x1b;[0m \001 &#65;&#x10;&#10;end</failure></testcase></testsuite>' \
        >report.xml

    run python <<'END'
import pathlib
from kxscripts import results
print(results.read(pathlib.Path("report.xml"))[0])
END

    [ "$output" = "Case(name='a', outcome='failed', seconds=0.0, text='?[1m?[0m ? A?\nend')" ]
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

@test "QtTest's outcomes: a fault that is expected is no case, one that is missing a failure" {
    cd "$BATS_TEST_TMPDIR"
    cat >report.xml <<'END'
<TestCase name="t"><TestFunction name="f">
<Incident type="xfail" file="a" line="1"><Description>known</Description></Incident>
<Incident type="pass"/><Duration msecs="8"/></TestFunction>
<TestFunction name="g"><Incident type="xpass" file="a" line="2"><Description>now good</Description>
</Incident></TestFunction>
<TestFunction name="initTestCase"><Incident type="fail" file="a" line="3"/></TestFunction>
<TestFunction name="h"><Incident type="bpass"/></TestFunction>
<Duration msecs="9"/></TestCase>
END

    run python <<'END'
import pathlib
from kxscripts import results
for case in results.read(pathlib.Path("report.xml")):
    print(case.outcome, case.name, case.seconds, case.text)
END

    diff <(printf '%s\n' "$output") - <<'END'
passed t::f() 0.004 
failed t::g() 0.0 a:2: now good
failed t::initTestCase() 0.0 
skipped t::h() 0.0 
END
}

@test "a part begins when those it waits for are over, and only then" {
    run python <<'END'
import time
from kxscripts import common, parts
from kxscripts.results import Case
told = []
def work(name, seconds=0.0, problem=None):
    def do():
        time.sleep(seconds)
        if problem:
            raise problem
        outcomes = {"nothing": (), "skips": ("passed", "skipped")}.get(name, ("passed",))
        return [Case(name, outcome) for outcome in outcomes]
    return do
P = parts.Part
done = parts.run([
    P("slow", work("slow", 0.3)), P("quick", work("quick")), P("bad", work("bad", 0, common.Failed("no"))),
    P("after both", work("x"), after=("slow", "bad")), P("needs bad", work("y"), needs=("bad",)),
    P("needs quick", work("z"), needs=("quick",)), P("nothing", work("nothing")),
    P("odd", work("odd", 0, KeyError("k"))), P("skips", work("skips")),
    P("needs skips", work("w"), needs=("skips",)),
], lambda part: told.append("+" + part.name), lambda one: told.append("-" + one.part.name))
at = told.index
assert at("-slow") < at("+after both") and at("-bad") < at("+after both"), told
assert at("-quick") < at("+needs quick") < at("-slow"), told
assert "+needs bad" not in told, told
for one in done:
    print(one.part.name, one.passed, one.failed, one.cases[0].text.splitlines()[-1:], one.seconds > 0.29)
END

    echo "$output"
    diff <(printf '%s\n' "$output") - <<'END'
slow 1 0 [] True
quick 1 0 [] False
bad 0 1 ['no'] False
after both 1 0 [] False
needs bad 0 1 ['not done, because bad failed'] False
needs quick 1 0 [] False
nothing 0 1 ['nothing was tested'] False
odd 0 1 ["KeyError: 'k'"] False
skips 1 1 [] False
needs skips 0 1 ['not done, because skips failed'] False
END
}

@test "once everything was ended nothing is started any more" {
    run python <<'END'
from kxscripts import processes
processes.stop_all()
try:
    processes.run(["echo", "started"], cwd="/")
except processes.Stopped:
    print("stopped")
END

    [ "$output" = stopped ]
}

@test "a part that waits for an unknown one, and one that is listed twice, are refused" {
    run python <<'END'
from kxscripts import parts
P = parts.Part
for plan in ([P("a", None, after=("b",))], [P("a", None, needs=("a",))],
             [P("a", None), P("a", None)]):
    try:
        parts.run(plan, None, None)
        print("taken")
    except ValueError as error:
        print(error)
END

    diff <(printf '%s\n' "$output" | cut -d : -f 1) <(printf 'a\na\na\n')
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

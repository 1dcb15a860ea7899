# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# A small project with the gate's own programs and stand-ins for the tools that it starts, which
# leave and end as the test says:
#
#   $STUB/ctest.xml reports/ ctest.status    what ctest leaves, as its report and those of its programs
#   $STUB/ctest.signal                       a signal ends ctest
#   $STUB/panel.xml updater.xml bats.status  what bats leaves
#   $STUB/fails                              words of command lines that fail: presets, checks
#   $STUB/env                                the environment of ctest
#
# shellcheck disable=SC2154 # bats sets $output, $lines and $status

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

# stand_in NAME <SCRIPT
stand_in() {
    {
        printf '#!/bin/bash\n'
        cat
    } >"$STUB/bin/$1"
    chmod +x "$STUB/bin/$1"
}

# gate_tree: makes the project and goes there. Everything passes: 4 unit tests, 2 device tests in
# each of three runs, 2 builds and one for panels, packages, 10 checks.
gate_tree() {
    TREE=$BATS_TEST_TMPDIR/tree
    STUB=$BATS_TEST_TMPDIR/stub
    export STUB
    mkdir -p "$TREE/tests/support" "$TREE/tests/device" "$STUB/bin" "$STUB/reports"
    cp -R "$ROOT/scripts" "$TREE/scripts"
    cp "$ROOT/tests/support/bats-report" "$TREE/tests/support"
    touch "$TREE"/tests/device/{sandbox,demo_one,install,window_road}.bats "$STUB/fails"
    cd "$TREE" || return
    stand_in setup <<'END'
echo "setup $*" >>"$STUB/log"
END
    cp "$STUB/bin/setup" scripts/setup
    stand_in check <<'END'
echo "check $*" >>"$STUB/log"
! grep -qxF "$1" "$STUB/fails" || { echo "what $1 found"; exit 1; }
END
    cp "$STUB/bin/check" scripts/check
    stand_in packages <<'END'
echo "packages $*" >>"$STUB/log"
! grep -qxF packages "$STUB/fails" || { echo 'what packages found'; exit 1; }
END
    cp "$STUB/bin/packages" scripts/packages
    stand_in cmake <<'END'
echo "cmake $*" >>"$STUB/log"
words="$*"
preset=${words#*--preset }
! grep -qxF "${preset%% *}" "$STUB/fails" || { seq 100; echo "the compiler's words"; exit 1; }
END
    stand_in ctest <<'END'
echo "ctest $*" >>"$STUB/log"
env >"$STUB/env"
grep -E '^Sig(Ign|Blk)' /proc/self/status >"$STUB/signals"
echo "ctest prints this"
while [ "$1" != --output-junit ]; do shift; done
[ ! -e "$STUB/ctest.xml" ] || cp "$STUB/ctest.xml" "$2"
mkdir -p build/asan/reports
cp "$STUB"/reports/*.xml build/asan/reports
[ ! -e "$STUB/ctest.signal" ] || kill -KILL $$
exit "$(cat "$STUB/ctest.status" 2>/dev/null || echo 0)"
END
    stand_in bats <<'END'
echo "bats $KX_UPDATER ${*##*/}" >>"$STUB/log"
report=$STUB/updater.xml
[[ $* != *sandbox* ]] || report=$STUB/panel.xml
echo "bats prints this"
[ ! -e "$report" ] || cp "$report" "$KX_BATS_REPORT"
[ ! -e "$STUB/hang" ] || { sleep 77777 & echo "$$ $!" >>"$STUB/hung"; wait; }
exit "$(cat "$STUB/bats.status" 2>/dev/null || echo 0)"
END
    PATH=$STUB/bin:$PATH
    good_reports
}

# good_reports: two programs of GoogleTest's and QtTest's kind, and device tests.
good_reports() {
    entries '<testcase name="first_test" status="run" time="1.5"/>' \
        '<testcase name="tst_second" status="run" time="0.5"/>'
    cat >"$STUB/reports/first_test.xml" <<'END'
<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="2" failures="0" disabled="0" errors="0" time="1.5" name="AllTests">
  <testsuite name="First" tests="2" failures="0" disabled="0" skipped="0" errors="0" time="1.5">
    <testcase name="Adds" status="run" result="completed" time="1.25" classname="First" />
    <testcase name="Takes" status="run" result="completed" time="0.25" classname="First" />
  </testsuite>
</testsuites>
END
    cat >"$STUB/reports/tst_second.xml" <<'END'
<?xml version="1.0" encoding="UTF-8"?>
<TestCase name="tst_Second">
<TestFunction name="initTestCase">
<Incident type="pass" file="" line="0" /><Duration msecs="0.5"/>
</TestFunction>
<TestFunction name="Rows">
<Incident type="pass" file="" line="0"><DataTag><![CDATA[one]]></DataTag></Incident>
<Incident type="pass" file="" line="0"><DataTag><![CDATA[two]]></DataTag></Incident>
<Duration msecs="500"/>
</TestFunction>
<TestFunction name="cleanupTestCase">
<Incident type="pass" file="" line="0" /><Duration msecs="0.5"/>
</TestFunction>
<Duration msecs="501"/>
</TestCase>
END
    local run
    for run in panel updater; do
        cases "$STUB/$run.xml" "<testcase classname=\"$run\" name=\"runs\" time=\"2\"/>" \
            "<testcase classname=\"$run\" name=\"ends\" time=\"0.1\"/>"
    done
}

# entries CASE...: what ctest reports of its programs.
entries() {
    cases "$STUB/ctest.xml" "$@"
}

# cases FILE CASE...: a JUnit report.
cases() {
    local file=$1
    shift
    printf '<testsuite tests="%d">%s</testsuite>\n' $# "$*" >"$file"
}

# gate [OPTION...]: leaves $status and $output.
gate() {
    run "$TREE/scripts/test" "$@"
    echo "$output"
}

# expect_sum TEXT: the last line, and the exit status that belongs to it.
expect_sum() {
    [ "${lines[-1]}" = "$1" ]
    if [[ $1 == *', 0 failed' ]]; then
        [ "$status" -eq 0 ]
    else
        [ "$status" -eq 1 ]
    fi
}

# lacks FILE PATTERN: tells whether no line of the file matches.
lacks() {
    ! grep -E "$2" "$1"
}

# output_has TEXT...
output_has() {
    local text
    for text in "$@"; do
        [[ $output == *"$text"* ]] || { echo "not told: $text" && return 1; }
    done
}

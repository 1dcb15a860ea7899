#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The gate on a small project with stand-ins for its tools: it passes when everything has passed, and
# in no other case.

load gate

setup() {
    gate_tree
}

@test "what passed is added up, and the sum is the last line" {
    gate

    expect_sum '23 passed, 0 failed'
    output_has 'build release: 1 passed, 0 failed' 'unit tests (asan): 4 passed, 0 failed' \
        'device tests (panel): 2 passed, 0 failed' 'device tests (release): 2 passed, 0 failed' \
        'device tests (sanitizers): 2 passed, 0 failed' 'check odr: 1 passed, 0 failed' \
        $'\n     2.0 s  device tests (panel): bats: panel.runs' \
        $'\n     1.2 s  unit tests (asan): first_test: First.Adds' \
        $'\n     0.2 s  unit tests (asan): tst_second: tst_Second::Rows(two)'
    [ -f build/test/unit-tests-asan.log ]
    [ -f build/test/device-tests-panel.xml ]
}

@test "the ten slowest tests are told, and the time of each part and of all" {
    local many=() number
    for number in {1..12}; do
        many+=("<testcase name=\"n$number\" time=\"$((number * 10)).0\"/>")
    done
    cases "$STUB/panel.xml" "${many[@]}"

    gate

    expect_sum '33 passed, 0 failed'
    diff <(sed -n '/^slowest/,/^$/p' <<<"$output" | grep -o 'n[0-9]*$') \
        <(printf 'n%s\n' {12..3})
    [ "$(sed -n '/^parts:/,/^$/p' <<<"$output" | grep -cE '^ +[0-9.]+ s  .*: [0-9]+ passed')" -eq 17 ]
    grep -qE '^ +[0-9.]+ s  in all$' <<<"$output"
}

@test "everything is built, tested and checked, after what is missing was installed" {
    gate

    [ "$(head -n 1 "$STUB/log")" = 'setup build tools demo test vm display web vnc packages' ]
    local expected=(
        'cmake --preset release' 'cmake --build --preset release --target all kx_probe'
        'cmake --preset asan' 'cmake --build --preset asan'
        "bats $TREE/build/release/kx_Updater demo_one.bats sandbox.bats"
        "bats $TREE/build/release/kx_Updater install.bats window_road.bats"
        "bats $TREE/build/asan/kx_Updater install.bats window_road.bats"
        'check format' 'check layers' 'check headers' 'check spelling' 'check shell' 'check qt'
        'check odr' 'check needs' 'check reproducible' 'check tidy' 'packages ')
    local line
    for line in "${expected[@]}"; do
        sed 's/--timing --formatter bats-report //' "$STUB/log" | grep -qxF -- "$line" ||
            { echo "missing: $line" && cat "$STUB/log" && return 1; }
    done
    [ "$(wc -l <"$STUB/log")" -eq $((${#expected[@]} + 2)) ]
}

@test "a failed case of a unit test fails the gate, whatever ctest and the program say" {
    sed -i 's|time="0.25".*|time="0.25" classname="First"><failure message="3 is not 4"/></testcase>|' \
        "$STUB/reports/first_test.xml"

    gate

    expect_sum '22 passed, 1 failed'
    output_has '-- unit tests (asan): first_test: First.Takes' '   3 is not 4' \
        $'failed; all output is in build/test/:\n  unit tests (asan): first_test: First.Takes'
}

@test "a failed row of a window test fails the gate" {
    sed -i 's|type="pass" file="" line="0"><DataTag><!.CDATA.two.*|type="fail" file="a.cpp" line="7"><DataTag>two</DataTag><Description>wrong</Description></Incident>|' \
        "$STUB/reports/tst_second.xml"

    gate

    expect_sum '22 passed, 1 failed'
    output_has 'tst_second: tst_Second::Rows(two)' 'a.cpp:7: wrong'
}

@test "a failed device test fails the gate, in whichever run" {
    local run
    for run in panel updater; do
        good_reports
        cases "$STUB/$run.xml" '<testcase name="good"/>' \
            '<testcase name="bad"><failure>[ 1 -eq 2 ] failed</failure></testcase>'
        gate
        if [ "$run" = panel ]; then expect_sum '22 passed, 1 failed'; else expect_sum '21 passed, 2 failed'; fi
        output_has ': bats: bad' '   [ 1 -eq 2 ] failed'
    done
}

@test "a program that left no report, an empty or a half-written one has failed" {
    rm "$STUB/reports/first_test.xml"
    gate
    expect_sum '21 passed, 1 failed'
    output_has "left no report $TREE/build/asan/reports/first_test.xml"

    : >"$STUB/reports/first_test.xml"
    gate
    expect_sum '21 passed, 1 failed'
    output_has 'left an empty report'

    good_reports
    sed -i '/Takes/,$d' "$STUB/reports/first_test.xml"
    gate
    expect_sum '21 passed, 1 failed'
    output_has 'left a half-written report'

    good_reports
    sed -i '/Takes/d' "$STUB/reports/first_test.xml"
    gate
    expect_sum '21 passed, 1 failed'
    output_has 'reported 1 of 2 cases'

    good_reports
    sed -i '/testcase/d; s/tests="2"/tests="0"/' "$STUB/reports/first_test.xml"
    gate
    expect_sum '21 passed, 1 failed'
    output_has 'reported no case'
}

@test "a window test that ended before its last function has failed" {
    sed -i '/^<Duration msecs="501"/d' "$STUB/reports/tst_second.xml"

    gate

    expect_sum '21 passed, 1 failed'
    output_has 'tst_second' 'ended before all its functions had run'
}

@test "a report of an earlier run does not count" {
    gate
    expect_sum '23 passed, 0 failed'
    rm "$STUB/reports/first_test.xml" "$STUB/updater.xml"

    gate

    expect_sum '17 passed, 3 failed'
}

@test "a program that ends badly without a failed case has failed" {
    entries '<testcase name="first_test" status="fail"><failure message=""/><system-out>Segmentation fault</system-out></testcase>' \
        '<testcase name="tst_second" status="run"/>'

    gate

    expect_sum '23 passed, 1 failed'
    output_has 'first_test' 'failed, but no case of it did' 'Segmentation fault'
}

@test "ctest that ends badly, or leaves no report, has failed" {
    echo 8 >"$STUB/ctest.status"
    gate
    expect_sum '23 passed, 1 failed'
    output_has 'ended with 8, but no test failed'

    rm "$STUB/ctest.status"
    touch "$STUB/ctest.signal"
    gate
    expect_sum '23 passed, 1 failed'
    output_has 'ended with -9, but no test failed'

    rm "$STUB/ctest.xml" "$STUB/ctest.signal"
    gate
    expect_sum '19 passed, 1 failed'
    output_has 'ctest prints this'

    entries
    gate
    expect_sum '19 passed, 1 failed'
}

@test "bats that ends badly, or leaves no report, has failed" {
    echo 1 >"$STUB/bats.status"
    gate
    expect_sum '23 passed, 3 failed'
    output_has 'failed, but no case of it did' 'bats prints this'

    rm "$STUB"/{panel,updater}.xml "$STUB/bats.status"
    gate
    expect_sum '17 passed, 3 failed'
}

@test "a folder of device tests without tests for a part has failed" {
    rm tests/device/{sandbox,demo_one}.bats

    gate

    expect_sum '21 passed, 1 failed'
    output_has 'no bats file in tests/device is about this'
}

@test "skipped tests are told with their reason at the end, and have failed" {
    cases "$STUB/panel.xml" '<testcase name="a"><skipped>no user namespaces</skipped></testcase>' \
        '<testcase name="b"><skipped>no user namespaces</skipped></testcase>'
    sed -i 's|time="0.25".*|status="notrun" result="suppressed"/>|; s|"Takes" status="run" result="completed"|"Takes"|' \
        "$STUB/reports/first_test.xml"
    sed -i 's|<Incident type="pass" file="" line="0"><DataTag><!.CDATA.two.*|<Message type="skip" file="" line="0"><DataTag>two</DataTag><Description>no font</Description></Message>|' \
        "$STUB/reports/tst_second.xml"
    entries '<testcase name="first_test"/>' '<testcase name="tst_second"/>' \
        '<testcase name="third" status="notrun"><skipped message="SKIP_RETURN_CODE=77"/><system-out>device/run: no namespaces
</system-out></testcase>'

    gate

    expect_sum '19 passed, 5 failed'
    diff <(sed -n '/^skipped,/,$p' <<<"$output") - <<'END'
skipped, and so not known to work, which counts as failed:
  device tests (panel): bats: a and 1 more: no user namespaces
  unit tests (asan): first_test: Takes: disabled
  unit tests (asan): tst_second: tst_Second::Rows(two): no font
  unit tests (asan): third: device/run: no namespaces

19 passed, 5 failed
END
}

@test "a build that fails is shown with the end of its output, and what needs it has failed" {
    echo asan >"$STUB/fails"

    gate

    expect_sum '16 passed, 3 failed'
    output_has "   the compiler's words" 'building the preset asan failed; all of it: build/asan.log' \
        'not done, because build asan failed' $'\n   99\n   100\n'
    [[ $output != *$'\n   40\n'* ]]
    lacks "$STUB/log" '^ctest|^bats .*/asan/'
}

@test "a check that fails is shown, and the others go on" {
    printf '%s\n' format tidy >"$STUB/fails"

    gate

    expect_sum '21 passed, 2 failed'
    output_has '   what format found' '   what tidy found' 'check reproducible: 1 passed, 0 failed'
}

@test "packages that fail are shown, and the others go on" {
    printf '%s\n' packages >"$STUB/fails"

    gate

    expect_sum '22 passed, 1 failed'
    output_has $'-- packages: packages\n   what packages found' 'check reproducible: 1 passed, 0 failed'
}

@test "a tool that is missing fails its part" {
    mkdir few
    local tool
    for tool in bash cat cp dirname env grep mkdir nice readlink sleep; do
        ln -s "$(command -v "$tool")" few
    done
    ln -s "$STUB/bin/"{bats,cmake} few
    PATH=$TREE/few gate

    expect_sum '19 passed, 1 failed'
    output_has 'ctest: not found; scripts/setup installs what is missing'
}

@test "what cannot be installed ends the gate before anything is told to pass" {
    printf '#!/bin/sh\nexit 1\n' >scripts/setup

    gate

    [ "$status" -eq 1 ]
    [ "$output" = 'scripts/test: what is missing could not be installed' ]
}

@test "the environment does not choose the tests" {
    GTEST_FILTER=First.Adds GTEST_TOTAL_SHARDS=2 CTEST_TEST_TIMEOUT=1 KX_PACKAGE=/bin/true \
        KX_SECOND=/bin/true LOOK=1 gate

    expect_sum '23 passed, 0 failed'
    lacks "$STUB/env" '^(GTEST|CTEST|BATS)_'
    # What it sets itself is all that is left.
    [ "$(grep '^KX_' "$STUB/env")" = "KX_SECOND=$TREE/build/release/kx-package" ]
    grep -qx LOOK=1 "$STUB/env"
}

@test "the gate runs under nohup as without: its children ignore no signal" {
    (
        trap '' HUP INT QUIT
        "$TREE/scripts/test" >out
    )

    tail -n 1 out
    [ "$(tail -n 1 out)" = '23 passed, 0 failed' ]
    # The lowest three: SIGHUP, SIGINT, SIGQUIT.
    [ "$(($(sed -n 's/^SigIgn:\s*/0x/p' "$STUB/signals") & 7))" -eq 0 ]
}

# ended PROCESS...
ended() {
    local process
    for process in "$@"; do
        ! kill -0 "$process" 2>/dev/null || return 1
    done
}

@test "a gate that is interrupted ends all that it has started, and tells no sum" {
    local gate tries status=0
    touch "$STUB/hang"
    "$TREE/scripts/test" >out 2>&1 &
    gate=$!
    for tries in {1..300}; do
        [ ! -s "$STUB/hung" ] || break
        sleep 0.1
    done
    [ -s "$STUB/hung" ]

    kill -TERM "$gate"
    wait "$gate" || status=$?

    echo "$tries"
    cat out
    [ "$status" -eq 143 ]
    # shellcheck disable=SC2046 # words
    ended $(cat "$STUB/hung")
    lacks out '^[0-9]+ passed,'
    grep -qxF 'scripts/test: interrupted by SIGTERM: nothing is known of what was not told' out
}

@test "the gate takes no arguments, and explains itself" {
    gate --help
    [ "$status" -eq 0 ]
    output_has 'usage: scripts/test' 'Ends with 0 only when'

    gate --quick
    [ "$status" -eq 2 ]

    [ ! -e "$STUB/log" ]
}

@test "no script leaves bytecode among the sources" {
    local script count=0
    cp "$ROOT"/scripts/{check,packages} scripts
    cp -R "$ROOT/device" device
    cp -R "$ROOT/tests/emulated" tests
    mkdir tests/bench
    cp -R "$ROOT/tests/bench/kxbench" tests/bench
    find . -name __pycache__ -prune -exec rm -r {} +
    for script in scripts/*; do
        if [ -f "$script" ] && [ "$script" != scripts/setup ]; then
            env -u PYTHONDONTWRITEBYTECODE "$script" --help
            count=$((count + 1))
        fi
    done
    [ "$count" -ge 9 ]
    [ -z "$(find . -name '__pycache__' -o -name '*.pyc')" ]
}

@test "the pipeline runs the gate" {
    mkdir .ci
    cp "$ROOT/.ci/run" .ci
    sed -i 's/.*/1/' "$STUB/fails"
    echo 1 >"$STUB/bats.status"

    run .ci/run

    expect_sum '23 passed, 3 failed'
}

#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What cmake/KxTest.cmake gives to CTest, on a project of a few small tests: each leaves the report
# from which the gate counts its cases.

ROOT=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)

setup() {
    cd "$BATS_TEST_TMPDIR" || return
    mkdir -p project/tests/support && cd project || return
    cp "$ROOT/tests/support/bats-report" tests/support
    printf '#!/bin/sh\necho no namespaces >&2\nexit 77\n' >tests/support/on-device
    chmod +x tests/support/on-device
    cat >CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.25)
project(small LANGUAGES CXX)
list(APPEND CMAKE_MODULE_PATH "$ROOT/cmake")
add_library(kx_test_support INTERFACE)
set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON) # it has none
enable_testing()
include(KxTest)
kx_add_test(first_test SOURCES first_test.cpp LIBRARIES GTest::gtest_main)
kx_add_test(panel_test ON_DEVICE SOURCES first_test.cpp LIBRARIES GTest::gtest_main)
kx_add_qt_test(tst_second SOURCES tst_second.cpp)
kx_add_bats_test(third_bats third.bats 60 LOOK=1)
kx_add_python_test(fourth_test fourth "$PWD/path")
END
    cat >first_test.cpp <<'END'
#include <gtest/gtest.h>
TEST(First, Adds) {}
TEST(First, Takes) { FAIL() << "3 is not 4"; }
END
    cat >tst_second.cpp <<'END'
#include <QtTest>
class tst_Second : public QObject
{
    Q_OBJECT
private slots:
    void rows_data()
    {
        QTest::addColumn<QByteArray>("platform");
        QTest::newRow("none") << QByteArray("offscreen");
        QTest::newRow("screen") << QByteArray("xcb");
    }
    void rows()
    {
        QFETCH(QByteArray, platform);
        QCOMPARE(qgetenv("QT_QPA_PLATFORM"), platform);
    }
};
QTEST_GUILESS_MAIN(tst_Second)
#include "tst_second.moc"
END
    sed 's/^test/@&/' >third.bats <<'END'
test "reads what it is given" { [ "$LOOK" = 1 ]; }
test "fails" { false; }
END
    mkdir path
    echo 'A = 1' >path/found.py
    echo 'B = 2' >tests/support/shared.py
    cat >fourth.py <<'END'
import unittest
import found
import shared
class Fourth(unittest.TestCase):
    def test_good(self):
        self.assertEqual(found.A, 1)
    def test_bad(self):
        self.assertEqual(found.A, shared.B)
END
}

@test "every case and every row of every kind of test is counted" {
    # In an environment of its own: it is bats that runs this test, too.
    PATH=/usr/bin:/bin cmake -G Ninja -S . -B build
    cmake --build build
    run env -i PATH=/usr/bin:/bin HOME="$HOME" ctest --test-dir build -V --output-junit "$PWD/report.xml"
    echo "$output"
    [ "$status" -eq 8 ]
    run env PYTHONPATH="$ROOT/scripts" /usr/bin/python3 -B - "$status" <<'END'
import pathlib, sys
from kxscripts import results
for case in results.of_ctest(pathlib.Path("report.xml"), pathlib.Path("build/reports"),
                             int(sys.argv[1]), ""):
    print(case.outcome, case.name, case.text if case.outcome == "skipped" else "")
END

    diff <(printf '%s\n' "$output" | sed 's/ $//') - <<'END'
passed first_test: First.Adds
failed first_test: First.Takes
skipped panel_test no namespaces
passed tst_second: tst_Second::rows(none)
failed tst_second: tst_Second::rows(screen)
passed third_bats: third.reads what it is given
failed third_bats: third.fails
passed fourth_test: fourth.Fourth.test_good
failed fourth_test: fourth.Fourth.test_bad
END
}

# shellcheck shell=bash
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The kit of the tests of kx-package try: packages on the sandboxed device, as their authors install
# them.
#   KX_PACKAGE   the program (default: build/release/kx-package)
#   KX_UPDATER   the updater that installs

# shellcheck source=tests/device/device.bash
. "$BATS_TEST_DIRNAME/device.bash"

# shellcheck disable=SC2034 # used by the tests
HELLO='copy_file(item("app", "/opt/demo/app", "755", "program\n"), record=True)'

# try_setup: what every test begins with.
try_setup() {
    device_setup
    cd "$WORK" || return
    export TMPDIR=$WORK/tmp LC_ALL=C.UTF-8
    unset KX_DEVICE NO_COLOR
    # The rehearsal for --fail keeps what the updater keeps until its end.
    export LSAN_OPTIONS=suppressions=$WORK/lsan.supp:print_suppressions=0
    mkdir "$TMPDIR"
}

# try ARGUMENT...: leaves $status and the files out and err; standard input is empty, and nothing may
# be left where temporary files lie.
try() {
    prepare_try "$@"
    status=0
    timeout 120 "${TRY[@]}" </dev/null >"$OUT" 2>"$ERR" || status=$?
    nothing_is_left
}

# prepare_try ARGUMENT...: sets the array TRY to the command line, for tests with streams of their own.
prepare_try() {
    TRY=("$KX_PACKAGE" try --updater "$KX_UPDATER" --env ASAN_OPTIONS=detect_leaks=0 "$@")
}

nothing_is_left() {
    [ -z "$(ls -A "$TMPDIR")" ] || fail "left behind: $(ls -A "$TMPDIR")"
}

# told FILTER: what jq finds in the JSON of the last run.
told() {
    jq -r "$1" "$OUT"
}

# expect_error STATUS LINE: nothing but one error.
expect_error() {
    expect_status "$1"
    expect_out </dev/null
    expect_err <<<"kx-package: $2"
}

# hello NAME [RECIPE]: an archive with its updater.
hello() {
    package_file "$1" <<<"${2:-$HELLO}"$'\nput("kx_Updater", "#!/bin/sh\\n", 0o755)'
}

# type_into TYPED...: starts the array TRY on a terminal of its own; types each text after a prompt
# was shown. What the terminal showed stands in the file screen.
type_into() {
    cat >typist.py <<'END'
import os, pty, re, select, sys
mark, typed = sys.argv.index("--"), []
typed, words = sys.argv[1:mark], sys.argv[mark + 1:]
process, terminal = pty.fork()
if process == 0:
    os.execvp(words[0], words)
screen, seen = b"", 0
while select.select([terminal], [], [], 60)[0]:
    try:
        piece = os.read(terminal, 65536)
    except OSError:
        break
    if not piece:
        break
    screen += piece
    if typed and screen.find(b"panel:/# ", seen) >= 0:
        seen = len(screen)
        text = typed.pop(0).encode()
        os.write(terminal, text)
        if b"sleep" in text:
            while b"STARTED" not in screen[seen:].replace(b"echo STARTED", b""):
                screen += os.read(terminal, 65536)
            seen = len(screen)
            os.write(terminal, b"\x03")
open("screen", "wb").write(re.sub(rb"\r|\x1b\[\?2004[hl]", b"", screen))
sys.exit(os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]))
END
    status=0
    timeout 120 /usr/bin/python3 typist.py "$@" -- "${TRY[@]}" || status=$?
}

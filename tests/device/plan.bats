#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What kx-package plan tells against what the real window and its child run, string for string.

load window


# plan: plans the package on the drive.
plan() {
    "$KX_PACKAGE" plan --show-secrets --json "$DRIVE/Foo.kx-update" >"$WORK/plan" || true
    jq -r '.commands[].command' "$WORK/plan"
}

# expect_planned: the commands of the run are those of the plan, and the `sync` of a window that
# ends, as a panel's does not.
expect_planned() {
    {
        plan
        echo sync
    } >"$WORK/planned"
    sed -n 's/^shell\t//p' "$TRACE" >"$WORK/run"
    diff -u --label planned --label run "$WORK/planned" "$WORK/run" >&2 ||
        fail 'the plan is not what was run'
}

REBOOT="wait button OkButton
press OkButton
$PULL
wait button RebootButton
press RebootButton
wait no-button RebootButton"
ROAD="$INSTALL
$REBOOT"

@test "the plan of every kind of step and setting is what the panel runs" {
    drive_package Foo <<'END'
copy_file(item(r"C:\work\app.bin", "/opt/demo/app.bin", "755", "program\n"),
          item("b/c.txt", "/mnt/user/c.txt", "", "text\n"), record=True)
copy_folder(folder("/opt/demo/share", {
    "run": file("#!/bin/sh\n", 0o755), ".hidden": "h\n", "empty": {}, "two words": "t\n",
    "B": "upper\n", "a": "lower\n", "1": {"2": {"3": "deep\n"}}}), record=True)
copy_folder(folder("/", {"opt": {"demo": {"more": "m\n"}}, "srv": {"new": "n\n"}}))
script("#!/bin/sh\ntrue\n")
copy_file(item("x", "/mnt/user/sub/x", "u+x,go-w", "x\n"))
hardware(setting("Backlight", ("Level", "8")), setting("User", ("User", "user"),
         ("Password", "secret")), setting("AutoStartupMode", ("CustomScript", "#!/bin/sh\n"),
         ("Mode", "script")))
END

    window <<<"$ROAD"

    expect_planned
    jq -e '.installed and .recordedFiles[0] == "/opt/demo/app.bin"' "$WORK/plan" >/dev/null
}

@test "the plan names as recorded what the panel records" {
    drive_package Foo <<'END'
copy_file(item("app", "/opt/demo/", "755", "program\n"), record=True)
copy_folder(folder("/opt/demo/share", {"a": {"b": "b\n"}}), record=True)
copy_file(item("app", "/opt/other/app", "755", "program\n"))
END

    window --keep <<<"$ROAD"

    expect_planned
    {
        echo ' #dir'
        jq -r '.recordedFolders[]' "$WORK/plan"
        echo ' #file'
        jq -r '.recordedFiles[]' "$WORK/plan"
    } | same "$STATE/root/var/lib/KxUserPackages/Foo/installedFile.list" 'the list of the record'
}

@test "the plan ends where the panel fails" {
    drive_package Foo <<'END'
copy_file(item("a", "/opt/a", "755", "a\n"))
copy_file(item("b", "/opt/b", "99", "b\n"))
copy_file(item("c", "/opt/c", "755", "c\n"))
END

    window <<<"$ROAD"

    expect_planned
    jq -e '(.installed | not) and .log[-1] == "Installation failed in step 2."' "$WORK/plan" >/dev/null
}

@test "the plan goes on where a step may be skipped" {
    drive_package Foo <<'END'
copy_file(item("b", "/opt/b", "99", "b\n"), item("c", "/opt/c", "755", "c\n"), skip=True)
END

    window <<<"$ROAD"

    expect_planned
    jq -e .installed "$WORK/plan" >/dev/null
}

@test "the plan of a package without a description ends at the window" {
    mkdir "$WORK/foo"
    touch "$WORK/foo/unused"
    (cd "$WORK/foo" && zip -q -r "$DRIVE/Foo.kx-update" .)

    window <<<"$REBOOT"

    expect_planned
    jq -e '.shown | not' "$WORK/plan" >/dev/null
}

@test "the plan of a package without an updater has no installer" {
    package_file "$DRIVE/Foo.kx-update" </dev/null

    window <<<"$ROAD"

    expect_planned
    jq -e '.shown and (.started | not)' "$WORK/plan" >/dev/null
}

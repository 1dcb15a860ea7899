#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The environment: it changes nothing of an installation, and commands see it as it was given.

load device

setup() {
    device_setup
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "644"), record=True)
script("#!/bin/sh\necho the script\n")
END
    cat >"$WORK/whole" <<'END'
**** Installation step 1/2
**** Installation step 2/2
the script
Installation succeeded.
END
}

# as_ever [OPTION...]: the installation is the same as always.
as_ever() {
    install Foo "$@"
    expect_status 0
    expect_out <"$WORK/whole"
    expect_silence
    expect_installing Foo <<'END'
[mkdir -p "/opt/demo/"]
[cp -f "/packages/Foo/0/0/a" "/opt/demo/a" ]
[chmod 644 "/opt/demo/a" ]
[mkdir -p "/tmp/Zt/"]
[chmod +x "/tmp/Zt/temp.sh"]
["/tmp/Zt/temp.sh"]
END
}

@test "no display is needed, and a display that is not there is not looked for" {
    as_ever
    as_ever --env DISPLAY=nonsense:99 --env WAYLAND_DISPLAY=none
}

@test "the window system's platform does not matter: unknown, other screens, nonsense" {
    local platform
    for platform in xcb eglfs linuxfb wayland 'no such platform' 'minimal:' ''; do
        as_ever --env "QT_QPA_PLATFORM=$platform"
    done
}

@test "other settings of the window system do not matter" {
    as_ever --env QT_QPA_PLATFORMTHEME=gtk3 --env QT_IM_MODULE=qtvirtualkeyboard \
        --env QT_QPA_GENERIC_PLUGINS=tslib:/dev/input/event0,evdevtouch:/dev/input/event0 \
        --env QT_STYLE_OVERRIDE=none --env QT_SCALE_FACTOR=nonsense --env QT_DEBUG_PLUGINS=0 \
        --env QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 --env XDG_RUNTIME_DIR=/none \
        --env TMPDIR=/none --env XDG_DATA_HOME=/none
}

@test "no language and no home folder do not matter" {
    local language
    for language in ja_JP.UTF-8 ja_JP.utf8 en_US.UTF-8 C.UTF-8 nonsense ''; do
        as_ever --env "LANG=$language"
    done
    as_ever --env LC_ALL=C.UTF-8 --env HOME=/none --env USER=nobody
}

@test "an environment with nothing in it but where the tools are" {
    # The empty one has no PATH: the shell has a default of its own.
    device -- env -i "${KIT_SETTINGS[@]}" "$UPDATER" -unzipedDir /packages/Foo
    expect_status 0
    expect_out <"$WORK/whole"

    device -- env -i PATH=/usr/bin:/bin "${KIT_SETTINGS[@]}" "$UPDATER" -unzipedDir /packages/Foo
    expect_status 0
    expect_out <"$WORK/whole"
}

@test "a command's environment is the given one, order and bytes, window settings included" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
hardware(setting("Sound", ("Volume", "5$(cp /proc/$$/environ /opt/given)")))
END
    local given=(--env ZULU=last --env ALPHA=first --env QT_QPA_PLATFORM=xcb
        --env QT_QPA_PLATFORMTHEME=gtk3 --env QT_IM_MODULE=compose --env QT_STYLE_OVERRIDE=x
        --env QT_QPA_GENERIC_PLUGINS=y --env QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
        --env XDG_RUNTIME_DIR=/none --env TMPDIR=/tmp --env DISPLAY=:7 --env EMPTY=
        --env $'ODD=\xff\xfe%s=\n  two lines "\'$' --env LANG=ja_JP.UTF-8)
    # What a command that the device starts itself is given.
    device "${given[@]}" -- cat /proc/self/environ
    mv "$OUT" "$WORK/expected"

    # Straight from the device to the updater: a shell between them would sort it anew.
    install Foo "${given[@]}" --keep
    expect_status 0

    device --keep -- cat /opt/given
    expect_out <"$WORK/expected"
    tr '\0' ' ' <"$OUT" | grep -aq 'ZULU=last ALPHA=first QT_QPA_PLATFORM=xcb'
}

@test "a script step sees what was given, and what the shell adds" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
script("#!/bin/sh\nenv | grep -vE '^([A-Z]*SAN_OPTIONS|GCOV_PREFIX)=' | LC_ALL=C sort\n")
END
    install Foo --env 'GREETING=hello  there' --env QT_QPA_PLATFORM=eglfs --env LANG=C

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
GREETING=hello  there
HOME=/root
LANG=C
PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
PWD=/
QT_QPA_PLATFORM=eglfs
Installation succeeded.
END
}

@test "the names in a folder are copied in byte order whatever the language says" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
copy_folder(folder("/opt/tree", {"b": "", "B": "", "a": "", "_": "", "ä": ""}))
END
    local language
    for language in C C.UTF-8 ja_JP.UTF-8; do
        install Foo --env "LANG=$language"
        expect_status 0
        expect_installing Foo <<'END'
[mkdir -p "/opt/tree"]
[cp -f "/packages/Foo/0/0/B" "/opt/tree/B" ]
[cp -f "/packages/Foo/0/0/_" "/opt/tree/_" ]
[cp -f "/packages/Foo/0/0/a" "/opt/tree/a" ]
[cp -f "/packages/Foo/0/0/b" "/opt/tree/b" ]
[cp -f "/packages/Foo/0/0/ä" "/opt/tree/ä" ]
END
    done
}

@test "the setting tool and the others are found through the given search path" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
put("tools/kx-setting-cui", "#!/bin/sh\necho \"my own tool: $*\"\n", 0o755)
hardware(setting("Sound", ("Volume", "5")))
END

    install Foo --env PATH=/packages/Foo/tools:/usr/bin:/bin

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
my own tool: set Volume=5
Installation succeeded.
END
}

@test "a small umask, a low limit of open files and another working folder change no file" {
    rm -r "$PACKAGES/Foo"
    package Foo <<'END'
copy_file(item("a", "/opt/demo/a", "644"), item("b", "relative", "600"))
copy_folder(folder("/opt/tree", {"f": "", "sub": {"g": file("", 0o600)}}))
END

    # shellcheck disable=SC2016 # expanded inside
    device --chdir /root --look 'find /opt/demo /opt/tree /root -printf "%m %p\n" | LC_ALL=C sort -k 2' \
        -- sh -c 'umask 000; ulimit -n 12; exec "$0" -unzipedDir /packages/Foo' "$UPDATER"

    expect_status 0
    # What cp and mkdir make follows the umask, like everything that they do.
    expect_panel <<'END'
777 /opt/demo
644 /opt/demo/a
777 /opt/tree
644 /opt/tree/f
777 /opt/tree/sub
600 /opt/tree/sub/g
700 /root
600 /root/relative
END
}

#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Screens of several sizes, with and without a window manager, and no screen at all.

load window

# Shows every widget once and notes where it is and how large its font.
SHOW_ALL='places
fonts
press InstalledListButton
wait front InstalledListDialog
places
fonts
press closeButton
wait front MainWindow
press tab Log
wait tab Log
places
fonts
press tab Install
press InstallButton
wait button OkButton
places
fonts
press OkButton
wait button RebootButton
places
fonts'

# show SIZE WINDOW SCRIPT [OPTION...]: shows what the script shows on a screen of this size, once the
# window has its own.
show() {
    local size=$1 window=$2 script=$3
    shift 3
    package_file "$DRIVE/Foo.kx-update" </dev/null # without an updater
    window --size "$size" "$@" <<END
wait button InstallButton
wait size $window
$PULL
$script
END
    LC_ALL=C sort -u "$TRANSCRIPT" >"$WORK/all"
}

# expect_windows MAIN [LIST]: places and sizes of the windows.
expect_windows() {
    awk '$3 && /^(MainWindow|InstalledListDialog) / {print $1, $2, $3}' "$WORK/all" >"$WORK/windows"
    same "$WORK/windows" 'the list of windows' <<END
${2:+InstalledListDialog 0,0 $2
}MainWindow 0,0 $1
END
}

# expect_places: places and sizes of all widgets that the program places: those on a tab within the
# tab's page, the others on the screen.
expect_places() {
    awk '$3 && $1 ~ /^tab(Main|Log)$/ {split($2, page, ",")}
        $3 && $1 !~ /^(MainWindow|InstalledListDialog|centralWidget|tabMain|tabLog)$/ {
            split($2, at, ",")
            if ($1 ~ /^(Cancel|Install|Ok|Reboot)Button$|^(label|text)|^logArea$/) {
                at[1] -= page[1]; at[2] -= page[2]
            }
            print $1, at[1] "," at[2], $3
        }' <(grep '^tab[ML]' "$WORK/all") "$WORK/all" >"$WORK/places"
    same "$WORK/places" 'the list of places'
}

# expect_fonts SMALL LARGE LIST: of all widgets that get a size, and of those of the list.
expect_fonts() {
    awk '!$3 && $1 !~ /^(MainWindow|InstalledListDialog|centralWidget|tabMain|tabLog|tabsCenter)$/' \
        "$WORK/all" >"$WORK/fonts"
    same "$WORK/fonts" 'the list of font sizes' <<END
CancelButton $1
InstallButton $1
InstalledListButton $1
OkButton $1
RebootButton $1
appTitle $2
closeButton $3
dialogTitle $3
labelComment $1
labelMsg $2
labelTitle $1
labelVersion $1
logArea $1
tableWidget $3
textComment $1
textTitle $1
textVersion $1
END
}

@test "480 x 272: the windows fill the screen, all has its place and its font size" {
    show 480x272 480x272 "$SHOW_ALL"

    expect_windows 480x272 480x272
    expect_fonts 12 15 12
    expect_places <<'END'
CancelButton 252,175 102x34
InstallButton 120,175 102x34
InstalledListButton 354,11 120x28
OkButton 186,175 102x34
RebootButton 186,175 102x34
appTitle 6,5 186x17
closeButton 192,221 90x34
dialogTitle 18,17 264x17
labelComment 270,0 66x17
labelMsg 12,39 444x130
labelTitle 12,0 120x17
labelVersion 156,0 60x17
logArea 6,5 456x198
tableWidget 18,45 444x170
tabsCenter 6,28 468x244
textComment 270,17 186x17
textTitle 12,17 138x17
textVersion 156,17 108x17
END
}

@test "640 x 480: the windows fill the screen, all has its place and its font size" {
    show 640x480 640x480 "$SHOW_ALL"

    expect_windows 640x480 640x480
    expect_fonts 14 18 14
    expect_places <<'END'
CancelButton 336,310 136x61
InstallButton 160,310 136x61
InstalledListButton 472,20 160x51
OkButton 248,310 136x61
RebootButton 248,310 136x61
appTitle 8,10 248x31
closeButton 256,390 120x61
dialogTitle 24,30 352x31
labelComment 360,0 88x31
labelMsg 16,70 592x231
labelTitle 16,0 160x31
labelVersion 208,0 80x31
logArea 8,10 608x351
tableWidget 24,80 592x301
tabsCenter 8,50 624x431
textComment 360,30 248x31
textTitle 16,30 184x31
textVersion 208,30 144x31
END
}

@test "800 x 480: the windows fill the screen, all has its place and its font size" {
    show 800x480 800x480 "$SHOW_ALL"

    expect_windows 800x480 800x480
    expect_fonts 16 24 16
    expect_places <<'END'
CancelButton 420,310 171x61
InstallButton 200,310 171x61
InstalledListButton 590,20 201x51
OkButton 310,310 171x61
RebootButton 310,310 171x61
appTitle 10,10 311x31
closeButton 320,390 151x61
dialogTitle 30,30 441x31
labelComment 450,0 111x31
labelMsg 20,70 741x231
labelTitle 20,0 201x31
labelVersion 260,0 101x31
logArea 10,10 761x351
tableWidget 30,80 741x301
tabsCenter 10,50 781x431
textComment 450,30 311x31
textTitle 20,30 231x31
textVersion 260,30 181x31
END
}

@test "1024 x 600: the windows fill the screen, all has its place and its font size" {
    show 1024x600 1024x600 "$SHOW_ALL"

    expect_windows 1024x600 1024x600
    expect_fonts 18 26 18
    expect_places <<'END'
CancelButton 537,387 218x76
InstallButton 256,387 218x76
InstalledListButton 755,25 257x63
OkButton 396,387 218x76
RebootButton 396,387 218x76
appTitle 12,12 398x38
closeButton 409,487 193x76
dialogTitle 38,37 564x38
labelComment 576,0 142x38
labelMsg 25,87 948x288
labelTitle 25,0 257x38
labelVersion 332,0 129x38
logArea 12,12 974x438
tableWidget 38,100 948x376
tabsCenter 12,62 999x538
textComment 576,37 398x38
textTitle 25,37 295x38
textVersion 332,37 231x38
END
}

@test "480 x 272 without a window manager: the windows keep their sizes, the widgets do not" {
    show 480x272 800x480 "$SHOW_ALL" --no-wm

    expect_windows 800x480 800x460
    expect_fonts 16 24 16
    expect_places <<'END'
CancelButton 252,175 102x34
InstallButton 120,175 102x34
InstalledListButton 354,11 120x28
OkButton 186,175 102x34
RebootButton 186,175 102x34
appTitle 6,5 186x17
closeButton 192,221 90x34
dialogTitle 18,17 264x17
labelComment 270,0 66x17
labelMsg 12,39 444x130
labelTitle 12,0 120x17
labelVersion 156,0 60x17
logArea 6,5 456x198
tableWidget 18,45 444x170
tabsCenter 6,28 468x244
textComment 270,17 186x17
textTitle 12,17 138x17
textVersion 156,17 108x17
END
}

@test "1024 x 600 without a window manager: the window shows a part of the widgets" {
    show 1024x600 800x480 places --no-wm

    expect_windows 800x480
    expect_places <<'END'
CancelButton 537,387 218x76
InstallButton 256,387 218x76
InstalledListButton 755,25 257x63
appTitle 12,12 398x38
labelComment 576,0 142x38
labelMsg 25,87 948x288
labelTitle 25,0 257x38
labelVersion 332,0 129x38
tabsCenter 12,62 999x538
textComment 576,37 398x38
textTitle 25,37 295x38
textVersion 332,37 231x38
END
}

@test "without a screen Qt says so, and nothing has happened" {
    device -- "$UPDATER" -upDir /mnt/usb

    expect_status 134
    grep -qi 'could not connect to display' "$ERR" || fail 'no word of the display'
    grep -q 'no Qt platform plugin could be initialized' "$ERR" || fail 'no word of the platform'
    [ ! -s "$OUT" ]
    expect_commands </dev/null

    device --env DISPLAY=:77 -- "$UPDATER" -upDir /mnt/usb

    expect_status 134
    grep -q 'could not connect to display :77' "$ERR" || fail 'no word of the display'
    expect_commands </dev/null
}

# late_manager <SCRIPT: shows the window to a window manager that does nothing at all until half a
# second after the script has begun.
late_manager() {
    package_file "$DRIVE/Foo.kx-update" </dev/null # without an updater
    # shellcheck disable=SC2016 # expanded on the panel
    { cat <<'END' && cat; } |
wait message "Install the software on this device.\nAre you sure?"
wait no-button InstallButton
run sh -c '(sleep 0.5; pkill -CONT -x openbox) >/dev/null 2>&1 &'
END
        window -- /bin/sh -c 'pkill -STOP -x openbox; exec "$0" -upDir /mnt/usb' "$UPDATER"
}

@test "a press waits for a window manager that takes its time" {
    late_manager <<'END'
press InstallButton
wait button OkButton
state
END

    expect_transcript <<'END'
The installation failed. | error | OkButton | Install | package
END
}

@test "so does a press on a tab" {
    late_manager <<'END'
press tab Log
wait tab Log
state
END

    expect_transcript <<END
${ASKING/Install | package/Log | package}
END
}

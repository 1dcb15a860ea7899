#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package new, as a user starts it.

load package

@test "new makes a package that builds as it is" {
    kx new recipes
    expect 0 $'Made recipes/package.toml. Change it, then make the package:\n  kx-package build recipes\n' ''

    kx build recipes --updater updater

    [ "$status" -eq 0 ]
    [ ! -s err ]
    unzip -q recipes.kx-update -d tree
    diff - <(cd tree && find . -type f -printf '%P %m\n' | LC_ALL=C sort) <<'END'
0/0/hello 755
0/1/hello.conf 644
1/0/bin/greet 755
1/0/greeting.txt 644
UserPackage.kx-project 644
kx_Updater 755
END
}

@test "the new manifest has every kind of step and setting" {
    kx new recipes
    kx build recipes --updater updater
    kx show --json recipes.kx-update

    diff - <(jq -r '.steps[].kind, .steps[].settings[].kind' out) <<'END'
copy-files
copy-folder
script
settings
auto-start
backlight
cursor
language
lan
sound
s-start
touch-beep
user
END
}

@test "new takes an empty folder and refuses one with a manifest" {
    mkdir empty
    kx new empty
    [ "$status" -eq 0 ]

    kx new empty
    expect 2 '' $'kx-package: empty/package.toml: is there already; change it, or name another folder\n'
    touch file
    kx new file
    [ "$status" -eq 3 ]
    grep -q '^kx-package: file: cannot make the folder: ' err
}

@test "new gives a good name to a folder with any name" {
    for folder in 'my recipes' .hidden a.temporary 'ä'; do
        kx new "$folder"
        [ "$status" -eq 0 ]
        kx build "$folder" --updater updater
        [ "$status" -eq 0 ]
    done

    diff - <(ls ./*.kx-update) <<'END'
./a-temporary.kx-update
./hidden.kx-update
./my-recipes.kx-update
./package.kx-update
END
}

@test "new dates the package by SOURCE_DATE_EPOCH and tells as JSON what it made" {
    SOURCE_DATE_EPOCH=1700000000 kx new recipes --json

    jq -e '.folder == "recipes" and (.files | length) == 8' out
    grep -q '^date = 2023-11-14 ' recipes/package.toml
}

@test "new makes files with the modes that the umask leaves" {
    (umask 027 && "$KX_PACKAGE" new recipes >/dev/null)

    diff - <(find recipes -printf '%y %m\n' | sort | uniq) <<'END'
d 750
f 640
END
}

@test "new dates the package by the day, in universal time, and names this machine's processor" {
    before=$(date -u +%F)
    TZ=Pacific/Kiritimati kx new recipes
    after=$(date -u +%F)

    day=$(sed -n 's/^date = \([-0-9]*\) .*/\1/p' recipes/package.toml)
    [ "$day" = "$before" ] || [ "$day" = "$after" ]
    sed -n 's/^processor = "\([^"]*\)" .*/\1/p' recipes/package.toml | grep -qxF "$(uname -m)"
}

@test "new takes up what is in a folder, and it can be built" {
    mkdir -p recipes/{bin,share/deep,empty,all}
    printf '#!/bin/sh\n' >recipes/start
    cp recipes/start recipes/bin/tool
    cp recipes/start recipes/all/one
    chmod 755 recipes/start recipes/bin/tool recipes/all/one
    echo x | tee recipes/'read me.txt' recipes/bin/data recipes/share/deep/picture.svg >/dev/null
    find recipes -type f -exec md5sum {} + | sort >before

    kx new recipes

    expect 0 $'Made recipes/package.toml, with steps that copy 2 files and 3 folders of what is there. Change it, then make the package:\n  kx-package build recipes\n' $'kx-package: empty is left out: there is no file in it\n'
    md5sum --quiet -c before
    [ "$(find recipes -type f | wc -l)" -eq 7 ]
    kx build recipes --updater updater
    [ "$status" -eq 0 ]
    [ ! -s err ]
    kx show --json recipes.kx-update
    diff - <(jq -r '.steps[] | .kind as $kind | .items[] | "\($kind) \(.source) \(.target) \(.mode)"' out) <<'END'
copy-files start /mnt/user/recipes/start 755
copy-files read me.txt /mnt/user/recipes/read me.txt 644
copy-folder all /mnt/user/recipes/all 
copy-folder bin /mnt/user/recipes/bin 
copy-folder share /mnt/user/recipes/share 
END
    diff - <(zipinfo recipes.kx-update | awk '/^-rwx.* [0-9]\// { print $9 }' | sort) <<'END'
0/0/start
2/0/one
3/0/tool
END
}

@test "new tells what it leaves out of a folder, and fills one with nothing to take" {
    mkdir recipes recipes/.git
    # shellcheck disable=SC2016 # a name
    touch recipes/old.kx-update recipes/'a$b' recipes/'a:b'
    mkfifo recipes/pipe
    ln -s nowhere recipes/dangling
    ln -s /usr recipes/usr

    kx new recipes --json

    [ "$status" -eq 0 ]
    jq -r '.taken[], .remarks[]' out | diff - <(
        cat <<'END'
.git is left out: its name begins with a dot
a$b is left out: its name contains $
a:b is left out: its name contains :
dangling is left out: it is a link that leads nowhere
old.kx-update is left out: it is a package
pipe is left out: it is neither a file nor a folder
usr is left out: it is a link to a folder
END
    )
    [ "$(jq -r '.files | length' out)" -eq 8 ]
    kx build recipes --updater updater
    [ "$status" -eq 0 ]
}

@test "new never overwrites: a manifest that is there, also a link to nothing, stays" {
    mkdir recipes
    ln -s elsewhere recipes/package.toml
    kx new recipes
    expect 2 '' $'kx-package: recipes/package.toml: is there already; change it, or name another folder\n'
    [ "$(readlink recipes/package.toml)" = elsewhere ] && [ ! -e recipes/elsewhere ]
    [ "$(ls -A recipes)" = package.toml ]
}

@test "new tells a disk that is full" {
    status=0
    (
        ulimit -f 1
        trap '' XFSZ
        exec "$KX_PACKAGE" new recipes
    ) >out 2>err || status=$?

    expect 3 '' $'kx-package: recipes/package.toml: cannot write: File too large\n'
}

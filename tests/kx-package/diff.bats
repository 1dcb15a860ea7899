#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# kx-package diff, as a user starts it.

load plan

# versions: two versions of a package, one.kx-update below 1 and 2.
versions() {
    demo one
    cp -r one two
    sed -i 's/version = "1.0"/version = "1.1"/; s/Level = "8"/Level = "9"/; s/secret/other/
        s/mode = "755"/mode = "700"/; s/echo installed/echo more\\necho installed/' two/package.toml
    cat >>two/package.toml <<'END'

[[steps]]
kind = "script"
comment = "at the end"
skip = true
install = "#!/bin/sh\ntrue"
END
    rm -r two/share/deep
    echo new >two/share/new
    echo drei >two/share/ä日本.txt
    mkdir 1 2
    kx build one --updater arm-updater -o 1/
    kx build two --updater updater --processor "$(uname -m)" -o 2/
    [ "$status" -eq 0 ]
}

@test "diff tells people what is different, and what a panel keeps" {
    versions

    kx diff 1/demo.kx-update 2/demo.kx-update

    expect 1 "$(sed "s/@PROCESSOR@/$(uname -m)/" "$BATS_TEST_DIRNAME/golden/demo.diff")"$'\n' ''
}

@test "diff's JSON tells the same" {
    versions
    kx diff --json 1/demo.kx-update 2/demo.kx-update
    [ "$status" -eq 1 ]

    [ "$(jq -c '[.formatVersion, .before, .after, .isSame]' out)" = \
        '[1,"1/demo.kx-update","2/demo.kx-update",false]' ]
    diff - <(jq -c '.identity[], .settings[]' out) <<END
{"after":"1.1","before":"1.0","name":"version"}
{"after":"for $(uname -m), 86 bytes","before":"for arm, 86 bytes","name":"updater"}
{"after":"9","before":"8","name":"backlight Level"}
{"after":"********","before":"********","name":"user Password"}
END
    diff - <(jq -c '.steps[] | [.change, .before, .after, .kind]' out) <<'END'
["changed",1,1,"copy-files"]
["changed",3,3,"script"]
["changed",4,4,"settings"]
["added",null,5,"script"]
END
    jq -j '.steps[1].scripts[0].unified' out | diff - <(
        printf '@@ -1,2 +1,3 @@\n #!/bin/sh\n+echo more\n echo installed\n'
    )
    diff - <(jq -c '.files[] | [.change, .path, .before.mode, .after.size, .isContentChanged]' out) <<'END'
["changed","/mnt/user/bin/hello","755",10,false]
["gone","/mnt/user/share/deep/b.txt","644",null,false]
["added","/mnt/user/share/new",null,4,false]
["changed","/mnt/user/share/ä日本.txt","644",5,true]
END
    diff - <(jq -c '.kept[]' out) <<'END'
{"isRecorded":false,"kind":"folder","path":"/mnt/user/share/deep"}
{"isRecorded":true,"kind":"file","path":"/mnt/user/share/deep/b.txt"}
END
}

@test "packages that a panel makes no difference between are the same" {
    demo one
    kx build one --updater arm-updater -o demo.kx-update
    mkdir other
    SOURCE_DATE_EPOCH=1700000000 kx build one --updater arm-updater -o other/
    unzip -q demo.kx-update -d demo
    # What no panel reads.
    sed -i 's/"IsRelativePath": true/"IsRelativePath": false/; s/\\n/\\r\\n/g' \
        demo/UserPackage.kx-project
    kx unpack demo.kx-update -o sources

    local path
    for path in other/demo.kx-update demo sources sources/package.toml demo.kx-update; do
        kx diff demo.kx-update "$path"
        expect 0 $'A panel makes no difference between them.\n' ''
        kx diff --json "$path" demo.kx-update
        [ "$status" -eq 0 ]
        jq -e '.isSame and (.files + .steps + .identity + .settings + .unused + .kept == [])' out
    done
    # Where no updater is installed for a source, none is compared.
    kx diff one demo.kx-update
    expect 0 $'A panel makes no difference between them.\n' ''
}

@test "steps are compared with those that they were" {
    make 1.kx-update <<'END'
script("#!/bin/sh\n# one\n")
script("#!/bin/sh\n# two\n")
hardware(setting("Sound", ("Volume", "5")), setting("AutoStartupMode", ("CustomScript", "#!/bin/sh\na\n")))
copy_file(item("a", "/opt/a", "", "a"), item("a", "/opt/a", "644", "b"), skip=True)
copy_folder(folder("/opt/x", {"f": "f", "g": file("", 0o755)}), record=True)
step(typed("DB_HardwareItem", ItemName="Password", Value="hidden"))
put("extra/gone", "")
put("extra/mode", "", 0o600)
END
    make 2.kx-update <<'END'
script("#!/bin/sh\n# two\n")
hardware(setting("Sound", ("Volume", "5"), used=False), setting("AutoStartupMode", ("CustomScript", "#!/bin/sh\nb")))
copy_folder(folder("/opt/x", {"f": "f", "g": ""}))
step(typed("DB_HardwareItem", ItemName="Password", Value="other"))
put("extra/mode", "", 0o640)
put("extra/new", "")
END
    kx diff 1.kx-update 2.kx-update
    expect 1 "$(cat "$BATS_TEST_DIRNAME/golden/steps.diff")"$'\n' ''
    run grep -E 'hidden|: other' out
    [ "$status" -eq 1 ]
}

@test "large contents are compared to their end" {
    demo pkg
    head -c 9M /dev/zero >pkg/share/large
    kx build pkg --updater arm-updater -o one.kx-update
    mkdir other
    printf x | dd of=pkg/share/large bs=1 seek=9437183 conv=notrunc status=none
    kx build pkg --updater arm-updater -o other/one.kx-update
    kx diff one.kx-update other/one.kx-update
    [ "$status" -eq 1 ]
    grep -q 'changed /mnt/user/share/large: 9.0 MiB -> 9.0 MiB, another content' out
    kx diff one.kx-update one.kx-update
    [ "$status" -eq 0 ]
    # What is kept meanwhile lies where it should, and is gone.
    mkdir kept
    TMPDIR=$PWD/kept kx diff one.kx-update other/one.kx-update
    [ "$status" -eq 1 ]
    [ -z "$(ls -A kept)" ]
    TMPDIR=$PWD/none kx diff one.kx-update other/one.kx-update
    [ "$status" -eq 3 ]
}

@test "diff refuses what cannot be compared" {
    demo pkg
    kx build pkg --updater arm-updater
    kx diff demo.kx-update
    [ "$status" -eq 2 ]
    kx diff demo.kx-update missing
    expect 1 '' 'kx-package: missing: cannot open: No such file or directory
'
    kx diff --json demo.kx-update missing
    jq -e '.error.code == 1' out
    unzip -q demo.kx-update -d folder
    echo '[]' >folder/UserPackage.kx-project
    kx diff folder demo.kx-update
    [ "$status" -eq 1 ]
    [[ $(<err) == 'kx-package: folder:UserPackage.kx-project:'* ]]
    echo 'targt = 1' >>pkg/package.toml
    kx diff demo.kx-update pkg
    [ "$status" -eq 1 ]
    [[ $(<err) == *'pkg/package.toml:'* ]]
}

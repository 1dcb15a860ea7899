#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# Packages that were made to do harm, by somebody without a key, and by somebody with one.

# shellcheck disable=SC2016 # what is in single quotes is for the shell on the device

load panel

setup() {
    panel_setup
    panel_file 'signatures = "optional"'
}

# sign_by_force NAME: signs a package, also one that kx-package would not sign.
sign_by_force() {
    python3 -B -c '
import pathlib, sys
sys.path.insert(0, sys.argv[1])
import panel_corpus
file, key = map(pathlib.Path, sys.argv[2:])
file.write_bytes(panel_corpus.signed_by_hand(file.read_bytes(), file.name[:-10], key))
' "$BATS_TEST_DIRNAME" "$PACKAGES/$1.kx-update" "$WORK/secret/release.key.pem"
}

@test "hostile packages, signed and unsigned, are refused, and no others are" {
    local corpus=$BATS_TEST_DIRNAME/panel_corpus.py
    "$corpus" make "$PACKAGES/corpus" "$KX_PACKAGE" secret/release.key.pem 2>make.log

    on_panel 'cd /packages/corpus
        while read -r file; do
            kx-panel check --json "$file"
        done <order | jq -c .'

    "$corpus" compare "$PACKAGES/corpus" "$OUT" || fail 'kx-panel and kx-package differ'
}

@test "what becomes 4 GiB is refused, in a bounded time and a bounded memory" {
    unsigned demo <<<"$HELLO"
    mkdir "$PACKAGES/signed"
    "$BATS_TEST_DIRNAME/panel_bombs.py" "$PACKAGES/demo.kx-update" "$PACKAGES"
    rm "$PACKAGES/demo.kx-update"
    local name
    for name in large liar description description-liar overlap many; do
        cp "$PACKAGES/$name.kx-update" "$PACKAGES/signed-$name.kx-update"
        sign_by_force "signed-$name"
    done

    on_panel --memory 512 --seconds 60 '
        for name in large liar description description-liar overlap many; do
            verdict "$name" "signed-$name"
        done'

    # The contents of a signed package are unpacked when it is installed: that is then refused.
    expect_out <<'END'
large: 1 structure
signed-large: 1 structure
liar: 1 structure
signed-liar: 0
description: 1 structure
signed-description: 1 structure
description-liar: 1 structure
signed-description-liar: 1 description
overlap: 1 structure
signed-overlap: 1 structure
many: 1 structure
signed-many: 1 structure
END
}

@test "a description that would take hours to read is refused" {
    unsigned demo <<'END'
TYPE = '"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": ['
description('\ufeff{"$type": "Zt.Plugins.DB_KxUserProject, Plexa", "Title": "t", "PackageVersion": "1", '
            '"ModelName": "TP-0700", "OsVersion": "2.1.0", "Comment": "", "Date": "", "DB_StepSets": ' +
            ("{" + TYPE) * 40 + "]}" * 40 + "}")
END
    unsigned deep <<'END'
description('\ufeff{"$type": "Zt.Plugins.DB_KxUserProject, Plexa", "Title": ' + "[" * 200000 + "]" * 200000 + "}")
END
    cp "$PACKAGES/demo.kx-update" "$PACKAGES/signed.kx-update"
    sign signed

    on_panel --seconds 60 'verdict demo signed deep'

    expect_out <<'END'
demo: 1 description
signed: 1 description
deep: 1 description
END
}

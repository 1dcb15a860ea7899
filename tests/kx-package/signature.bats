#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# What check, show and build make of signatures and keys; and the page about the format, by a program
# that was written from it.

load package

PAGE=$ROOT/docs/signature-format.md

# signed: makes demo.kx-update, signed by a; and the folder keys, which has a's key and b's.
signed() {
    demo pkg
    kx build pkg --updater arm-updater
    kx key new a
    kx key new --type p256 b
    kx sign --key a.key.pem demo.kx-update
    mkdir keys
    cp a.pub.pem b.pub.pem keys
}

id() {
    openssl pkey -pubin -in "$1" -outform DER | sha256sum | cut -d ' ' -f 1
}

# judges STATUS ID... [-- ARGUMENT...]: what a panel with the keys, that asks for signatures, finds.
judges() {
    local wanted=$1 ids=()
    shift
    while [ $# -gt 0 ] && [ "$1" != -- ]; do
        ids+=("$1")
        shift
    done
    [ $# -eq 0 ] || shift
    kx check --json --keys keys --require-signature "${@:-demo.kx-update}"
    [ "$status" -eq "$wanted" ]
    diff <(printf '%s\n' "${ids[@]}" | sed '/^$/d') \
        <(jq -r '.findings[].id | select(test("^(signature|archive|name-copy)"))' out)
}

@test "a signed package is checked without a word" {
    signed

    kx check demo.kx-update
    [ "$status" -eq 0 ]
    [ "$(grep -c 'signature\|archive' out)" -eq 0 ]
    judges 0
    kx sign --key b.key.pem demo.kx-update
    judges 0
}

@test "check ends with 1 where a panel that asks for signatures would refuse" {
    signed
    cp demo.kx-update good.kx-update
    rm keys/a.pub.pem
    judges 1 signature-untrusted
    kx check --keys keys demo.kx-update
    [ "$status" -eq 0 ]
    kx check --strict --keys keys demo.kx-update
    [ "$status" -eq 1 ]
    cp a.pub.pem keys
    kx sign --remove demo.kx-update
    judges 1 signature-missing
    kx build pkg --updater arm-updater -o other.kx-update
    judges 1 signature-missing -- other.kx-update
    mkdir demo.temp && unzip -q good.kx-update -d demo.temp
    judges 1 signature-missing -- demo.temp
    kx check --json --keys keys --require-signature pkg
    [ "$status" -eq 2 ]
    cp good.kx-update 'demo (1).kx-update'
    judges 0 signature-name name-copy -- 'demo (1).kx-update'
    jq -e '[.findings[] | select(.id == "signature-name") | .message] ==
        ["is signed as '\''demo'\'', and recorded as '\''demo (1)'\'' elsewhere"]' out
}

@test "check reads a package on standard input with its signatures" {
    signed
    status=0
    "$KX_PACKAGE" check --json --keys keys --require-signature - <demo.kx-update >out || status=$?
    [ "$status" -eq 0 ]
    jq -e '[.findings[].id | select(startswith("signature"))] == []' out
}

@test "a bad signature under a known key refuses, whoever else has signed" {
    signed
    kx sign --key b.key.pem demo.kx-update
    python3 -B - "$(id a.pub.pem)" <<'END'
import sys
zip = bytearray(open("demo.kx-update", "rb").read())
zip[zip.index(bytes.fromhex(sys.argv[1])) + 40] ^= 1
open("demo.kx-update", "wb").write(zip)
END
    judges 1 signature-bad
    rm keys/a.pub.pem
    judges 0
}

@test "files beside keys limit and revoke them" {
    signed
    echo 'revoked = true' >keys/a.toml
    judges 1 signature-untrusted
    echo 'packages = ["other"]' >keys/a.toml
    judges 1 signature-untrusted
    echo 'packages = ["other", "demo"]' >keys/a.toml
    judges 0
    echo 'models = ["TP-0900"]' >keys/a.toml
    judges 0 signature-models
    printf 'format = 1\nmodels = ["TP-0700"]\n' >panel.toml
    kx check --keys keys --require-signature --panel panel.toml demo.kx-update
    [ "$status" -eq 1 ]
    grep -q '^error: signature-untrusted' out
    echo 'models = ["TP-0900", "TP-0700"]' >keys/a.toml
    kx check --keys keys --require-signature --panel panel.toml demo.kx-update
    [ "$status" -eq 0 ]
    echo 'rewoked = true' >keys/a.toml
    judges 1 signature-untrusted signature-key
    rm keys/a.toml
    echo 'revoked = true' >keys/c.toml
    judges 0 signature-key
}

@test "a signature needs a folder of keys" {
    signed
    kx check --require-signature demo.kx-update
    expect 2 '' 'kx-package: check: --require-signature needs the keys that the panel trusts; name their folder with --keys
'
    kx check --keys none demo.kx-update
    expect 1 '' 'kx-package: none: cannot list the keys in: No such file or directory
'
}

@test "a package that was changed after it was signed is told" {
    signed
    kx check demo.kx-update
    printf 'X' | dd of=demo.kx-update bs=1 seek=10 conv=notrunc status=none
    kx check --json demo.kx-update
    [ "$status" -eq 1 ]
    jq -e '[.findings[].id] | contains(["signature-changed", "archive-gap"])' out
}

@test "show names the signers" {
    signed
    local by="    by"
    kx show demo.kx-update
    grep -A 1 '^  signed:' out | diff - <(printf '  signed:    as demo\n%s %s: unknown\n' "$by" "$(id a.pub.pem)")
    kx show --keys keys demo.kx-update
    grep -A 1 '^  signed:' out | diff - <(printf '  signed:    as demo\n%s a, key %s: good\n' "$by" "$(id a.pub.pem)")
    kx show --json --keys keys demo.kx-update
    jq -e --arg id "$(id a.pub.pem)" '.signature == {"name": "demo", "problem": null,
        "signers": [{"keyId": $id, "key": "a", "state": "good"}]}' out
    printf 'X' | dd of=demo.kx-update bs=1 seek=10 conv=notrunc status=none
    kx show --json demo.kx-update
    jq -e '.signature.problem == "was changed after it was signed"' out
    kx sign --remove demo.kx-update
    kx show --json demo.kx-update
    jq -e '.signature == null' out
}

@test "build refuses a private key in the payload" {
    demo pkg
    kx key new a
    cp a.key.pem pkg/bin/key
    kx build pkg --updater arm-updater
    [ "$status" -eq 1 ]
    grep -q "'key' holds a private key; leave it out: whoever has the package would have the key" err
    [ ! -e demo.kx-update ]
    rm pkg/bin/key
    openssl pkey -in a.key.pem -outform DER -out pkg/share/key.der
    kx build pkg --updater arm-updater
    [ "$status" -eq 1 ]
    grep -q "'key.der' holds a private key" err
    rm pkg/share/key.der
    cp a.pub.pem pkg/share
    kx build pkg --updater arm-updater
    [ "$status" -eq 0 ]
}

# vectors: takes keys and package out of the page.
vectors() {
    python3 -B - "$PAGE" <<'END'
import base64, re, sys
blocks = re.findall(r"^```\n(.*?)^```$", open(sys.argv[1]).read(), re.S | re.M)
keys = [one for one in blocks if one.startswith("-----BEGIN PUBLIC KEY-----")]
open("ed.pem", "w").write(keys[0])
open("ec.pem", "w").write(keys[1])
open("vector.kx-update", "wb").write(base64.b64decode(blocks[-1]))
END
}

@test "the page's vectors are what it says" {
    vectors
    grep -q "^\`$(id ed.pem)\`" "$PAGE"
    grep -q "^\`$(id ec.pem)\`" "$PAGE"
    mkdir keys
    cp ed.pem ec.pem keys

    # It is no whole package; of its signatures nothing is to be said.
    judges 1 -- vector.kx-update
    rm keys/ec.pem
    judges 1 -- vector.kx-update
    mv ec.pem keys
    rm keys/ed.pem
    judges 1 -- vector.kx-update
    rm keys/ec.pem
    judges 1 signature-untrusted -- vector.kx-update
    kx sign --remove vector.kx-update
    [ "$(stat -c %s vector.kx-update)" -eq 104 ]
    grep -q "$(sha256sum <vector.kx-update | cut -d ' ' -f 1)" "$PAGE"
}

# second PACKAGE KEY...: what the second verifier says.
second() {
    "$BATS_TEST_DIRNAME/second_verifier.py" "$@" 2>&1
}

@test "a program that was written from the page says the same" {
    vectors
    [ "$(second vector.kx-update ed.pem)" = vector ]
    [ "$(second vector.kx-update ec.pem)" = vector ]
    signed
    kx sign --key b.key.pem demo.kx-update
    [ "$(second demo.kx-update a.pub.pem b.pub.pem)" = demo ]
    [ "$(second demo.kx-update b.pub.pem)" = demo ]
    [ "$(second demo.kx-update ed.pem)" = refused ]
    kx sign --remove demo.kx-update
    [ "$(second demo.kx-update a.pub.pem)" = refused ]
}

@test "both say the same of packages that were changed" {
    vectors
    python3 -B - "$KX_PACKAGE" "$BATS_TEST_DIRNAME/second_verifier.py" >said <<'END'
import json, os, random, subprocess, sys
good = open("vector.kx-update", "rb").read()
os.makedirs("keys", exist_ok=True)
os.link("ed.pem", "keys/ed.pem")
block = good.index(b"KX-SIG")
end = good.rindex(b"KX-SIG") + 16
draw = random.Random(1)
changed = [good, good + b"x", b"x" + good, good[1:], good[:-1], good[:end] + good[block:],
           good[:block] + good[end:], good[:block] + good[block:end] * 2 + good[end:]]
for _ in range(40):
    bytes_ = bytearray(good)
    bytes_[draw.randrange(len(good))] ^= 1 << draw.randrange(8)
    changed.append(bytes(bytes_))
for _ in range(12):  # in the end records
    bytes_ = bytearray(good)
    bytes_[-draw.randrange(1, 23)] ^= 1 << draw.randrange(8)
    changed.append(bytes(bytes_))
taken = 0
for number, content in enumerate(changed):
    open("one.kx-update", "wb").write(content)
    ours = subprocess.run([sys.argv[1], "check", "--json", "--keys", "keys", "--require-signature",
                           "one.kx-update"], capture_output=True, check=False)
    found = {one["id"] for one in json.loads(ours.stdout)["findings"] if one["severity"] == "error"}
    mine = not {one for one in found if one.startswith("signature")}
    second = subprocess.run([sys.argv[2], "one.kx-update", "ed.pem"], capture_output=True, check=False)
    theirs = second.returncode == 0
    taken += mine
    if mine != theirs or b"Traceback" in second.stderr:
        print(number, mine, theirs, found, second.stderr)
print(len(changed), "compared")
assert 0 < taken < len(changed)
END
    [ "$(cat said)" = '60 compared' ] || { cat said; return 1; }
}

#!/usr/bin/env bats
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
#
# The steps that copy files and folders.

load device

LIST=/var/lib/KxUserPackages/Foo/installedFile.list

@test "file items: targets, modes and what is recorded of them" {
    package Foo <<'END'
copy_file(item("C:\\work\\a.bin", "/opt/new/a.bin", "644"),
          item("sub/dir/b.bin", "/opt/new/renamed", "u=rw,go="),
          item("C:c.bin", "/opt/other/", "750"),
          item("plain", "/top", ""),
          item("again", "/opt/new/a.bin", "600", "the later one wins\n"), record=True)
END

    install Foo --look "find /opt/new /opt/other /top -printf '%y %m %u:%g %p\n' | LC_ALL=C sort -k 4
        cat /opt/new/a.bin $LIST"

    expect_status 0
    expect_silence
    expect_installing Foo <<'END'
[mkdir -p "/opt/new/"]
[cp -f "/packages/Foo/0/0/a.bin" "/opt/new/a.bin" ]
[chmod 644 "/opt/new/a.bin" ]
[cp -f "/packages/Foo/0/1/b.bin" "/opt/new/renamed" ]
[chmod u=rw,go= "/opt/new/renamed" ]
[mkdir -p "/opt/other/"]
[cp -f "/packages/Foo/0/2/c.bin" "/opt/other/" ]
[chmod 750 "/opt/other/" ]
[cp -f "/packages/Foo/0/3/plain" "/top" ]
[chmod 777 "/top" ]
[cp -f "/packages/Foo/0/4/again" "/opt/new/a.bin" ]
[chmod 600 "/opt/new/a.bin" ]
END
    # A target folder gets the mode itself; the file in it keeps the one that cp gave it.
    expect_panel <<'END'
d 755 root:root /opt/new
f 600 root:root /opt/new/a.bin
f 600 root:root /opt/new/renamed
d 750 root:root /opt/other
f 644 root:root /opt/other/c.bin
f 777 root:root /top
the later one wins
 #dir
/opt/new/
/opt/other/
/var/lib/KxUserPackages/Foo
 #file
/opt/new/a.bin
/opt/new/renamed
/opt/other/c.bin
/top
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "without IsRemove nothing of a step is recorded" {
    package Foo <<'END'
copy_file(item("a", "/opt/one/a"), record=False)
copy_folder(folder("/opt/two", {"b": "b", "c": {"d": "d"}}), record=False)
copy_file(item("e", "/opt/one/e"), record=True)
END

    install Foo --look "cat $LIST; find /opt/one /opt/two -type f | sort"

    expect_status 0
    expect_panel <<'END'
 #dir
/var/lib/KxUserPackages/Foo
 #file
/opt/one/e
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
/opt/one/a
/opt/one/e
/opt/two/b
/opt/two/c/d
END
}

@test "steps without items do nothing and succeed" {
    package Foo <<'END'
copy_file()
copy_folder(record=True)
END

    install Foo

    expect_status 0
    expect_out <<'END'
**** Installation step 1/2
**** Installation step 2/2
Installation succeeded.
END
    expect_installing Foo </dev/null
}

@test "the payload of an item lies in the folders of its step's and its own number" {
    package Foo <<'END'
copy_file(item("a", "/opt/s0i0"))
script("exit 0\n")
copy_file(item("a", "/opt/s2i0", "", "step 2, item 0\n"),
          item(r"C:\work\app.bin", "/opt/s2i1", "", "step 2, item 1\n"))
copy_folder(folder("/opt/s3i0", {"x": "step 3, item 0\n"}),
            folder("/opt/s3i1", {"x": "step 3, item 1\n"}))
END

    install Foo --look 'cat /opt/s2i0 /opt/s2i1 /opt/s3i0/x /opt/s3i1/x'

    expect_status 0
    expect_panel <<'END'
step 2, item 0
step 2, item 1
step 3, item 0
step 3, item 1
END
    [ "$(commands | grep -cF '[cp -f "/packages/Foo/2/1/app.bin" "/opt/s2i1" ]')" -eq 1 ]
}

@test "a file item follows links, overwrites what is there, and keeps a linked target's place" {
    package Foo <<'END'
copy_file(item("a", "/opt/demo/link", "600", "through the link\n"),
          item("b", "/opt/demo/locked", "400", "over a file without any rights\n"),
          item("c", "/opt/demo/copy", "644", link("../../real")))
put("real", "what the link names\n")
END
    device --keep -- sh -c 'mkdir /opt/demo && cd /opt/demo && echo old >real && ln -s real link &&
        echo old >locked && chmod 0 locked'
    expect_status 0

    install Foo --keep --look 'cd /opt/demo; find . -printf "%y %m %p %l\n" | LC_ALL=C sort -k 3; cat *'

    expect_status 0
    expect_panel <<'END'
d 755 . 
f 644 ./copy 
l 777 ./link real
f 400 ./locked 
f 600 ./real 
what the link names
through the link
over a file without any rights
through the link
END
}

@test "a folder step copies in byte order, depth first, hidden entries included" {
    package Foo <<'END'
copy_folder(folder("/opt/tree", {
    "b": "", "B": "", "a": {"z": "", "Y": ""}, ".hidden": "", "..more": "", "_": "", "1": "",
    "empty": {}, "é": ""}), record=True)
END

    install Foo --look "cat $LIST"

    expect_status 0
    expect_silence
    expect_installing Foo <<'END'
[mkdir -p "/opt/tree"]
[cp -f "/packages/Foo/0/0/..more" "/opt/tree/..more" ]
[cp -f "/packages/Foo/0/0/.hidden" "/opt/tree/.hidden" ]
[cp -f "/packages/Foo/0/0/1" "/opt/tree/1" ]
[cp -f "/packages/Foo/0/0/B" "/opt/tree/B" ]
[cp -f "/packages/Foo/0/0/_" "/opt/tree/_" ]
[mkdir -p "/opt/tree/a"]
[cp -f "/packages/Foo/0/0/a/Y" "/opt/tree/a/Y" ]
[cp -f "/packages/Foo/0/0/a/z" "/opt/tree/a/z" ]
[cp -f "/packages/Foo/0/0/b" "/opt/tree/b" ]
[mkdir -p "/opt/tree/empty"]
[cp -f "/packages/Foo/0/0/é" "/opt/tree/é" ]
END
    expect_panel <<'END'
 #dir
/opt/tree
/opt/tree/a
/opt/tree/empty
/var/lib/KxUserPackages/Foo
 #file
/opt/tree/..more
/opt/tree/.hidden
/opt/tree/1
/opt/tree/B
/opt/tree/_
/opt/tree/a/Y
/opt/tree/a/z
/opt/tree/b
/opt/tree/é
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
END
}

@test "folder targets: the root, a trailing slash, one that is there" {
    package Foo <<'END'
copy_folder(folder("/", {"opt": {"from-root": "1\n"}, "new-top": {"f": "2\n"}}),
            folder("/opt/slash/", {"f": "3\n"}),
            folder("/opt", {"direct": "4\n"}), record=True)
END

    install Foo --look "cat $LIST; cat /opt/from-root /new-top/f /opt/slash/f /opt/direct"

    expect_status 0
    expect_installing Foo <<'END'
[mkdir -p "/new-top"]
[cp -f "/packages/Foo/0/0/new-top/f" "/new-top/f" ]
[cp -f "/packages/Foo/0/0/opt/from-root" "/opt/from-root" ]
[mkdir -p "/opt/slash/"]
[cp -f "/packages/Foo/0/1/f" "/opt/slash/f" ]
[cp -f "/packages/Foo/0/2/direct" "/opt/direct" ]
END
    expect_panel <<'END'
 #dir
/new-top
/opt/slash/
/var/lib/KxUserPackages/Foo
 #file
/new-top/f
/opt/from-root
/opt/slash/f
/opt/direct
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
1
2
3
4
END
}

@test "a folder item without a payload leaves an empty, recorded target and succeeds" {
    package Foo <<'END'
copy_folder(folder("/opt/nothing", None), folder("/opt/empty", {}), record=True)
END

    install Foo --look "sed -n 2,3p $LIST; ls -A /opt/nothing /opt/empty"

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
Installation succeeded.
END
    expect_panel <<'END'
/opt/nothing
/opt/empty
/opt/empty:

/opt/nothing:
END
}

@test "links in a folder's payload arrive as what they name, permissions of the item are not used" {
    package Foo <<'END'
copy_folder(folder("/opt/tree", {
    "real": file("program\n", 0o755), "link": link("real"),
    "dir": {"f": "in the folder\n"}, "dirlink": link("dir"), "secret": file("s\n", 0o600)}, "000"))
END

    install Foo --look 'cd /opt/tree; find . -printf "%y %m %p\n" | sort -k 3; cat link dirlink/f'

    expect_status 0
    expect_panel <<'END'
d 755 .
d 755 ./dir
f 644 ./dir/f
d 755 ./dirlink
f 644 ./dirlink/f
f 755 ./link
f 755 ./real
f 600 ./secret
program
in the folder
END
}

@test "a link that leads nowhere ends its folder, and with CanSkip only its folder" {
    package Foo <<'END'
copy_folder(folder("/opt/one", {"a": "", "b": link("nowhere"), "c": ""}),
            folder("/opt/two", {"d": ""}), record=True, skip=True)
END

    install Foo --look "cat $LIST; find /opt/one /opt/two | sort"

    expect_status 0
    expect_out <<'END'
**** Installation step 1/1
File copy error( = 256) is corrupted. From /packages/Foo/0/0 to /opt/one  (Permissions=)
Installation succeeded.
END
    expect_err <<'END'
cp: cannot stat '/packages/Foo/0/0/b': No such file or directory
END
    expect_panel <<'END'
 #dir
/opt/one
/opt/two
/var/lib/KxUserPackages/Foo
 #file
/opt/one/a
/opt/two/d
/var/lib/KxUserPackages/Foo/UserPackage.kx-project
/var/lib/KxUserPackages/Foo/installedFile.list
/opt/one
/opt/one/a
/opt/two
/opt/two/d
END
}

@test "a link to its own folder ends in a failure and not in a copy without end" {
    package Foo <<'END'
copy_folder(folder("/opt/tree", {"loop": link(".")}))
END

    # When something is mounted anywhere meanwhile, the kernel may follow a path's links once more and
    # go on counting them: it then refuses a path with fewer than forty. Such a run says nothing.
    local attempt
    for attempt in 1 2 3; do
        if install Foo --look 'find /opt/tree -type d | wc -l'; then
            break
        fi
        echo "attempt $attempt: another path was refused" >&2
    done

    expect_status 101
    [ "$(tail -n 1 "$OUT")" = 'Installation failed in step 1.' ]
    grep -q '^cp: cannot stat .*: Too many levels of symbolic links$' "$ERR"
    # The kernel follows forty links.
    expect_panel <<<41
}

@test "folders two hundred levels deep are copied to the last file" {
    package Foo <<'END'
tree = {"leaf": "at the bottom\n"}
for _ in range(200):
    tree = {"level": tree}
copy_folder(folder("/opt/deep", tree), record=True)
END

    install Foo --look "find /opt/deep -type f -exec cat {} +; find /opt/deep -type d | wc -l
        grep -c /level $LIST"

    expect_status 0
    # The list has two hundred folders below the first one and the file.
    expect_panel <<'END'
at the bottom
201
201
END
}

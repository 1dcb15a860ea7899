// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::tool
{

/// The least that a manifest must say about a package; steps are added behind it. It has nine
/// lines.
constexpr const char* kIdentity = "[package]\n"
                                  "name = \"demo\"\n"
                                  "title = \"Demo\"\n"
                                  "version = \"1.2\"\n"
                                  "model = \"TP\"\n"
                                  "os-version = \"2.0\"\n"
                                  "date = \"2026/11/21\"\n"
                                  "processor = \"arm\"\n"
                                  "\n";

/// Every kind of step and setting, with all keys that they may have.
constexpr const char* kEverything = R"([package]
name = "demo"
title = "Démo"
version = "1.2"
comment = "quotes \" and \\, a tab\tand a line\nbreak"
model = "TP-0700"
os-version = "2.1.0"
date = 2026-01-02
processor = "armv7l"

[[steps]]
kind = "copy-files"
comment = "programs"
skip = true
record = false
files = [
  { source = "bin/hello", target = "/mnt/user/bin/greet", mode = "4755" },
  { source = "bin/hello", target = "/mnt/user/bin/" },
  { source = "etc/**/*.conf", target = "/etc/demo/", mode = "600" },
]

[[steps]]
kind = "copy-folder"
[[steps.folders]]
source = "share"
target = "/mnt/user/share/"
exclude = ["**/*.orig"]
executable = ["bin/*"]
[[steps.folders]]
source = "none"
target = "/"

[[steps]]
kind = "script"
comment = "inline"
install = "#!/bin/sh\r\necho 1\r\n"

[[steps]]
kind = "script"
install-file = "scripts/install.sh"
uninstall-file = "scripts/uninstall.sh"

[[steps]]
kind = "settings"
[[steps.settings]]
kind = "auto-start"
values = { Mode = "script" }
script-file = "scripts/install.sh"
[[steps.settings]]
kind = "backlight"
values = { Zoom = "1", Level = "8" }
[[steps.settings]]
kind = "cursor"
used = false
[[steps.settings]]
kind = "language"
[[steps.settings]]
kind = "lan"
[[steps.settings]]
kind = "sound"
[[steps.settings]]
kind = "s-start"
[[steps.settings]]
kind = "touch-beep"
[[steps.settings]]
kind = "user"
values = { User = "user", Password = "secret" }
)";

/// Writes the manifest of everything with its payload.
template <class Folder>
void WriteEverything(const Folder& dir)
{
    dir.Write("package.toml", kEverything);
    dir.Write("bin/hello", "#!/bin/sh\n", 0755);
    dir.Write("etc/b.conf", "b");
    dir.Write("etc/deep/a.conf", "a");
    dir.Write("etc/deep/other", "no");
    dir.Write("share/bin/run", "#!/bin/sh\n");
    dir.Write("share/text.txt", "text");
    dir.Write("share/text.txt.orig", "old");
    dir.MakeDir("share/empty");
    dir.MakeDir("none");
    dir.Write("scripts/install.sh", "#!/bin/sh\r\necho 2\r\n");
    dir.Write("scripts/uninstall.sh", "#!/bin/sh\necho 3\n");
}

} // namespace kx::tool

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Scripts, the installation as a whole, and what settings have to do with both.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_scripts
{

const Put kStep = Text("#!/bin/sh\\ntrue\\n");
const Put kStart = Text("#!/bin/sh\\nstart\\n");

/// Puts a script in a step that may be skipped.
void InSkippable(Recipe& recipe, const std::string& script)
{
    recipe.description.replace(
        recipe.description.find("false", recipe.description.find("SS_ScriptStepSet")), 5, "true");
    kStep(recipe, script);
}

/// Lets the first step fail without an error of its own, and adds a file with one.
void FailBeside(Recipe& recipe, const std::string& name)
{
    recipe.Replace("/opt/hello", "/mnt/usb/hello.temp/0/0/hello");
    recipe.parts.push_back({name, ""});
    recipe.parts.back().extra = archive::Bytes(0x7075, 2) + archive::Bytes(6, 2) + "\1crc.x";
}

const std::vector<RuleRow> kRows = {
    {"script-empty", kWarning, kScript, {"", " ", "\\n", R"(\t\r\n)"}, kStep},
    {"script-empty", kWarning, kStartup, {"", R"( \t\r\n)"}, kStart},
    {"script-empty", kSilent, "", {"#!/bin/sh"}, kStep},
    {"script-empty", kSilent, "", {"x", "#", "\\u000b"}, kStep, kAmongOthers},

    {"script-interpreter",
     kWarning,
     kScript,
     {"true", " #!/bin/sh\\ntrue", "\\n#!/bin/sh\\ntrue", "# !/bin/sh", "#", "!#/bin/sh"},
     kStep},
    {"script-interpreter",
     kError,
     kScript,
     {"#!sh", "#!", "#! ", "#! \\t", "#!bin/sh", "#!~/sh"},
     kStep},
    {"script-interpreter", kWarning, kScript, {"#!sh", "#!"}, InSkippable},
    {"script-interpreter",
     kNote,
     kScript,
     {"#!/bin/bash", "#!/bin/sh2", "#! /bin/bash -e", "#!/usr/bin/env sh", "#!/"},
     kStep},
    {"script-interpreter", kWarning, kStartup, {"start"}, kStart},
    {"script-interpreter", kError, kStartup, {"#!sh"}, kStart},
    {"script-interpreter",
     kSilent,
     "",
     {"#!/bin/sh", "#! /bin/sh", "#!\\t/bin/sh", "#!/bin/sh -e", "#!/bin/sh\\t-e",
      "#!/bin/sh\\n#!sh"},
     kStep},
    {"script-interpreter", kSilent, "", {"#!/bin/sh"}, kStart},

    {"script-mark",
     kError,
     kScript,
     {"\\ufeff#!/bin/sh\\ntrue", "\xef\xbb\xbf#!/bin/sh\\ntrue"},
     kStep},
    {"script-mark", kWarning, kScript, {"\\ufeff#!/bin/sh\\ntrue"}, InSkippable},
    {"script-interpreter",
     kError,
     kStartup,
     {"#!sh"},
     [](Recipe& r, const std::string& v) {
         r.description.replace(r.description.rfind("false"), 5, "true");
         kStart(r, v);
     }},
    // Only the start-up setting has a script, and only under that name.
    {"script-interpreter", kSilent, "", {"CustomScript"}, Text("Volume")},
    {"setting-shell", kError, kStartup, {"customScript", "Script"}, Text("CustomScript")},

    {"script-mark", kError, kStartup, {"\\ufeff#!/bin/sh\\nstart"}, kStart},
    {"script-mark", kSilent, "", {"#!/bin/sh\\n\\ufeff"}, kStep},
    {"script-mark", kSilent, "", {"\\ufeff"}, Text("gone")},
    {"script-mark", kSilent, "", {"\\ufefe#!/bin/sh\\ntrue"}, kStep, kAmongOthers},

    {"script-first-line",
     kError,
     kScript,
     {R"(#!/bin/sh\r\r\ntrue)", "#!/bin/sh\\r", "#!\\r/bin/sh"},
     kStep},
    {"script-first-line", kWarning, kScript, {R"(#!/bin/sh\r\r\ntrue)"}, InSkippable},
    {"script-first-line", kError, kStartup, {"#!/bin/sh\\r\\nstart"}, kStart},
    {"script-first-line", kSilent, "", {R"(#!/bin/sh\r\ntrue\r\n)"}, kStep},
    {"script-first-line", kSilent, "", {R"(#!/bin/sh\nstart\r\n)"}, kStart, kAmongOthers},

    {"script-carriage",
     kWarning,
     kScript,
     {R"(#!/bin/sh\ntrue\r \n)", "#!/bin/sh\\ntrue\\r", R"(#!/bin/sh\n\r\r\n)"},
     kStep},
    {"script-carriage", kWarning, kScript, {"#!/bin/sh\\ntrue\\r"}, InSkippable},
    {"script-carriage",
     kError,
     kStartup,
     {R"(#!/bin/sh\nstart\r\n)", "#!/bin/sh\\n\\rstart"},
     kStart},
    {"script-carriage",
     kSilent,
     "",
     {R"(#!/bin/sh\r\ntrue\r\n\r\n)", R"(#!/bin/sh\necho '\\r')"},
     kStep},
    {"script-carriage", kSilent, "", {"#!/bin/sh\\r\\nstart"}, kStart, kAmongOthers},

    {"script-zero", kError, kScript, {"#!/bin/sh\\ntr\\u0000ue", "#!/bin/sh\\n\\u0000"}, kStep},
    {"script-zero", kWarning, kScript, {"#!/bin/sh\\ntr\\u0000ue"}, InSkippable},
    {"script-zero", kError, kStartup, {"#!/bin/sh\\n\\u0000"}, kStart},
    {"script-zero", kSilent, "", {"#!/bin/sh\\ntr\\u0001ue", R"(#!/bin/sh\n\\0)"}, kStep},
    {"script-zero", kSilent, "", {"\\u0000"}, Text("gone")},

    {"installation-fails",
     kError,
     "",
     {"/var/lib/KxUserPackages/hello"},
     Text("/opt/hello"),
     kAmongOthers},
    {"installation-fails",
     kError,
     kStep0,
     {"/mnt/usb/hello.temp/0/0/hello"},
     Text("/opt/hello"),
     kAmongOthers},
    // An error in the payload of another step, or in what is none, does not say why.
    {"installation-fails", kError, kStep0, {"0x", "00/0/a", "1/0/b"}, FailBeside, kAmongOthers},
    {"installation-fails", kSilent, "", {"0/1/a"}, FailBeside, kAmongOthers},
    {"installation-fails",
     kSilent,
     "",
     {"/var/lib/KxUserPackages/hello2", "/mnt/usb/hello2.temp/0/0/hello"},
     Text("/opt/hello"),
     kAmongOthers},
    {"installation-fails", kSilent, "", {"bin/other", ""}, Piece("bin/hello"), kAmongOthers},
    {"installation-fails", kSilent, "", {"rwx"}, Text("755"), kAmongOthers},
};

} // namespace of_scripts

const std::vector<RuleRow>& ScriptRows()
{
    return of_scripts::kRows;
}

} // namespace kx::checks

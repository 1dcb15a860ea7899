// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What a package is called, and what lies beside it.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_names
{

/// Calls the package by that name, with the extension.
void Call(Recipe& recipe, const std::string& value)
{
    recipe.fileName = value + ".kx-update";
}

void CallFully(Recipe& recipe, const std::string& value)
{
    recipe.fileName = value;
}

void PutBeside(Recipe& recipe, const std::string& value)
{
    recipe.neighbour = value;
}

/// Calls a package of version 1.0.0 by a name.
void CallVersion(Recipe& recipe, const std::string& value)
{
    recipe.Replace(R"("PackageVersion": "1")", R"("PackageVersion": "1.0.0")");
    Call(recipe, value);
}

/// Calls the package of a manifest that names it "own" by a name.
void CallOwn(Recipe& recipe, const std::string& value)
{
    recipe.ownName = "own";
    Call(recipe, value);
}

/// The same when the manifest's own name ends in the version.
void OwnVersion(Recipe& recipe, const std::string& value)
{
    recipe.ownName = value;
    CallVersion(recipe, value);
}

const std::vector<RuleRow> kRows = {
    {"name-extension",
     kError,
     "",
     {"hello.zip", "hello", "hello.KX-UPDATE", "hello.kx-updates", "hello.kx-updat",
      "hello.kx-update.zip", "kx-update"},
     CallFully},
    {"name-extension", kSilent, "", {"a.kx-update", "a.b.kx-update", "HELLO.kx-update"}, CallFully},

    {"name-empty", kError, "", {"", ".", ".."}, Call},
    {"name-empty", kSilent, "", {"a", "...", ".a"}, Call},

    {"name-shell", kError, "", {"a\"b", "a`b", "a$b", "a$1", "$(a)", "${a}"}, Call},
    {"name-shell", kError, "", {"a\\\\b", "a\\$b"}, Call, kAmongOthers},
    {"name-shell", kSilent, "", {"a'b", "a b", "a;b", "a#b", "a&b", "(a)", "a$", "a$.b"}, Call},
    {"name-shell", kSilent, "", {"a\\b"}, Call, kAmongOthers},

    {"name-ascii", kError, "", {"\xc3\xa4", "\x80", "\xff"}, Call},
    {"name-ascii", kSilent, "", {"a\x7f", "~"}, Call},

    {"name-separator", kError, "", {"a:b", "a\\b"}, Call},
    {"name-separator", kSilent, "", {"a;b", "a|b", "a-b", "a_b", "a.b"}, Call},

    {"name-temp", kWarning, "", {"a.temporary", "a.temp", "a.temp.b", ".temp"}, Call},
    {"name-temp", kSilent, "", {"a.tem", "atemp", "a.Temp", "a.tmp", "temp"}, Call},

    {"name-wildcard", kWarning, "", {"a*b", "a?b", "a[b"}, Call},
    {"name-wildcard", kSilent, "", {"a]b", "a{b}", "a~b", "a+b", "a!b"}, Call},

    {"name-twin", kWarning, "", {"._hello.kx-update", ".other.kx-update", ".kx-update"}, PutBeside},
    {"name-twin",
     kSilent,
     "",
     {"._hello.kx-updat", ".kx-update.zip", "_hello.kx-update", ".hello"},
     PutBeside},

    {"name-neighbour", kNote, "", {"other.kx-update", "hello.b.kx-update"}, PutBeside},
    {"name-neighbour",
     kSilent,
     "",
     {"other.zip", "kx-update", "other.kx-update.bak", "other.KX-UPDATE"},
     PutBeside},
    {"name-neighbour", kSilent, "", {".other.kx-update"}, PutBeside, kAmongOthers},

    {"name-copy",
     kWarning,
     "",
     {"m (1)", "m(12)", "m - Copy", "m - Copy (2)", "m - Kopie", "m copy", "Copy of m",
      "Kopie von m", "m-1.0 (1)"},
     Call},
    {"name-copy",
     kSilent,
     "",
     {"m", "(1)", "m (a)", "m ()", "m (1", "copy", "photocopy", "Copy of ", "m (1) b",
      "m - copying"},
     Call},

    {"name-version", kWarning, "", {"m-1.0.0", "m_1.0.0", "m 1.0.0", "m-v1.0.0"}, CallVersion},
    {"name-version",
     kSilent,
     "",
     {"m", "m-1.0.1", "m1.0.0", "1.0.0", "-1.0.0", "m-1.0.0-b", "m-21.0.0"},
     CallVersion},
    {"name-version", kSilent, "", {"m-1", "hello-1"}, Call}, // the version is just a number
    {"name-version", kWarning, "", {"own-1.0.0", "own-new", "own.old", "own_2"}, CallOwn},
    {"name-version", kSilent, "", {"own", "owner", "my-own"}, CallOwn},
    {"name-version", kSilent, "", {"own-1.0.0"}, OwnVersion},
};

} // namespace of_names

const std::vector<RuleRow>& NameRows()
{
    return of_names::kRows;
}

} // namespace kx::checks

# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What scripts/check-layers.py says about single files, and how it ends."""
import unittest

from played import InProject, program

layers = program("scripts/check-layers.py")


class Includes(InProject):
    """One source in a layer of a table of its own."""

    TABLE = {"low": (set(), {"Qt"}), "high": ({"low", "side/One.h"}, set()), "": (set(), set())}

    def problems(self, include, name="src/high/File.cpp"):
        """What is said about a source with one include, without its name."""
        path = self.write(name, f"#include {include}\n")
        return [problem.removeprefix(f"{name}: ")
                for problem in layers.problems_of(self.root, "src", self.TABLE, path)]

    def test_what_a_layer_may_include(self):
        for include in ('"low/A.h"', '"low/deep/A.h"', '"high/A.h"', '"side/One.h"', "<vector>",
                        "<sys/stat.h>", "<Quick.h>", "<zip>", "<low>", "<low.h>"):
            self.assertEqual(self.problems(include), [], include)
        for include in ("<QString>", "<QtCore/QString>", "<QtTest>"):
            self.assertEqual(self.problems(include, "src/low/File.cpp"), [])
        self.assertEqual(self.problems('"high/A.h"', "src/high/deep/File.cpp"), [])

    def test_what_a_layer_must_not_include(self):
        for include, problem in (
                ('"side/Two.h"', 'the layer high must not include "side/Two.h"'),
                ('"side/One.h.h"', 'the layer high must not include "side/One.h.h"'),
                ('"lower/A.h"', 'the layer high must not include "lower/A.h"'),
                ('"gui/A.h"', 'the layer high must not include "gui/A.h"'),
                ("<QString>", "the layer high is free of Qt, but includes <QString>"),
                ("<QtGui/QIcon>", "the layer high is free of Qt, but includes <QtGui/QIcon>"),
                ("<toml++/toml.h>", "the layer high is free of toml++, but includes "
                                    "<toml++/toml.h>"),
                ("<CLI/CLI.hpp>", "the layer high is free of CLI, but includes <CLI/CLI.hpp>"),
                *((f"<{name}>", f"the layer high is free of {name}, but includes <{name}>")
                  for name in ("picojson.h", "utf8.h", "archive.h", "archive_entry.h", "zip.h", "zlib.h",
                               "bzlib.h")),
                ("<io/Text.h>", "write <io/Text.h> in quotes"),
                ("<osa/OSA.h>", "write <osa/OSA.h> in quotes"),
                ("<trial/A.h>", "write <trial/A.h> in quotes"),
                ('"low/../x.h"', 'write "low/../x.h" without dots'),
                ('"./A.h"', 'write "./A.h" without dots'),
                ('"A.h"', 'write "A.h" with its layer')):
            self.assertEqual(self.problems(include), [problem], include)
        self.assertEqual(self.problems('"low/A.h"', "src/File.cpp"),
                         ['the layer  must not include "low/A.h"'])
        self.assertEqual(self.problems("<vector>", "src/none/File.cpp"),
                         ["the folder 'none' is no known layer"])

    def test_a_name_in_quotes_is_looked_at_wherever_it_stands(self):
        path = self.write("src/high/File.cpp", '#pragma once\n  # include  "x/A.h"\n'
                                               '// #include "y/A.h"\n#include <QString> // z\n')
        self.assertEqual(len(list(layers.problems_of(self.root, "src", self.TABLE, path))), 2)

    def test_leaf_headers_include_the_standard_library_only(self):
        for leaf in ("engine/ILogger.h", "engine/q_UpdaterEngine.h", "osa/PanelNames.h"):
            for include, count in (('"osa/OSA.h"', 1), ("<QString>", 1), ("<picojson.h>", 1),
                                   ("<string>", 0)):
                path = self.write(f"src/{leaf}", f"#include {include}\n")
                problems = list(layers.problems_of(self.root, "src", layers.SRC, path))
                self.assertEqual(problems, [
                    f"src/{leaf}: a leaf header includes only the standard library, not {include}"
                ] * count)

    def test_the_window_is_included_by_one_file(self):
        for name, count in (("RunModes.cpp", 0), ("RunModes.h", 1), ("Console.cpp", 1)):
            path = self.write(f"src/app/{name}", '#include "gui/mainwindow.h"\n')
            self.assertEqual(
                len(list(layers.problems_of(self.root, "src", layers.SRC, path))), count)


class Rows(InProject):
    """The rows of the real tables; every one of them is compared with the architecture by
    tests/scripts/arrows.py."""

    def expect(self, name, includes, *problems):
        """What is said about a file with these includes, in this order."""
        path = self.write(name, "".join(f"#include {include}\n" for include in includes))
        top = next(top for top in layers.TABLES if name.startswith(f"{top}/"))
        self.assertEqual(
            list(layers.problems_of(self.root, top, layers.TABLES[top], path)),
            [f"{name}: {problem}" for problem in problems])

    def test_a_layer_of_the_updater_includes_no_layer_above_it(self):
        self.expect("src/osa/OSA.cpp", ['"osa/PathList.h"', '"engine/q_UpdaterEngine.h"',
                                        '"steps/SS.h"', '"engine/ILogger.h"'],
                    'the layer osa must not include "steps/SS.h"',
                    'the layer osa must not include "engine/ILogger.h"')
        self.expect("src/engine/UserPackageInstaller.cpp",
                    ["<QString>", "<QtCore/QString>", "<vector>", "<picojson.h>"],
                    "the layer engine is free of Qt, but includes <QString>",
                    "the layer engine is free of Qt, but includes <QtCore/QString>")

    def test_a_shared_room_includes_neither_a_program_s_folders_nor_a_room_above_it(self):
        self.expect("lib/io/Text.cpp", ['"format/Json.h"', '"trial/Places.h"', "<utf8.h>", "<zip.h>"],
                    'the layer io must not include "format/Json.h"',
                    'the layer io must not include "trial/Places.h"',
                    "the layer io is free of zip.h, but includes <zip.h>")
        self.expect("lib/checks/Targets.cpp", ['"checks/Targets.h"', '"io/Text.h"', "<picojson.h>"])
        self.expect("lib/misc/Misc.cpp", ["<string>"], "the folder 'misc' is no known layer")

    def test_a_folder_of_the_tool_includes_only_the_rooms_that_its_line_names(self):
        tool = "tools/kx-package"
        self.expect(f"{tool}/common/Output.cpp", ['"common/Epoch.h"', '"io/Error.h"',
                                                  '"checks/Rules.h"'],
                    'the layer common must not include "checks/Rules.h"')
        self.expect(f"{tool}/main.cpp", ["<CLI/CLI.hpp>", '"commands/All.h"', '"manifest/Glob.h"'],
                    "the layer  is free of CLI, but includes <CLI/CLI.hpp>",
                    'the layer  must not include "manifest/Glob.h"')
        self.expect(f"{tool}/schema/Schema.cpp", ["<toml++/toml.h>"],
                    "the layer schema is free of toml++, but includes <toml++/toml.h>")

    def test_an_include_of_another_layer_is_written_in_one_way(self):
        self.expect("src/osa/OSA.hpp", ["<steps/SS.h>", '"osa/../steps/SS.h"', '"OSA.h"'],
                    "write <steps/SS.h> in quotes", 'write "osa/../steps/SS.h" without dots',
                    'write "OSA.h" with its layer')


class Names(InProject):
    """The panel's names, each in one place."""

    def repeated(self, text, name="src/osa/OSA.cpp"):
        """The strings of a source that stand in the list of names."""
        self.write("src/osa/PanelNames.h", '#include "x"\nchar a[] = "kx", b[] = "/mnt/user";')
        files = [self.root / "src/osa/PanelNames.h", self.write(name, text)]
        return [problem.split('"')[1] for problem in layers.repeated_names(self.root, files)]

    def test_a_name_alone_or_behind_a_slash_is_found(self):
        self.assertEqual(self.repeated('"kx" "/opt/kx" "/mnt/user" "x//mnt/user" R"(/a/kx)"'),
                         ["kx", "/opt/kx", "/mnt/user", "x//mnt/user", "/a/kx"])

    def test_other_strings_are_none(self):
        self.assertEqual(self.repeated('"kx2" "akx" "kx/" "" // "kx"\n#include "kx"\n"a\\"kx"'), [])

    def test_the_description_of_the_panel_may_say_them(self):
        self.assertEqual(self.repeated('"kx"', "lib/panel/Panel.cpp"), [])
        self.assertEqual(self.repeated('"kx"', "lib/panels/Panel.cpp"), ["kx"])

    def test_a_list_without_a_name_is_told(self):
        path = self.write("src/osa/PanelNames.h", "// none")
        self.assertEqual(list(layers.repeated_names(self.root, [path])),
                         ["src/osa/PanelNames.h: no name found"])


class Modules(InProject):
    """The modules of the device."""

    def imports(self, text):
        """What a module of the package kxdevice imports."""
        return sorted(layers.imports_of(self.write("device/kxdevice/a.py", text)))

    def test_every_way_of_importing_is_seen(self):
        for text, found in (
                ("import os, kxdevice.ids", ["kxdevice.ids", "os"]),
                ("from kxdevice import ids as x, linux", ["kxdevice.ids", "kxdevice.linux"]),
                ("from kxoperate import screen", ["kxoperate.screen"]),
                ("from kxdevice.ids import x, y", ["kxdevice.ids"]),
                ("from . import ids", ["kxdevice.ids"]), ("from .ids import x", ["kxdevice.ids"]),
                ("def f():\n    import kxdevice.panel", ["kxdevice.panel"]),
                ("from os import path", ["os"])):
            self.assertEqual(self.imports(text), found)

    def test_a_module_imports_those_of_the_rows_above_its_own(self):
        self.patch(layers, "DEVICE", (("kxdevice.a", "kxdevice.b"), ("kxdevice.c",)))
        files = [self.write("device/kxdevice/__init__.py"),
                 self.write("device/kxdevice/a.py", "from kxdevice import b, c, none\nimport os"
                            "\nimport kxoperate.x"),
                 self.write("device/kxdevice/c.py", "from kxdevice import a, b\nimport kxdevicex.c"),
                 self.write("device/kxdevice/d.py")]
        self.assertEqual(list(layers.device_problems(self.root, files)), [
            "device/kxdevice/a.py: must not import kxdevice.b",
            "device/kxdevice/a.py: must not import kxdevice.c",
            "device/kxdevice/a.py: must not import kxdevice.none",
            "device/kxdevice/a.py: must not import kxoperate.x",
            "device/kxdevice/d.py: the module 'kxdevice.d' has no row"])
        self.assertEqual(list(layers.unused_modules(files[:2])), ["device: no module kxdevice.b",
                                                                  "device: no module kxdevice.c"])


class Tree(InProject):
    """A whole tree, with tables of its own."""

    def setUp(self):
        super().setUp()
        self.patch(layers, "TABLES", {"src": {"osa": (set(), set())},
                                      "tools/t": {"a": (set(), set()), "": (set(), set())}})
        self.patch(layers, "DEVICE", (("kxdevice.a",),))
        self.write("src/osa/PanelNames.h", 'char a[] = "kx";')
        self.write("tools/t/a/A.cpp")
        self.write("tools/t/main.cpp")
        self.write("device/kxdevice/a.py")
        self.write("device/kxdevice/__init__.py")
        self.write("device/run.py", "import kxdevice.a, kxoperate.none")

    def verdict(self):
        """Starts the program; returns its exit status and what it tells."""
        status = self.main(layers, str(self.root))
        return status, self.out.splitlines()

    def test_a_tree_that_keeps_to_its_tables_passes(self):
        self.assertEqual(self.verdict(), (0, ["5 files keep to their layers"]))
        self.write("src/osa/notes.txt", '#include "kx"')
        self.assertEqual(self.verdict(), (0, ["5 files keep to their layers"]))

    def test_every_kind_of_source_is_read(self):
        names = [f"src/osa/F{ending}" for ending in (".h", ".hpp", ".hh", ".inc", ".ipp", ".tpp",
                                                     ".cpp", ".cc", ".cxx", ".c")]
        for name in names:
            self.write(name, '#include "a/A.h"\n')
        self.assertEqual(self.verdict(), (1, [
            f'{name}: the layer osa must not include "a/A.h"' for name in sorted(names)]))

    def test_all_that_is_wrong_is_told_in_every_folder(self):
        self.write("src/osa/B.cpp", '#include "x/A.h"\n')
        self.write("tools/t/b/B.cpp", 'char k[] = "kx";')
        (self.root / "tools/t/main.cpp").unlink()
        self.write("device/kxdevice/b.py")
        self.write("device/kxoperate/__init__.py")
        (self.root / "device/kxdevice/a.py").unlink()
        self.assertEqual(self.verdict(), (1, [
            'src/osa/B.cpp: the layer osa must not include "x/A.h"',
            "tools/t/b/B.cpp: the folder 'b' is no known layer",
            "tools/t: no sources of the layer ''",
            'tools/t/b/B.cpp: "kx" stands in src/osa/PanelNames.h',
            "device/kxdevice/b.py: the module 'kxdevice.b' has no row",
            "device: no module kxdevice.a"]))

    def test_a_tree_without_sources_or_modules_is_an_error(self):
        (self.root / "device/kxdevice").rename(self.root / "away")
        self.assertEqual(self.verdict()[0], f"check-layers: no modules below {self.root}/device")
        (self.root / "tools").rename(self.root / "away/tools")
        self.assertEqual(self.verdict()[0],
                         f"check-layers: no sources below {self.root}/tools/t")

    def test_this_project_keeps_to_the_real_tables(self):
        real = program("scripts/check-layers.py")
        status = self.main(real)
        self.assertEqual(status, 0, self.out)
        self.assertRegex(self.out, r"^\d{3,} files keep to their layers\n$")

    def test_this_project_is_checked_by_default(self):
        self.patch(layers, "TABLES", {"src/none": {}})
        status = self.main(layers)
        self.assertRegex(status, r"no sources below .*/src/none$")
        self.assertNotIn(str(self.root), status)
        self.assertEqual(self.main(layers, "a", "b"), 2)


if __name__ == "__main__":
    unittest.main()

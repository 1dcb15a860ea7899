// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Where the steps copy to: the first one a file "hello" to /opt/hello with mode 755, the second one
// a folder with a file "a" to /opt/share.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_targets
{

const Put kFile = Text("/opt/hello");
const Put kFolder = Text("/opt/share");

/// Copies a second file in the first step.
void AddItem(Recipe& recipe, const std::string& target)
{
    recipe.parts.push_back({"0/1/hello", "hello"});
    recipe.Replace("\"755\"}", R"("755"}, {"$type": "Zt.Plugins.DB_CopyFunctionData, Plexa",
        "SourcePath": "hello", "DestinationPath": ")" +
                                   target + R"(", "Permissions": "755"})");
}

/// Copies the file into a folder, with a mode.
void IntoFolder(Recipe& recipe, const std::string& mode)
{
    recipe.Replace("/opt/hello", "/opt/hello/");
    recipe.Replace("\"755\"", "\"" + mode + "\"");
}

/// Lets the setting tool's command have a length in bytes.
void SetCommand(Recipe& recipe, const std::string& size)
{
    const std::string rest = "kx-setting-cui set Volume= ";
    recipe.Replace("\"5\"", "\"" + std::string(std::stoul(size) - rest.size(), '5') + "\"");
}

/// Lets the command that copies the file have a length in bytes.
void SetCopy(Recipe& recipe, const std::string& size)
{
    const std::string rest = R"(cp -f "/mnt/usb/hello.temp/0/0/hello" "" )";
    recipe.Replace("/opt/hello", PathOf("/opt", std::stoul(size) - rest.size()));
}

/// The same with the one that copies the folder's file.
void SetFolderCopy(Recipe& recipe, const std::string& size)
{
    const std::string rest = R"(cp -f "/mnt/usb/hello.temp/1/0/a" "/a" )";
    recipe.Replace("/opt/share", PathOf("/opt", std::stoul(size) - rest.size()));
}

void Skippable(Recipe& recipe)
{
    recipe.Replace("\"CanSkip\": false", "\"CanSkip\": true");
}

void SkippableFolder(Recipe& recipe, const std::string& target)
{
    const std::size_t at = recipe.description.find("SS_CopyFolderStepSet");
    recipe.description.replace(recipe.description.find("false", at), 5, "true");
    recipe.Replace("\"/opt/share\"", "\"" + target + "\"");
}

void SkippableFile(Recipe& recipe, const std::string& target)
{
    Skippable(recipe);
    recipe.Replace("\"/opt/hello\"", "\"" + target + "\"");
}

/// Checks the package for a panel.
void OnPanel(Recipe& recipe, const std::string& panel)
{
    recipe.panel = panel;
}

/// Checks the package for a panel with a place that holds nothing.
void InPlaces(Recipe& recipe, const std::string& path)
{
    recipe.panel = "[[places]]\npath = \"" + path + "\"\nsize-mib = 0\n";
}

void InPlacesSkippable(Recipe& recipe, const std::string& path)
{
    Skippable(recipe);
    InPlaces(recipe, path);
}

/// Copies a folder with the panel's users to /etc's own folder.
void IntoEtc(Recipe& recipe, const std::string& /*name*/)
{
    recipe.Part("1/0/a").name = "1/0/etc/shadow";
    recipe.Replace("/opt/share", "/");
}

constexpr const char* kSettings = "DB_StepSets.$values[3]";

const std::vector<RuleRow> kRows = {
    {"target-empty", kError, kTarget0, {""}, kFile},
    {"target-empty", kError, kTarget1, {""}, kFolder},
    {"target-empty", kSilent, "", {"/a"}, kFile},
    {"target-empty", kSilent, "", {"/"}, kFolder},
    {"target-empty", kWarning, kTarget0, {""}, SkippableFile},
    {"target-empty", kError, kTarget1, {""}, SkippableFolder},

    {"target-relative",
     kError,
     kTarget0,
     {"hello", "opt/hello", "./opt/hello", "~/hello", " /opt/hello"},
     kFile},
    {"target-relative", kError, kTarget1, {"opt/share", "../opt"}, kFolder},
    {"target-relative", kSilent, "", {"/hello", "//opt/hello", "/./opt/hello"}, kFile},
    {"target-relative", kSilent, "", {""}, kFile, kAmongOthers},

    {"target-root", kError, kTarget0, {"/", "//", "/.", "/opt/.."}, kFile, kAmongOthers},
    {"target-root", kError, kTarget0, {"/"}, kFile},
    {"target-root", kSilent, "", {"/a", "/opt/./a"}, kFile},
    {"target-root", kSilent, "", {"/"}, kFolder},

    {"target-whole", kNote, kTarget1, {"/", "//", "/."}, kFolder},
    {"target-whole", kNote, kTarget1, {"/opt/.."}, kFolder, kAmongOthers},
    {"target-whole", kSilent, "", {"/opt", "/a", "/opt/./a"}, kFolder},
    {"target-whole", kSilent, "", {"/"}, kFile, kAmongOthers},

    {"target-folder", kWarning, kTarget0, {"/opt/hello/", "/opt/", "/mnt/user/"}, kFile},
    {"target-folder", kError, kTarget0, {"/opt", "/mnt/user", "/usr/bin/.", "/bin"}, kFile},
    {"target-folder", kSilent, "", {"/opt/hello", "/mnt/users", "/opt/opt", "/opt/./hello"}, kFile},
    {"target-folder", kSilent, "", {"/opt/share/", "/opt"}, kFolder},

    {"target-folder-mode",
     kError,
     kMode0,
     {"644", "700", "0700", "750", "754", "701", "710", "666", "0", "7666"},
     IntoFolder,
     kAmongOthers},
    {"target-folder-mode", kError, kMode0, {" 644 "}, IntoFolder, kAmongOthers},
    {"target-folder-mode",
     kSilent,
     "",
     {"755", "0755", "711", "111", "777", "1755", "u+x", "u=rw", "711x", ""},
     IntoFolder,
     kAmongOthers},
    {"target-folder-mode", kSilent, "", {"644", "700", "0"}, Text("755")},

    {"target-conflict",
     kError,
     kTarget1,
     {"/opt/hello", "/opt/hello/share", "/opt/./hello/", "/etc/passwd", "/etc/passwd/a"},
     kFolder},
    {"target-conflict", kError, kTarget1, {"/opt/share/a/b"}, kFile},
    {"target-conflict",
     kError,
     kTarget0,
     {"/etc/passwd/hello", "/dev/null/a", "/usr/bin/cp/a"},
     kFile,
     kAmongOthers},
    {"target-conflict",
     kError,
     "DB_StepSets.$values[0].PathSetDatas.$values[1].DestinationPath",
     {"/opt/hello/b", "/opt/hello/b/c"},
     AddItem},
    {"target-conflict", kError, kTarget1,
     [](Recipe& r) {
         r.Replace("/opt/hello", "/opt/share/b");
         r.parts.push_back({"1/0/b/c", ""});
     },
     kAmongOthers},
    {"target-conflict", kSilent, "", {"/opt/hello2", "/opt/hello-b/c", "/opt", "/usr"}, kFolder},
    {"target-conflict", kSilent, "", {"/opt/hello2/b", "/opt/Hello/b"}, AddItem, kAmongOthers},
    {"target-conflict", kSilent, "", {"/etc/passwd2/hello", "/opt/share/b/c"}, kFile},
    {"target-conflict",
     kError,
     "DB_StepSets.$values[0].PathSetDatas.$values[1].DestinationPath",
     {"/opt/"},
     [](Recipe& r, const std::string& v) {
         r.Replace("/opt/hello", "/opt/hello/b");
         AddItem(r, v);
     },
     kAmongOthers},

    {"target-twice",
     kWarning,
     kTarget1,
     {"/opt/share/a", "/opt//share/a", "/opt/share/./a"},
     kFile},
    {"target-twice",
     kWarning,
     "DB_StepSets.$values[0].PathSetDatas.$values[1].DestinationPath",
     {"/opt/hello"},
     AddItem},
    {"target-twice",
     kWarning,
     "DB_StepSets.$values[0].PathSetDatas.$values[1].DestinationPath",
     {"/usr/bin/b"},
     [](Recipe& r, const std::string& v) {
         r.Replace("/opt/hello", "/bin/b");
         AddItem(r, v);
     }},
    {"target-twice",
     kSilent,
     "",
     {"/opt/share/A", "/opt/share/b", "/opt/a", "/opt/share/a2"},
     kFile},
    {"target-twice", kSilent, "", {"/opt/Hello", "/opt/hello2"}, AddItem},

    {"target-separator", kWarning, kTarget0, {"/opt/C:hello", "/opt/a\\\\b"}, kFile},
    {"target-separator", kWarning, kTarget1, {"/opt:a", "/opt/a\\\\b"}, kFolder},
    {"target-separator", kSilent, "", {"/opt/C;hello", "/opt/a|b"}, kFile},

    {"target-shell",
     kError,
     kTarget0,
     {"/opt/$HOME", "/opt/a\\\"b", "/opt/a`b", "/opt/$(a)", "/opt/$1/a"},
     kFile},
    {"target-shell", kError, kTarget0, {"/opt/a\\\\", R"(/opt/a\\\\b)"}, kFile, kAmongOthers},
    {"target-shell", kError, kTarget1, {"/opt/$HOME", "/opt/a\\\"b", "/opt/a`b"}, kFolder},
    {"target-shell",
     kSilent,
     "",
     {"/opt/a$", "/opt/a'b", "/opt/a b", "/opt/a;b", "/opt/a*", "/opt/$/a"},
     kFile},
    {"target-shell", kSilent, "", {"/opt/a\\\\b"}, kFile, kAmongOthers},
    {"target-shell", kSilent, "", {"/opt/a\\\\"}, kFolder, kAmongOthers},

    {"target-line", kWarning, kTarget0, {"/opt/a\\nb", "/opt/a\\rb", "/opt/a\\n"}, kFile},
    {"target-line", kError, kTarget0, {"/opt/a\\u0000b"}, kFile, kAmongOthers},
    {"target-line", kWarning, kTarget1, {"/opt/a\\nb"}, kFolder},
    {"target-line", kSilent, "", {"/opt/a\\tb", "/opt/a b"}, kFile},

    {"target-long",
     kError,
     kTarget0,
     {"/opt/" + std::string(256, 'n'), "/" + std::string(256, 'n') + "/a"},
     kFile},
    {"target-long", kError, kTarget0, {PathOf("/opt", 4001)}, kFile, kAmongOthers},
    {"target-long", kError, kTarget1, {"/opt/" + std::string(256, 'n')}, kFolder},
    {"target-long",
     kSilent,
     "",
     {"/opt/" + std::string(255, 'n'), "/" + std::string(255, 'n') + "/a"},
     kFile},
    {"target-long", kSilent, "", {PathOf("/opt", 4000)}, kFile, kAmongOthers},
    {"target-long", kWarning, kTarget0, {"/opt/" + std::string(256, 'n')}, SkippableFile},
    {"target-long", kWarning, kTarget1, {"/opt/" + std::string(256, 'n')}, SkippableFolder},

    {"target-lost",
     kWarning,
     kTarget0,
     {"/dev/a", "/mnt/usb/a", "/proc/a", "/run/a", "/sys/a", "/tmp/a", "/./tmp/a", "//run/a/b"},
     kFile},
    {"target-lost",
     kWarning,
     kTarget1,
     {"/dev", "/mnt/usb", "/proc", "/run", "/sys", "/tmp", "/tmp/a/"},
     kFolder},
    {"target-lost",
     kSilent,
     "",
     {"/dev2/a", "/mnt/usb2/a", "/process", "/runs", "/sys.a", "/tmpa", "/var/tmp/a", "/opt/run/a",
      "/mnt/a"},
     kFile},
    {"target-lost", kSilent, "", {"/mnt", "/"}, kFolder},
    {"target-lost", kSilent, "", {"/tmp/../opt/a"}, kFile, kAmongOthers},
    {"target-lost", kWarning, kTarget0, {"/opt/../tmp/a"}, kFile, kAmongOthers},

    {"target-up", kWarning, kTarget0, {"/opt/../hello", "/opt/a/../hello"}, kFile},
    {"target-up", kWarning, kTarget1, {"/opt/..", "/opt/../opt/share/"}, kFolder},
    {"target-up", kSilent, "", {"/opt/..hello", "/opt/...", "/opt/hello..", "/opt/./a"}, kFile},

    {"target-system",
     kWarning,
     kTarget0,
     {"/bin/sh", "/usr/bin/sh", "/bin/busybox", "/sbin/init", "/usr/sbin/init", "/etc/passwd",
      "/etc/shadow", "/etc/fstab", "/boot/zImage", "/boot/dtb/a", "/lib/ld-linux-armhf.so.3",
      "/usr/lib/arm-linux-gnueabihf/libc.so.6", "/lib64/ld-linux-x86-64.so.2", "/sbin/reboot",
      "/usr/bin/kxsystem/usb_umount", "/bin/sync"},
     kFile},
    {"target-system", kWarning, kTarget1, {"/etc", "/etc/", "/bin", "/usr/lib", "/boot"}, kFolder},
    {"target-system", kWarning, kTarget1, {"share"}, IntoEtc, kAmongOthers},
    {"target-system",
     kSilent,
     "",
     {"/usr/local/bin/sh", "/opt/bin/sh", "/bin/hello", "/sbin/init2", "/etc/hostname",
      "/etc/hello.conf", "/boots/a", "/lib/libhello.so", "/lib/ldap.so", "/opt/etc/shadow",
      "/etc/init.d/hello", "/usr/etc/passwd"},
     kFile},
    {"target-system", kSilent, "", {"/opt/etc", "/etc/hello", "/usr", "/usr/share", "/"}, kFolder},

    {"target-protected",
     kWarning,
     kTarget0,
     {"protected = [\"/opt/hello\"]", R"(protected = ["/srv", "/opt/./hello/"])"},
     OnPanel},
    {"target-protected", kWarning, kTarget1, {"protected = [\"/opt/share\"]"}, OnPanel},
    {"target-protected",
     kSilent,
     "",
     {R"(protected = ["/op", "/opt/hell", "/opt/share/b", "/opt/hello/a"])"},
     OnPanel},

    {"target-space", kError, kTarget0, {"/opt/hello"}, InPlaces},
    {"target-space", kError, kTarget1, {"/opt/share", "/opt/share/a"}, InPlaces},
    {"target-space", kWarning, kTarget0, {"/opt/hello"}, InPlacesSkippable},
    {"target-space", kSilent, "", {"/opt/hell", "/srv", "/opt/share/b"}, InPlaces},
    {"target-space",
     kSilent,
     "",
     {"[[places]]\npath = \"/opt\"\nsize-mib = 0\n[[places]]\npath = \"/opt/hello\"\nsize-mib = 1\n"
      "[[places]]\npath = \"/opt/share\"\nsize-mib = 1"},
     OnPanel},

    {"startup-twice",
     kWarning,
     kTarget0,
     {"/mnt/user/startup.sh", "/mnt/user/./startup.sh"},
     kFile},
    {"startup-twice", kSilent, "", {"/mnt/user/startup.sh2", "/mnt/startup.sh"}, kFile},
    {"startup-twice",
     kSilent,
     "",
     {"/mnt/user/startup.sh"},
     [](Recipe& r, const std::string& v) {
         r.Replace("\"IsUsed\": true,\n     \"HardwareItems\": {\"$type\": \"Zt.DB_HardwareItems, "
                   "Drovic\", \"$values\": [\n      {\"$type\": \"Zt.DB_HardwareItem, Drovic\", "
                   "\"ItemName\": \"CustomScript\"",
                   "\"IsUsed\": false,\n     \"HardwareItems\": {\"$type\": \"Zt.DB_HardwareItems, "
                   "Drovic\", \"$values\": [\n      {\"$type\": \"Zt.DB_HardwareItem, Drovic\", "
                   "\"ItemName\": \"CustomScript\"");
         kFile(r, v);
     }},

    {"target-registry",
     kWarning,
     kTarget0,
     {"/var/lib/KxUserPackages/x", "/var/lib/./KxUserPackages/x/y"},
     kFile},
    {"target-registry", kWarning, kTarget1, {"/var/lib/KxUserPackages"}, kFolder},
    {"target-registry",
     kSilent,
     "",
     {"/var/lib/KxUserPackages2/x", "/var/lib/x", "/var/lib/kxUserPackages/x"},
     kFile},
    {"target-registry", kSilent, "", {"/var/lib"}, kFolder},

    {"command-long", kWarning, kSettings, {"2049", "131071"}, SetCommand},
    {"command-long", kSilent, "", {"2048"}, SetCommand},
    {"command-long", kSilent, "", {"131072"}, SetCommand, kAmongOthers},
    {"command-long", kWarning, kTarget0, {"2049"}, SetCopy},
    {"command-long", kSilent, "", {"2048"}, SetCopy},
    {"command-long", kWarning, "1/0/a", {"2049"}, SetFolderCopy},
    {"command-long", kSilent, "", {"2048"}, SetFolderCopy},

    {"command-too-long", kError, kSettings, {"131072"}, SetCommand},
    {"command-too-long", kError, kTarget0, {"131072"}, SetCopy, kAmongOthers},
    {"command-too-long",
     kWarning,
     kTarget0,
     {"131072"},
     [](Recipe& r, const std::string& v) {
         Skippable(r);
         SetCopy(r, v);
     },
     kAmongOthers},
    {"command-too-long", kSilent, "", {"131071"}, SetCommand, kAmongOthers},
    {"command-too-long", kSilent, "", {"131071"}, SetCopy, kAmongOthers},
    // The tool's failure ends no step, so that nothing is skipped either.
    {"command-too-long",
     kError,
     kSettings,
     {"131072"},
     [](Recipe& r, const std::string& v) {
         r.description.replace(r.description.rfind("false"), 5, "true");
         SetCommand(r, v);
     }},
};

} // namespace of_targets

const std::vector<RuleRow>& TargetRows()
{
    return of_targets::kRows;
}

} // namespace kx::checks

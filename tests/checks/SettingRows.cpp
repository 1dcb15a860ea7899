// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Settings, and the user whose password one of them sets.
#include "checks/RuleRow.h"

namespace kx::checks
{

namespace of_settings
{

const Put kValue = Text("5");
const Put kName = Text("Volume");
const Put kUserText = Text("user");
const Put kPasswordText = Text("pass");
constexpr const char* kKind = CONFIG("0") ".ConfigId";
constexpr const char* kNameAt = ITEM("0", "0", "ItemName");

/// Does the same in settings that are not used.
Put Unused(const Put& put)
{
    return [put](Recipe& recipe, const std::string& value) {
        constexpr const char* kUsed = "\"IsUsed\": true";
        for (int i = 0; i < 3; ++i) {
            recipe.Replace(kUsed, "\"IsUsed\": false");
        }
        put(recipe, value);
    };
}

/// Does the same in a step that may be skipped.
Put Skippable(const Put& put)
{
    return [put](Recipe& recipe, const std::string& value) {
        const std::size_t at = recipe.description.rfind("false");
        recipe.description.replace(at, 5, "true");
        put(recipe, value);
    };
}

/// Repeats a character.
Put Repeated(const Put& put, const char* text)
{
    return [put, text](Recipe& recipe, const std::string& count) {
        std::string repeated;
        for (std::size_t i = 0; i < std::stoul(count); ++i) {
            repeated += text;
        }
        put(recipe, repeated);
    };
}

/// Adds an item of another name in front of the user's.
void AddItem(Recipe& recipe, const std::string& name)
{
    constexpr const char* kFirst = R"({"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": "User")";
    recipe.Replace(kFirst, R"({"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": ")" + name +
                               R"(", "Value": "x"}, )" + kFirst);
}

/// Adds a second item to the setting of the sound.
void AddVolume(Recipe& recipe, const std::string& name)
{
    constexpr const char* kLast = R"("ItemName": "Volume", "Value": "5"})";
    recipe.Replace(kLast, kLast + std::string(R"(, {"$type": "Zt.DB_HardwareItem, Drovic",
        "ItemName": ")") + name +
                              R"(", "Value": "6"})");
}

/// Makes the setting of the sound another one, with an empty value.
void EmptyOf(Recipe& recipe, const std::string& kind)
{
    recipe.Replace("HW_SoundConfigSet", "HW_" + kind + "ConfigSet");
    recipe.Replace("\"5\"", "\"\"");
}

/// Checks the package for a panel.
void OnPanel(Recipe& recipe, const std::string& panel)
{
    recipe.panel = panel;
}

/// Checks the package for a panel whose setting tool takes something.
void Taking(Recipe& recipe, const std::string& settings)
{
    recipe.panel = "[settings]\n" + settings;
}

const std::vector<std::string> kPatterns = {"*", "?", "[", "{", "~", "a*"};
const std::vector<std::string> kNoPatterns = {"]", "}", "!", "^", "+", ".", "-", "%"};

const std::vector<RuleRow> kRows = {
    {"setting-kind",
     kError,
     kKind,
     {"", "Zt.Plugins.HW_SoundConfigSet, Plexa", "Zt.Plugins.HW_SoundConfigSet,   Plexa",
      "Zt.Plugins.HW_UserConfigset,  Plexa", "x"},
     Text("Zt.Plugins.HW_SoundConfigSet,  Plexa")},
    {"setting-kind",
     kWarning,
     kKind,
     {"x", ""},
     Skippable(Text("Zt.Plugins.HW_SoundConfigSet,  Plexa"))},
    {"setting-kind",
     kWarning,
     kKind,
     {"x", ""},
     Unused(Text("Zt.Plugins.HW_SoundConfigSet,  Plexa"))},
    {"setting-kind",
     kSilent,
     "",
     {"Backlight", "Cursor", "Language", "Lan", "Sound", "SStart", "TouchBeep", "AutoStartupMode"},
     [](Recipe& r, const std::string& v) {
         r.Replace("HW_SoundConfigSet", "HW_" + v + "ConfigSet");
     }},
    {"setting-kind",
     kSilent,
     "",
     {"Zt.Plugins.HW_SoundConfigSet,  Plexa\\u0000x"},
     Text("Zt.Plugins.HW_SoundConfigSet,  Plexa")},

    {"setting-shell",
     kError,
     kSound,
     {"\\\"", "'", "`", "\\\\", ";", "&", "|", "<", ">", "(", ")", "\\n", "$a", "$(a)", "$1",
      "$'a'"},
     kValue,
     kAmongOthers},
    {"setting-shell", kError, kSound, {"5;reboot"}, kValue},
    {"setting-shell",
     kSilent,
     "",
     {"$", "5$", "#", "!", "=", "%", ",", ".", "-", "_", ":", "@", "]", "}", "^"},
     kValue},
    {"setting-shell", kSilent, "", {"5;reboot"}, Unused(kValue)},

    {"setting-empty", kWarning, kSound, {""}, kValue},
    {"setting-empty", kSilent, "", {"0", "-"}, kValue},
    {"setting-empty", kSilent, "", {""}, Unused(kValue)},
    {"setting-empty", kSilent, "", {"Lan", "AutoStartupMode"}, EmptyOf},

    {"setting-twice", kWarning, ITEM("0", "1", "ItemName"), {"Volume"}, AddVolume},
    {"setting-twice", kSilent, "", {"Mute", "volume"}, AddVolume},
    {"setting-twice", kSilent, "", {"Volume"}, Unused(AddVolume)},

    {"setting-refused",
     kError,
     kSound,
     {"Volume = { range = [0, 4] }", R"(Volume = { values = ["6", "05"] })",
      "Volume = { range = [6, 9] }"},
     Taking},
    {"setting-refused", kError, kNameAt, {"volume = {}", ""}, Taking},
    {"setting-refused",
     kSilent,
     "",
     {"Volume = { range = [5, 5] }", "Volume = { values = [\"5\"] }", "Volume = {}"},
     Taking},
    {"setting-refused", kSilent, "", {""}, Unused(Taking)},

    {"user-unknown", kError, kUser, {"users = []", R"(users = ["users", "User"])"}, OnPanel},
    {"user-unknown", kWarning, kUser, {"users = []"}, Skippable(OnPanel)},
    {"user-unknown", kSilent, "", {R"(users = ["root", "user"])", "models = [\"TP\"]"}, OnPanel},
    {"user-unknown", kSilent, "", {"users = []"}, Unused(OnPanel)},

    {"setting-blank", kError, kSound, {"5 6", " 5", "5 ", "5\\t6"}, kValue},
    {"setting-blank", kSilent, "", {"5_6", "5\\u00a06"}, kValue},
    {"setting-blank", kSilent, "", {"5 6"}, Unused(kValue)},

    {"setting-pattern", kWarning, kSound, kPatterns, kValue},
    {"setting-pattern", kWarning, kNameAt, kPatterns, kName},
    {"setting-pattern", kSilent, "", kNoPatterns, kValue},
    {"setting-pattern", kSilent, "", kNoPatterns, kName},
    {"setting-pattern", kSilent, "", kPatterns, Unused(kValue)},

    {"setting-name",
     kError,
     kNameAt,
     {"", "#Volume", "Vol ume", "Vol\\tume", "Volume=", "Vol;ume", "Vol\\\"ume", "Vol'ume",
      "$Volume"},
     kName},
    {"setting-name",
     kSilent,
     "",
     {"Volume#", "Vol-ume", "Vol.ume", "Vol_ume", "Vol:ume", "Volume$", "1"},
     kName},
    {"setting-name", kSilent, "", {""}, Unused(kName)},

    {"user-quote", kError, kPassword, {"'", "pa'ss"}, kPasswordText},
    {"user-quote", kError, kUser, {"us'er", "us:er"}, kUserText, kAmongOthers},
    {"user-quote",
     kSilent,
     "",
     {"pa:ss", "pa\\\"ss", "pa`ss", "$pass", "pa ss", "pa;ss"},
     kPasswordText},
    {"user-quote", kSilent, "", {"us;er"}, kUserText, kAmongOthers},
    {"user-quote", kSilent, "", {"pa'ss"}, Unused(kPasswordText)},

    {"user-escape",
     kError,
     kPassword,
     {"\\\\a", "\\\\b", "\\\\c", "\\\\e", "\\\\f", "\\\\n", "\\\\r", "\\\\t", "\\\\v", R"(\\\\)",
      "\\\\0", R"(\\s\\n)"},
     kPasswordText},
    {"user-escape",
     kWarning,
     kPassword,
     {"\\\\s", "\\\\1", "\\\\d", "pass\\\\", "\\\\x", "\\\\N"},
     kPasswordText},
    {"user-escape", kError, kUser, {"us\\\\ner"}, kUserText, kAmongOthers},
    {"user-escape", kSilent, "", {"/n", "pa/ss"}, kPasswordText},
    {"user-escape", kSilent, "", {"\\\\n"}, Unused(kPasswordText)},

    {"user-line",
     kError,
     kPassword,
     {"pa\\nss", "pa\\rss", "pa\\u0000ss"},
     kPasswordText,
     kAmongOthers},
    {"user-line", kError, kPassword, {"pa\\nss"}, kPasswordText},
    {"user-line", kError, kUser, {"us\\ner"}, kUserText, kAmongOthers},
    {"user-line", kSilent, "", {"pa\\tss", "pa\\u0001ss"}, kPasswordText},

    {"user-long", kError, kPassword, {"512", "513"}, Repeated(kPasswordText, "p")},
    {"user-long", kError, kPassword, {"256"}, Repeated(kPasswordText, "\xc3\xa4")},
    {"user-long", kWarning, kPassword, {"512"}, Skippable(Repeated(kPasswordText, "p"))},
    {"user-long", kSilent, "", {"511"}, Repeated(kPasswordText, "p")},
    {"user-long", kSilent, "", {"255"}, Repeated(kPasswordText, "\xc3\xa4")},
    {"user-long", kSilent, "", {"512"}, Repeated(kUserText, "u"), kAmongOthers},

    {"user-missing",
     kError,
     CONFIG("1") ".HardwareItems.$values",
     {"password", "Passwords", ""},
     Text("Password"),
     kAmongOthers},
    {"user-missing",
     kError,
     CONFIG("1") ".HardwareItems.$values",
     {"user", "Users"},
     Text("User"),
     kAmongOthers},
    {"user-missing", kError, kPassword, {""}, kPasswordText},
    {"user-missing", kError, kUser, {""}, kUserText},
    {"user-missing", kWarning, kUser, {""}, Skippable(kUserText)},
    {"user-missing", kSilent, "", {" "}, kPasswordText},
    {"user-missing", kSilent, "", {"user"}, Unused(Text("User"))},

    {"user-name",
     kError,
     kUser,
     {"u ser", "1user", "-user", ".user", "u@ser", "user$", "u/ser", "\xc3\xbcser", "u,ser", "u+r"},
     kUserText},
    {"user-name", kError, kUser, {"33"}, Repeated(kUserText, "u")},
    {"user-name", kWarning, kUser, {"1user"}, Skippable(kUserText)},
    {"user-name", kSilent, "", {"32"}, Repeated(kUserText, "u")},
    {"user-name",
     kSilent,
     "",
     {"u", "a", "z", "A", "Z", "_", "_user", "u-s.e_r", "u0", "u9", "USER"},
     kUserText},
    {"user-name", kSilent, "", {"1 /"}, kPasswordText},
    {"user-name", kSilent, "", {"1user"}, Unused(kUserText)},

    {"user-item",
     kWarning,
     ITEM("1", "0", "ItemName"),
     {"Group", "user", "USER", "password", ""},
     AddItem},
    {"user-item", kSilent, "", {"User", "Password"}, AddItem},
    {"user-item", kSilent, "", {"Group"}, Unused(AddItem)},

    {"user-password", kNote, kPassword, {"pass", " ", "1"}, kPasswordText},
    {"user-password", kSilent, "", {""}, kPasswordText, kAmongOthers},
    {"user-password", kSilent, "", {"pass"}, Unused(kPasswordText)},
};

} // namespace of_settings

const std::vector<RuleRow>& SettingRows()
{
    return of_settings::kRows;
}

} // namespace kx::checks

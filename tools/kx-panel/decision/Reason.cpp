// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "decision/Reason.h"

#include "io/Text.h"
#include "io/Utf8.h"

#include <cstdlib>
#include <string_view>

namespace kx::guard
{

namespace
{

/// The texts about a reason in one language.
struct ReasonText {
    const char* what;
    const char* remedy;
};

/// What is known about a reason.
struct ReasonInfo {
    ReasonId id;
    const char* word;
    std::size_t values; ///< how many places the texts may have
    ReasonText english;
    ReasonText japanese;
};

constexpr ReasonInfo kReasons[] = {
    {ReasonId::kPanelFile,
     "panel-file",
     1,
     {"This panel's file panel.toml cannot be used: {0}.",
      "Put a correct file /etc/kx_Updater/panel.toml on the panel, owned by root."},
     {"このパネルの panel.toml を使用できません: {0}。",
      "root が所有する正しい /etc/kx_Updater/panel.toml をパネルに置いてください。"}},
    {ReasonId::kKeyFolder,
     "key-folder",
     1,
     {"This panel's folder of keys cannot be used: {0}.",
      "Make /etc/kx_Updater/keys a folder that only root can change."},
     {"このパネルの鍵フォルダーを使用できません: {0}。",
      "/etc/kx_Updater/keys を root だけが変更できるフォルダーにしてください。"}},
    {ReasonId::kState,
     "state",
     1,
     {"The folder in which the panel remembers installations cannot be used: {0}.",
      "See that the folder that panel.toml names as 'state' is root's alone, with mode 700, and "
      "can be written."},
     {"インストールの記録を保存するフォルダーを使用できません: {0}。",
      "panel.toml の 'state' が示すフォルダーが root 専用、モード 700 "
      "で、書き込めることを確認してください。"}},
    {ReasonId::kUnread,
     "unread",
     1,
     {"The package could not be read to its end: {0}.",
      "Copy the package anew from where it was made; if that does not help, have it built again."},
     {"パッケージを最後まで読み取れませんでした: {0}。",
      "パッケージを配布元からコピーし直してください。"
      "それでも解決しない場合は作成し直してもらってください。"}},
    {ReasonId::kSize,
     "size",
     2,
     {"The package has {0} bytes; this panel takes at most {1}.",
      "Have the package made smaller, or raise 'package-bytes' in panel.toml."},
     {"パッケージは {0} バイトです。このパネルの上限は {1} バイトです。",
      "パッケージを小さくするか、panel.toml の 'package-bytes' を大きくしてください。"}},
    {ReasonId::kSignatureMissing,
     "signature-missing",
     0,
     {"The package is not signed, and this panel installs only signed ones.",
      "Get the signed package from its maker."},
     {"パッケージに署名がありません。このパネルは署名済みのパッケージだけをインストールします。",
      "署名済みのパッケージを作成者から入手してください。"}},
    {ReasonId::kSignatureDamaged,
     "signature-damaged",
     1,
     {"The package's signatures are damaged: {0}.",
      "Copy the package anew from where it was made."},
     {"パッケージの署名が壊れています: {0}。", "パッケージを配布元からコピーし直してください。"}},
    {ReasonId::kSignatureBad,
     "signature-bad",
     1,
     {"The package's signature by the key {0} is not good.",
      "Do not use this package; get it from its maker again."},
     {"鍵 {0} によるパッケージの署名が正しくありません。",
      "このパッケージを使用しないでください。作成者から入手し直してください。"}},
    {ReasonId::kSignatureUntrusted,
     "signature-untrusted",
     1,
     {"The package has no signature by a key that counts on this panel: {0}.",
      "Have it signed with a key that this panel trusts, or put its key on the panel."},
     {"このパネルで有効な鍵による署名がありません: {0}。",
      "このパネルが信頼する鍵で署名してもらうか、その鍵をパネルに登録してください。"}},
    {ReasonId::kSignatureChanged,
     "signature-changed",
     0,
     {"The package was changed after it was signed.",
      "Do not use this file; copy the package anew from where it was made."},
     {"パッケージが署名後に変更されています。",
      "このファイルを使用しないでください。配布元からコピーし直してください。"}},
    {ReasonId::kName,
     "name",
     1,
     {"'{0}' is no name for a package.",
      "Use letters, digits, '.', '_' and '-', at most 100, beginning with a letter or a digit, "
      "without '.temp'."},
     {"'{0}' はパッケージの名前として使用できません。",
      "英数字と '.'、'_'、'-' だけを使い、英数字で始まる 100 文字以内の、'.temp' "
      "を含まない名前にしてください。"}},
    {ReasonId::kStructure,
     "structure",
     2,
     {"The package's archive is not as it must be ({0}): {1}.",
      "Copy the package anew; if that does not help, have it built again and checked with "
      "'kx-package check'."},
     {"パッケージのアーカイブが正しくありません ({0}): {1}。",
      "パッケージをコピーし直してください。それでも解決しない場合は作成し直し、"
      "'kx-package check' で確認してもらってください。"}},
    {ReasonId::kDescription,
     "description",
     2,
     {"The package's description is not as it must be ({0}): {1}.",
      "Have the package built again and checked with 'kx-package check'."},
     {"パッケージの記述ファイルが正しくありません ({0}): {1}。",
      "パッケージを作成し直し、'kx-package check' で確認してもらってください。"}},
    {ReasonId::kModel,
     "model",
     2,
     {"The package is for the model '{0}'; this panel is {1}.",
      "Get the package that is made for this panel's model."},
     {"パッケージは機種 '{0}' 用です。このパネルは {1} です。",
      "このパネルの機種用のパッケージを入手してください。"}},
    {ReasonId::kOsVersion,
     "os-version",
     2,
     {"The package is for version '{0}' of the system; this panel has {1}.",
      "Get the package that is made for this panel's system, or update the system first."},
     {"パッケージはシステムバージョン '{0}' 用です。このパネルは {1} です。",
      "このパネルのシステム用のパッケージを入手するか、先にシステムを更新してください。"}},
    {ReasonId::kProcessor,
     "processor",
     3,
     {"'{0}' in the package is a program for {1}; this panel is {2}.",
      "Have the package built with programs for this panel's processor."},
     {"パッケージ内の '{0}' は {1} 用のプログラムです。このパネルは {2} です。",
      "このパネルのプロセッサー用のプログラムでパッケージを作成してもらってください。"}},
    {ReasonId::kVersionUnclear,
     "version-unclear",
     1,
     {"'{0}' is no version that can be compared.",
      "Give the package a version like 1.2.3, or let panel.toml say downgrade = \"allow\"."},
     {"'{0}' は比較できるバージョンではありません。",
      "パッケージのバージョンを 1.2.3 のような形にするか、panel.toml で downgrade = \"allow\" "
      "を指定してください。"}},
    {ReasonId::kVersionOlder,
     "version-older",
     2,
     {"The package has version {0}; this panel had version {1} already.",
      "Get a newer package, or let panel.toml say downgrade = \"allow\"."},
     {"パッケージのバージョンは {0} です。このパネルには既に {1} がインストールされています。",
      "新しいパッケージを入手するか、panel.toml で downgrade = \"allow\" を指定してください。"}},
    {ReasonId::kRoom,
     "room",
     5,
     {"The installation needs {1} ({3} bytes) on '{0}', where {2} ({4} bytes) are free.",
      "Remove files there, or have the package made smaller."},
     {"'{0}' に {1} ({3} バイト) 必要ですが、空きは {2} ({4} バイト) です。",
      "そこにあるファイルを削除するか、パッケージを小さくしてもらってください。"}},
    {ReasonId::kInodes,
     "inodes",
     3,
     {"The installation makes {1} files and folders on '{0}', which takes {2} more.",
      "Remove files there, or have the package made of fewer files."},
     {"'{0}' にファイルとフォルダーを {1} 個作成しますが、あと {2} 個しか作成できません。",
      "そこにあるファイルを削除するか、パッケージのファイル数を減らしてもらってください。"}},
};

const ReasonInfo& InfoOf(ReasonId id)
{
    return kReasons[static_cast<std::size_t>(id)];
}

/// Returns a value fit for a text: one line, not too long.
std::string ShownValue(std::string_view value)
{
    constexpr std::size_t kLongestCharacter = 4; // a whole one stands around the cut
    std::string line = io::Printable(value.substr(0, kLongestShown + kLongestCharacter));
    if (line.size() <= kLongestShown) {
        return line;
    }
    const std::string_view beginning = std::string_view(line).substr(0, kLongestShown);
    return std::string(beginning.substr(0, io::Utf8Prefix(beginning))) + "...";
}

/// Puts values into the places of a text.
std::string Filled(std::string_view text, const std::vector<std::string>& values)
{
    std::string filled;
    for (std::size_t i = 0; i < text.size(); ++i) {
        constexpr std::size_t kPlaceSize = 3;
        const std::string_view place = text.substr(i, kPlaceSize);
        if (place.size() < kPlaceSize || place.front() != '{' || place.back() != '}') {
            filled += text[i];
            continue;
        }
        const auto index = static_cast<std::size_t>(place[1] - '0');
        filled += index < values.size() ? ShownValue(values[index]) : "?";
        i += kPlaceSize - 1;
    }
    return filled;
}

const ReasonText& TextsOfReason(const Reason& reason, Language language)
{
    const ReasonInfo& info = InfoOf(reason.id);
    return language == Language::kJapanese ? info.japanese : info.english;
}

} // namespace

Language LanguageOfEnvironment()
{
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        // The first one that says something counts.
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            return std::string_view(value).substr(0, 2) == "ja" ? Language::kJapanese
                                                                : Language::kEnglish;
        }
    }
    return Language::kEnglish;
}

const char* ReasonWord(ReasonId id)
{
    return InfoOf(id).word;
}

std::size_t ReasonValueCount(ReasonId id)
{
    return InfoOf(id).values;
}

std::string WhatText(const Reason& reason, Language language)
{
    return Filled(TextsOfReason(reason, language).what, reason.values);
}

std::string RemedyText(const Reason& reason, Language language)
{
    return Filled(TextsOfReason(reason, language).remedy, reason.values);
}

} // namespace kx::guard

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/TrialReport.h"

#include "format/Summary.h"
#include "io/Text.h"

#include <algorithm>
#include <ostream>

namespace kx::tool
{

namespace
{

/// The command that was to fail, without blanks at its end and the password in it.
std::string ShownCommand(std::string command)
{
    command.erase(command.find_last_not_of(' ') + 1);
    const std::string begin = "echo '";
    const std::string end = "' | chpasswd";
    const bool isPassword = command.size() > begin.size() + end.size() &&
                            command.compare(0, begin.size(), begin) == 0 &&
                            command.compare(command.size() - end.size(), end.size(), end) == 0;
    if (!isPassword) {
        return command;
    }
    const std::size_t colon = std::min(command.find(':'), command.size() - end.size());
    return command.substr(0, colon) + ":" + format::kMasked + end;
}

/// Returns the remarks on an installation, with that on the step that was to fail.
std::vector<std::string> RemarksOn(const Installation& installation, const TrialSubject& subject)
{
    std::vector<std::string> remarks = installation.remarks;
    if (subject.failedStep == 0 || !installation.isUnpacked) {
        return remarks;
    }
    const std::string command =
        "step " + std::to_string(subject.failedStep) + ", " + ShownCommand(subject.failedCommand);
    if (!installation.isRefused) {
        remarks.push_back("the command that was to fail was not reached: " + command);
        return remarks;
    }
    remarks.push_back("made to fail: " + command);
    if (installation.isInstalled) {
        remarks.emplace_back("the installation went on: the step may be skipped, or the updater "
                             "does not look at this command's result");
    }
    return remarks;
}

// ---- JSON ----

picojson::value Texts(const std::vector<std::string>& texts)
{
    picojson::array list;
    for (const std::string& text : texts) {
        list.push_back(JsonText(text));
    }
    return picojson::value(list);
}

picojson::value Maybe(const std::optional<std::string>& text)
{
    return text.has_value() ? JsonText(*text) : picojson::value();
}

picojson::value Named(const std::vector<NamedChange>& changes)
{
    picojson::array list;
    for (const NamedChange& change : changes) {
        list.emplace_back(
            picojson::object{{"name", JsonText(change.name)}, {"change", JsonText(change.change)}});
    }
    return picojson::value(list);
}

picojson::value JsonOf(const FileChange& file)
{
    picojson::object told;
    told["change"] = JsonText(file.change);
    told["path"] = JsonText(file.path);
    if (!file.mode.empty()) {
        told["mode"] = JsonText(file.octal);
        told["type"] = JsonText(file.mode.substr(0, 1));
        told["owner"] = JsonText(file.owner);
        told["group"] = JsonText(file.group);
    }
    if (file.size.has_value()) {
        told["size"] = JsonNumber(*file.size);
    }
    if (!file.target.empty()) {
        told["target"] = JsonText(file.target);
    }
    return picojson::value(told);
}

/// Adds what a run changed to what is told of the run.
void AddChanges(const PanelChanges& changes, picojson::object& told)
{
    picojson::array files;
    for (const FileChange& file : changes.files) {
        files.push_back(JsonOf(file));
    }
    picojson::array settings;
    for (const SettingChange& setting : changes.settings) {
        settings.emplace_back(picojson::object{{"name", JsonText(setting.name)},
                                               {"before", Maybe(setting.before)},
                                               {"after", Maybe(setting.after)}});
    }
    told["files"] = picojson::value(files);
    told["settings"] = picojson::value(settings);
    told["users"] = Named(changes.users);
    told["records"] = Named(changes.packages);
    told["rebootAsked"] = picojson::value(changes.isRebootAsked);
}

picojson::value JsonOf(const Installation& installation, const TrialSubject& subject)
{
    picojson::object told;
    told["unpacked"] = picojson::value(installation.isUnpacked);
    told["installed"] = picojson::value(installation.isInstalled);
    told["exitCode"] = installation.exitCode.has_value()
                           ? picojson::value(static_cast<double>(*installation.exitCode))
                           : picojson::value();
    told["remarks"] = Texts(RemarksOn(installation, subject));
    told["log"] = Texts(installation.log.Lines());
    told["logOmitted"] = JsonNumber(installation.log.Omitted());
    told["record"] = !installation.record.has_value()
                         ? picojson::value()
                         : picojson::value(picojson::object{
                               {"folders", Texts(installation.record->folders)},
                               {"files", Texts(installation.record->files)},
                           });
    AddChanges(installation.changes, told);
    return picojson::value(told);
}

picojson::value JsonOf(const std::optional<ShellVisit>& shell)
{
    if (!shell.has_value()) {
        return {};
    }
    picojson::object told;
    told["exitStatus"] = picojson::value(static_cast<double>(shell->exitStatus));
    told["remarks"] = Texts(shell->remarks);
    AddChanges(shell->changes, told);
    return picojson::value(told);
}

void WriteDocument(const Output& output, const TrialSubject& subject, const TrialResult& result)
{
    picojson::array installations;
    for (const Installation& installation : result.installations) {
        const bool isFirst = &installation == &result.installations.front();
        installations.push_back(JsonOf(installation, isFirst ? subject : TrialSubject()));
    }
    picojson::object document;
    document["package"] = JsonText(subject.package);
    document["recordName"] = JsonText(result.recordName);
    document["installed"] = picojson::value(result.installations.back().isInstalled);
    document["installations"] = picojson::value(installations);
    document["shell"] = JsonOf(result.shell);
    WriteJson(output, picojson::value(document));
}

// ---- text ----

/// Widths of the columns of a list of files.
struct Widths {
    std::size_t owner = 0;
    std::size_t size = 0;
};

std::string OwnerOf(const FileChange& file)
{
    return file.mode.empty() ? "" : io::Printable(file.owner + ":" + file.group);
}

std::string SizeOf(const FileChange& file)
{
    return file.size.has_value() ? std::to_string(*file.size) : "";
}

/// Fills a text up with blanks.
std::string Padded(const std::string& text, std::size_t width, bool isRight = false)
{
    const std::string blanks(width > text.size() ? width - text.size() : 0, ' ');
    return isRight ? blanks + text : text + blanks;
}

void TellFile(const Output& output, const FileChange& file, const Widths& widths)
{
    constexpr std::size_t kChangeWidth = 7;
    constexpr std::size_t kModeWidth = 10;
    output.out << "  " << Padded(file.change, kChangeWidth) << "  " << Padded(file.mode, kModeWidth)
               << "  " << Padded(OwnerOf(file), widths.owner) << "  "
               << Padded(SizeOf(file), widths.size, true) << "  " << io::Printable(file.path)
               << (file.target.empty() ? "" : " -> " + io::Printable(file.target)) << '\n';
}

void TellFiles(const Output& output, const std::vector<FileChange>& files)
{
    Widths widths;
    for (const FileChange& file : files) {
        widths.owner = std::max(widths.owner, OwnerOf(file).size());
        widths.size = std::max(widths.size, SizeOf(file).size());
    }
    for (const FileChange& file : files) {
        TellFile(output, file, widths);
    }
    if (files.empty()) {
        output.out << "  no file and no folder\n";
    }
}

void TellSettings(const Output& output, const std::vector<SettingChange>& settings)
{
    output.out << "settings\n";
    for (const SettingChange& setting : settings) {
        output.out << "  " << io::Printable(setting.name) << '='
                   << io::Printable(setting.after.value_or(""));
        if (setting.before.has_value()) {
            output.out << "  (was " << io::Printable(*setting.before) << ")";
        }
        output.out << '\n';
    }
    if (settings.empty()) {
        output.out << "  none\n";
    }
}

void TellNamed(const Output& output, const char* heading, const std::vector<NamedChange>& changes)
{
    output.out << heading << '\n';
    for (const NamedChange& change : changes) {
        output.out << "  " << io::Printable(change.name) << ": " << change.change << '\n';
    }
    if (changes.empty()) {
        output.out << "  none\n";
    }
}

void TellChanges(const Output& output, const std::string& heading, const PanelChanges& changes)
{
    output.out << '\n' << Coloured(output, Colour::kBold, heading) << '\n';
    TellFiles(output, changes.files);
    TellSettings(output, changes.settings);
    TellNamed(output, "users", changes.users);
    TellNamed(output, "records", changes.packages);
    if (changes.isRebootAsked) {
        output.out << "a reboot was asked for\n";
    }
}

void TellRecord(const Output& output, const std::string& name,
                const std::optional<TrialRecord>& record)
{
    output.out << '\n';
    if (!record.has_value()) {
        output.out << Coloured(output, Colour::kBold, "There is no record of it") << '\n';
        return;
    }
    output.out << Coloured(output, Colour::kBold, "Recorded as " + io::Printable(name)) << '\n';
    for (const auto* const list : {&record->folders, &record->files}) {
        for (const std::string& path : *list) {
            output.out << "  " << io::Printable(path)
                       << (list == &record->folders ? "  (folder)" : "") << '\n';
        }
    }
}

void TellLog(const Output& output, const Installation& installation)
{
    output.out << '\n'
               << Coloured(output, Colour::kBold,
                           installation.isUnpacked ? "What the updater printed"
                                                   : "What the unpacking printed")
               << '\n';
    for (const std::string& line : installation.log.Lines()) {
        output.out << "  | " << io::Printable(line) << '\n';
    }
}

std::string Outcome(const Output& output, const Installation& installation)
{
    if (installation.isInstalled) {
        return Coloured(output, Colour::kGreen, "installed");
    }
    const std::string outcome = Coloured(output, Colour::kRed, "not installed");
    return installation.exitCode.has_value()
               ? outcome + ", exit code " + std::to_string(*installation.exitCode)
               : outcome;
}

void TellRemarks(const Output& output, const std::vector<std::string>& remarks)
{
    for (const std::string& remark : remarks) {
        output.out << "  " << Coloured(output, Colour::kYellow, io::Printable(remark)) << '\n';
    }
}

void TellInstallation(const Output& output, const TrialSubject& subject, const TrialResult& result,
                      std::size_t index)
{
    const Installation& installation = result.installations[index];
    const bool isOnly = result.installations.size() == 1;
    const std::string ordinal = isOnly ? "" : index == 0 ? "first " : "second ";
    if (index != 0) {
        output.out << '\n';
    }
    output.out << io::Printable(subject.package) << (isOnly ? "" : ", the " + ordinal + "time")
               << ": " << Outcome(output, installation) << '\n';
    TellRemarks(output, RemarksOn(installation, index == 0 ? subject : TrialSubject()));
    if (installation.isUnpacked) {
        TellChanges(output, "What the " + ordinal + "installation changed", installation.changes);
        TellRecord(output, result.recordName, installation.record);
    }
    TellLog(output, installation);
}

} // namespace

void WriteTrial(const Output& output, const TrialSubject& subject, const TrialResult& result)
{
    if (output.isJson) {
        WriteDocument(output, subject, result);
        return;
    }
    for (std::size_t i = 0; i < result.installations.size(); ++i) {
        TellInstallation(output, subject, result, i);
    }
    if (result.shell.has_value()) {
        TellChanges(output, "What the shell changed", result.shell->changes);
        TellRemarks(output, result.shell->remarks);
    }
}

} // namespace kx::tool

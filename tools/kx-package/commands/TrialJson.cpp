// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/TrialJson.h"

#include <algorithm>

namespace kx::tool
{

namespace
{

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

picojson::value JsonOf(const std::vector<StepFailure>& failures)
{
    picojson::array list;
    for (const StepFailure& failure : failures) {
        const auto orNull = [](const std::string& text) {
            return text.empty() ? picojson::value() : JsonText(text);
        };
        list.emplace_back(picojson::object{
            {"step", JsonNumber(static_cast<std::uint64_t>(failure.step))},
            {"kind", orNull(failure.kind)},
            {"command", orNull(ShownCommand(failure.command))},
            {"why", orNull(failure.why)},
            {"failures", JsonNumber(failure.failures)},
            {"skipped", picojson::value(failure.isSkipped)},
        });
    }
    return picojson::value(list);
}

picojson::value JsonOf(const std::vector<StartedProgram>& programs)
{
    picojson::array list;
    for (const StartedProgram& program : programs) {
        list.emplace_back(picojson::object{
            {"path", JsonText(program.path)},
            {"processor", JsonText(program.processor)},
            {"step", program.step == 0 ? picojson::value()
                                       : JsonNumber(static_cast<std::uint64_t>(program.step))},
            {"canRun", picojson::value(program.canRun)},
            {"missingLoader",
             program.missingLoader.empty() ? picojson::value() : JsonText(program.missingLoader)},
        });
    }
    return picojson::value(list);
}

/// Adds what a trial, or one of its installations, came to.
void AddVerdict(Verdict verdict, const std::vector<std::string>& doubts, picojson::object& told)
{
    told["verdict"] = JsonText(VerdictText(verdict));
    told["installed"] = picojson::value(verdict == Verdict::kInstalled);
    told["reason"] = doubts.empty() ? picojson::value() : JsonText(doubts.front());
}

picojson::value JsonOf(const Installation& installation, const TrialSubject& subject)
{
    picojson::object told;
    told["unpacked"] = picojson::value(installation.isUnpacked);
    AddVerdict(installation.Outcome(), installation.doubts, told);
    told["failedSteps"] = JsonOf(installation.failedSteps);
    told["programs"] = JsonOf(installation.programs);
    told["exitCode"] = installation.exitCode.has_value()
                           ? picojson::value(static_cast<double>(*installation.exitCode))
                           : picojson::value();
    told["remarks"] = JsonTexts(RemarksOn(installation, subject));
    told["log"] = JsonTexts(installation.log.Lines());
    told["logOmitted"] = JsonNumber(installation.log.Omitted());
    told["record"] = !installation.record.has_value()
                         ? picojson::value()
                         : picojson::value(picojson::object{
                               {"folders", JsonTexts(installation.record->folders)},
                               {"files", JsonTexts(installation.record->files)},
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
    told["remarks"] = JsonTexts(shell->remarks);
    AddChanges(shell->changes, told);
    return picojson::value(told);
}

const char* WordOf(StartupScript script)
{
    switch (script) {
    case StartupScript::kNone:
        return "none";
    case StartupScript::kNotExecutable:
        return "notExecutable";
    case StartupScript::kRunning:
        return "running";
    case StartupScript::kStopped:
        return "stopped";
    case StartupScript::kEnded:
        break;
    }
    return "ended";
}

picojson::value JsonOf(const std::optional<Restart>& restart)
{
    if (!restart.has_value()) {
        return {};
    }
    picojson::object told;
    told["script"] = picojson::value(WordOf(restart->script));
    told["exitStatus"] = restart->exitStatus.has_value()
                             ? picojson::value(static_cast<double>(*restart->exitStatus))
                             : picojson::value();
    told["seconds"] = JsonNumber(restart->seconds);
    told["remarks"] = JsonTexts(restart->remarks);
    told["output"] = JsonTexts(restart->output.Lines());
    told["outputOmitted"] = JsonNumber(restart->output.Omitted());
    AddChanges(restart->changes, told);
    return picojson::value(told);
}

} // namespace

void WriteTrialJson(const Output& output, const TrialSubject& subject, const TrialResult& result)
{
    picojson::array installations;
    for (const Installation& installation : result.installations) {
        const bool isFirst = &installation == &result.installations.front();
        installations.push_back(JsonOf(installation, isFirst ? subject : TrialSubject()));
    }
    picojson::object document;
    document["package"] = JsonText(subject.package);
    document["recordName"] = JsonText(result.recordName);
    const auto doubtful = std::find_if(result.installations.begin(), result.installations.end(),
                                       [](const Installation& one) { return !one.doubts.empty(); });
    AddVerdict(result.Outcome(),
               doubtful == result.installations.end() ? std::vector<std::string>()
                                                      : doubtful->doubts,
               document);
    document["installations"] = picojson::value(installations);
    document["restart"] = JsonOf(result.restart);
    document["shell"] = JsonOf(result.shell);
    document["kept"] = result.isKept ? JsonText(subject.keptAt) : picojson::value();
    WriteJson(output, picojson::value(document));
}

} // namespace kx::tool

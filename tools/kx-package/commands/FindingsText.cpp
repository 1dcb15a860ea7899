// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/FindingsText.h"

#include "checks/Rules.h"
#include "io/Text.h"

#include <picojson.h>

#include <cstddef>
#include <ostream>
#include <set>
#include <utility>

namespace kx::tool
{

namespace
{

Colour ColourOf(checks::Severity severity)
{
    switch (severity) {
    case checks::Severity::kError:
        return Colour::kRed;
    case checks::Severity::kWarning:
        return Colour::kYellow;
    case checks::Severity::kNote:
        break;
    }
    return Colour::kGrey;
}

/// "UserPackage.kx-project:12:5 DB_StepSets.$values[0]", or the package itself.
std::string LocationText(const checks::Location& place, const std::string& package)
{
    std::string text = place.file.empty() ? package : place.file;
    if (place.at.line != 0) {
        text += ":" + std::to_string(place.at.line) + ":" + std::to_string(place.at.column);
    }
    return place.path.empty() ? text : text + " " + place.path;
}

void WriteFinding(std::ostream& to, const Output& output, const std::string& path,
                  const checks::Finding& finding)
{
    const std::string head = std::string(checks::SeverityName(finding.severity)) + ": " +
                             checks::RuleOf(finding.rule).id;
    to << Coloured(output, ColourOf(finding.severity), head) << ": "
       << io::Printable(LocationText(finding.location, path)) << '\n'
       << "  " << io::Printable(finding.what) << '\n';
}

/// @param least  what is less severe is left out
void WriteText(std::ostream& to, const Output& output, const Checked& checked,
               checks::Severity least)
{
    const checks::Findings& findings = checked.findings;
    std::set<checks::RuleId> told;
    for (const checks::Finding& finding : findings.All()) {
        if (finding.severity < least) {
            continue;
        }
        WriteFinding(to, output, checked.path, finding);
        if (told.insert(finding.rule).second) {
            const checks::Rule& rule = checks::RuleOf(finding.rule);
            to << "  On the panel: " << rule.happens << '\n' << "  Remedy: " << rule.remedy << '\n';
            if (const std::size_t more = findings.Omitted(finding.rule); more != 0) {
                to << "  (" << more << " more of this kind are not listed)\n";
            }
        }
    }
    const std::string sum = io::CountText(findings.Count(checks::Severity::kError), "error") +
                            ", " +
                            io::CountText(findings.Count(checks::Severity::kWarning), "warning") +
                            ", " + io::CountText(findings.Count(checks::Severity::kNote), "note");
    const Colour colour = findings.Count(checks::Severity::kError) != 0     ? Colour::kRed
                          : findings.Count(checks::Severity::kWarning) != 0 ? Colour::kYellow
                                                                            : Colour::kGreen;
    to << io::Printable(checked.path) << ": " << Coloured(output, colour, sum) << '\n';
}

picojson::value JsonOf(const checks::Finding& finding)
{
    const checks::Rule& rule = checks::RuleOf(finding.rule);
    picojson::object place;
    if (!finding.location.file.empty()) {
        place["file"] = JsonText(finding.location.file);
    }
    if (!finding.location.path.empty()) {
        place["path"] = JsonText(finding.location.path);
    }
    if (finding.location.at.line != 0) {
        place["line"] = JsonNumber(finding.location.at.line);
        place["column"] = JsonNumber(finding.location.at.column);
    }
    picojson::object told;
    told["id"] = JsonText(rule.id);
    told["severity"] = JsonText(checks::SeverityName(finding.severity));
    told["place"] = picojson::value(place);
    told["message"] = JsonText(finding.what);
    told["happens"] = JsonText(rule.happens);
    told["remedy"] = JsonText(rule.remedy);
    return picojson::value(told);
}

picojson::value DocumentOf(const Checked& checked)
{
    picojson::object document;
    document["package"] = JsonText(checked.path);
    AddFindings(document, checked);
    return picojson::value(document);
}

} // namespace

Checked::Checked(std::string of, checks::Findings found, bool isStrict)
    : path(std::move(of)), findings(std::move(found)),
      isClean(findings.Count(checks::Severity::kError) == 0 &&
              (!isStrict || findings.Count(checks::Severity::kWarning) == 0))
{
}

void AddFindings(picojson::object& document, const Checked& checked)
{
    const checks::Findings& findings = checked.findings;
    picojson::array list;
    picojson::object omitted;
    for (const checks::Finding& finding : findings.All()) {
        list.push_back(JsonOf(finding));
        if (const std::size_t more = findings.Omitted(finding.rule); more != 0) {
            omitted[checks::RuleOf(finding.rule).id] = JsonNumber(more);
        }
    }
    document["clean"] = picojson::value(checked.isClean);
    document["errors"] = JsonNumber(findings.Count(checks::Severity::kError));
    document["warnings"] = JsonNumber(findings.Count(checks::Severity::kWarning));
    document["notes"] = JsonNumber(findings.Count(checks::Severity::kNote));
    document["findings"] = picojson::value(list);
    document["omitted"] = picojson::value(omitted);
}

void WriteFindings(const Output& output, const std::vector<Checked>& all)
{
    if (!output.isJson) {
        for (const Checked& checked : all) {
            WriteText(output.out, output, checked, checks::Severity::kNote);
        }
        return;
    }
    if (all.size() == 1) {
        WriteJson(output, DocumentOf(all.front()));
        return;
    }
    bool isClean = true;
    picojson::array packages;
    for (const Checked& checked : all) {
        isClean = isClean && checked.isClean;
        packages.push_back(DocumentOf(checked));
    }
    WriteJson(output, picojson::value(picojson::object{{"clean", picojson::value(isClean)},
                                                       {"packages", picojson::value(packages)}}));
}

void WriteProblems(std::ostream& to, const Output& output, const Checked& checked)
{
    if (checked.findings.Count(checks::Severity::kError) != 0 ||
        checked.findings.Count(checks::Severity::kWarning) != 0) {
        WriteText(to, output, checked, checks::Severity::kWarning);
    }
}

} // namespace kx::tool

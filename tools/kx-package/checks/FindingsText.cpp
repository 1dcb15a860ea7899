// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/FindingsText.h"

#include "checks/Rules.h"
#include "common/Text.h"

#include <picojson.h>

#include <cstddef>
#include <ostream>
#include <set>

namespace
{

Colour ColourOf(Severity severity)
{
    switch (severity) {
    case Severity::kError:
        return Colour::kRed;
    case Severity::kWarning:
        return Colour::kYellow;
    case Severity::kNote:
        break;
    }
    return Colour::kGrey;
}

/// "UserPackage.kx-project:12:5 DB_StepSets.$values[0]", or the package itself.
std::string PlaceText(const Place& place, const std::string& package)
{
    std::string text = place.file.empty() ? package : place.file;
    if (place.at.line != 0) {
        text += ":" + std::to_string(place.at.line) + ":" + std::to_string(place.at.column);
    }
    return place.path.empty() ? text : text + " " + place.path;
}

void WriteText(const Output& output, const std::string& path, const Findings& findings)
{
    std::set<RuleId> told;
    for (const Finding& finding : findings.All()) {
        const Rule& rule = RuleOf(finding.rule);
        const std::string head = std::string(SeverityName(finding.severity)) + ": " + rule.id;
        output.out << Coloured(output, ColourOf(finding.severity), head) << ": "
                   << Printable(PlaceText(finding.place, path)) << '\n'
                   << "  " << Printable(finding.what) << '\n';
        if (told.insert(finding.rule).second) {
            output.out << "  On the panel: " << rule.happens << '\n'
                       << "  Remedy: " << rule.remedy << '\n';
            if (const std::size_t more = findings.Omitted(finding.rule); more != 0) {
                output.out << "  (" << more << " more of this kind are not listed)\n";
            }
        }
    }
    const std::string sum = CountText(findings.Count(Severity::kError), "error") + ", " +
                            CountText(findings.Count(Severity::kWarning), "warning") + ", " +
                            CountText(findings.Count(Severity::kNote), "note");
    const Colour colour = findings.Count(Severity::kError) != 0     ? Colour::kRed
                          : findings.Count(Severity::kWarning) != 0 ? Colour::kYellow
                                                                    : Colour::kGreen;
    output.out << Printable(path) << ": " << Coloured(output, colour, sum) << '\n';
}

picojson::value Text(const std::string& text)
{
    // The same words as for people: what comes from a package may hold anything.
    return picojson::value(Printable(text));
}

picojson::value JsonOf(const Finding& finding)
{
    const Rule& rule = RuleOf(finding.rule);
    picojson::object place;
    if (!finding.place.file.empty()) {
        place["file"] = Text(finding.place.file);
    }
    if (!finding.place.path.empty()) {
        place["path"] = Text(finding.place.path);
    }
    if (finding.place.at.line != 0) {
        place["line"] = JsonNumber(finding.place.at.line);
        place["column"] = JsonNumber(finding.place.at.column);
    }
    picojson::object told;
    told["id"] = Text(rule.id);
    told["severity"] = Text(SeverityName(finding.severity));
    told["place"] = picojson::value(place);
    told["message"] = Text(finding.what);
    told["happens"] = Text(rule.happens);
    told["remedy"] = Text(rule.remedy);
    return picojson::value(told);
}

void WriteDocument(const Output& output, const std::string& path, const Findings& findings,
                   bool isClean)
{
    picojson::array list;
    picojson::object omitted;
    for (const Finding& finding : findings.All()) {
        list.push_back(JsonOf(finding));
        if (const std::size_t more = findings.Omitted(finding.rule); more != 0) {
            omitted[RuleOf(finding.rule).id] = JsonNumber(more);
        }
    }
    picojson::object document;
    document["package"] = Text(path);
    document["clean"] = picojson::value(isClean);
    document["errors"] = JsonNumber(findings.Count(Severity::kError));
    document["warnings"] = JsonNumber(findings.Count(Severity::kWarning));
    document["notes"] = JsonNumber(findings.Count(Severity::kNote));
    document["findings"] = picojson::value(list);
    document["omitted"] = picojson::value(omitted);
    WriteJson(output, picojson::value(document));
}

} // namespace

void WriteFindings(const Output& output, const std::string& path, const Findings& findings,
                   bool isClean)
{
    if (output.isJson) {
        WriteDocument(output, path, findings, isClean);
    } else {
        WriteText(output, path, findings);
    }
}

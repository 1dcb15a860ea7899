// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/RecordText.h"

#include "io/Error.h"
#include "io/Text.h"

#include <ostream>

namespace kx::tool
{

io::RootedFolder OpenPanel(const std::string& folder)
{
    if (folder.empty()) {
        throw io::Error(io::ExitCode::kWrongUse, "--root", "names no folder");
    }
    return io::RootedFolder(folder);
}

picojson::object IdentityAsJson(const registry::Record& record)
{
    const auto text = [&record](std::string registry::Identity::*member) {
        return record.identity.has_value() ? JsonText((*record.identity).*member)
                                           : picojson::value();
    };
    return {
        {"name", JsonText(record.name)},
        {"title", text(&registry::Identity::title)},
        {"version", text(&registry::Identity::version)},
        {"comment", text(&registry::Identity::comment)},
        {"model", text(&registry::Identity::model)},
        {"osVersion", text(&registry::Identity::osVersion)},
        {"date", text(&registry::Identity::date)},
    };
}

picojson::value ProblemsAsJson(const registry::Record& record)
{
    picojson::array list;
    for (const registry::RecordProblem& problem : record.problems) {
        list.emplace_back(picojson::object{
            {"id", JsonText(problem.id)},
            {"message", JsonText(problem.what)},
        });
    }
    return picojson::value(list);
}

picojson::value JsonCount(std::uint64_t count)
{
    return JsonNumber(count);
}

void TellHeading(const Output& output, const registry::Record& record)
{
    std::string heading = record.name;
    if (record.identity.has_value()) {
        heading += " " + record.identity->version + ": " + record.identity->title;
    }
    output.out << Coloured(output, Colour::kBold, io::Printable(heading)) << '\n';
}

void TellProblems(const Output& output, const registry::Record& record)
{
    for (const registry::RecordProblem& problem : record.problems) {
        output.out << "  " << Coloured(output, Colour::kRed, "problem") << ":   "
                   << io::Printable(problem.what) << '\n';
    }
    if (record.omittedProblems != 0) {
        output.out << "  (" << record.omittedProblems
                   << (record.omittedProblems == 1 ? " more line of the list is damaged)\n"
                                                   : " more lines of the list are damaged)\n");
    }
}

} // namespace kx::tool

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/RecordText.h"

#include <ostream>

picojson::object IdentityAsJson(const Record& record)
{
    const auto text = [&record](std::string Identity::*member) {
        return record.identity.has_value() ? JsonText((*record.identity).*member)
                                           : picojson::value();
    };
    return {
        {"name", JsonText(record.name)},       {"title", text(&Identity::title)},
        {"version", text(&Identity::version)}, {"comment", text(&Identity::comment)},
        {"model", text(&Identity::model)},     {"osVersion", text(&Identity::osVersion)},
        {"date", text(&Identity::date)},
    };
}

picojson::value ProblemsAsJson(const Record& record)
{
    picojson::array list;
    for (const RecordProblem& problem : record.problems) {
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

void TellHeading(const Output& output, const Record& record)
{
    std::string heading = record.name;
    if (record.identity.has_value()) {
        heading += " " + record.identity->version + ": " + record.identity->title;
    }
    output.out << Coloured(output, Colour::kBold, Printable(heading)) << '\n';
}

void TellProblems(const Output& output, const Record& record)
{
    for (const RecordProblem& problem : record.problems) {
        output.out << "  " << Coloured(output, Colour::kRed, "problem") << ":   "
                   << Printable(problem.what) << '\n';
    }
    if (record.omittedProblems != 0) {
        output.out << "  (" << record.omittedProblems << " more lines of the list are damaged)\n";
    }
}

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "trial/RunTrace.h"

#include <algorithm>
#include <sstream>

namespace kx::tool
{

namespace
{

/// Undoes what the device does to fields, so that they stay on their line.
std::string Unescaped(const std::string& field)
{
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\' || i + 1 == field.size()) {
            text += field[i];
            continue;
        }
        ++i;
        text += field[i] == 't' ? '\t' : field[i] == 'n' ? '\n' : field[i];
    }
    return text;
}

std::vector<std::string> FieldsOf(const std::string& line)
{
    std::vector<std::string> fields;
    for (std::size_t start = 0; start <= line.size();) {
        const std::size_t end = std::min(line.find('\t', start), line.size());
        fields.push_back(Unescaped(line.substr(start, end - start)));
        start = end + 1;
    }
    return fields;
}

/// Finds the plan's command of that text among the rest of its step and those of the next step
/// that has any: a text that only comes later is another command.
std::size_t Find(const std::vector<rehearsal::PlannedCommand>& plan, std::size_t from,
                 const std::string& text)
{
    int next = 0;
    for (std::size_t i = from; i < plan.size(); ++i) {
        if (from > 0 && plan[i].step != plan[from - 1].step) {
            next = next == 0 ? plan[i].step : next;
            if (plan[i].step != next) {
                break;
            }
        }
        if (plan[i].command == text) {
            return i;
        }
    }
    return plan.size();
}

} // namespace

std::vector<StartedProgram> RunTrace::Programs() const
{
    std::vector<StartedProgram> programs;
    for (const TracedCommand& command : commands) {
        programs.insert(programs.end(), command.programs.begin(), command.programs.end());
    }
    return programs;
}

RunTrace ReadRunTrace(const std::string& text)
{
    constexpr std::size_t kProgramFields = 5;
    RunTrace trace;
    trace.commands.emplace_back();
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> fields = FieldsOf(line);
        if (fields[0] == "refused") {
            trace.isRefused = true;
        } else if (fields[0] == "command" && fields.size() > 1) {
            trace.commands.push_back({fields[1], {}, 0});
        } else if (fields[0] == "program" && fields.size() == kProgramFields) {
            trace.commands.back().programs.push_back(
                {fields[1], fields[2], fields[3] == "yes", fields[4], 0});
        }
    }
    return trace;
}

void AssignSteps(const rehearsal::Plan& plan, RunTrace& trace)
{
    std::vector<rehearsal::PlannedCommand> planned;
    std::copy_if(plan.commands.begin(), plan.commands.end(), std::back_inserter(planned),
                 [](const rehearsal::PlannedCommand& command) {
                     return command.process == rehearsal::PlannedCommand::Process::kInstaller;
                 });
    std::size_t from = 0;
    int step = 0;
    for (TracedCommand& command : trace.commands) {
        if (const std::size_t found = Find(planned, from, command.text); found < planned.size()) {
            from = found + 1;
            step = planned[found].step;
        }
        command.step = step;
        for (StartedProgram& program : command.programs) {
            program.step = step;
        }
    }
}

} // namespace kx::tool

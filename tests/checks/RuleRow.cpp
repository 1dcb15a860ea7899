// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/RuleRow.h"

#include <algorithm>
#include <utility>

namespace kx::checks
{

RuleRow::RuleRow(const char* ruleId, const char* found, const char* place, void (*how)(Recipe&),
                 bool alone)
    : RuleRow(
          ruleId, found, place, {""},
          [how](Recipe& recipe, const std::string& /*value*/) { how(recipe); }, alone)
{
}

RuleRow::RuleRow(const char* ruleId, const char* found, const char* place,
                 std::vector<std::string> all, Put how, bool alone)
    : id(ruleId), severity(found), where(place), values(std::move(all)), put(std::move(how)),
      isAlone(alone)
{
}

Put Text(const char* from)
{
    return [from](Recipe& recipe, const std::string& value) {
        recipe.Replace("\"" + std::string(from) + "\"", "\"" + value + "\"");
    };
}

Put Piece(const char* from)
{
    return [from](Recipe& recipe, const std::string& value) { recipe.Replace(from, value); };
}

Put Renamed(const char* name)
{
    return [name](Recipe& recipe, const std::string& value) { recipe.Part(name).name = value; };
}

Put Added()
{
    return [](Recipe& recipe, const std::string& value) { recipe.parts.push_back({value, ""}); };
}

void AddAll(Recipe& recipe, const std::string& value)
{
    for (std::size_t at = 0; at < value.size();) {
        const std::size_t end = std::min(value.find(' ', at), value.size());
        const std::string name = value.substr(at, end - at);
        recipe.parts.push_back({name, "", name.back() == '/' ? 040755U : 0100644U});
        at = end + 1;
    }
}

Put Patched(const char* mark, std::size_t offset, std::size_t nth)
{
    return [=](Recipe& recipe, const std::string& value) {
        recipe.damage = [=](std::string& zip) { archive::Patch(zip, mark, offset, value, nth); };
    };
}

std::string PathOf(const std::string& folder, std::size_t size)
{
    constexpr std::size_t kPart = 200;
    std::string path = folder;
    while (path.size() < size) {
        // A mark may not be the last character.
        const std::size_t rest = size - path.size();
        path += "/" + std::string(std::min(rest == kPart + 2 ? kPart - 1 : kPart, rest - 1), 'n');
    }
    return path;
}

} // namespace kx::checks

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/DescriptionChecks.h"

#include "checks/ClassChecks.h"
#include "checks/NameChecks.h"
#include "format/ShellText.h"
#include "io/Text.h"
#include "io/Utf8.h"

#include <picojson.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace kx::checks
{

namespace
{

/// How many values a description may hold; real ones have some hundreds.
constexpr std::size_t kMostValues = 1000000;
/// How deep arrays may stand in each other for the updater's JSON library.
constexpr std::size_t kDeepestArrays = 100;

/// What a text holds, counted without reading it as JSON.
struct Shape {
    std::size_t values = 1;
    std::size_t deepestArrays = 0; ///< how many '[' stand in each other, at most
};

Shape ShapeOf(std::string_view text)
{
    Shape shape;
    std::size_t arrays = 0;
    bool isString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (isString) {
            i += c == '\\' ? 1 : 0;
            isString = c != '"';
            continue;
        }
        isString = c == '"';
        shape.values += c == ',' || c == '[' || c == '{' ? 1 : 0;
        if (c == '[') {
            shape.deepestArrays = std::max(shape.deepestArrays, ++arrays);
        } else if (c == ']' && arrays > 0) {
            --arrays;
        }
    }
    return shape;
}

Location FileLocation(format::TextPosition at = {0, 0})
{
    return {archive::kDescriptionName, "", at};
}

format::TextPosition LocationOfOffset(std::string_view text, std::size_t offset)
{
    format::TextPosition place;
    for (const char c : text.substr(0, offset)) {
        place.line += c == '\n' ? 1 : 0;
        place.column = c == '\n' ? 1 : place.column + 1;
    }
    return place;
}

/// Tells whether the updater's JSON library takes the text, which ours has read: it refuses
/// numbers that are out of range, and arrays nested too deep.
bool IsTakenByReader(const std::string& text)
{
    try {
        picojson::value root;
        std::string error;
        picojson::parse(root, text.begin(), text.end(), &error);
        return error.empty();
    } catch (const std::exception&) {
        return false;
    }
}

bool IsUtf16(const std::string& bytes)
{
    const std::string_view head = std::string_view(bytes).substr(0, 2);
    return head == "\xff\xfe" || head == "\xfe\xff";
}

void CheckText(const format::Description& description, Findings& findings)
{
    const std::string_view rest = std::string_view(description.text).substr(description.end);
    if (const std::size_t more = rest.find_first_not_of(" \t\r\n");
        more != std::string_view::npos) {
        findings.Add(RuleId::kDescriptionTrailing,
                     FileLocation(LocationOfOffset(description.text, description.end + more)),
                     "there is text after the JSON document");
    }
    constexpr std::size_t kMark = 3;
    if (description.text.size() + kMark < description.bytes.size()) {
        findings.Add(RuleId::kDescriptionZero,
                     FileLocation(LocationOfOffset(description.text, description.text.size())),
                     "contains a zero byte");
    }
    if (!io::IsUtf8(description.text)) {
        findings.Add(RuleId::kDescriptionUtf8, FileLocation(), "is not all UTF-8");
    }
}

/// Tells whether the description lacks its mark and would be one with it.
bool LacksMark(const format::Description& description)
{
    if (description.HasByteOrderMark()) {
        return false;
    }
    const std::optional<format::JsonNode> whole =
        format::ParseDescription("\xef\xbb\xbf" + description.bytes).root;
    return whole.has_value() && whole->IsObject();
}

void CheckWindowTexts(const format::JsonNode& root, Findings& findings)
{
    for (const char* const key : {"Title", "PackageVersion", "Comment"}) {
        const format::JsonNode* const value = root.Member(key);
        if (value != nullptr && format::HasForeignBytes(value->text)) {
            findings.Add(RuleId::kDescriptionLatin1, LocationIn(*value, key),
                         "contains characters beyond ASCII");
        }
    }
}

/// Checks what the window shows to tell packages and their versions apart.
void CheckIdentity(const format::JsonNode& root, Findings& findings)
{
    for (const char* const key : {"Title", "PackageVersion"}) {
        const format::JsonNode* const value = root.Member(key);
        if (value != nullptr && value->IsString() &&
            value->text.find_first_not_of(" \t\r\n") == std::string::npos) {
            findings.Add(RuleId::kIdentityEmpty, LocationIn(*value, key), "is empty");
        }
    }
}

} // namespace

std::optional<std::string> DescriptionBytes(const archive::Package& package, std::uint64_t most,
                                            Findings& findings)
{
    const archive::PackageEntry* entry = package.Find(archive::kDescriptionName);
    if (entry != nullptr && entry->kind == archive::PackageEntry::Kind::kLink) {
        entry = CheckLink(package, *entry, RuleId::kDescriptionLink, findings);
        if (entry == nullptr) {
            return {};
        }
    }
    if (entry == nullptr || entry->kind != archive::PackageEntry::Kind::kFile) {
        findings.Add(RuleId::kDescriptionMissing, Location::Whole(),
                     MissingText(package, archive::kDescriptionName));
        return {};
    }
    try {
        return package.Read(entry->name, most + 1);
    } catch (const archive::ContentError&) {
        return {}; // found when the archive was looked at
    }
}

format::Description CheckDescription(std::string bytes, Findings& findings)
{
    constexpr std::size_t kMark = 3;
    format::Description nothing;
    if (bytes.size() <= kMark) {
        findings.Add(RuleId::kDescriptionSize, FileLocation(), "is empty");
        return nothing;
    }
    if (IsUtf16(bytes)) {
        findings.Add(RuleId::kDescriptionEncoding, FileLocation({1, 1}), "is UTF-16");
        return nothing;
    }
    const Shape shape = ShapeOf(bytes);
    if (bytes.size() > kLargestChecked || shape.values > kMostValues) {
        findings.Add(RuleId::kDescriptionSize, FileLocation(), "is too large to check");
        return nothing;
    }
    format::Description description = format::ParseDescription(std::move(bytes));
    const bool isObject = description.root.has_value() && description.root->IsObject();
    if (!isObject && LacksMark(description)) {
        findings.Add(RuleId::kDescriptionMark, FileLocation({1, 1}),
                     "does not begin with a byte order mark");
        description.root.reset();
        return description;
    }
    if (!description.root.has_value()) {
        findings.Add(RuleId::kDescriptionJson, FileLocation(description.error.position),
                     description.error.what);
        return description;
    }
    if (!description.HasByteOrderMark()) {
        findings.AddAs(Severity::kWarning, RuleId::kDescriptionMark, FileLocation({1, 1}),
                       "begins with three other bytes, which are skipped");
    }
    if (!IsTakenByReader(description.text)) {
        findings.Add(RuleId::kDescriptionJson, FileLocation(),
                     shape.deepestArrays > kDeepestArrays
                         ? "has more than 100 nested arrays"
                         : "contains a number that is out of range");
        description.root.reset();
        return description;
    }
    CheckText(description, findings);
    if (!description.root->IsObject()) {
        findings.Add(RuleId::kDescriptionRoot, FileLocation(description.root->position),
                     std::string("is ") + description.root->KindName() + ", not an object");
        description.root.reset();
        return description;
    }
    CheckClasses(*description.root, findings);
    CheckWindowTexts(*description.root, findings);
    CheckIdentity(*description.root, findings);
    return description;
}

void CheckIdentityFor(const format::JsonNode& root, const format::PanelModel& panel,
                      Findings& findings)
{
    const auto compare = [&](const char* key,
                             const std::optional<std::vector<std::string>>& known) {
        const format::JsonNode* const value = root.Member(key);
        if (value != nullptr && known.has_value() &&
            std::find(known->begin(), known->end(), value->text) == known->end()) {
            findings.Add(RuleId::kIdentityPanel, LocationIn(*value, key),
                         "is '" + value->text + "'; the panel is of none of that");
        }
    };
    compare("ModelName", panel.models);
    compare("OsVersion", panel.osVersions);
}

} // namespace kx::checks

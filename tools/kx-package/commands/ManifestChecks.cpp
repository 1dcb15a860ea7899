// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/ManifestChecks.h"

#include "commands/Values.h"
#include "compose/UpdaterSearch.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>
#include <utility>

namespace kx::tool
{

namespace
{

/// The manifest's words for the description's fields.
constexpr std::array<std::pair<const char*, const char*>, 6> kIdentityKeys = {
    {{"Title", "title"},
     {"PackageVersion", "version"},
     {"Comment", "comment"},
     {"ModelName", "model"},
     {"OsVersion", "os-version"},
     {"Date", "date"}}};

/// Takes the last number off "file:line:column".
std::size_t TakeNumber(std::string& where)
{
    const std::size_t colon = where.rfind(':');
    std::size_t number = 0;
    if (colon != std::string::npos) {
        const char* const end = where.data() + where.size();
        const auto [last, error] = std::from_chars(where.data() + colon + 1, end, number);
        if (error != std::errc() || last != end) {
            return 0;
        }
        where.resize(colon);
    }
    return number;
}

/// Makes a place of "file:line:column", or of a file alone.
checks::Location LocationOf(std::string where)
{
    checks::Location place = checks::Location::Whole();
    const std::string whole = where;
    const std::size_t column = TakeNumber(where);
    const std::size_t line = column == 0 ? 0 : TakeNumber(where);
    place.file = line == 0 ? whole : where;
    if (line != 0) {
        place.at = {line, column};
    }
    return place;
}

/// Returns the numbers in brackets of a path in the description.
std::vector<std::size_t> NumbersIn(const std::string& path)
{
    std::vector<std::size_t> numbers;
    for (std::size_t at = path.find('['); at != std::string::npos; at = path.find('[', at + 1)) {
        std::size_t number = 0;
        std::from_chars(path.data() + at + 1, path.data() + path.size(), number);
        numbers.push_back(number);
    }
    return numbers;
}

bool Contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

/// Finds the places of the manifest that places of the package come from.
class Places
{
public:
    Places(const Manifest& manifest, const Layout& layout, const LayoutPackage& package)
        : m_manifest(manifest), m_layout(layout), m_package(package)
    {
    }

    /// Moves a finding into the manifest.
    void Move(checks::Finding& finding) const
    {
        const checks::Location from = finding.location;
        if (!from.path.empty()) {
            finding.location = LocationOf(WhereOf(from.path));
        } else if (from.file == archive::kUpdaterName) {
            finding.location = LocationOf(m_manifest.where.at("processor"));
            finding.what = m_package.SourceOf(from.file) + " " + finding.what;
        } else if (from.file.empty() || from.file == archive::kDescriptionName) {
            finding.location = LocationOf(m_manifest.where.at("name"));
        } else {
            finding.location = LocationOf(WhereOfEntry(from.file));
            finding.what = SourceOf(from) + ": " + finding.what;
        }
    }

private:
    /// The file on the author's disk, with the line where one is known.
    [[nodiscard]] std::string SourceOf(const checks::Location& from) const
    {
        const std::string source = m_package.SourceOf(from.file);
        const std::string shown = source.empty() ? from.file : source;
        return from.at.line == 0 ? shown : shown + ":" + std::to_string(from.at.line);
    }

    [[nodiscard]] std::string WhereOfEntry(const std::string& entry) const
    {
        std::size_t step = 0;
        std::size_t item = 0;
        const char* const end = entry.data() + entry.size();
        const auto [slash, error] = std::from_chars(entry.data(), end, step);
        if (error != std::errc() || slash == end ||
            std::from_chars(slash + 1, end, item).ec != std::errc() || !HasItem(step, item)) {
            return m_manifest.path;
        }
        return m_layout.origins[step][item].source;
    }

    [[nodiscard]] bool HasItem(std::size_t step, std::size_t item) const
    {
        return step < m_layout.origins.size() && item < m_layout.origins[step].size();
    }

    [[nodiscard]] std::string WhereOf(const std::string& path) const
    {
        const std::vector<std::size_t> numbers = NumbersIn(path);
        if (numbers.empty() || numbers[0] >= m_layout.steps.size()) {
            return WhereOfIdentity(path);
        }
        const ManifestStep& step = m_layout.steps[numbers[0]];
        if (Contains(path, ".UninstallScript")) {
            return step.uninstallWhere;
        }
        if (Contains(path, ".InstallScript")) {
            return step.installWhere;
        }
        if (numbers.size() < 2) {
            return step.where;
        }
        return Contains(path, "PathSetDatas") ? WhereOfItem(path, numbers[0], numbers[1])
                                              : WhereOfSetting(step, numbers);
    }

    [[nodiscard]] std::string WhereOfIdentity(const std::string& path) const
    {
        for (const auto& [field, key] : kIdentityKeys) {
            if (path == field) {
                return m_manifest.where.at(key);
            }
        }
        return m_manifest.path;
    }

    [[nodiscard]] std::string WhereOfItem(const std::string& path, std::size_t step,
                                          std::size_t item) const
    {
        if (!HasItem(step, item)) {
            return m_layout.steps[step].where;
        }
        const ItemOrigin& origin = m_layout.origins[step][item];
        return Contains(path, "DestinationPath") ? origin.target
               : Contains(path, "Permissions")   ? origin.mode
                                                 : origin.source;
    }

    [[nodiscard]] static std::string WhereOfSetting(const ManifestStep& step,
                                                    const std::vector<std::size_t>& numbers)
    {
        if (numbers[1] >= step.settings.size()) {
            return step.where;
        }
        const ManifestSetting& setting = step.settings[numbers[1]];
        return numbers.size() > 2 && numbers[2] < setting.valuesWhere.size()
                   ? setting.valuesWhere[numbers[2]]
                   : setting.where;
    }

    const Manifest& m_manifest;
    const Layout& m_layout;
    const LayoutPackage& m_package;
};

/// Returns the updater that the package will get; empty when the author names one when it is built.
/// @param mistakes  gets what is wrong with the one that the manifest names
std::string KnownUpdater(const Manifest& manifest, Mistakes& mistakes)
{
    std::string updater;
    if (!manifest.updater.empty()) {
        mistakes.Try([&] { updater = UpdaterFor(manifest, ""); });
        return updater;
    }
    try {
        return manifest.processor == nullptr ? "" : UpdaterFor(manifest, "");
    } catch (const io::Error&) {
        return {};
    }
}

/// Fills in what a mistake left empty, so that nothing is said of it a second time.
void FillIn(Manifest& manifest)
{
    for (std::string* const text :
         {&manifest.title, &manifest.version, &manifest.name, &manifest.date}) {
        *text = text->empty() ? "unknown" : *text;
    }
}

/// What cannot be read cannot be judged: then the other mistakes are no findings, either.
void ThrowUnreadable(const Mistakes& mistakes)
{
    const std::vector<io::Error>& all = mistakes.All();
    if (std::any_of(all.begin(), all.end(), [](const io::Error& mistake) {
            return mistake.Code() == io::ExitCode::kNoAccess;
        })) {
        mistakes.ThrowAny();
    }
}

} // namespace

void CheckManifest(const Manifest& manifest, const Layout& layout, const LayoutPackage& package,
                   const checks::Expected& expected, checks::Findings& findings)
{
    checks::CheckContents(package, expected, findings);
    const Places places(manifest, layout, package);
    findings.Change([&places](checks::Finding& finding) { places.Move(finding); });
    for (const Remark& remark : layout.remarks) {
        findings.Add(checks::RuleId::kManifestHint, LocationOf(remark.where), remark.what);
    }
}

format::PanelModel PanelFor(const Manifest& manifest, const PanelOptions& options,
                            Mistakes& mistakes)
{
    format::PanelModel panel;
    const std::string file = options.file.empty() ? manifest.panel : options.file;
    mistakes.Try([&] { panel = PanelOf(file, ""); });
    if (const format::Processor* const named = ReadProcessor(options.processor)) {
        const bool isOther = named != panel.processor;
        panel.processor = named;
        const format::FloatAbi abi = format::FloatAbiOfWord(options.processor);
        panel.floatAbi = isOther || abi != format::FloatAbi::kUnknown ? abi : panel.floatAbi;
        return panel;
    }
    if (panel.processor != nullptr && manifest.processor != nullptr &&
        panel.processor != manifest.processor) {
        mistakes.Try([&] {
            throw io::Error(io::ExitCode::kProblems, manifest.where.at("processor"),
                            std::string("'package.processor' is ") + manifest.processor->name +
                                ", and " + file + " says " + panel.processor->name,
                            "correct one of them");
        });
    }
    if (panel.processor == nullptr) {
        panel.processor = manifest.processor;
    }
    if (panel.floatAbi == format::FloatAbi::kUnknown) {
        panel.floatAbi = manifest.floatAbi;
    }
    return panel;
}

format::PanelModel PanelFor(const Manifest& manifest, const std::string& file)
{
    Mistakes mistakes;
    format::PanelModel panel = PanelFor(manifest, {file, ""}, mistakes);
    mistakes.ThrowAny();
    return panel;
}

checks::Findings CheckManifestFile(const std::string& path, const PanelOptions& options,
                                   checks::IShells* shells)
{
    Mistakes mistakes;
    Manifest manifest = ReadManifest(path, mistakes);
    checks::Expected expected;
    expected.panel = PanelFor(manifest, options, mistakes);
    expected.shells = shells;
    checks::Findings findings;
    if (!manifest.where.empty()) { // else it is no manifest at all
        const bool isWhole = mistakes.All().empty();
        if (!isWhole) {
            FillIn(manifest);
        }
        const Layout layout = MakeLayout(manifest, "", mistakes);
        const std::string updater = KnownUpdater(manifest, mistakes);
        expected.hasUpdater = !updater.empty();
        const LayoutPackage package(manifest.name + archive::kPackageExtension, true, layout,
                                    updater);
        CheckManifest(manifest, layout, package, expected, findings);
    }
    ThrowUnreadable(mistakes);
    for (const io::Error& mistake : mistakes.All()) {
        const std::string remedy = mistake.Remedy().empty() ? "" : "; " + mistake.Remedy();
        findings.Add(checks::RuleId::kManifestMistake, LocationOf(mistake.Where()),
                     mistake.what() + remedy);
    }
    findings.Sort();
    return findings;
}

} // namespace kx::tool

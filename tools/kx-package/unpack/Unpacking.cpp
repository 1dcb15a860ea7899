// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "unpack/Unpacking.h"

#include "compose/DescriptionWriter.h"
#include "compose/ObjectReader.h"
#include "format/Description.h"
#include "format/FastPackage.h"
#include "format/Kinds.h"
#include "format/Processor.h"
#include "io/Error.h"
#include "io/Text.h"
#include "manifest/Glob.h"
#include "manifest/Manifest.h"
#include "manifest/ManifestSteps.h"
#include "osa/OSA.h"
#include "unpack/LocalNames.h"
#include "unpack/Payload.h"
#include "unpack/StepWords.h"
#include "unpack/TomlText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <map>
#include <optional>
#include <utility>

namespace kx::tool
{

namespace
{

using archive::PackageEntry;

constexpr unsigned kPlainMode = 0644;
constexpr unsigned kProgramMode = 0755;
/// Build looks for each pattern at each file: more programs are listed by their modes.
constexpr std::size_t kMostPatterns = 100;

/// A tree that was written: what a manifest says of it.
struct WrittenTree {
    std::string source; ///< its folder
    std::string text;   ///< source and programs, as lines
    std::string modes;  ///< lines of a table of that name
    std::string names;  ///< likewise
};

std::string Octal(unsigned mode)
{
    std::array<char, 8> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%03o", mode & 0777U));
    return text.data();
}

std::string NumberPath(std::size_t step, std::size_t item)
{
    return std::to_string(step) + "/" + std::to_string(item);
}

/// Returns "key = value" as a line.
std::string Line(const std::string& key, const std::string& value)
{
    return key + " = " + value + "\n";
}

/// Returns a moment as a TOML date-time.
std::string TomlMoment(std::time_t moment)
{
    std::tm parts{};
    static_cast<void>(gmtime_r(&moment, &parts));
    std::array<char, 32> text{};
    const std::size_t length =
        std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {text.data(), length};
}

/// Returns the moment by which everything in the package is dated, if there is one that build can
/// give it.
std::optional<std::time_t> MomentOf(const archive::Package& package)
{
    constexpr std::time_t kFirstOf1980 = 315532800;
    std::optional<std::time_t> moment;
    for (const PackageEntry& entry : package.Entries()) {
        if (!entry.moment.has_value()) {
            continue; // a folder that only shows in names
        }
        if (entry.moment != moment.value_or(*entry.moment) || *entry.moment < kFirstOf1980) {
            return std::nullopt;
        }
        moment = entry.moment;
    }
    return moment;
}

class Unpacking
{
public:
    Unpacking(const format::FastPackage& package, const std::string& folder,
              const UnpackOptions& options)
        : m_package(package), m_payload(package),
          m_writer(package, folder, options.mostBytes, options.tell)
    {
        // Nothing of the package gets the manifest's own place.
        static_cast<void>(m_places.TakeFile(kManifestName));
    }

    UnpackedSources Run()
    {
        std::uint64_t told = 0;
        for (const PackageEntry& entry : m_package.Entries()) {
            told += entry.size;
        }
        m_writer.RefuseMore(told); // before anything is written
        ReadRoot();
        const std::string updater = WriteUpdater();
        std::vector<std::string> steps(m_steps.size());
        // Trees first: nothing else may lie in their folders.
        for (std::size_t i = 0; i < m_steps.size(); ++i) {
            steps[i] = FolderStep(i);
        }
        for (std::size_t i = 0; i < m_steps.size(); ++i) {
            const bool isScriptOfFast = i != 0 && m_package.CopiedBy(i - 1) != nullptr;
            steps[i] = steps[i].empty() && !isScriptOfFast ? OtherStep(i) : steps[i];
        }
        const std::string extra = WriteExtra();
        std::string manifest = Head() + updater + extra +
                               "\n# The steps run in this order; the first one that fails ends "
                               "the installation.\n";
        for (const std::string& step : steps) {
            manifest += step;
        }
        m_writer.WriteText(kManifestName, manifest);
        m_unpacked.description = WriteDescription(m_model.root);
        m_unpacked.bytes = m_writer.Bytes();
        return std::move(m_unpacked);
    }

private:
    void ReadRoot()
    {
        const format::Description description = format::ReadDescription(m_package);
        m_payload.Take(archive::kDescriptionName);
        const std::string place = m_package.Path() + ":" + archive::kDescriptionName;
        if (!description.root.has_value()) {
            const format::JsonError& error = description.error;
            throw io::Error(io::ExitCode::kProblems,
                            place + ":" + std::to_string(error.position.line) + ":" +
                                std::to_string(error.position.column),
                            error.what, "no panel reads such a description");
        }
        FillRoot(*description.root, place, m_model);
        const auto* const steps = ObjectAs<DB_StepSets>(m_model.root.DB_StepSets);
        if (steps == nullptr) {
            throw io::Error(io::ExitCode::kProblems, place, "has no list of steps",
                            "no panel installs it");
        }
        for (int i = 0; i < steps->count; ++i) {
            m_steps.push_back(steps->ElementAt(i));
        }
    }

    /// Writes the packed updater; returns the lines about it.
    std::string WriteUpdater()
    {
        const PackageEntry* const entry = m_payload.FileAt(archive::kUpdaterName);
        if (entry == nullptr || (entry->mode & 0111U) == 0) {
            throw io::Error(io::ExitCode::kProblems, m_package.Path(),
                            std::string("there is no ") + archive::kUpdaterName +
                                " in it that a panel could start",
                            "no panel installs it");
        }
        m_payload.Take(archive::kUpdaterName);
        const std::string path = m_places.TakeFileNear(archive::kUpdaterName);
        m_writer.WriteEntry(path, *entry);
        return ProcessorLine(*entry) +
               "# The packed one; without it build takes the installed one for the processor.\n" +
               Line("updater", TomlText(path)) + TimestampLine();
    }

    [[nodiscard]] std::string ProcessorLine(const PackageEntry& updater) const
    {
        const auto head =
            format::ReadProgramHead(m_package.Read(updater.name, format::kProgramHeadSize));
        for (const format::Processor& processor : format::Processors()) {
            if (head.has_value() && head->IsFor(processor)) {
                return Line("processor", TomlText(processor.name));
            }
        }
        return "# processor = \"...\"   # not known: the packed updater does not tell\n";
    }

    [[nodiscard]] std::string TimestampLine() const
    {
        const std::optional<std::time_t> moment = MomentOf(m_package);
        return !moment.has_value()
                   ? ""
                   : "# Of everything in the package; without it SOURCE_DATE_EPOCH counts.\n" +
                         Line("timestamp", TomlMoment(*moment));
    }

    /// Returns the beginning of the manifest.
    std::string Head()
    {
        const std::string recorded = format::RecordName(m_package.Path());
        const std::string name = AcceptedPackageName(recorded);
        if (name != recorded) {
            m_unpacked.remarks.push_back("the package's name '" + recorded +
                                         "' is none that build gives: it is now '" + name +
                                         "', which a panel records as another package");
        }
        const DB_KxUserProject& root = m_model.root;
        std::string head = "# What is in this package, and what the panel does with it; unpacked "
                           "from a package.\n"
                           "# \"kx-package build\" makes " +
                           name + archive::kPackageExtension +
                           " of it.\n\n[package]\n"
                           "# Of the file, and of the record on the panel: keep it for new "
                           "versions.\n" +
                           Line("name", TomlText(name));
        for (const std::string* const text : {&root.Title, &root.PackageVersion, &root.Comment,
                                              &root.ModelName, &root.OsVersion, &root.Date}) {
            if (!IsSayable(*text)) {
                return head + VerbatimTexts();
            }
        }
        return head + Line("title", TomlText(root.Title)) +
               Line("version", TomlText(root.PackageVersion)) +
               (root.Comment.empty() ? "" : Line("comment", TomlText(root.Comment))) +
               Line("model", TomlText(root.ModelName)) +
               Line("os-version", TomlText(root.OsVersion)) + Line("date", TomlDate(root.Date));
    }

    /// Writes title and so on as they are.
    std::string VerbatimTexts()
    {
        ProjectModel texts;
        const DB_KxUserProject& root = m_model.root;
        texts.root.Title = root.Title;
        texts.root.PackageVersion = root.PackageVersion;
        texts.root.Comment = root.Comment;
        texts.root.ModelName = root.ModelName;
        texts.root.OsVersion = root.OsVersion;
        texts.root.Date = root.Date;
        texts.root.DB_StepSets = &texts.Make<DB_StepSets>();
        const std::string path = m_places.TakeFileNear("verbatim/package.json");
        m_writer.WriteText(path, WriteObject(texts.root));
        return "# A manifest has no words for them: title and so on are taken as they are.\n" +
               Line("description-file", TomlText(path));
    }

    // ---- trees ----

    /// Writes what is below a folder of the package.
    /// @param place  the folder that it becomes
    WrittenTree WriteTree(const std::vector<PayloadPart>& parts, const std::string& place)
    {
        WrittenTree tree;
        tree.source = place;
        m_writer.MakeFolder(tree.source);
        LocalNames names;
        std::vector<std::string> programs;
        std::size_t renamed = 0;
        for (const PayloadPart& part : parts) {
            const std::string local = names.Of(part.name);
            if (local != part.name) {
                tree.names += Line(TomlText(local), TomlText(part.name));
                ++renamed;
            }
            if (part.entry == nullptr) {
                m_writer.MakeFolder(tree.source + "/" + local);
                continue;
            }
            m_writer.WriteEntry(tree.source + "/" + local, *part.entry);
            ++m_unpacked.files;
            const unsigned mode = part.entry->mode & 0777U;
            if (mode == kProgramMode && !HasWildcard(local) && programs.size() < kMostPatterns) {
                programs.push_back(local);
            } else if (mode != kPlainMode) {
                tree.modes += Line(TomlText(local), TomlText(Octal(mode)));
            }
        }
        tree.text = Line("source", TomlText(tree.source)) + ProgramsLine(programs);
        if (renamed != 0) {
            m_unpacked.remarks.push_back(
                "'" + place + "' has " + io::CountText(renamed, "file") +
                " by other names than the package, which could do harm or clash: 'names' in " +
                kManifestName + " brings them back");
        }
        return tree;
    }

    static std::string ProgramsLine(const std::vector<std::string>& programs)
    {
        if (programs.empty()) {
            return "";
        }
        std::string line = "executable = [";
        for (const std::string& program : programs) {
            line += (programs.size() == 1 ? "" : "\n  ") + TomlText(program) +
                    (programs.size() == 1 ? "" : ",");
        }
        return line + (programs.size() == 1 ? "]\n" : "\n]\n");
    }

    /// Returns the tables of a tree, below the name of the one that tells of it.
    static std::string TablesOf(const WrittenTree& tree, const std::string& above)
    {
        return (tree.modes.empty() ? "" : "\n[" + above + ".modes]\n" + tree.modes) +
               (tree.names.empty() ? "" : "\n[" + above + ".names]\n" + tree.names);
    }

    std::string FolderStep(std::size_t index)
    {
        if (const format::FastSteps* const fast = m_package.CopiedBy(index)) {
            return FastStep(*fast);
        }
        const CopyWords words = FolderWordsOf(m_steps[index]);
        if (words.step == nullptr || !HasFolders(index, words.items.size())) {
            return "";
        }
        std::string text = StepHead(index, "copies what is in folders", format::kCopyFolderKind,
                                    *words.step, words.step->IsRemove);
        for (std::size_t j = 0; j < words.items.size(); ++j) {
            const DB_CopyFunctionData& item = *words.items[j];
            const std::string folder = NumberPath(index, j);
            const WrittenTree tree =
                PlaceTree(m_payload.TakeBelow(folder), item.SourcePath, "payload/" + folder);
            text += "\n[[steps.folders]]\n" + tree.text + OriginLine(tree.source, item.SourcePath) +
                    Line("target", TomlText(item.DestinationPath)) +
                    TablesOf(tree, "steps.folders");
        }
        return text;
    }

    /// Returns the one step of a manifest for the two that bring a fast folder.
    std::string FastStep(const format::FastSteps& fast)
    {
        const CopyWords copy = FileWordsOf(m_steps[fast.copy]);
        const ScriptWords script = ScriptWordsOf(m_steps[fast.copy + 1]);
        if (copy.step == nullptr || script.step == nullptr) {
            throw io::Error(io::ExitCode::kProblems, m_package.Path(),
                            "step " + std::to_string(fast.copy + 1) +
                                " has an archive that a manifest cannot tell",
                            "kx-package show tells what it does");
        }
        const format::FastFolder& folder = fast.folder;
        const WrittenTree tree =
            PlaceTree(m_payload.TakeBelow(fast.Place()), fast.origin, "payload/" + fast.Place());
        return StepHead(fast.copy, "and the next one bring a folder in one archive",
                        format::kCopyFolderKind, *script.step, folder.isRecorded) +
               Line("fast", "true") + "\n[[steps.folders]]\n" + tree.text +
               OriginLine(tree.source, fast.origin) + Line("target", TomlText(folder.target)) +
               (folder.archive == format::DefaultFastArchive(folder.target)
                    ? ""
                    : Line("archive", TomlText(folder.archive))) +
               TablesOf(tree, "steps.folders");
    }

    /// Tells whether the payload of every item of a step is a folder, or missing.
    [[nodiscard]] bool HasFolders(std::size_t step, std::size_t items) const
    {
        const auto isInTheWay = [this](const std::string& name) {
            const PackageEntry* const entry = m_package.Find(name);
            return entry != nullptr && entry->kind != PackageEntry::Kind::kFolder;
        };
        bool isFine = !isInTheWay(std::to_string(step));
        for (std::size_t j = 0; j < items && isFine; ++j) {
            isFine = !isInTheWay(NumberPath(step, j));
        }
        return isFine;
    }

    /// Writes a tree where the author had it, if that can be, or a copy of it where another step
    /// has it already.
    WrittenTree PlaceTree(const std::vector<PayloadPart>& parts, const std::string& origin,
                          const std::string& otherwise)
    {
        const auto known = m_trees.find(origin);
        if (known != m_trees.end() && IsSameTree(parts, known->second)) {
            return known->second.written;
        }
        const bool isFree = IsHarmlessPath(origin) && m_places.TakeTree(origin);
        const std::string place =
            isFree ? origin : m_places.TakeTreeNear(PlaceLike(origin, otherwise));
        PlacedTree tree = {WriteTree(parts, place), parts};
        WrittenTree written = tree.written;
        m_trees.try_emplace(origin, std::move(tree));
        return written;
    }

    /// Returns a place below "payload" that is called like the end of where the author had it.
    static std::string PlaceLike(const std::string& origin, const std::string& otherwise)
    {
        std::string path = OSA_TrimDirMark(origin.c_str());
        path = OSA_GetFilenameExt(path.c_str());
        return path.empty() || path.front() == '.' ? otherwise : "payload/" + HarmlessName(path);
    }

    struct PlacedTree {
        WrittenTree written;
        std::vector<PayloadPart> parts;
    };

    [[nodiscard]] bool IsSameTree(const std::vector<PayloadPart>& parts,
                                  const PlacedTree& other) const
    {
        LocalNames names; // the same as when the other one was written: the order is the same
        const auto isSame = [&](const PayloadPart& one, const PayloadPart& two) {
            if (one.name != two.name || (one.entry == nullptr) != (two.entry == nullptr)) {
                return false;
            }
            const std::string local = names.Of(one.name);
            return one.entry == nullptr ||
                   (one.entry->mode == two.entry->mode &&
                    m_writer.IsSame(other.written.source + "/" + local, *one.entry));
        };
        return std::equal(parts.begin(), parts.end(), other.parts.begin(), other.parts.end(),
                          isSame);
    }

    static std::string OriginLine(const std::string& source, const std::string& origin)
    {
        return source == origin ? "" : Line("origin", TomlText(origin));
    }

    // ---- steps ----

    static std::string StepHead(std::size_t index, const char* what, const format::StepKind& kind,
                                const DB_StepSet& step, bool isRecorded)
    {
        return "\n# Step " + std::to_string(index + 1) + " " + what + ".\n[[steps]]\n" +
               Line("kind", TomlText(kind.name)) +
               (step.Comment.empty() ? "" : Line("comment", TomlText(step.Comment))) +
               (step.CanSkip ? Line("skip", "true") : "") +
               (isRecorded ? "" : Line("record", "false"));
    }

    std::string OtherStep(std::size_t index)
    {
        std::string text = FileStep(index);
        text = text.empty() ? ScriptStep(index) : text;
        text = text.empty() ? SettingsStep(index) : text;
        return text.empty() ? VerbatimStep(index) : text;
    }

    std::string FileStep(std::size_t index)
    {
        const CopyWords words = FileWordsOf(m_steps[index]);
        if (words.step == nullptr) {
            return "";
        }
        std::vector<const PackageEntry*> entries;
        for (std::size_t j = 0; j < words.items.size(); ++j) {
            entries.push_back(m_payload.FileAt(PackedName(index, j, *words.items[j])));
            if (entries.back() == nullptr) {
                return "";
            }
        }
        std::string text = StepHead(index, "copies files", format::kCopyFilesKind, *words.step,
                                    words.step->IsRemove);
        for (std::size_t j = 0; j < words.items.size(); ++j) {
            const DB_CopyFunctionData& item = *words.items[j];
            m_payload.Take(PackedName(index, j, item));
            const std::string source = PlaceFile(*entries[j], item.SourcePath);
            text += "\n[[steps.files]]\n" + Line("source", TomlText(source)) +
                    OriginLine(source, item.SourcePath) +
                    Line("target", TomlText(item.DestinationPath)) +
                    Line("mode", TomlText(item.Permissions));
        }
        return text;
    }

    static std::string PackedName(std::size_t step, std::size_t item,
                                  const DB_CopyFunctionData& data)
    {
        return NumberPath(step, item) + "/" + OSA_GetFilenameExt(data.SourcePath.c_str());
    }

    /// Writes a file where the author had it, if that can be.
    std::string PlaceFile(const PackageEntry& entry, const std::string& origin)
    {
        const auto known = m_files.find(origin);
        if (known != m_files.end() && m_writer.IsSame(known->second, entry)) {
            return known->second;
        }
        std::string path = origin;
        if (!IsHarmlessPath(origin) || !m_places.TakeFile(origin)) {
            path = m_places.TakeFileNear("payload/" +
                                         HarmlessName(OSA_GetFilenameExt(origin.c_str())));
        }
        m_writer.WriteEntry(path, entry);
        ++m_unpacked.files;
        m_files.try_emplace(origin, path);
        return path;
    }

    std::string ScriptStep(std::size_t index)
    {
        const ScriptWords words = ScriptWordsOf(m_steps[index]);
        if (words.step == nullptr) {
            return "";
        }
        const std::string number = std::to_string(index + 1);
        return StepHead(index, "runs a script", format::kScriptKind, *words.step, true) +
               ScriptLine("install", words.install->ScriptData, "scripts/install-" + number) +
               (words.uninstall->ScriptData == kDefaultUninstall
                    ? ""
                    : ScriptLine("uninstall", words.uninstall->ScriptData,
                                 "scripts/uninstall-" + number));
    }

    /// Returns the line of a script; a long one gets a file.
    std::string ScriptLine(const std::string& key, const std::string& script,
                           const std::string& place)
    {
        constexpr std::ptrdiff_t kMostLines = 40;
        if (std::count(script.begin(), script.end(), '\n') <= kMostLines) {
            return Line(key, TomlLines(script));
        }
        const std::string path = m_places.TakeFileNear(place + ".sh");
        m_writer.WriteText(path, script);
        return Line(key + "-file", TomlText(path));
    }

    std::string SettingsStep(std::size_t index)
    {
        const SettingsWords words = SettingsWordsOf(m_steps[index]);
        if (words.step == nullptr) {
            return "";
        }
        std::string text =
            StepHead(index, "changes settings", format::kSettingsKind, *words.step, true);
        for (std::size_t k = 0; k < words.settings.size(); ++k) {
            text += Setting(words.settings[k], "scripts/startup-" + NumberName(index, k));
        }
        return text;
    }

    static std::string NumberName(std::size_t step, std::size_t item)
    {
        return std::to_string(step + 1) + "-" + std::to_string(item + 1);
    }

    std::string Setting(const SettingWords& words, const std::string& place)
    {
        const format::SettingKind& kind = *format::FindKind(
            format::SettingKinds(), &format::SettingKind::id, words.config->ConfigId);
        std::string text = "\n[[steps.settings]]\n" + Line("kind", TomlText(kind.name)) +
                           (words.config->IsUsed ? "" : Line("used", "false"));
        std::vector<const DB_HardwareItem*> items = words.items;
        std::string script;
        // Build puts the script behind the values, with line feeds alone.
        if (&kind == &format::kAutoStartKind && !items.empty() &&
            items.back()->ItemName == format::kCustomScriptItem &&
            items.back()->Value.find("\r\n") == std::string::npos) {
            script = ScriptLine("script", items.back()->Value, place);
            items.pop_back();
        }
        if (!items.empty()) {
            std::string values;
            for (const DB_HardwareItem* const item : items) {
                values += (values.empty() ? "{ " : ", ") + TomlKey(item->ItemName) + " = " +
                          TomlText(item->Value);
            }
            text += Line("values", values + " }");
        }
        return text + script;
    }

    /// Writes a step as it is, with all that is in its folder.
    std::string VerbatimStep(std::size_t index)
    {
        const std::string number = std::to_string(index + 1);
        const std::string path = m_places.TakeFileNear("verbatim/step-" + number + ".json");
        m_writer.WriteText(path, WriteObject(*m_steps[index]));
        m_unpacked.verbatim.push_back(index + 1);
        std::string text = "\n# Step " + number +
                           " is taken as it is: a manifest has no words for all that it says.\n"
                           "[[steps]]\n" +
                           Line("kind", TomlText(kVerbatimKind.name)) +
                           Line("description-file", TomlText(path));
        const std::vector<PayloadPart> parts = m_payload.TakeBelow(std::to_string(index));
        if (parts.empty()) {
            return text;
        }
        const WrittenTree tree = WriteTree(parts, m_places.TakeTreeNear("payload/step-" + number));
        return text + "\n[steps.payload]\n" + tree.text + TablesOf(tree, "steps.payload");
    }

    /// Writes what is in the package besides.
    std::string WriteExtra()
    {
        std::vector<std::string> lost;
        const std::vector<PayloadPart> parts = m_payload.TakeRest(lost);
        for (const std::string& name : lost) {
            m_unpacked.remarks.push_back("'" + name +
                                         "' is left out: it is no file, and no step uses it");
        }
        if (parts.empty()) {
            return "";
        }
        const WrittenTree tree = WriteTree(parts, m_places.TakeTreeNear("extra"));
        return "\n# In the package besides, by their names there: no step uses them.\n"
               "[package.extra]\n" +
               tree.text + TablesOf(tree, "package.extra");
    }

    const format::FastPackage& m_package;
    ProjectModel m_model;
    std::vector<IPicoJ*> m_steps;
    Payload m_payload;
    PayloadWriter m_writer;
    LocalPlaces m_places;
    std::map<std::string, PlacedTree> m_trees;  ///< by where the author had them
    std::map<std::string, std::string> m_files; ///< place, by where the author had it
    UnpackedSources m_unpacked;
};

} // namespace

UnpackedSources UnpackSources(const archive::Package& package, const std::string& folder,
                              const UnpackOptions& options)
{
    return Unpacking(format::FastPackage(package), folder, options).Run();
}

} // namespace kx::tool

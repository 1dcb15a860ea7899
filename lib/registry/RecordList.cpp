// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "registry/RecordList.h"

#include "io/Error.h"
#include "io/Text.h"
#include "io/Transfer.h"

#include <string_view>
#include <utility>

namespace kx::registry
{

namespace
{

constexpr std::string_view kFoldersMark = " #dir";
constexpr std::string_view kFilesMark = " #file";
constexpr const char* kDamaged = "list-damaged";

/// Takes the lines of a list as they come.
class ListReader
{
public:
    ListReader(const std::string& self, const std::function<void(const ListEntry&)>& tell)
        : m_self(self), m_tell(tell)
    {
    }

    void Take(std::string_view piece)
    {
        while (!piece.empty()) {
            const std::size_t end = piece.find('\n');
            Append(piece.substr(0, end));
            if (end == std::string_view::npos) {
                return;
            }
            EndLine();
            piece.remove_prefix(end + 1);
        }
    }

    ListSummary Finish()
    {
        if (m_line == 0 && !m_hasText) {
            Problem("list-empty", "installedFile.list is empty: it was not written completely");
            return std::move(m_sum);
        }
        if (m_hasText) {
            Problem(kDamaged, "line " + std::to_string(m_line + 1) +
                                  " is cut off: the list was not written completely");
        }
        if (m_part != Part::kFiles) {
            Problem(kDamaged, "the line ' #file' is missing: the list was not written completely");
        } else if (!m_namesItself) {
            Problem(kDamaged, "the list does not name itself: it was cut, or is another record's");
        }
        return std::move(m_sum);
    }

private:
    enum class Part { kNone, kFolders, kFiles };

    void Append(std::string_view text)
    {
        m_hasText = m_hasText || !text.empty();
        m_isTooLong = m_isTooLong || m_text.size() + text.size() > kLongestPath;
        m_text.append(text.substr(0, kLongestPath - m_text.size()));
    }

    void EndLine()
    {
        ++m_line;
        if (m_text == kFoldersMark) {
            StartPart(Part::kNone, Part::kFolders);
        } else if (m_text == kFilesMark) {
            StartPart(Part::kFolders, Part::kFiles);
        } else {
            TellEntry();
        }
        m_text.clear();
        m_hasText = false;
        m_isTooLong = false;
    }

    void StartPart(Part before, Part part)
    {
        if (m_part != before) {
            Problem(kDamaged, LineIs("does not belong there"));
        }
        m_part = part;
    }

    void TellEntry()
    {
        if (m_part == Part::kNone) {
            // One problem for all that stands before the first mark.
            if (!std::exchange(m_isHeadTold, true)) {
                Problem(kDamaged, LineIs("comes before the line ' #dir'"));
            }
            return;
        }
        if (const char* const what = WhyNoPath(); what != nullptr) {
            Problem(kDamaged, LineIs(what));
            return;
        }
        const bool isFolder = m_part == Part::kFolders;
        ++(isFolder ? m_sum.folders : m_sum.files);
        m_namesItself = m_namesItself || (!isFolder && m_text == m_self);
        m_tell({isFolder, m_text, m_line});
    }

    [[nodiscard]] const char* WhyNoPath() const
    {
        if (m_isTooLong) {
            return "is longer than a path can be";
        }
        if (m_text.empty()) {
            return "is empty";
        }
        if (m_text.find('\0') != std::string::npos) {
            return "has a zero byte";
        }
        return m_text.front() == '/' ? nullptr : "is not a full path and cannot be looked up";
    }

    [[nodiscard]] std::string LineIs(const char* what) const
    {
        constexpr std::size_t kMostShown = 60;
        const std::string shown = m_text.substr(0, kMostShown);
        return "line " + std::to_string(m_line) + (m_text.empty() ? "" : " '" + shown + "'") + " " +
               what;
    }

    void Problem(const char* id, const std::string& what)
    {
        if (m_sum.problems.size() == kMostListProblems) {
            ++m_sum.omittedProblems;
            return;
        }
        m_sum.problems.push_back({id, what});
    }

    const std::string& m_self;
    const std::function<void(const ListEntry&)>& m_tell;
    ListSummary m_sum;
    Part m_part = Part::kNone;
    std::string m_text; ///< of the present line, no longer than a path
    bool m_hasText = false;
    bool m_isTooLong = false;
    bool m_isHeadTold = false;
    bool m_namesItself = false;
    std::uint64_t m_line = 0; ///< lines that are done
};

} // namespace

ListSummary ReadRecordList(const io::Descriptor& file, const std::string& shown,
                           const std::string& self,
                           const std::function<void(const ListEntry&)>& tell)
{
    ListReader reader(self, tell);
    std::string piece(1 << 16, '\0');
    std::uint64_t size = 0;
    for (;;) {
        const std::size_t taken = io::ReadUpTo(file.Number(), piece.data(), piece.size(), shown);
        if (taken == 0) {
            return reader.Finish();
        }
        size += taken;
        if (size > kLargestList) {
            throw io::Error(io::ExitCode::kNoAccess, shown,
                            "is larger than " + io::SizeText(kLargestList));
        }
        reader.Take(std::string_view(piece).substr(0, taken));
    }
}

} // namespace kx::registry

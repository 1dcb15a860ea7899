// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "reading/Contents.h"

#include "archive/UnpackedArchive.h"
#include "archive/ZipFields.h"
#include "archive/ZipNames.h"
#include "archive/ZipStructure.h"
#include "confined/Unread.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <set>

namespace kx::guard
{

namespace
{

/// What messages are about. Numbers in them are least significant byte first.
enum ContentsMessage : std::uint8_t {
    kFolderMessage, ///< mode (4), which clock (1), moment (8), name
    kFileMessage,   ///< the same
    kBytesMessage,  ///< bytes of the file that came last
    kLinkMessage,   ///< length of the name (4), name, target
};

/// By which clock a moment was written.
enum MomentClock : std::uint8_t {
    kNoClock,
    kPanelClock, ///< that of the panel: the moment is as if it were UTC
    kUtcClock,
};

/// When an entry was last changed.
struct Moment {
    MomentClock clock = kNoClock;
    std::int64_t seconds = 0;
};

constexpr std::size_t kLongestTarget = 4095;

// ---- in the confinement ----

/// Reads the moment of an entry as unzip does: the extra field of the local header that has it in
/// UTC counts before the date that every header has.
Moment MomentOf(const archive::ByteSource& source, const archive::ZipMember& member)
{
    constexpr std::size_t kLocalHeaderSize = 30;
    constexpr std::size_t kNameLengthAt = 26;
    constexpr std::uint16_t kTimesField = 0x5455;
    constexpr unsigned kHasChange = 1;
    const std::string header = source.Read(member.headerAt, kLocalHeaderSize);
    archive::ZipFields lengths(header, kNameLengthAt);
    const std::size_t nameLength = lengths.Two();
    const std::string extra =
        source.Read(member.headerAt + kLocalHeaderSize + nameLength, lengths.Two());
    archive::ZipFields fields(extra);
    while (fields.Left() >= 4) {
        const std::uint16_t id = fields.Two();
        const std::string_view field = fields.Text(fields.Two());
        constexpr std::size_t kSize = 5;
        if (id == kTimesField && field.size() >= kSize &&
            (static_cast<unsigned char>(field[0]) & kHasChange) != 0) {
            const auto seconds = static_cast<std::int32_t>(archive::ZipFields(field, 1).Four());
            return {kUtcClock, seconds};
        }
    }
    return {kPanelClock, member.moment};
}

/// The moments of all that unpacking makes, by name.
std::map<std::string, Moment> MomentsOf(const archive::ByteSource& source,
                                        const archive::ZipStructure& zip)
{
    std::map<std::string, Moment> moments;
    for (const archive::ZipMember& member : zip.members) {
        if (member.hasLocal && !archive::IsDiskLabel(member)) {
            moments[archive::NameOnPanel(member).name] = MomentOf(source, member);
        }
    }
    return moments;
}

void SendBytes(IMessages& messages, std::string_view bytes)
{
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, kLargestMessage);
        messages.Send(kBytesMessage, piece);
        bytes.remove_prefix(piece.size());
    }
}

void SendEntry(IMessages& messages, const archive::PackageEntry& entry, const Moment& moment)
{
    constexpr unsigned kUsualFolderMode = 0755; // of one that only shows as a part of names
    const bool isFolder = entry.kind == archive::PackageEntry::Kind::kFolder;
    std::string message;
    archive::AppendZipNumber(message, entry.hasMode ? entry.mode : kUsualFolderMode, 4);
    archive::AppendZipNumber(message, moment.clock, 1);
    archive::AppendZipNumber(message, static_cast<std::uint64_t>(moment.seconds), 8);
    messages.Send(isFolder ? kFolderMessage : kFileMessage, message + entry.name);
}

void SendLink(IMessages& messages, const std::string& name, const std::string& target)
{
    std::string message;
    archive::AppendZipNumber(message, name.size(), 4);
    messages.Send(kLinkMessage, message + name + target);
}

void SendContents(const archive::ByteSource& source, IMessages& messages)
{
    const archive::ZipStructure zip = archive::ReadZipStructure(source);
    const archive::UnpackedArchive package("the package", source, zip, 0);
    const std::map<std::string, Moment> moments = MomentsOf(source, zip);
    for (const archive::PackageEntry& entry : package.Entries()) {
        if (entry.kind == archive::PackageEntry::Kind::kLink) {
            SendLink(messages, entry.name, package.Read(entry.name, kLongestTarget + 1));
            continue;
        }
        const auto moment = moments.find(entry.name);
        SendEntry(messages, entry, moment == moments.end() ? Moment() : moment->second);
        if (entry.kind == archive::PackageEntry::Kind::kFile) {
            package.Stream(entry.name, [&messages](std::string_view piece) {
                SendBytes(messages, piece);
                return true;
            });
        }
    }
}

// ---- outside of it ----

[[noreturn]] void RefuseToBelieve(const char* what)
{
    throw Unread(std::string("what unpacks the package told ") + what);
}

bool IsPlainPart(std::string_view part)
{
    constexpr std::size_t kLongestPart = 255;
    return !part.empty() && part.size() <= kLongestPart && part != "." && part != "..";
}

/// Tells whether a name can only lead to something in the folder that it is unpacked to.
bool IsPlainName(std::string_view name)
{
    constexpr std::size_t kLongestName = 4000;
    bool isPlain = name.size() <= kLongestName && name.find('\0') == std::string_view::npos;
    for (std::size_t at = 0; at <= name.size() && isPlain;) {
        const std::size_t end = std::min(name.find('/', at), name.size());
        isPlain = IsPlainPart(name.substr(at, end - at));
        at = end + 1;
    }
    return isPlain;
}

/// Returns the moment by UTC; the panel's own clock is known only here.
std::optional<std::int64_t> MomentInUtc(std::uint8_t clock, std::int64_t seconds)
{
    if (clock == kUtcClock) {
        return seconds;
    }
    auto local = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (clock != kPanelClock || gmtime_r(&local, &parts) == nullptr) {
        return {};
    }
    parts.tm_isdst = -1;
    return std::mktime(&parts);
}

/// Takes the messages, believes nothing in them, and hands on what holds.
class ContentsReceiver
{
public:
    ContentsReceiver(const Limits& limits, IContentsTaker& taker) : m_limits(limits), m_taker(taker)
    {
    }

    void Take(const Message& message)
    {
        switch (message.kind) {
        case kFolderMessage:
        case kFileMessage:
            TakeEntry(message);
            return;
        case kBytesMessage:
            TakeBytes(message.bytes);
            return;
        case kLinkMessage:
            TakeLink(message.bytes);
            return;
        default:
            RefuseToBelieve("what is not known");
        }
    }

private:
    void TakeEntry(const Message& message)
    {
        constexpr std::size_t kHeadSize = 13;
        if (message.bytes.size() < kHeadSize) {
            RefuseToBelieve("half a message");
        }
        archive::ZipFields fields(message.bytes);
        UnpackedEntry entry;
        entry.mode = fields.Four() & 0777U;
        const auto clock = static_cast<std::uint8_t>(message.bytes[4]);
        fields.Skip(1);
        entry.moment = MomentInUtc(clock, static_cast<std::int64_t>(fields.Eight()));
        entry.name = message.bytes.substr(kHeadSize);
        TakeName(entry.name);
        m_isFileOpen = message.kind == kFileMessage;
        if (m_isFileOpen) {
            m_taker.TakeFile(entry);
            return;
        }
        m_folders.insert(entry.name);
        m_taker.TakeFolder(entry);
    }

    void TakeBytes(std::string_view bytes)
    {
        if (!m_isFileOpen) {
            RefuseToBelieve("bytes of no file");
        }
        m_bytes += bytes.size();
        if (m_bytes > m_limits.unpackedBytes) {
            throw Unread("it unpacks to more than " + std::to_string(m_limits.unpackedBytes) +
                         " bytes");
        }
        m_taker.TakeBytes(bytes);
    }

    void TakeLink(std::string_view bytes)
    {
        constexpr std::size_t kLengthSize = 4;
        const std::size_t length = archive::ZipFields(bytes).Four();
        if (bytes.size() < kLengthSize || length > bytes.size() - kLengthSize) {
            RefuseToBelieve("half a message");
        }
        const std::string name(bytes.substr(kLengthSize, length));
        const std::string target(bytes.substr(kLengthSize + length));
        TakeName(name);
        if (target.empty() || target.size() > kLongestTarget ||
            target.find('\0') != std::string::npos) {
            throw Unread("a link in it leads to what is no path");
        }
        m_isFileOpen = false;
        m_taker.TakeLink(name, target);
    }

    /// Checks the name of what comes next.
    void TakeName(const std::string& name)
    {
        if (!IsPlainName(name)) {
            RefuseToBelieve("a name that is none");
        }
        // Sorted, so none can come twice.
        if (name <= m_last) {
            RefuseToBelieve("names out of their order");
        }
        const std::size_t slash = name.rfind('/');
        if (slash != std::string::npos && m_folders.count(name.substr(0, slash)) == 0) {
            RefuseToBelieve("of something in what is no folder");
        }
        // Folders that only show as parts of names count as well.
        m_count += 1;
        if (m_count / 2 > m_limits.entries) {
            throw Unread("there is more in it than " + std::to_string(m_limits.entries) +
                         " files and folders");
        }
        m_last = name;
    }

    const Limits& m_limits;
    IContentsTaker& m_taker;
    std::set<std::string> m_folders;
    std::string m_last;
    std::uint64_t m_count = 0;
    std::uint64_t m_bytes = 0;
    bool m_isFileOpen = false;
};

} // namespace

void StreamContents(IConfinement& confinement, const archive::ByteSource& source, int descriptor,
                    const Limits& limits, IContentsTaker& taker)
{
    ContentsReceiver receiver(limits, taker);
    confinement.Run(
        descriptor, [&source](IMessages& messages) { SendContents(source, messages); },
        [&receiver](const Message& message) { receiver.Take(message); });
}

} // namespace kx::guard

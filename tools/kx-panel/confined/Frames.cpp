// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/Frames.h"

#include "confined/Unread.h"
#include "io/Text.h"
#include "io/Transfer.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace kx::guard
{

namespace
{

constexpr std::uint8_t kDone = 0xff;
constexpr std::uint8_t kError = 0xfe;
constexpr std::uint8_t kNoMemory = 0xfd;

/// Longest part of an Error's text.
constexpr std::size_t kLongestText = 2000;

[[noreturn]] void RefuseFrame()
{
    throw Unread("what reads the package said what it must not say");
}

std::uint32_t SizeIn(std::string_view head)
{
    std::uint32_t size = 0;
    for (std::size_t i = kFrameHeadSize; i-- > 1;) {
        size = size << 8U | static_cast<unsigned char>(head[i]);
    }
    return size;
}

/// The parts of an Error, one behind the other: its code, and texts that end in a NUL.
std::string BytesOf(const io::Error& error)
{
    std::string bytes(1, static_cast<char>(error.Code()));
    for (const std::string& text : {error.Where(), std::string(error.what()), error.Remedy()}) {
        bytes += text.substr(0, std::min(text.find('\0'), kLongestText));
        bytes += '\0';
    }
    return bytes;
}

/// Takes a text off the bytes; nothing when none stands there.
std::optional<std::string> TakeText(std::string_view& bytes)
{
    const std::size_t size = bytes.find('\0');
    if (size > kLongestText) {
        return {};
    }
    std::string text = io::Printable(bytes.substr(0, size));
    bytes.remove_prefix(size + 1);
    return text;
}

[[noreturn]] void ThrowError(std::string_view bytes)
{
    const auto code = static_cast<io::ExitCode>(bytes.empty() ? '\0' : bytes.front());
    if (code != io::ExitCode::kProblems && code != io::ExitCode::kNoAccess) {
        RefuseFrame();
    }
    bytes.remove_prefix(1);
    const std::optional<std::string> where = TakeText(bytes);
    const std::optional<std::string> what = TakeText(bytes);
    const std::optional<std::string> remedy = TakeText(bytes);
    if (!where.has_value() || !what.has_value() || !remedy.has_value() || !bytes.empty()) {
        RefuseFrame();
    }
    throw io::Error(code, *where, *what, *remedy);
}

} // namespace

int FrameWriter::Write(std::uint8_t kind, std::string_view bytes)
{
    m_frame[0] = static_cast<char>(kind);
    for (std::size_t i = 1; i < kFrameHeadSize; ++i) {
        m_frame.at(i) = static_cast<char>(bytes.size() >> (8 * (i - 1)));
    }
    std::copy(bytes.begin(), bytes.end(), m_frame.begin() + kFrameHeadSize);
    const std::string_view frame(m_frame.data(), kFrameHeadSize + bytes.size());
    return io::TryWriteAll(m_descriptor, frame).error;
}

void FrameWriter::Send(std::uint8_t kind, std::string_view bytes)
{
    if (kind >= kFirstOwnKind) {
        throw std::invalid_argument("no kind of message");
    }
    if (bytes.size() > kLargestMessage) {
        throw std::length_error("too large a message");
    }
    if (const int error = Write(kind, bytes); error != 0) {
        throw io::AccessError("", "tell what was read", error);
    }
}

void FrameWriter::TellDone()
{
    // As above all three: nobody is left to be told.
    static_cast<void>(Write(kDone, {}));
}

void FrameWriter::TellError(const io::Error& error)
{
    static_cast<void>(Write(kError, BytesOf(error)));
}

void FrameWriter::TellNoMemory()
{
    static_cast<void>(Write(kNoMemory, {}));
}

void FrameReader::Take(std::uint8_t kind, std::string_view bytes, const MessageTaker& take)
{
    if (kind == kError) {
        ThrowError(bytes);
    }
    if (kind == kNoMemory && bytes.empty()) {
        throw Unread("what reads the package needs more memory than it may have");
    }
    if (kind == kDone && bytes.empty()) {
        m_isDone = true;
        return;
    }
    if (kind >= kFirstOwnKind || m_left.messages == 0 || m_left.bytes < bytes.size()) {
        RefuseFrame();
    }
    --m_left.messages;
    m_left.bytes -= bytes.size();
    take({kind, bytes});
}

bool FrameReader::Feed(std::string_view bytes, const MessageTaker& take)
{
    m_rest += bytes;
    std::string_view rest = m_rest;
    while (!m_isDone && rest.size() >= kFrameHeadSize) {
        const std::uint32_t size = SizeIn(rest);
        if (size > kLargestMessage) {
            RefuseFrame();
        }
        if (rest.size() - kFrameHeadSize < size) {
            break;
        }
        Take(static_cast<std::uint8_t>(rest.front()), rest.substr(kFrameHeadSize, size), take);
        rest.remove_prefix(kFrameHeadSize + size);
    }
    if (m_isDone && !rest.empty()) {
        RefuseFrame();
    }
    m_rest.erase(0, m_rest.size() - rest.size());
    return m_isDone;
}

} // namespace kx::guard

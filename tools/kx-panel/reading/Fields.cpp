// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "reading/Fields.h"

#include "confined/Unread.h"

namespace kx::guard
{

namespace
{

constexpr std::size_t kNumberSize = 8;
constexpr unsigned kByteBits = 8;

[[noreturn]] void RefuseFields()
{
    throw Unread("what reads the package sent a message that makes no sense");
}

} // namespace

FieldsWriter& FieldsWriter::Number(std::uint64_t number)
{
    for (std::size_t i = 0; i < kNumberSize; ++i) {
        m_bytes += static_cast<char>(number & 0xffU);
        number >>= kByteBits;
    }
    return *this;
}

FieldsWriter& FieldsWriter::Text(std::string_view text)
{
    Number(text.size());
    m_bytes += text;
    return *this;
}

std::uint64_t FieldsReader::Number(std::uint64_t most)
{
    if (m_rest.size() < kNumberSize) {
        RefuseFields();
    }
    std::uint64_t number = 0;
    for (std::size_t i = kNumberSize; i > 0; --i) {
        number = number << kByteBits | static_cast<unsigned char>(m_rest[i - 1]);
    }
    m_rest.remove_prefix(kNumberSize);
    if (number > most) {
        RefuseFields();
    }
    return number;
}

std::string_view FieldsReader::Text(std::size_t most)
{
    const auto size = static_cast<std::size_t>(Number(most));
    if (size > m_rest.size()) {
        RefuseFields();
    }
    const std::string_view text = m_rest.substr(0, size);
    m_rest.remove_prefix(size);
    return text;
}

void FieldsReader::End() const
{
    if (!m_rest.empty()) {
        RefuseFields();
    }
}

} // namespace kx::guard

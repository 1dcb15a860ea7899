// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/ElfOf.h"

#include <utility>

namespace
{

std::string Number(std::uint64_t value, std::size_t size)
{
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) {
        bytes += static_cast<char>(i < sizeof value ? value >> (8 * i) & 0xffU : 0);
    }
    return bytes;
}

/// A table of texts; the first one is empty.
struct Texts {
    std::string bytes = std::string(1, '\0');

    std::size_t Add(const std::string& text)
    {
        const std::size_t at = bytes.size();
        bytes += text + '\0';
        return at;
    }
};

struct Section {
    unsigned type;
    std::string bytes;
    unsigned link = 0;
    unsigned info = 0;
};

class Writer
{
public:
    explicit Writer(const ElfOf& elf) : m_elf(elf), m_word(elf.is64Bit ? 8 : 4) {}

    std::string Write()
    {
        const std::string dynamic = Dynamic();
        const std::string versions = Versions();
        std::vector<Section> sections = {{0, ""}, {3, m_texts.bytes}}; // SHT_NULL, SHT_STRTAB
        if (!dynamic.empty()) {
            sections.push_back({6, dynamic, 1}); // SHT_DYNAMIC
        }
        if (!versions.empty()) {
            sections.push_back({0x6ffffffe, versions, 1, 1}); // SHT_GNU_verneed
        }
        if (!m_elf.attributes.empty()) {
            sections.push_back({0x70000003, m_elf.attributes}); // SHT_ARM_ATTRIBUTES
        }
        return Together(sections);
    }

private:
    [[nodiscard]] std::string Word(std::uint64_t value) const { return Number(value, m_word); }

    std::string Dynamic()
    {
        std::string bytes;
        const auto add = [&](std::uint64_t tag, const std::string& text) {
            bytes += Word(tag) + Word(m_texts.Add(text));
        };
        for (const std::string& library : m_elf.needed) {
            add(1, library); // DT_NEEDED
        }
        if (!m_elf.name.empty()) {
            add(14, m_elf.name); // DT_SONAME
        }
        if (!m_elf.folders.empty()) {
            add(29, m_elf.folders); // DT_RUNPATH
        }
        return bytes.empty() ? bytes : bytes + Word(0) + Word(0);
    }

    std::string Versions()
    {
        if (m_elf.version.empty()) {
            return {};
        }
        std::string bytes = Number(1, 2) + Number(m_elf.version.size(), 2) +
                            Number(m_texts.Add("libc.so.6"), 4) + Number(16, 4) + Number(0, 4);
        for (const std::string& version : m_elf.version) {
            const bool isLast = &version == &m_elf.version.back();
            bytes += Number(0, 4) + Number(0, 2) + Number(2, 2) + Number(m_texts.Add(version), 4) +
                     Number(isLast ? 0 : 16, 4);
        }
        return bytes;
    }

    [[nodiscard]] std::string Segment(unsigned type, std::uint64_t offset, std::uint64_t size) const
    {
        const std::string place = Word(offset) + Word(offset) + Word(offset);
        const std::string sizes = Word(size) + Word(size);
        return m_elf.is64Bit ? Number(type, 4) + Number(4, 4) + place + sizes + Word(1)
                             : Number(type, 4) + place + sizes + Number(4, 4) + Word(1);
    }

    [[nodiscard]] std::string Head(std::size_t segments, std::uint64_t sectionTable,
                                   std::size_t sections) const
    {
        return std::string("\x7f"
                           "ELF") +
               Number(m_elf.is64Bit ? 2 : 1, 1) + Number(1, 1) + Number(1, 1) + Number(0, 9) +
               Number(m_elf.type, 2) + Number(m_elf.machine, 2) + Number(1, 4) + Word(0) +
               Word(HeadSize()) + Word(sectionTable) + Number(m_elf.flags, 4) +
               Number(HeadSize(), 2) + Number(m_elf.is64Bit ? 56 : 32, 2) + Number(segments, 2) +
               Number(m_elf.is64Bit ? 64 : 40, 2) + Number(sections, 2) + Number(0, 2);
    }

    [[nodiscard]] std::size_t HeadSize() const { return m_elf.is64Bit ? 64 : 52; }

    [[nodiscard]] std::string Together(const std::vector<Section>& sections) const
    {
        const std::size_t segments = (m_elf.loader.empty() ? 0 : 1) + (m_elf.hasStack ? 1 : 0);
        const std::size_t begin = HeadSize() + segments * (m_elf.is64Bit ? 56 : 32);
        std::string bytes = m_elf.loader.empty() ? "" : m_elf.loader + '\0';
        std::string table;
        for (const Section& section : sections) {
            bytes.resize((bytes.size() + begin + 7) / 8 * 8 - begin, '\0');
            table += Number(0, 4) + Number(section.type, 4) + Word(0) + Word(0) +
                     Word(begin + bytes.size()) + Word(section.bytes.size()) +
                     Number(section.link, 4) + Number(section.info, 4) + Word(1) + Word(0);
            bytes += section.bytes;
        }
        bytes += m_elf.rest;
        bytes.resize((bytes.size() + begin + 7) / 8 * 8 - begin, '\0');
        std::string file = Head(segments, begin + bytes.size(), sections.size());
        if (!m_elf.loader.empty()) {
            file += Segment(3, begin, m_elf.loader.size() + 1); // PT_INTERP
        }
        if (m_elf.hasStack) {
            file += Segment(0x6474e551, 0, 0); // PT_GNU_STACK
        }
        return file + bytes + table;
    }

    const ElfOf& m_elf;
    std::size_t m_word;
    Texts m_texts;
};

} // namespace

std::string ElfOf::Bytes() const
{
    return Writer(*this).Write();
}

ElfOf ArmProgram()
{
    ElfOf elf;
    elf.loader = "/lib/ld-linux-armhf.so.3";
    elf.needed = {"libc.so.6"};
    elf.version = {"GLIBC_2.4"};
    return elf;
}

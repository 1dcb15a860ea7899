// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Program.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include <gelf.h>
#include <libelf.h>

namespace kx::format
{

namespace
{

/// How many parts of a kind are looked at; real programs have some dozens.
constexpr std::size_t kMostParts = 4096;

struct EndElf {
    void operator()(Elf* elf) const { elf_end(elf); }
};

/// The numbers of a piece of the file, least byte first, and texts in it.
class Attributes
{
public:
    explicit Attributes(std::string_view bytes) : m_rest(bytes) {}

    [[nodiscard]] bool IsAtEnd() const { return m_rest.empty(); }

    /// The next number of seven bits a byte.
    std::uint64_t Number()
    {
        constexpr unsigned kMostBits = 63;
        std::uint64_t number = 0;
        for (unsigned shift = 0; !m_rest.empty() && shift < kMostBits; shift += 7) {
            const auto byte = static_cast<unsigned char>(m_rest.front());
            m_rest.remove_prefix(1);
            number |= std::uint64_t{byte & 0x7fU} << shift;
            if ((byte & 0x80U) == 0) {
                break;
            }
        }
        return number;
    }

    std::string_view Text()
    {
        const std::size_t end = std::min(m_rest.find('\0'), m_rest.size());
        const std::string_view text = m_rest.substr(0, end);
        Skip(end + 1);
        return text;
    }

    void Skip(std::size_t count) { m_rest.remove_prefix(std::min(count, m_rest.size())); }

private:
    std::string_view m_rest;
};

/// Returns what the attributes of an arm program say about numbers with a fraction.
FloatAbi FloatAbiOf(std::string_view bytes)
{
    constexpr std::size_t kLengthSize = 4;
    constexpr std::uint64_t kOfFile = 1;
    constexpr std::uint64_t kCompatibility = 32;
    constexpr std::uint64_t kFloatArguments = 28;
    Attributes rest(bytes);
    rest.Skip(1 + kLengthSize); // version and size
    if (rest.Text() != "aeabi" || rest.Number() != kOfFile) {
        return FloatAbi::kUnknown;
    }
    rest.Skip(kLengthSize);
    while (!rest.IsAtEnd()) {
        const std::uint64_t tag = rest.Number();
        if (tag == kFloatArguments) {
            const std::uint64_t value = rest.Number();
            return value == 1 ? FloatAbi::kHard : value == 0 ? FloatAbi::kSoft : FloatAbi::kUnknown;
        }
        const bool isText = tag == 4 || tag == 5 || (tag > kCompatibility && tag % 2 == 1);
        if (!isText) {
            static_cast<void>(rest.Number()); // its value says nothing here
        }
        if (isText || tag == kCompatibility) {
            static_cast<void>(rest.Text()); // likewise
        }
    }
    return FloatAbi::kUnknown;
}

class Reader
{
public:
    explicit Reader(std::string bytes)
        : m_bytes(std::move(bytes)), m_elf(elf_memory(m_bytes.data(), m_bytes.size()))
    {
    }

    std::optional<Program> Read()
    {
        const std::optional<ProgramHead> head = ReadProgramHead(m_bytes);
        GElf_Ehdr header{};
        if (!head.has_value() || m_elf == nullptr || elf_kind(m_elf.get()) != ELF_K_ELF ||
            gelf_getehdr(m_elf.get(), &header) == nullptr) {
            return {};
        }
        m_program.head = *head;
        ReadSegments();
        ReadSections();
        m_program.kind = KindOf(header);
        if (header.e_machine == EM_ARM) {
            m_program.floatAbi = FloatAbiOfFlags(header.e_flags);
        }
        return std::move(m_program);
    }

private:
    [[nodiscard]] Program::Kind KindOf(const GElf_Ehdr& header) const
    {
        if (!m_program.loader.empty()) {
            return Program::Kind::kStarted;
        }
        if (header.e_type == ET_EXEC) {
            return m_isForSystem ? Program::Kind::kStarted : Program::Kind::kOther;
        }
        if (header.e_type != ET_DYN) {
            return Program::Kind::kOther;
        }
        return m_isPositionFree ? Program::Kind::kStarted : Program::Kind::kLibrary;
    }

    [[nodiscard]] FloatAbi FloatAbiOfFlags(GElf_Word flags) const
    {
        if ((flags & EF_ARM_ABI_FLOAT_HARD) != 0) {
            return FloatAbi::kHard;
        }
        if ((flags & EF_ARM_ABI_FLOAT_SOFT) != 0) {
            return FloatAbi::kSoft;
        }
        const bool isHard = m_program.loader.find("armhf") != std::string::npos;
        return isHard ? FloatAbi::kHard : m_attributes;
    }

    void ReadSegments()
    {
        std::size_t count = 0;
        if (elf_getphdrnum(m_elf.get(), &count) != 0) {
            return;
        }
        for (std::size_t i = 0; i < std::min(count, kMostParts); ++i) {
            GElf_Phdr segment{};
            if (gelf_getphdr(m_elf.get(), static_cast<int>(i), &segment) == nullptr) {
                return;
            }
            // Linux programs say so about their stack, and firmware does not.
            m_isForSystem = m_isForSystem || segment.p_type == PT_GNU_STACK ||
                            segment.p_type == PT_TLS || segment.p_type == PT_NOTE;
            if (segment.p_type == PT_INTERP) {
                m_program.loader = TextAt(segment.p_offset, segment.p_filesz);
            }
        }
    }

    /// Returns the text of a piece of the file; empty when it lies outside.
    [[nodiscard]] std::string TextAt(std::uint64_t offset, std::uint64_t size) const
    {
        constexpr std::uint64_t kLongest = 4096;
        if (offset > m_bytes.size()) {
            return {};
        }
        const std::string text = m_bytes.substr(static_cast<std::size_t>(offset),
                                                static_cast<std::size_t>(std::min(size, kLongest)));
        return text.substr(0, text.find('\0'));
    }

    void ReadSections()
    {
        std::size_t count = 0;
        for (Elf_Scn* section = elf_nextscn(m_elf.get(), nullptr);
             section != nullptr && ++count < kMostParts;
             section = elf_nextscn(m_elf.get(), section)) {
            GElf_Shdr header{};
            if (gelf_getshdr(section, &header) == nullptr) {
                return;
            }
            if (header.sh_type == SHT_DYNAMIC) {
                ReadDynamic(section, header);
            } else if (header.sh_type == SHT_GNU_verneed) {
                ReadVersions(section, header);
            } else if (header.sh_type == SHT_ARM_ATTRIBUTES) {
                if (const Elf_Data* const data = elf_rawdata(section, nullptr);
                    data != nullptr && data->d_buf != nullptr) {
                    m_attributes =
                        FloatAbiOf({static_cast<const char*>(data->d_buf), data->d_size});
                }
            }
        }
    }

    /// Returns a text of the table that a section uses; empty when there is none.
    [[nodiscard]] std::string Text(const GElf_Shdr& header, std::uint64_t offset) const
    {
        const char* const text =
            elf_strptr(m_elf.get(), header.sh_link, static_cast<std::size_t>(offset));
        return text == nullptr ? std::string() : text;
    }

    void ReadDynamic(Elf_Scn* section, const GElf_Shdr& header)
    {
        Elf_Data* const data = elf_getdata(section, nullptr);
        for (std::size_t i = 0; data != nullptr && i < kMostParts; ++i) {
            GElf_Dyn entry{};
            if (gelf_getdyn(data, static_cast<int>(i), &entry) == nullptr ||
                entry.d_tag == DT_NULL) {
                return;
            }
            if (entry.d_tag == DT_NEEDED) {
                m_program.libraries.push_back(Text(header, entry.d_un.d_val));
            } else if (entry.d_tag == DT_SONAME) {
                m_program.name = Text(header, entry.d_un.d_val);
            } else if (entry.d_tag == DT_RPATH || entry.d_tag == DT_RUNPATH) {
                AddFolders(Text(header, entry.d_un.d_val));
            } else if (entry.d_tag == DT_FLAGS_1) {
                m_isPositionFree = (entry.d_un.d_val & DF_1_PIE) != 0;
            }
        }
    }

    /// Adds the folders of a list with colons between them.
    void AddFolders(const std::string& list)
    {
        for (std::size_t begin = 0; begin <= list.size();) {
            const std::size_t end = std::min(list.find(':', begin), list.size());
            if (end != begin) {
                m_program.folders.push_back(list.substr(begin, end - begin));
            }
            begin = end + 1;
        }
    }

    void ReadVersions(Elf_Scn* section, const GElf_Shdr& header)
    {
        Elf_Data* const data = elf_getdata(section, nullptr);
        std::uint64_t offset = 0;
        for (std::size_t i = 0; data != nullptr && i < kMostParts; ++i) {
            GElf_Verneed need{};
            if (offset >= data->d_size ||
                gelf_getverneed(data, static_cast<int>(offset), &need) == nullptr) {
                return;
            }
            ReadVersionsOf(*data, header, offset + need.vn_aux, need.vn_cnt);
            if (need.vn_next == 0) {
                return;
            }
            offset += need.vn_next;
        }
    }

    void ReadVersionsOf(Elf_Data& data, const GElf_Shdr& header, std::uint64_t offset,
                        std::size_t count)
    {
        constexpr std::string_view kPrefix = "GLIBC_";
        for (std::size_t i = 0; i < std::min(count, kMostParts); ++i) {
            GElf_Vernaux version{};
            if (offset >= data.d_size ||
                gelf_getvernaux(&data, static_cast<int>(offset), &version) == nullptr) {
                return;
            }
            const std::string name = Text(header, version.vna_name);
            if (name.compare(0, kPrefix.size(), kPrefix) == 0 &&
                name.find_first_not_of("0123456789.", kPrefix.size()) == std::string::npos &&
                IsOlder(m_program.cLibrary, name.substr(kPrefix.size()))) {
                m_program.cLibrary = name.substr(kPrefix.size());
            }
            if (version.vna_next == 0) {
                return;
            }
            offset += version.vna_next;
        }
    }

    std::string m_bytes;
    std::unique_ptr<Elf, EndElf> m_elf;
    Program m_program;
    FloatAbi m_attributes = FloatAbi::kUnknown;
    bool m_isForSystem = false;
    bool m_isPositionFree = false; ///< a program that is loaded like a library
};

} // namespace

std::optional<Program> ReadProgram(std::string bytes)
{
    if (elf_version(EV_CURRENT) == EV_NONE) {
        return {};
    }
    return Reader(std::move(bytes)).Read();
}

bool IsOlder(const std::string& version, const std::string& other)
{
    const char* left = version.c_str();
    const char* right = other.c_str();
    while (*left != '\0' || *right != '\0') {
        char* leftEnd = nullptr;
        char* rightEnd = nullptr;
        constexpr int kDecimal = 10;
        const unsigned long one = std::strtoul(left, &leftEnd, kDecimal);
        const unsigned long two = std::strtoul(right, &rightEnd, kDecimal);
        if (one != two) {
            return one < two;
        }
        if ((leftEnd == left && *left != '\0') || (rightEnd == right && *right != '\0')) {
            return false; // no versions
        }
        left = leftEnd + (*leftEnd == '.' ? 1 : 0);
        right = rightEnd + (*rightEnd == '.' ? 1 : 0);
    }
    return false;
}

} // namespace kx::format

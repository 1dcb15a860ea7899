// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "decision/Decision.h"
#include "reading/Contents.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kx::guard
{

/// Returns the highest version of a package that was ever installed; nothing when none was.
using HighestVersions = std::function<std::optional<std::string>(const std::string& name)>;

/// An open package: its bytes, and the file that they are read from.
struct OpenPackageFile {
    const archive::ByteSource& bytes;
    int descriptor;
    std::string name; ///< the file's own name, without its folder
};

/// Says whether a package is installed, and what is in it; a test hands in another.
class IJudge
{
public:
    /// Judges what can be told before a byte is copied: the size, whether it is signed by a key
    /// that is known, and the room for the copy.
    [[nodiscard]] virtual Decision BeforeCopy(const OpenPackageFile& package) = 0;

    /// Judges the copy.
    [[nodiscard]] virtual Decision OfCopy(const OpenPackageFile& copy,
                                          const HighestVersions& highest) = 0;

    /// Returns the passwords among the package's settings.
    [[nodiscard]] virtual std::vector<std::string> Secrets(const OpenPackageFile& copy) = 0;

    /// Unpacks the copy, after it was judged.
    /// @throws Unread when more comes out than was judged
    virtual void Unpack(const OpenPackageFile& copy, IContentsTaker& taker) = 0;

protected:
    ~IJudge() = default;
};

/// The judge of a panel. Bytes of the package are taken apart in the confinement only.
class PanelJudge final : public IJudge
{
public:
    /// @param policy, keys, fileSystems, confinement  must live as long as the object
    PanelJudge(const Policy& policy, const signature::TrustedKeys& keys,
               const IFileSystems& fileSystems, IConfinement& confinement)
        : m_policy(policy), m_keys(keys), m_fileSystems(fileSystems), m_confinement(confinement)
    {
    }

    [[nodiscard]] Decision BeforeCopy(const OpenPackageFile& package) override;
    [[nodiscard]] Decision OfCopy(const OpenPackageFile& copy,
                                  const HighestVersions& highest) override;
    [[nodiscard]] std::vector<std::string> Secrets(const OpenPackageFile& copy) override;
    void Unpack(const OpenPackageFile& copy, IContentsTaker& taker) override;

private:
    const Policy& m_policy;
    const signature::TrustedKeys& m_keys;
    const IFileSystems& m_fileSystems;
    IConfinement& m_confinement;
    std::uint64_t m_unpackedBytes = 0; ///< of the copy, as it was judged
};

} // namespace kx::guard

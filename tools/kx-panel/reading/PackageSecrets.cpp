// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "reading/PackageSecrets.h"

#include "archive/UnpackedArchive.h"
#include "archive/ZipStructure.h"
#include "confined/Unread.h"
#include "format/Description.h"
#include "format/Kinds.h"
#include "panel/Names.h"

#include <utility>

namespace kx::guard
{

namespace
{

constexpr std::uint8_t kSecretMessage = 0; ///< the bytes are a password
constexpr std::size_t kMostSecrets = 1000;

/// Sends the value of every item that is a password, wherever it stands. The depth of JSON that is
/// read is bounded.
void SendSecrets(const format::JsonNode& node, IMessages& messages)
{
    const std::string& value = node.TextOf("Value");
    if (!value.empty() && format::IsSecret(node.TextOf("ItemName"))) {
        messages.Send(kSecretMessage, std::string_view(value).substr(0, kLargestMessage));
    }
    for (const format::JsonNode& element : node.elements) {
        SendSecrets(element, messages);
    }
    for (const auto& [key, member] : node.members) {
        SendSecrets(member, messages);
    }
}

void FindSecrets(const archive::ByteSource& source, const Limits& limits, IMessages& messages)
{
    const archive::ZipStructure zip = archive::ReadZipStructure(source);
    const archive::UnpackedArchive package("the package", source, zip, 0);
    const archive::PackageEntry* const entry = package.Find(panel::kDescription);
    if (entry == nullptr || entry->kind != archive::PackageEntry::Kind::kFile) {
        return;
    }
    const format::Description description =
        format::ParseDescription(package.Read(entry->name, limits.descriptionBytes));
    if (description.root.has_value()) {
        SendSecrets(*description.root, messages);
    }
}

} // namespace

std::vector<std::string> SecretsOf(IConfinement& confinement, const archive::ByteSource& source,
                                   int descriptor, const Limits& limits)
{
    std::vector<std::string> secrets;
    confinement.Run(
        descriptor,
        [&source, &limits](IMessages& messages) { FindSecrets(source, limits, messages); },
        [&secrets](const Message& message) {
            if (message.kind != kSecretMessage || secrets.size() == kMostSecrets) {
                throw Unread("what reads the package told of more passwords than there can be");
            }
            secrets.emplace_back(message.bytes);
        });
    return secrets;
}

} // namespace kx::guard

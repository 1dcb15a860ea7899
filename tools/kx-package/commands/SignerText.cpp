// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/SignerText.h"

#include "io/Error.h"
#include "io/Hex.h"
#include "io/Text.h"
#include "signature/Refusal.h"
#include "signature/SignedFile.h"

#include <ostream>

namespace kx::tool
{

std::optional<SignerReport> SignersOf(const archive::Package& package, const std::string& folder)
{
    const signature::TrustedKeys keys =
        folder.empty() ? signature::TrustedKeys() : signature::ReadTrustedKeys(folder);
    if (package.Bytes() == nullptr) {
        return {};
    }
    SignerReport report;
    try {
        const signature::SignedFile file(*package.Bytes(), "");
        if (!file.Signatures().has_value()) {
            return {};
        }
        report.statement = file.Signatures()->statement;
        report.signers = signature::Judge(*file.Signatures(), keys, {}).signers;
        file.RefuseChanged();
    } catch (const signature::Refusal& refusal) {
        if (refusal.Why() == signature::Reason::kEnd) {
            return {}; // no place for signatures
        }
        report.problem = refusal.what();
    }
    return report;
}

picojson::value SignersAsJson(const std::optional<SignerReport>& report)
{
    if (!report.has_value()) {
        return {};
    }
    picojson::array signers;
    for (const signature::Signer& signer : report->signers) {
        signers.emplace_back(picojson::object{
            {"keyId", JsonText(io::Hex(signer.keyId))},
            {"key", signer.name.empty() ? picojson::value() : JsonText(signer.name)},
            {"state", JsonText(signature::SignerStateName(signer.state))},
        });
    }
    const auto& statement = report->statement;
    return picojson::value(picojson::object{
        {"name", statement.has_value() ? JsonText(statement->name) : picojson::value()},
        {"problem", report->problem.empty() ? picojson::value() : JsonText(report->problem)},
        {"signers", picojson::value(signers)},
    });
}

void TellSigners(const Output& output, const std::optional<SignerReport>& report)
{
    if (!report.has_value()) {
        return;
    }
    output.out << "  signed:    ";
    if (report->statement.has_value()) {
        output.out << "as " << report->statement->name << (report->problem.empty() ? "" : ", ");
    }
    output.out << Coloured(output, Colour::kRed, io::Printable(report->problem)) << '\n';
    for (const signature::Signer& signer : report->signers) {
        const bool isFine = signer.state == signature::SignerState::kGood;
        output.out << "    by "
                   << (signer.name.empty() ? "" : io::Printable(signer.name) + ", key ")
                   << io::Hex(signer.keyId) << ": "
                   << Coloured(output, isFine ? Colour::kGreen : Colour::kYellow,
                               signature::SignerStateName(signer.state))
                   << '\n';
    }
}

} // namespace kx::tool

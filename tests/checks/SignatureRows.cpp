// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "checks/RuleRow.h"
#include "signature/SignedOf.h"

namespace kx::checks
{

namespace
{

using signature::EdKey;
using signature::OtherEdKey;
using signature::Trusting;

/// A signed package, and a panel that asks for signatures by its key.
void Sign(Recipe& recipe)
{
    recipe.damage = [](std::string& zip) {
        zip = signature::SignedBytes(zip, {&EdKey()}, "hello");
    };
    recipe.trusted = [] { return Trusting({&EdKey()}); };
    recipe.requiresSignature = true;
}

/// Signs, and does something to the file then.
void SignAnd(Recipe& recipe, const std::function<void(std::string& zip)>& damage)
{
    Sign(recipe);
    recipe.damage = [damage](std::string& zip) {
        zip = signature::SignedBytes(zip, {&EdKey()}, "hello");
        damage(zip);
    };
}

void FlipAt(std::string& zip, std::size_t at)
{
    zip[at] = static_cast<char>(zip[at] ^ 1);
}

} // namespace

const std::vector<RuleRow>& SignatureRows()
{
    static const std::vector<RuleRow> rows = {
        {"signature-missing", kError, "", [](Recipe& recipe) { recipe.requiresSignature = true; }},
        {"signature-missing", kError, "",
         [](Recipe& recipe) {
             recipe.requiresSignature = true;
             recipe.damage = [](std::string& zip) { zip += "behind"; };
         },
         kAmongOthers},
        {"signature-missing", kSilent, nullptr, Sign},
        {"signature-missing", kSilent, nullptr,
         [](Recipe& recipe) { recipe.trusted = [] { return Trusting({&EdKey()}); }; }},
        {"signature-damaged", kError, "",
         [](Recipe& recipe) {
             SignAnd(recipe,
                     [](std::string& zip) { FlipAt(zip, zip.find("KX-SIGNATURES 1\n") + 16); });
         },
         kAmongOthers},
        {"signature-damaged", kSilent, nullptr, Sign},
        {"signature-changed", kError, "",
         [](Recipe& recipe) {
             SignAnd(recipe, [](std::string& zip) { FlipAt(zip, zip.find("#!/bin/sh") + 5); });
         },
         kAmongOthers},
        {"signature-changed", kSilent, nullptr, Sign},
        {"signature-bad", kError, "",
         [](Recipe& recipe) {
             SignAnd(recipe, [](std::string& zip) {
                 FlipAt(zip, zip.find(EdKey().Public().Id()) + signature::kKeyIdSize);
             });
         }},
        {"signature-bad", kSilent, nullptr, Sign},
        {"signature-untrusted", kError, "",
         [](Recipe& recipe) {
             Sign(recipe);
             recipe.trusted = [] { return Trusting({&OtherEdKey()}); };
         }},
        {"signature-untrusted", kWarning, "",
         [](Recipe& recipe) {
             Sign(recipe);
             recipe.requiresSignature = false;
             recipe.trusted = [] {
                 signature::TrustedKeys trusted = Trusting({&EdKey()});
                 trusted.keys[0].packages = {"other"};
                 return trusted;
             };
         }},
        {"signature-untrusted", kSilent, nullptr, Sign},
        {"signature-hidden", kError, "",
         [](Recipe& recipe) {
             Sign(recipe);
             recipe.damage = [](std::string& zip) {
                 const std::size_t at = zip.find(archive::kCentral);
                 zip.insert(at, "hidden");
                 archive::Patch(zip, archive::kEndRecord, 16, archive::Bytes(at + 6, 4));
                 zip = signature::SignedBytes(zip, {&EdKey()}, "hello");
             };
         },
         kAmongOthers},
        {"signature-hidden", kSilent, nullptr, Sign},
        {"signature-name", kWarning, "",
         [](Recipe& recipe) {
             Sign(recipe);
             recipe.fileName = "other.kx-update";
         }},
        {"signature-name", kSilent, nullptr, Sign},
        {"signature-models", kNote, "",
         [](Recipe& recipe) {
             Sign(recipe);
             recipe.trusted = [] {
                 signature::TrustedKeys trusted = Trusting({&EdKey()});
                 trusted.keys[0].models = {"TP-0700"};
                 return trusted;
             };
         }},
        {"signature-models", kSilent, nullptr, Sign},
        {"signature-key", kWarning, "",
         [](Recipe& recipe) {
             Sign(recipe);
             recipe.trusted = [] {
                 signature::TrustedKeys trusted = Trusting({&EdKey()});
                 trusted.problems.emplace_back(io::ExitCode::kProblems, "k.toml",
                                               "stands beside no key");
                 return trusted;
             };
         }},
        {"signature-key", kSilent, nullptr, Sign},
        {"archive-gap", kSilent, nullptr, Sign},
    };
    return rows;
}

} // namespace kx::checks

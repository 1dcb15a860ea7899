// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Hex.h"
#include "signature/Block.h"
#include "signature/PublicKey.h"
#include "signature/Sha256.h"
#include "signature/SignedOf.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <string>

namespace kx::signature
{

namespace
{

std::string PemErrorOf(const std::string& pem)
{
    return Thrown([&pem] { static_cast<void>(PublicKey::FromPem(pem, "k.pem")); });
}

/// Keys of other tools, made for this test and thrown away.
constexpr const char* kRsa = "-----BEGIN PUBLIC KEY-----\n"
                             "MFwwDQYJKoZIhvcNAQEBBQADSwAwSAJBALi0jdvpAY3DYKn3ZZ3kSZ2o7VqK6s1E\n"
                             "-----END PUBLIC KEY-----\n";
constexpr const char* kOffTheCurve =
    "-----BEGIN PUBLIC KEY-----\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEAQEBAQEBAQEBAQEBAQEBAQEBAQEB\n"
    "AQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQ==\n"
    "-----END PUBLIC KEY-----\n";

} // namespace

TEST(PublicKey, IsReadAsItWasWritten)
{
    for (const PrivateKey* const key : {&EdKey(), &P256Key()}) {
        const PublicKey again = PublicKey::FromPem(key->Public().Pem(), "k.pem");

        EXPECT_EQ(again.Id(), key->Public().Id());
        EXPECT_EQ(again.Type(), key->Public().Type());
        EXPECT_EQ(again.Id().size(), kKeyIdSize);
        EXPECT_TRUE(again.IsGood(key->Sign("x"), "x"));
    }
}

TEST(PublicKey, HasTheHashOfItsDerAsIdentifier)
{
    // The first test vector of RFC 8032.
    const PublicKey key =
        PublicKey::FromPem("-----BEGIN PUBLIC KEY-----\n"
                           "MCowBQYDK2VwAyEA11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=\n"
                           "-----END PUBLIC KEY-----\n",
                           "k.pem");

    EXPECT_EQ(io::Hex(key.Id()),
              "06e3fd8fda29bb60ab59557de61edb0aecdb231134be30e75b455f8e1b792fa9");
    EXPECT_STREQ(KeyTypeName(key.Type()), "ed25519");
    EXPECT_STREQ(KeyTypeName(P256Key().Public().Type()), "p256");
}

TEST(PublicKey, FindsNoSignatureGoodOfAnotherKeyOrType)
{
    const std::string ed = EdKey().Sign("x");
    const std::string p256 = P256Key().Sign("x");

    EXPECT_FALSE(OtherEdKey().Public().IsGood(ed, "x"));
    EXPECT_FALSE(P256Key().Public().IsGood(ed, "x"));
    EXPECT_FALSE(EdKey().Public().IsGood(p256, "x"));
    EXPECT_FALSE(EdKey().Public().IsGood(ed + "x", "x"));
    EXPECT_FALSE(EdKey().Public().IsGood("", "x"));
}

TEST(PublicKey, IsOnePublicKeyAndNothingElse)
{
    constexpr const char* kNoPem = "1: k.pem: is not the PEM text of one public key; take the file "
                                   "NAME.pub.pem that kx-package key new has made";
    const std::string pem = EdKey().Public().Pem();

    EXPECT_EQ(PemErrorOf(""), kNoPem);
    EXPECT_EQ(PemErrorOf("text"), kNoPem);
    EXPECT_EQ(PemErrorOf(pem + pem), kNoPem);
    EXPECT_EQ(PemErrorOf(pem + P256Key().Public().Pem()), kNoPem);
    EXPECT_EQ(PemErrorOf("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"), kNoPem);
    EXPECT_EQ(PemErrorOf(EdKey().Pem({})),
              "1: k.pem: holds a private key, which belongs to whoever signs and nowhere else; "
              "name the public key");
}

TEST(PublicKey, IsOfOneOfTwoTypes)
{
    EXPECT_EQ(PemErrorOf(kRsa),
              "1: k.pem: is a key of another type than Ed25519 and P-256, or written otherwise; "
              "take a key that kx-package key new has made");
    EXPECT_EQ(PemErrorOf(kOffTheCurve), "1: k.pem: is no good key: it lies on no curve; take a key "
                                        "that kx-package key new has made");
}

} // namespace kx::signature

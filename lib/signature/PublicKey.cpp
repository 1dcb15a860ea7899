// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/PublicKey.h"

#include "io/Error.h"
#include "signature/Sha256.h"

#include <utility>

#include <openssl/pem.h>
#include <openssl/x509.h>

namespace kx::signature
{

namespace
{

using namespace std::string_view_literals;

/// How the DER of a key begins; its own bytes follow.
struct KeyForm {
    KeyType type;
    std::string_view head;
    std::size_t size; ///< of the whole
};

constexpr KeyForm kForms[] = {
    {KeyType::kEd25519, "\x30\x2a\x30\x05\x06\x03\x2b\x65\x70\x03\x21\x00"sv, 44},
    {KeyType::kP256,
     "\x30\x59\x30\x13\x06\x07\x2a\x86\x48\xce\x3d\x02\x01\x06\x08\x2a\x86\x48\xce\x3d\x03\x01\x07"
     "\x03\x42\x00\x04"sv,
     91},
};

const KeyForm* FormOf(std::string_view der)
{
    for (const KeyForm& form : kForms) {
        if (der.size() == form.size && der.substr(0, form.head.size()) == form.head) {
            return &form;
        }
    }
    return nullptr;
}

/// What a PEM text holds first.
struct PemPart {
    std::string name; ///< empty when there is none
    std::string bytes;
};

PemPart TakePart(BIO* reader)
{
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* bytes = nullptr;
    long size = 0;
    if (PEM_read_bio(reader, &name, &header, &bytes, &size) != 1) {
        ForgetOpenSslErrors();
        return {};
    }
    PemPart part{name, {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)}};
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(bytes);
    return part;
}

io::Error NoKey(const std::string& where, const std::string& what, const std::string& remedy)
{
    return {io::ExitCode::kProblems, where, what, remedy};
}

} // namespace

PublicKey::PublicKey(std::string der, KeyType type, OpenSslKey key)
    : m_der(std::move(der)), m_type(type), m_key(std::move(key)), m_id(Sha256Of(m_der))
{
}

PublicKey PublicKey::FromDer(std::string der, const std::string& where)
{
    constexpr const char* kWanted = "take a key that kx-package key new has made";
    const KeyForm* const form = FormOf(der);
    if (form == nullptr) {
        throw NoKey(where, "is a key of another type than Ed25519 and P-256, or written otherwise",
                    kWanted);
    }
    const unsigned char* at = BytesIn(der);
    OpenSslKey key(d2i_PUBKEY(nullptr, &at, static_cast<long>(der.size())));
    if (key == nullptr) {
        ForgetOpenSslErrors();
        throw NoKey(where, "is no good key: it lies on no curve", kWanted);
    }
    return {std::move(der), form->type, std::move(key)};
}

PublicKey PublicKey::FromPem(std::string_view pem, const std::string& where)
{
    const OpenSslBio reader = ReaderOf(pem);
    PemPart part = TakePart(reader.get());
    if (part.name.find("PRIVATE") != std::string::npos) {
        throw NoKey(where, "holds a private key, which belongs to whoever signs and nowhere else",
                    "name the public key");
    }
    if (part.name != PEM_STRING_PUBLIC || !TakePart(reader.get()).name.empty()) {
        throw NoKey(where, "is not the PEM text of one public key",
                    "take the file NAME.pub.pem that kx-package key new has made");
    }
    return FromDer(std::move(part.bytes), where);
}

PublicKey PublicKey::Of(const EVP_PKEY* key, const std::string& where)
{
    unsigned char* bytes = nullptr;
    // OpenSSL 1.1.1 takes no constant key, and changes none. NOLINTNEXTLINE
    const int size = i2d_PUBKEY(const_cast<EVP_PKEY*>(key), &bytes);
    if (size <= 0) {
        ForgetOpenSslErrors();
        throw NoKey(where, "is a key without a public part", "take another key");
    }
    std::string der(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    return FromDer(std::move(der), where);
}

std::string PublicKey::Pem() const
{
    const OpenSslBio writer(BIO_new(BIO_s_mem()));
    RequireOpenSsl(writer != nullptr && PEM_write_bio_PUBKEY(writer.get(), m_key.get()) == 1,
                   "write a key");
    char* text = nullptr;
    const long size = BIO_get_mem_data(writer.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

bool PublicKey::IsGood(std::string_view signature, std::string_view bytes) const
{
    if (!IsCanonical(m_type, signature)) {
        return false;
    }
    const std::string wanted =
        m_type == KeyType::kP256 ? P256ToDer(signature) : std::string(signature);
    const auto context = StartSigning(EVP_DigestVerifyInit, m_type, m_key.get());
    const bool isGood = EVP_DigestVerify(context.get(), BytesIn(std::string_view(wanted)),
                                         wanted.size(), BytesIn(bytes), bytes.size()) == 1;
    ForgetOpenSslErrors();
    return isGood;
}

const char* KeyTypeName(KeyType type)
{
    return type == KeyType::kP256 ? "p256" : "ed25519";
}

} // namespace kx::signature

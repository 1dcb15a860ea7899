// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/PrivateKey.h"

#include "io/Error.h"
#include "signature/Block.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

namespace kx::signature
{

namespace
{

using KeyContext = OpenSsl<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using PlainPkcs8 = OpenSsl<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using LockedPkcs8 = OpenSsl<X509_SIG, X509_SIG_free>;

/// What libcrypto's question for a passphrase is answered with.
struct Asking {
    const PassphraseAsker& ask;
    bool wasAsked = false;
    std::exception_ptr failure{}; ///< of the question; nothing may be thrown through libcrypto
};

int AnswerPassphrase(char* to, int size, int /*isWriting*/, void* state)
{
    auto* const asking = static_cast<Asking*>(state);
    asking->wasAsked = true;
    try {
        const std::string passphrase = asking->ask();
        if (passphrase.size() > static_cast<std::size_t>(size)) {
            return -1;
        }
        std::copy(passphrase.begin(), passphrase.end(), to);
        return static_cast<int>(passphrase.size());
    } catch (...) {
        asking->failure = std::current_exception();
        return -1;
    }
}

/// Encrypts a key; libcrypto's own way to do it takes too few rounds.
LockedPkcs8 Locked(PKCS8_PRIV_KEY_INFO* key, const std::string& passphrase)
{
    constexpr int kRounds = 600000;
    std::array<unsigned char, 16> salt{};
    RequireOpenSsl(RAND_bytes(salt.data(), salt.size()) == 1, "draw random bytes");
    OpenSsl<X509_ALGOR, X509_ALGOR_free> way(PKCS5_pbe2_set_iv(
        EVP_aes_256_cbc(), kRounds, salt.data(), salt.size(), nullptr, NID_hmacWithSHA256));
    RequireOpenSsl(way != nullptr, "encrypt a key");
    LockedPkcs8 locked(
        PKCS8_set0_pbe(passphrase.data(), static_cast<int>(passphrase.size()), key, way.get()));
    RequireOpenSsl(locked != nullptr, "encrypt a key");
    static_cast<void>(way.release()); // the encrypted key owns it now
    return locked;
}

bool HoldsPrivatePem(std::string_view bytes)
{
    constexpr std::string_view kBegin = "-----BEGIN ";
    constexpr std::string_view kEnd = "PRIVATE KEY-----";
    constexpr std::size_t kLongestKind = 20; // "OPENSSH ", "ENCRYPTED "
    for (std::size_t at = bytes.find(kBegin); at != std::string_view::npos;
         at = bytes.find(kBegin, at + 1)) {
        const std::string_view line = bytes.substr(at + kBegin.size(), kLongestKind + kEnd.size());
        if (line.substr(0, line.find('\n')).find(kEnd) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

bool IsPrivateDer(std::string_view bytes)
{
    constexpr std::size_t kLargestKey = 16384;
    if (bytes.empty() || bytes.size() > kLargestKey) {
        return false;
    }
    const auto size = static_cast<long>(bytes.size());
    const unsigned char* const end = BytesIn(bytes) + bytes.size();
    const unsigned char* at = BytesIn(bytes);
    const OpenSslKey key(d2i_AutoPrivateKey(nullptr, &at, size));
    bool isKey = key != nullptr && at == end;
    if (!isKey) {
        at = BytesIn(bytes);
        const LockedPkcs8 locked(d2i_X509_SIG(nullptr, &at, size));
        // A signature that stands alone looks like an encrypted key, but for what encrypts it.
        const X509_ALGOR* way = nullptr;
        const ASN1_OBJECT* kind = nullptr;
        if (locked != nullptr && at == end) {
            X509_SIG_get0(locked.get(), &way, nullptr);
            X509_ALGOR_get0(&kind, nullptr, nullptr, way);
            isKey = OBJ_obj2nid(kind) == NID_pbes2;
        }
    }
    ForgetOpenSslErrors();
    return isKey;
}

} // namespace

PrivateKey::PrivateKey(OpenSslKey key, const std::string& where)
    : m_key(std::move(key)), m_public(PublicKey::Of(m_key.get(), where))
{
}

PrivateKey PrivateKey::Make(KeyType type)
{
    const bool isP256 = type == KeyType::kP256;
    const KeyContext context(EVP_PKEY_CTX_new_id(isP256 ? EVP_PKEY_EC : EVP_PKEY_ED25519, nullptr));
    EVP_PKEY* made = nullptr;
    RequireOpenSsl(context != nullptr && EVP_PKEY_keygen_init(context.get()) == 1 &&
                       (!isP256 || EVP_PKEY_CTX_set_ec_paramgen_curve_nid(
                                       context.get(), NID_X9_62_prime256v1) == 1) &&
                       EVP_PKEY_keygen(context.get(), &made) == 1,
                   "make a key");
    return {OpenSslKey(made), ""};
}

PrivateKey PrivateKey::FromPem(std::string_view pem, const std::string& where,
                               const PassphraseAsker& ask)
{
    const OpenSslBio reader = ReaderOf(pem);
    Asking asking{ask};
    OpenSslKey key(PEM_read_bio_PrivateKey(reader.get(), nullptr, AnswerPassphrase, &asking));
    if (key == nullptr) {
        ForgetOpenSslErrors();
        if (asking.failure != nullptr) {
            std::rethrow_exception(asking.failure);
        }
        throw io::Error(io::ExitCode::kProblems, where,
                        asking.wasAsked ? "cannot be decrypted by this passphrase"
                                        : "is not the PEM text of a private key",
                        asking.wasAsked ? "give the passphrase that it was made with"
                                        : "name the file NAME.key.pem that kx-package key new has "
                                          "made");
    }
    return {std::move(key), where};
}

std::string PrivateKey::Pem(const std::optional<std::string>& passphrase) const
{
    const PlainPkcs8 plain(EVP_PKEY2PKCS8(m_key.get()));
    const OpenSslBio writer(BIO_new(BIO_s_secmem()));
    RequireOpenSsl(plain != nullptr && writer != nullptr, "write a key");
    if (passphrase.has_value()) {
        const LockedPkcs8 locked = Locked(plain.get(), *passphrase);
        RequireOpenSsl(PEM_write_bio_PKCS8(writer.get(), locked.get()) == 1, "write a key");
    } else {
        RequireOpenSsl(PEM_write_bio_PKCS8_PRIV_KEY_INFO(writer.get(), plain.get()) == 1,
                       "write a key");
    }
    char* text = nullptr;
    const long size = BIO_get_mem_data(writer.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

std::string PrivateKey::Sign(std::string_view bytes) const
{
    const auto context = StartSigning(EVP_DigestSignInit, m_public.Type(), m_key.get());
    constexpr std::size_t kLongest = 128; // of the DER of P-256
    std::string signature(kLongest, '\0');
    std::size_t size = signature.size();
    RequireOpenSsl(
        EVP_DigestSign(context.get(), BytesIn(signature), &size, BytesIn(bytes), bytes.size()) == 1,
        "sign");
    signature.resize(size);
    if (m_public.Type() == KeyType::kEd25519) {
        return signature;
    }
    const std::optional<std::string> canonical = P256FromDer(signature);
    RequireOpenSsl(canonical.has_value(), "sign");
    return *canonical;
}

bool HoldsPrivateKey(std::string_view bytes)
{
    return HoldsPrivatePem(bytes) || IsPrivateDer(bytes);
}

} // namespace kx::signature

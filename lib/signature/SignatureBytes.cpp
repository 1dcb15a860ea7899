// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signature/SignatureBytes.h"

#include "signature/Block.h"

#include <openssl/bn.h>
#include <openssl/ec.h>

namespace kx::signature
{

namespace
{

using Number = OpenSsl<BIGNUM, BN_free>;
using EcdsaSignature = OpenSsl<ECDSA_SIG, ECDSA_SIG_free>;

constexpr std::size_t kHalf = kSignatureSize / 2;
/// The order of the group of P-256.
constexpr const char* kP256Order =
    "FFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551";
/// The order of Ed25519's base point.
constexpr const char* kEd25519Order =
    "1000000000000000000000000000000014DEF9DEA2F79CD65812631A5CF5D3ED";

Number NumberOf(const char* digits)
{
    BIGNUM* number = nullptr;
    RequireOpenSsl(BN_hex2bn(&number, digits) != 0, "count");
    return Number(number);
}

Number NumberOf(std::string_view bytes)
{
    Number number(BN_bin2bn(BytesIn(bytes), static_cast<int>(bytes.size()), nullptr));
    RequireOpenSsl(number != nullptr, "count");
    return number;
}

/// Tells whether r or s is one.
bool IsInGroup(const BIGNUM* number, const BIGNUM* order)
{
    return BN_is_zero(number) == 0 && BN_is_negative(number) == 0 && BN_cmp(number, order) < 0;
}

/// Returns order - s.
Number Other(const BIGNUM* s, const BIGNUM* order)
{
    Number other(BN_new());
    RequireOpenSsl(other != nullptr && BN_sub(other.get(), order, s) == 1, "count");
    return other;
}

std::string BytesOf(const BIGNUM* number)
{
    std::string bytes(kHalf, '\0');
    RequireOpenSsl(BN_bn2binpad(number, BytesIn(bytes), static_cast<int>(kHalf)) >= 0, "count");
    return bytes;
}

std::optional<std::string> Canonical(const BIGNUM* r, const BIGNUM* s)
{
    const Number order = NumberOf(kP256Order);
    if (!IsInGroup(r, order.get()) || !IsInGroup(s, order.get())) {
        return {};
    }
    const Number other = Other(s, order.get());
    return BytesOf(r) + BytesOf(BN_cmp(s, other.get()) < 0 ? s : other.get());
}

} // namespace

bool IsCanonical(KeyType type, std::string_view signature)
{
    if (signature.size() != kSignatureSize) {
        return false;
    }
    if (type == KeyType::kP256) {
        return P256FromRaw(signature) == signature;
    }
    const std::string_view low = signature.substr(kHalf); // least significant byte first
    const Number s = NumberOf(std::string(low.rbegin(), low.rend()));
    return BN_cmp(s.get(), NumberOf(kEd25519Order).get()) < 0;
}

std::optional<std::string> P256FromRaw(std::string_view raw)
{
    if (raw.size() != kSignatureSize) {
        return {};
    }
    return Canonical(NumberOf(raw.substr(0, kHalf)).get(), NumberOf(raw.substr(kHalf)).get());
}

std::optional<std::string> P256FromDer(std::string_view der)
{
    const unsigned char* at = BytesIn(der);
    const EcdsaSignature signature(d2i_ECDSA_SIG(nullptr, &at, static_cast<long>(der.size())));
    if (signature == nullptr || at != BytesIn(der) + der.size()) {
        ForgetOpenSslErrors();
        return {};
    }
    return Canonical(ECDSA_SIG_get0_r(signature.get()), ECDSA_SIG_get0_s(signature.get()));
}

std::string P256ToDer(std::string_view signature)
{
    const EcdsaSignature made(ECDSA_SIG_new());
    Number r = NumberOf(signature.substr(0, kHalf));
    Number s = NumberOf(signature.substr(kHalf));
    RequireOpenSsl(made != nullptr && ECDSA_SIG_set0(made.get(), r.get(), s.get()) == 1, "count");
    // The signature owns them now.
    static_cast<void>(r.release());
    static_cast<void>(s.release());
    unsigned char* bytes = nullptr;
    const int size = i2d_ECDSA_SIG(made.get(), &bytes);
    RequireOpenSsl(size > 0, "write a signature");
    std::string der(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    OPENSSL_free(bytes);
    return der;
}

} // namespace kx::signature

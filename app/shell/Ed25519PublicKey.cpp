#include "Ed25519PublicKey.h"

#include <openssl/evp.h>

namespace {

constexpr int publicKeySize = 32;
constexpr int signatureSize = 64;

std::optional<QByteArray> decodeBase64(const QByteArray& text, int size)
{
    auto decoded = QByteArray::fromBase64Encoding(text.trimmed(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != size)
        return std::nullopt;
    return decoded.decoded;
}

} // namespace

void Ed25519PublicKey::Free::operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }

std::optional<Ed25519PublicKey> Ed25519PublicKey::fromBase64(const QByteArray& text)
{
    const auto raw = decodeBase64(text, publicKeySize);
    if (!raw)
        return std::nullopt;
    EVP_PKEY* key = EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                                reinterpret_cast<const unsigned char*>(raw->constData()), raw->size());
    if (!key)
        return std::nullopt;
    return Ed25519PublicKey(key);
}

bool Ed25519PublicKey::verifies(const QByteArray& message, const QByteArray& signature) const
{
    const auto raw = decodeBase64(signature, signatureSize);
    if (!raw)
        return false;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    // ed25519 signs the message itself, so there is no digest to name.
    if (!context || EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, m_key.get()) != 1)
        return false;
    return EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(raw->constData()), raw->size(),
                            reinterpret_cast<const unsigned char*>(message.constData()), message.size()) == 1;
}

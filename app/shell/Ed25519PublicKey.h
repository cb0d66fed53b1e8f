#pragma once

#include <QByteArray>

#include <memory>
#include <optional>

typedef struct evp_pkey_st EVP_PKEY;

// An ed25519 public key, for checking the signatures of the update feed.
class Ed25519PublicKey {
public:
    // The key from the base64 text of its 32 raw bytes; nothing when the text is not such a key.
    static std::optional<Ed25519PublicKey> fromBase64(const QByteArray& text);

    // Whether `signature` (base64 of 64 bytes) is this key's signature of `message`.
    bool verifies(const QByteArray& message, const QByteArray& signature) const;

private:
    struct Free {
        void operator()(EVP_PKEY* key) const;
    };
    explicit Ed25519PublicKey(EVP_PKEY* key) : m_key(key) {}

    std::unique_ptr<EVP_PKEY, Free> m_key;
};

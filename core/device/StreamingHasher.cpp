#include "StreamingHasher.h"

#include <QFile>

#include <openssl/evp.h>

#include <stdexcept>
#include <vector>

void StreamingHasher::ContextFree::operator()(evp_md_ctx_st* context) const { EVP_MD_CTX_free(context); }

StreamingHasher::StreamingHasher() : m_context(EVP_MD_CTX_new())
{
    if (!m_context || EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available");
}

StreamingHasher::~StreamingHasher() = default;
StreamingHasher::StreamingHasher(StreamingHasher&&) noexcept = default;
StreamingHasher& StreamingHasher::operator=(StreamingHasher&&) noexcept = default;

void StreamingHasher::update(const char* data, size_t length)
{
    if (m_count + length < m_count)
        qFatal("StreamingHasher: byte count overflow");
    EVP_DigestUpdate(m_context.get(), data, length);
    m_count += length;
}

DownloadResult StreamingHasher::finish()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(m_context.get(), digest, &length);
    const QByteArray hex = QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex();
    return {QString::fromLatin1(hex), m_count};
}

DownloadResult sha256OfFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error((path + ": " + file.errorString()).toStdString());
    StreamingHasher hasher;
    std::vector<char> buffer(kTransferChunkSize);
    for (;;) {
        const qint64 n = file.read(buffer.data(), qint64(buffer.size()));
        if (n < 0)
            throw std::runtime_error((path + ": " + file.errorString()).toStdString());
        if (n == 0)
            break;
        hasher.update(buffer.data(), size_t(n));
    }
    return hasher.finish();
}

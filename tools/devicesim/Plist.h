#pragma once

#include <plist/plist.h>

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

struct PlistFree {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
// An owned plist node (libplist's plist_t is a plain pointer).
using PlistPtr = std::unique_ptr<void, PlistFree>;

namespace Plist {
// Parses an XML or binary plist; null when the bytes are neither.
PlistPtr parse(const QByteArray& bytes);
QByteArray toXml(plist_t node);
QByteArray toBinary(plist_t node);

PlistPtr dict();
std::optional<QString> string(plist_t dict, const char* key);
std::optional<uint64_t> unsignedInteger(plist_t dict, const char* key);
void setString(plist_t dict, const char* key, const QString& value);
void setUnsigned(plist_t dict, const char* key, uint64_t value);
void setBool(plist_t dict, const char* key, bool value);
void setData(plist_t dict, const char* key, const QByteArray& value);
// Takes ownership of `node`.
void setNode(plist_t dict, const char* key, PlistPtr node);
} // namespace Plist

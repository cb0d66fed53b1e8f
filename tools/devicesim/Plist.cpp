#include "Plist.h"

#include <cstdlib>

PlistPtr Plist::parse(const QByteArray& bytes)
{
    plist_t node = nullptr;
    if (!bytes.isEmpty())
        plist_from_memory(bytes.constData(), uint32_t(bytes.size()), &node);
    return PlistPtr(node);
}

QByteArray Plist::toXml(plist_t node)
{
    char* text = nullptr;
    uint32_t length = 0;
    plist_to_xml(node, &text, &length);
    QByteArray result(text, qsizetype(length));
    plist_to_xml_free(text);
    return result;
}

QByteArray Plist::toBinary(plist_t node)
{
    char* data = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &data, &length);
    QByteArray result(data, qsizetype(length));
    plist_to_bin_free(data);
    return result;
}

PlistPtr Plist::dict() { return PlistPtr(plist_new_dict()); }

std::optional<QString> Plist::string(plist_t dict, const char* key)
{
    plist_t item = dict && plist_get_node_type(dict) == PLIST_DICT ? plist_dict_get_item(dict, key) : nullptr;
    if (!item || plist_get_node_type(item) != PLIST_STRING)
        return std::nullopt;
    char* value = nullptr;
    plist_get_string_val(item, &value);
    QString result = QString::fromUtf8(value);
    std::free(value);
    return result;
}

std::optional<uint64_t> Plist::unsignedInteger(plist_t dict, const char* key)
{
    plist_t item = dict && plist_get_node_type(dict) == PLIST_DICT ? plist_dict_get_item(dict, key) : nullptr;
    if (!item || plist_get_node_type(item) != PLIST_UINT)
        return std::nullopt;
    uint64_t value = 0;
    plist_get_uint_val(item, &value);
    return value;
}

void Plist::setString(plist_t dict, const char* key, const QString& value)
{
    plist_dict_set_item(dict, key, plist_new_string(value.toUtf8().constData()));
}

void Plist::setUnsigned(plist_t dict, const char* key, uint64_t value)
{
    plist_dict_set_item(dict, key, plist_new_uint(value));
}

void Plist::setBool(plist_t dict, const char* key, bool value)
{
    plist_dict_set_item(dict, key, plist_new_bool(value ? 1 : 0));
}

void Plist::setData(plist_t dict, const char* key, const QByteArray& value)
{
    plist_dict_set_item(dict, key, plist_new_data(value.constData(), uint64_t(value.size())));
}

void Plist::setNode(plist_t dict, const char* key, PlistPtr node) { plist_dict_set_item(dict, key, node.release()); }

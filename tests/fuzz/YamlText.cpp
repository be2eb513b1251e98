#include "YamlText.h"

#include <algorithm>
#include <cstdio>

namespace {

using host::YamlEntry;
using host::YamlNode;
using host::YamlValue;

void appendQuoted(std::string& text, const std::string& content)
{
    text += '"';
    for (const char c : content) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            text += '\\';
            text += c;
        } else if (code < 0x20 || code == 0x7F) {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\x%02x", code);
            text += escape;
        } else {
            text += c;
        }
    }
    text += '"';
}

void append(std::string& text, const YamlNode& node)
{
    switch (node.kind) {
    case YamlNode::Kind::null:
        text += "null";
        break;
    case YamlNode::Kind::scalar:
        appendQuoted(text, node.text);
        break;
    case YamlNode::Kind::list:
        text += "[";
        for (const YamlValue& item : node.items) {
            append(text, *item);
            text += ",\n ";
        }
        text += "]";
        break;
    case YamlNode::Kind::map:
        text += "{";
        for (const YamlEntry& entry : node.entries) {
            text += "? ";
            appendQuoted(text, entry.key);
            text += " : ";
            append(text, *entry.value);
            text += ",\n ";
        }
        text += "}";
        break;
    }
}

// Takes the nodes of `value` from those that are left; false when there are too few.
bool take(const YamlValue& value, std::size_t& left, std::size_t levels)
{
    if (left == 0 || levels == 0)
        return false;
    --left;
    const auto takeOne = [&](const YamlValue& one) { return take(one, left, levels - 1); };
    return std::all_of(value->items.begin(), value->items.end(), takeOne) &&
           std::all_of(value->entries.begin(), value->entries.end(),
                       [&](const YamlEntry& entry) { return takeOne(entry.value); });
}

} // namespace

bool isWithin(const YamlValue& value, std::size_t nodes, std::size_t levels)
{
    return take(value, nodes, levels);
}

std::string yamlText(const YamlValue& value)
{
    std::string text;
    append(text, *value);
    return text;
}

bool sameContent(const YamlValue& left, const YamlValue& right)
{
    return left->kind == right->kind && left->text == right->text &&
           std::equal(left->items.begin(), left->items.end(), right->items.begin(),
                      right->items.end(), sameContent) &&
           std::equal(left->entries.begin(), left->entries.end(), right->entries.begin(),
                      right->entries.end(), [](const YamlEntry& one, const YamlEntry& other) {
                          return one.key == other.key && sameContent(one.value, other.value);
                      });
}

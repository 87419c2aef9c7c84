#include "json.h"

#include <cstdio>

namespace sim {

std::string jsonString(const std::string &text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            quoted += escape;
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

JsonObject &JsonObject::addRaw(const char *key, const std::string &json)
{
    if (!members.empty()) {
        members += ",";
    }
    members += jsonString(key) + ":" + json;
    return *this;
}

JsonObject &JsonObject::append(const JsonObject &other)
{
    if (!members.empty() && !other.members.empty()) {
        members += ",";
    }
    members += other.members;
    return *this;
}

} // namespace sim

#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

namespace sim {

// "text" with quotes and escapes. Bytes that are not UTF-8 pass through unchanged.
std::string jsonString(const std::string &text);

// One JSON object, its members in the order in which they are added.
class JsonObject
{
public:
    JsonObject &add(const char *key, const std::string &text)
    {
        return addRaw(key, jsonString(text));
    }
    JsonObject &add(const char *key, const char *text) { return add(key, std::string(text)); }
    JsonObject &add(const char *key, bool value) { return addRaw(key, value ? "true" : "false"); }
    template<typename Number, typename = std::enable_if_t<std::is_integral_v<Number>>>
    JsonObject &add(const char *key, Number value)
    {
        return addRaw(key, std::to_string(value));
    }
    // A value that is JSON already.
    JsonObject &addRaw(const char *key, const std::string &json);
    // Adds the members of another object.
    JsonObject &append(const JsonObject &other);

    std::string text() const { return "{" + members + "}"; }

private:
    std::string members;
};

} // namespace sim

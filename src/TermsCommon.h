// Small helpers shared by the client modules: JSON text in and out, the
// configuration store's text values, and booleans in log lines.
#ifndef TERMS_COMMON_H
#define TERMS_COMMON_H

#include <json/json.h>
#include <vconf.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace terms {

// The product type of the set itself.
inline constexpr char kProductTypeTV[] = "TV";

// Parses the whole text with a reader of default settings. A text nested
// deeper than the reader's limit makes the reader throw instead of failing;
// it is a text that does not parse, like any other. Each thread makes its
// reader once: building one costs as much as parsing a small text, and a
// reader resets itself at the start of every parse.
inline bool ParseJsonText(const std::string& text, Json::Value& value) {
    thread_local const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    std::string errors;
    try {
        return reader->parse(text.data(), text.data() + text.size(), &value, &errors);
    } catch (const Json::Exception&) {
        return false;
    }
}

// JSON text without indentation or line breaks.
inline std::string WriteCompactJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

// The key's text from the configuration store, or nothing when it cannot be read.
inline std::optional<std::string> ReadStoreText(const char* key) {
    std::unique_ptr<char, decltype(&free)> value(vconf_get_str(key), &free);
    if (!value) return std::nullopt;
    return std::string(value.get());
}

inline const char* BoolText(bool value) {
    return value ? "true" : "false";
}

}  // namespace terms

#endif  // TERMS_COMMON_H

#define LOG_TAG "Veranti"

#include "TermsJsonParser.h"

#include <json/json.h>

#include "TermsCommon.h"
#include "TermsLog.h"

namespace {

// The titles have always been read with the library's first reader (all
// features, comments collected); it is kept so that what the service writes
// is accepted exactly as before.
bool ParseWithClassicReader(const std::string& text, Json::Value& root) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    Json::Reader reader;
    return reader.parse(text, root, true);
#pragma GCC diagnostic pop
}

// The "title" of element `index` as text, or empty when the stored value is
// not an array of objects that have one.
std::string TitleAt(const Json::Value& root, Json::ArrayIndex index) {
    if (!root.isArray()) return std::string();
    const Json::Value& entry = root[index];
    if (!entry.isObject() || !entry.isMember("title")) return std::string();
    return entry["title"].asString();
}

}  // namespace

std::string CTermsJsonParser::GetMenuTitleFromVconf(std::string key, int index) {
    if (key.empty() || index < 0) {
        TLOG_WARN("parameter  Error : [%s][%d]", key.c_str(), index);
        return std::string();
    }
    const std::optional<std::string> stored = terms::ReadStoreText(key.c_str());
    if (!stored) {
        TLOG_WARN("vconf get str failed");
        return std::string();
    }
    try {
        Json::Value root;
        if (!ParseWithClassicReader(*stored, root) || root.empty()) {
            TLOG_WARN("Parsing Error : [%s]", stored->c_str());
            return std::string();
        }
        TLOG_TRACE("array size %d", static_cast<int>(root.size()));
        const auto position = static_cast<Json::ArrayIndex>(index);
        if (root.size() <= position) {
            TLOG_WARN("order is over length ");
            return std::string();
        }
        std::string title = TitleAt(root, position);
        TLOG_TRACE("Title is = %s", title.c_str());
        return title;
    } catch (const Json::Exception& e) {
        TLOG_WARN("Json Error e = %s", e.what());
        return std::string();
    }
}

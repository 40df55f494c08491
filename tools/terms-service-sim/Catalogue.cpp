#include "Catalogue.h"

#include <glib.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

namespace termssim {
namespace {

// Members of a "set agreements" request that are not agreements: ids may not use them.
const std::set<std::string> kReservedIds = {"method", "data", "product_type", "request_type"};

const std::set<std::string> kTopMembers = {"default_country", "header",      "web_view_header",
                                           "menu_titles",     "disclaimers", "countries"};
const std::set<std::string> kDisclaimerMembers = {
    "version",          "title",  "intro",   "details",   "buttons", "only_notice",
    "agree_dependency", "ppused", "reverse", "by_country"};
const std::set<std::string> kOverrideMembers = {"version", "title", "intro", "details", "buttons"};
const std::set<std::string> kCountryMembers = {"name",   "disclaimers",     "requesters", "revised",
                                               "header", "web_view_header", "menu_titles"};

[[noreturn]] void Fail(const std::string& where, const std::string& what) {
    throw CatalogueError(where + ": " + what);
}

std::string Join(const std::string& where, const std::string& member) {
    return where.empty() ? member : where + "." + member;
}

void CheckMembers(const Json::Value& object, const std::string& where, const std::set<std::string>& allowed) {
    if (!object.isObject()) Fail(where, "expected an object");
    for (const std::string& name : object.getMemberNames()) {
        if (allowed.count(name) == 0) Fail(Join(where, name), "unknown member");
    }
}

std::string OptionalString(const Json::Value& object, const char* member, const std::string& where) {
    const Json::Value& value = object[member];
    if (value.isNull()) return {};
    if (!value.isString()) Fail(Join(where, member), "expected a string");
    return value.asString();
}

bool OptionalBool(const Json::Value& object, const char* member, const std::string& where) {
    const Json::Value& value = object[member];
    if (value.isNull()) return false;
    if (!value.isBool()) Fail(Join(where, member), "expected true or false");
    return value.asBool();
}

std::vector<std::string> StringList(const Json::Value& value, const std::string& where) {
    if (!value.isArray()) Fail(where, "expected an array of strings");
    std::vector<std::string> list;
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
        if (!value[i].isString()) Fail(where + "[" + std::to_string(i) + "]", "expected a string");
        list.push_back(value[i].asString());
    }
    return list;
}

void CheckDetails(const Json::Value& details, const std::string& where) {
    if (details.isNull() || details.isString()) return;
    if (!details.isArray()) Fail(where, "expected an array of sections or a string");
    for (Json::ArrayIndex i = 0; i < details.size(); ++i) {
        const std::string section = where + "[" + std::to_string(i) + "]";
        CheckMembers(details[i], section, {"title", "data"});
        OptionalString(details[i], "title", section);
        OptionalString(details[i], "data", section);
    }
}

// The disclaimer `id` as `country` shows it: its base members with the
// country's overrides laid over them.
Disclaimer ReadDisclaimer(const std::string& id, const Json::Value& entry, const std::string& country) {
    const std::string where = "disclaimers." + id;
    CheckMembers(entry, where, kDisclaimerMembers);
    Json::Value merged = entry;
    const Json::Value& overrides = entry["by_country"];
    if (!overrides.isNull()) {
        if (!overrides.isObject()) Fail(where + ".by_country", "expected an object");
        const Json::Value& own = overrides[country];
        if (!own.isNull()) {
            CheckMembers(own, where + ".by_country." + country, kOverrideMembers);
            for (const std::string& name : own.getMemberNames()) merged[name] = own[name];
        }
    }
    const std::string place = overrides.isMember(country) ? where + ".by_country." + country : where;
    Disclaimer disclaimer;
    disclaimer.id = id;
    disclaimer.version = OptionalString(merged, "version", place);
    disclaimer.title = OptionalString(merged, "title", place);
    if (disclaimer.title.empty()) Fail(Join(place, "title"), "a disclaimer needs a title");
    disclaimer.intro = OptionalString(merged, "intro", place);
    disclaimer.details = merged["details"];
    CheckDetails(disclaimer.details, Join(place, "details"));
    if (disclaimer.details.isNull()) disclaimer.details = "";
    if (!merged["buttons"].isNull()) disclaimer.buttons = StringList(merged["buttons"], Join(place, "buttons"));
    if (disclaimer.buttons.size() > kMaxButtons) Fail(Join(place, "buttons"), "at most 10 labels");
    disclaimer.onlyNotice = OptionalBool(merged, "only_notice", where);
    disclaimer.agreeDependency = OptionalString(merged, "agree_dependency", where);
    disclaimer.ppUsed = OptionalBool(merged, "ppused", where);
    disclaimer.reverse = OptionalBool(merged, "reverse", where);
    if (disclaimer.agreeDependency == id) Fail(where + ".agree_dependency", "an item cannot depend on itself");
    return disclaimer;
}

// Every id of `ids` must be one of the country's disclaimers.
void CheckListed(const Country& country, const std::vector<std::string>& ids, const std::string& where) {
    for (const std::string& id : ids) {
        if (!country.Find(id)) Fail(where, "\"" + id + "\" is not one of the country's disclaimers");
    }
}

std::vector<std::string> ReadMenuTitles(const Json::Value& own, const Json::Value& fallback, const std::string& where) {
    if (!own.isNull()) return StringList(own, where);
    if (!fallback.isNull()) return StringList(fallback, "menu_titles");
    return {};
}

Country ReadCountry(const std::string& code, const Json::Value& entry, const Json::Value& root) {
    const std::string where = "countries." + code;
    CheckMembers(entry, where, kCountryMembers);
    Country country;
    country.code = code;
    country.name = OptionalString(entry, "name", where);

    const std::vector<std::string> ids = StringList(entry["disclaimers"], where + ".disclaimers");
    if (ids.empty()) Fail(where + ".disclaimers", "a country needs at least one disclaimer");
    for (const std::string& id : ids) {
        if (!root["disclaimers"].isMember(id)) Fail(where + ".disclaimers", "unknown disclaimer \"" + id + "\"");
        if (country.Find(id)) Fail(where + ".disclaimers", "\"" + id + "\" is listed twice");
        country.disclaimers.push_back(ReadDisclaimer(id, root["disclaimers"][id], code));
    }
    for (const Disclaimer& disclaimer : country.disclaimers) {
        if (disclaimer.agreeDependency.empty()) continue;
        const Disclaimer* dependency = country.Find(disclaimer.agreeDependency);
        const std::string place = "disclaimers." + disclaimer.id + ".agree_dependency";
        if (!dependency) Fail(place, "\"" + disclaimer.agreeDependency + "\" is not listed for " + code);
        if (dependency->onlyNotice) Fail(place, "\"" + disclaimer.agreeDependency + "\" is a notice, never agreed");
    }

    const Json::Value& requesters = entry["requesters"];
    if (!requesters.isNull()) CheckMembers(requesters, where + ".requesters", {"0", "1", "2", "3", "4"});
    for (int r = 0; r < kRequesterCount; ++r) {
        const std::string key = std::to_string(r);
        const std::string listWhere = (where + ".requesters.").append(key);
        const Json::Value& list = requesters.isNull() ? Json::Value() : requesters[key];
        country.requesters[r] = list.isNull() ? ids : StringList(list, listWhere);
        CheckListed(country, country.requesters[r], listWhere);
    }
    if (!entry["revised"].isNull()) country.revised = StringList(entry["revised"], where + ".revised");
    CheckListed(country, country.revised, where + ".revised");

    country.header = entry.isMember("header") ? entry["header"] : root["header"];
    country.webViewHeader = entry.isMember("web_view_header") ? entry["web_view_header"] : root["web_view_header"];
    country.menuTitles = ReadMenuTitles(entry["menu_titles"], root["menu_titles"], where + ".menu_titles");
    return country;
}

// Checks every disclaimer on its own, also those no country lists, and that
// its overrides name countries of the catalogue.
void CheckDisclaimers(const Json::Value& disclaimers, const Json::Value& countries) {
    if (!disclaimers.isObject() || disclaimers.empty()) Fail("disclaimers", "expected an object with disclaimers");
    for (const std::string& id : disclaimers.getMemberNames()) {
        if (id.empty() || kReservedIds.count(id) != 0) Fail("disclaimers", "\"" + id + "\" cannot be an id");
        ReadDisclaimer(id, disclaimers[id], "");
        const Json::Value& overrides = disclaimers[id]["by_country"];
        for (const std::string& code : overrides.isObject() ? overrides.getMemberNames() : std::vector<std::string>()) {
            if (!countries.isMember(code))
                Fail(("disclaimers." + id + ".by_country.").append(code), "not one of the countries");
        }
    }
}

}  // namespace

const Disclaimer* Country::Find(const std::string& id) const {
    const int order = OrderOf(id);
    return order < 0 ? nullptr : &disclaimers[static_cast<size_t>(order)];
}

int Country::OrderOf(const std::string& id) const {
    const auto found = std::find_if(disclaimers.begin(), disclaimers.end(),
                                    [&id](const Disclaimer& disclaimer) { return disclaimer.id == id; });
    return found == disclaimers.end() ? -1 : static_cast<int>(found - disclaimers.begin());
}

Catalogue Catalogue::Load(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw CatalogueError(path + ": cannot be read");
    std::ostringstream text;
    text << file.rdbuf();
    try {
        return FromText(text.str());
    } catch (const CatalogueError& error) {
        throw CatalogueError(path + ": " + error.what());
    }
}

Catalogue Catalogue::FromText(const std::string& text) {
    Json::Value root;
    std::string error;
    if (!ParseStrictJson(text, root, error)) throw CatalogueError("not valid JSON: " + error);
    return FromJson(root);
}

Catalogue Catalogue::FromJson(const Json::Value& root) {
    CheckMembers(root, "catalogue", kTopMembers);
    const Json::Value& countries = root["countries"];
    if (!countries.isObject() || countries.empty()) Fail("countries", "expected an object with countries");
    CheckDisclaimers(root["disclaimers"], countries);

    Catalogue catalogue;
    for (const std::string& code : countries.getMemberNames()) {
        if (code.empty()) Fail("countries", "a country code cannot be empty");
        catalogue.m_Countries.push_back(ReadCountry(code, countries[code], root));
    }
    catalogue.m_DefaultCountry = OptionalString(root, "default_country", "");
    if (catalogue.m_DefaultCountry.empty()) catalogue.m_DefaultCountry = catalogue.m_Countries.front().code;
    if (!catalogue.FindCountry(catalogue.m_DefaultCountry)) Fail("default_country", "not one of the countries");
    return catalogue;
}

const Country* Catalogue::FindCountry(const std::string& code) const {
    for (const Country& country : m_Countries) {
        if (country.code == code) return &country;
    }
    return nullptr;
}

std::vector<std::string> Catalogue::CountryCodes() const {
    std::vector<std::string> codes;
    for (const Country& country : m_Countries) codes.push_back(country.code);
    return codes;
}

bool ParseStrictJson(const std::string& text, Json::Value& value, std::string& error) {
    if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
        error = "the text is not valid UTF-8";
        return false;
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    bool parsed = false;
    try {
        parsed = reader->parse(text.data(), text.data() + text.size(), &value, &error);
    } catch (const Json::Exception& tooDeep) {
        // The reader throws instead of failing when nesting exceeds its limit.
        error = tooDeep.what();
    }
    if (!parsed) {
        value = Json::Value();
        while (!error.empty() && (error.back() == '\n' || error.back() == ' ')) error.pop_back();
        return false;
    }
    return true;
}

std::string WriteCompactJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value);
}

}  // namespace termssim

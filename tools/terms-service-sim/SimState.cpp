#include "SimState.h"

#include <vconf.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "SimLog.h"
#include "TermsCommon.h"

namespace termssim {

const char kAgreementsKey[] = "db/veranti/disclaimeragrees";
const char kTitlesKey[] = "db/veranti/terms_title";
const char kCountryKey[] = "db/veranti/country_code";

namespace {

std::optional<std::string> ReadKey(const char* key) {
    char* value = vconf_get_str(key);
    if (!value) return std::nullopt;
    std::string text(value);
    free(value);
    return text;
}

bool WriteKey(const char* key, const std::string& value, std::string& error) {
    if (vconf_set_str(key, value.c_str()) == 0) return true;
    error = std::string("cannot write ") + key + " to the configuration store: " + std::strerror(errno);
    return false;
}

std::string TitlesText(const Country& country) {
    Json::Value titles(Json::arrayValue);
    for (const std::string& title : country.menuTitles) {
        Json::Value entry(Json::objectValue);
        entry["title"] = title;
        titles.append(entry);
    }
    return WriteCompactJson(titles);
}

}  // namespace

SimState::SimState(const Catalogue& catalogue) : m_Catalogue(catalogue) {
    Choose(ReadKey(kCountryKey));
}

void SimState::CatalogueReplaced(const std::string& current) {
    Choose(current);
}

void SimState::Choose(const std::optional<std::string>& code) {
    const Country* country = code ? m_Catalogue.FindCountry(*code) : nullptr;
    if (code && !country) SimLog(kLogWarn, "country \"%s\" is not in the catalogue", code->c_str());
    if (!country) country = m_Catalogue.FindCountry(m_Catalogue.DefaultCountry());
    // Set first: after a catalogue change the old country is gone, even when the store cannot be written.
    m_Country = country;
    std::string error;
    if (!Adopt(*country, true, error)) throw std::runtime_error(error);
}

bool SimState::SetCountry(const std::string& code, std::string& error) {
    const Country* country = m_Catalogue.FindCountry(code);
    if (!country) {
        error = "unknown country code \"" + code + "\"";
        return false;
    }
    return Adopt(*country, false, error);
}

bool SimState::Adopt(const Country& country, bool keepUnreadable, std::string& error) {
    std::string unreadable;
    std::optional<Agreements> agreements = ReadAgreements(unreadable);
    if (!agreements && !keepUnreadable) {
        error = unreadable;
        return false;
    }
    if (!agreements) SimLog(kLogWarn, "%s; leaving them as they are", unreadable.c_str());
    bool missing = false;
    for (const Disclaimer& disclaimer : country.disclaimers) {
        missing = (agreements && agreements->emplace(disclaimer.id, false).second) || missing;
    }
    const bool stored = WriteKey(kCountryKey, country.code, error) &&
                        WriteKey(kTitlesKey, TitlesText(country), error) &&
                        (!missing || WriteAgreements(*agreements, error));
    if (stored) m_Country = &country;
    return stored;
}

std::optional<Agreements> SimState::ReadAgreements(std::string& error) const {
    errno = 0;
    const std::optional<std::string> text = ReadKey(kAgreementsKey);
    if (!text && errno == ENOENT) return Agreements();
    const std::string cannot = std::string("the stored agreements (") + kAgreementsKey + ") cannot be read: ";
    if (!text) {
        error = cannot + std::strerror(errno);
        return std::nullopt;
    }
    Json::Value stored;
    if (!terms::ParseJsonText(*text, stored)) {
        error = cannot + "not JSON";
        return std::nullopt;
    }
    if (!stored.isObject()) {
        error = cannot + "not a JSON object";
        return std::nullopt;
    }
    Agreements agreements;
    for (const std::string& id : stored.getMemberNames()) {
        agreements[id] = stored[id].isString() && stored[id].asString() == "true";
    }
    return agreements;
}

bool SimState::IsAgreed(const std::string& id) const {
    std::string error;
    const std::optional<Agreements> agreements = ReadAgreements(error);
    if (!agreements) return false;
    const auto found = agreements->find(id);
    return found != agreements->end() && found->second;
}

bool SimState::WriteAgreements(const Agreements& agreements, std::string& error) const {
    Json::Value stored(Json::objectValue);
    for (const auto& [id, agreed] : agreements) stored[id] = agreed ? "true" : "false";
    return WriteKey(kAgreementsKey, WriteCompactJson(stored), error);
}

}  // namespace termssim

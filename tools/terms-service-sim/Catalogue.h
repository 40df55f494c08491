// The simulated service's content: disclaimers per country, the order in
// which each requester sees them, which are revised, header data and menu
// titles. Loaded once from a JSON file (format in docs/catalogue.md) and
// checked as a whole, so a mistake is reported with its place in the file
// before the service starts. Per-country texts are resolved at load time:
// every Country holds its disclaimers with their overrides applied.
#ifndef TERMS_SIM_CATALOGUE_H
#define TERMS_SIM_CATALOGUE_H

#include <json/json.h>

#include <array>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace termssim {

// A catalogue that cannot be read or does not follow the format; what()
// names the place, e.g. "disclaimers.privacy.buttons: expected an array".
class CatalogueError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

constexpr int kRequesterCount = 5;  // requesters 0..3, and 4 for everyone else
constexpr size_t kMaxButtons = 10;

struct Disclaimer {
    std::string id;
    std::string version;
    std::string title;
    std::string intro;
    // A JSON array of {"title","data"} sections, or a string of prose.
    Json::Value details;
    std::vector<std::string> buttons;  // button1 ... at most kMaxButtons
    bool onlyNotice = false;
    std::string agreeDependency;  // id of the item that must be agreed first, or empty
    bool ppUsed = false;
    bool reverse = false;
};

struct Country {
    std::string code;
    std::string name;
    std::vector<Disclaimer> disclaimers;                               // in the country's order
    std::array<std::vector<std::string>, kRequesterCount> requesters;  // ids, in display order
    std::vector<std::string> revised;
    Json::Value header;
    Json::Value webViewHeader;
    std::vector<std::string> menuTitles;

    const Disclaimer* Find(const std::string& id) const;
    // Position of the id in the country's order, or -1.
    int OrderOf(const std::string& id) const;
    // Appends a disclaimer to the country's order; false when its id is listed already.
    bool Add(Disclaimer disclaimer);

private:
    std::unordered_map<std::string, size_t> m_Positions;  // id -> index in `disclaimers`
};

// The largest catalogue file Load reads: far above any real catalogue, and a
// bound on what a wrong --catalogue (a device, a huge file) can cost.
constexpr size_t kMaxCatalogueBytes = size_t{64} << 20;

class Catalogue {
public:
    // Reads and checks the file; refuses a directory and a file larger than kMaxCatalogueBytes.
    static Catalogue Load(const std::string& path);
    static Catalogue FromText(const std::string& text);
    static Catalogue FromJson(const Json::Value& root);

    const std::string& DefaultCountry() const { return m_DefaultCountry; }
    const Country* FindCountry(const std::string& code) const;
    std::vector<std::string> CountryCodes() const;

private:
    std::string m_DefaultCountry;
    std::vector<Country> m_Countries;
};

// Strict JSON parsing shared by the catalogue and the request handler:
// comments allowed (// and /* */), but no trailing text, no trailing commas,
// no duplicate keys, an object or array at the top. Invalid UTF-8 is refused
// before parsing. False with a reason on failure.
bool ParseStrictJson(const std::string& text, Json::Value& value, std::string& error);

// Compact JSON text (no blanks, no line breaks) with UTF-8 left as it is.
std::string WriteCompactJson(const Json::Value& value);

}  // namespace termssim

#endif

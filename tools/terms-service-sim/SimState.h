// The simulated service's state, kept in the configuration store so that the
// library's direct reads see what was set over the bus and a restart keeps it:
//   db/veranti/disclaimeragrees  {"<id>":"true"|"false", ...}  (read by the library)
//   db/veranti/terms_title       [{"title":"..."}, ...]        (read by the library)
//   db/veranti/country_code      the current country's code
// Nothing is cached: every read goes to the store, every change replaces the
// key in one atomic write, so edits made with vconftool are seen at once.
#ifndef TERMS_SIM_STATE_H
#define TERMS_SIM_STATE_H

#include <map>
#include <optional>
#include <string>

#include "Catalogue.h"

namespace termssim {

extern const char kAgreementsKey[];
extern const char kTitlesKey[];
extern const char kCountryKey[];

using Agreements = std::map<std::string, bool>;

class SimState {
public:
    // Takes the stored country when the catalogue knows it, else the
    // catalogue's default, and brings the store in line with it (see Adopt).
    // Throws std::runtime_error when the store cannot be written.
    explicit SimState(const Catalogue& catalogue);

    const Country& CurrentCountry() const { return *m_Country; }
    // After the catalogue was replaced by another: takes the country with the
    // code `current` again (the catalogue's default when it is gone) and
    // brings the store in line, as at start. Throws std::runtime_error when
    // the store cannot be written.
    void CatalogueReplaced(const std::string& current);
    // Switches to another country of the catalogue and stores it; false with
    // a reason when the code is unknown or the store cannot be written.
    bool SetCountry(const std::string& code, std::string& error);

    // The stored agreements, read with the library's own reader so that both
    // see the same answers. A missing key reads as none; nothing (with the
    // reason) when the key exists but cannot be read as an object of
    // agreements: such a value is never to be replaced by a rewrite.
    std::optional<Agreements> ReadAgreements(std::string& error) const;
    // Whether the stored agreements say "true" for the id; false when they
    // cannot be read, as the library answers then.
    bool IsAgreed(const std::string& id) const;
    // Replaces the stored agreements; false with a reason on a store failure.
    bool WriteAgreements(const Agreements& agreements, std::string& error) const;

private:
    // Stores the country code and its menu titles, and gives every disclaimer
    // of the country an agreement entry ("false" when it had none), so that
    // the library's existence query knows the country's items. Stored
    // agreements that cannot be read stop it with the reason, before any
    // write, unless `keepUnreadable`: then they are left as they are.
    bool Adopt(const Country& country, bool keepUnreadable, std::string& error);
    // Adopts the catalogue's country with this code, or the default one.
    void Choose(const std::optional<std::string>& code);

    const Catalogue& m_Catalogue;
    const Country* m_Country = nullptr;
};

}  // namespace termssim

#endif

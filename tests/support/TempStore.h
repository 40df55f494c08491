// A temporary configuration store root for one test: sets VCONF_ROOT to a
// fresh directory and removes it (and restores the variable) afterwards.
#ifndef TESTBED_TEMP_STORE_H
#define TESTBED_TEMP_STORE_H

#include <optional>
#include <string>

namespace testbed {

class TempStore {
public:
    TempStore();
    ~TempStore();
    TempStore(const TempStore&) = delete;
    TempStore& operator=(const TempStore&) = delete;

    const std::string& Root() const { return m_Root; }
    // Writes and reads keys through the store stand-in.
    void Set(const std::string& key, const std::string& value) const;
    std::optional<std::string> Get(const std::string& key) const;

private:
    std::string m_Root;
    std::optional<std::string> m_Previous;
};

}  // namespace testbed

#endif

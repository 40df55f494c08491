#include "TempStore.h"

#include <vconf.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace testbed {

TempStore::TempStore() {
    char dirTemplate[] = "/tmp/veranti-store-XXXXXX";
    if (!mkdtemp(dirTemplate)) throw std::runtime_error("cannot create a temporary store root");
    m_Root = dirTemplate;
    if (const char* previous = getenv("VCONF_ROOT")) m_Previous = previous;
    setenv("VCONF_ROOT", m_Root.c_str(), 1);
}

TempStore::~TempStore() {
    m_Previous ? setenv("VCONF_ROOT", m_Previous->c_str(), 1) : unsetenv("VCONF_ROOT");
    std::error_code ignored;
    std::filesystem::remove_all(m_Root, ignored);
}

void TempStore::Set(const std::string& key, const std::string& value) const {
    if (vconf_set_str(key.c_str(), value.c_str()) != 0) throw std::runtime_error("vconf_set_str failed for " + key);
}

std::optional<std::string> TempStore::Get(const std::string& key) const {
    const std::unique_ptr<char, decltype(&free)> value(vconf_get_str(key.c_str()), &free);
    return value ? std::optional<std::string>(value.get()) : std::nullopt;
}

}  // namespace testbed

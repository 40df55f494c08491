// Fuzzes the configuration store's key validation: the input is a key (and,
// after its first NUL byte, a value). A key the store accepts must name a
// file strictly inside the store's root, and setting, reading and unsetting
// it must work and leave the root as empty as it was (unset removes the
// directories the key emptied); a key it refuses must fail every operation
// with EINVAL and create nothing. Each input starts from an empty root, so
// the store never grows from one input to the next.
#include <sys/stat.h>
#include <vconf.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "FuzzSupport.h"

namespace {

namespace fs = std::filesystem;

bool IsStrictlyInside(const fs::path& root, const fs::path& path) {
    const fs::path relative = path.lexically_normal().lexically_relative(root);
    return !relative.empty() && *relative.begin() != ".." && *relative.begin() != ".";
}

void CheckAcceptedKey(const std::string& root, const std::string& key, const std::string& value) {
    const fs::path file = fs::path(root) / key;
    if (!IsStrictlyInside(root, file)) fuzzsupport::Fail("an accepted key names a path outside the root");
    if (vconf_set_str(key.c_str(), value.c_str()) != 0) {
        // A file of the store may stand where a directory is needed, or the
        // name may be too long for the file system: refusals, not findings.
        if (errno != ENOTDIR && errno != EEXIST && errno != EISDIR && errno != ENAMETOOLONG)
            fuzzsupport::Fail("setting an accepted key failed");
        fuzzsupport::EmptyTemporaryStore();  // the directories made before the refusal
        return;
    }
    char* stored = vconf_get_str(key.c_str());
    if (!stored || value != stored) fuzzsupport::Fail("an accepted key did not read back its value");
    std::free(stored);
    if (vconf_unset(key.c_str()) != 0) fuzzsupport::Fail("unsetting an accepted key failed");
    if (!fs::is_empty(root)) fuzzsupport::Fail("an unset key left something behind in the root");
}

void CheckRefusedKey(const std::string& key) {
    errno = 0;
    if (vconf_set_str(key.c_str(), "x") != -1 || errno != EINVAL) fuzzsupport::Fail("a refused key was set");
    errno = 0;
    if (vconf_get_str(key.c_str()) != nullptr || errno != EINVAL) fuzzsupport::Fail("a refused key was read");
    errno = 0;
    if (vconf_unset(key.c_str()) != -1 || errno != EINVAL) fuzzsupport::Fail("a refused key was unset");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& root = fuzzsupport::UseTemporaryStore();
    const std::string key = fuzzsupport::TextUpToNul(data, size);
    const std::string value =
        key.size() < size ? fuzzsupport::TextUpToNul(data + key.size() + 1, size - key.size() - 1) : std::string();
    if (vconf_key_is_valid(key.c_str())) {
        CheckAcceptedKey(root, key, value);
    } else {
        CheckRefusedKey(key);
    }
    return 0;
}

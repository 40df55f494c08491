#include "FuzzSupport.h"

#include <unistd.h>
#include <vconf.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace fuzzsupport {
namespace {

std::vector<std::string>& DirectoriesToRemove() {
    static std::vector<std::string> directories;
    return directories;
}

void RemoveDirectories() {
    std::error_code ignored;
    for (const std::string& directory : DirectoriesToRemove()) std::filesystem::remove_all(directory, ignored);
}

// $VERANTI_FUZZ_SCRATCH when set (scripts/fuzz.sh points it into the build
// tree, bounds it and removes it after each target, aborted or not), else the
// system's temporary directory.
std::filesystem::path ScratchBase() {
    const char* base = std::getenv("VERANTI_FUZZ_SCRATCH");
    if (!base || !base[0]) return std::filesystem::temp_directory_path();
    std::error_code failed;
    std::filesystem::create_directories(base, failed);
    if (failed) Fail("cannot make the scratch base directory");
    return base;
}

std::string MakeDirectory(const char* name) {
    std::string pattern = (ScratchBase() / (std::string("veranti-fuzz-") + name + "-XXXXXX")).string();
    if (!mkdtemp(pattern.data())) Fail("cannot make a scratch directory");
    if (DirectoriesToRemove().empty()) std::atexit(RemoveDirectories);
    DirectoriesToRemove().push_back(pattern);
    return pattern;
}

}  // namespace

std::string TextUpToNul(const uint8_t* data, size_t size) {
    if (size == 0) return std::string();
    const auto* text = reinterpret_cast<const char*>(data);
    return std::string(text, strnlen(text, size));
}

const std::string& UseTemporaryStore() {
    static const std::string root = [] {
        std::string directory = MakeDirectory("store");
        setenv("VCONF_ROOT", directory.c_str(), 1);
        return directory;
    }();
    return root;
}

void StoreInput(const char* key, const uint8_t* data, size_t size) {
    UseTemporaryStore();
    if (vconf_set_str(key, TextUpToNul(data, size).c_str()) != 0) Fail("cannot store the input");
}

void EmptyTemporaryStore() {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(UseTemporaryStore(), ignored))
        std::filesystem::remove_all(entry.path(), ignored);
}

std::string MakeScratchDirectory(const char* name) {
    return MakeDirectory(name);
}

void Fail(const char* what) {
    std::fprintf(stderr, "fuzz target invariant broken: %s\n", what);
    std::abort();
}

}  // namespace fuzzsupport

// The platform log for the fuzz targets: formats every line, keeps none.
extern "C" __attribute__((visibility("default"), format(printf, 4, 5))) int __dlog_print(int, int, const char* tag,
                                                                                         const char* fmt, ...) {
    if (!tag || !fmt) return -22;
    static thread_local char line[4096];
    va_list args;
    va_start(args, fmt);
    const int length = std::vsnprintf(line, sizeof line, fmt, args);
    va_end(args);
    return length;
}

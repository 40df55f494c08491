// Shared pieces of the fuzz targets.
//
// Every target links FuzzSupport.cpp, which defines __dlog_print for the
// program: each line is formatted with its arguments (so a format that does
// not match its arguments is caught by the sanitizers) and then dropped.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <json/json.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzzsupport {

// The input as a text, cut at its first NUL byte: what a D-Bus string or a
// configuration-store value can carry.
std::string TextUpToNul(const uint8_t* data, size_t size);

// A fresh configuration-store root for this process (below
// $VERANTI_FUZZ_SCRATCH when set, else the system's temporary directory),
// exported as VCONF_ROOT and removed at exit.
const std::string& UseTemporaryStore();

// Removes everything inside the temporary store's root.
void EmptyTemporaryStore();

// The input, cut at its first NUL, stored under `key` in the temporary store.
void StoreInput(const char* key, const uint8_t* data, size_t size);

// A fresh, empty directory beside the temporary store; removed at exit.
std::string MakeScratchDirectory(const char* name);

// Stops the process with a message: a broken invariant is a finding.
[[noreturn]] void Fail(const char* what);

// Runs a request whose JSON library errors are expected outcomes: the client
// lets them leave a method where a reply member has the wrong kind.
template <typename Request>
void AllowingJsonErrors(Request request) {
    try {
        request();
    } catch (const Json::Exception&) {
    }
}

}  // namespace fuzzsupport

// Declared by libFuzzer's driver and by the replay driver alike.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#endif

// Small helpers of the reliability tests.
#ifndef RELIABILITY_SUPPORT_H
#define RELIABILITY_SUPPORT_H

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <vector>

namespace reliability {

// Long enough for any request on a loaded machine; a call still running
// after it is taken as hanging. Only ever a bound on a wait, never a measure.
constexpr std::chrono::seconds kHangBound{60};

// Runs the call on a thread of its own.
template <typename Call>
auto InBackground(Call call) {
    return std::async(std::launch::async, std::move(call));
}

// True when the background call has returned (within kHangBound).
template <typename Result>
bool Returned(std::future<Result>& call) {
    return call.wait_for(kHangBound) == std::future_status::ready;
}

// Polls the condition until it holds or kHangBound has passed.
bool Eventually(const std::function<bool()>& condition);

// A JSON text nested `depth` arrays deep: [[[...]]].
std::string NestedArrays(size_t depth);

// A text of `size` bytes that is valid JSON string content (no quotes or escapes).
std::string Filler(size_t size);

bool IsValidUtf8(const std::string& text);

struct ProgramRun {
    int status = -1;  // exit status; -1 when the program did not exit normally
    std::string out;
    std::string err;
};

// Runs the program with the arguments in this process's environment, stdin
// closed, and waits for it.
ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& args);

}  // namespace reliability

#endif

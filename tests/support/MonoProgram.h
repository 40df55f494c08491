// The C# test programs, run with mono: MONO_COMMAND, WITHOUT_MONO and
// MONO_UNDER_TSAN come from veranti_mono_test() in tests/CMakeLists.txt.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "ChildProcess.h"

// Ends the current test as skipped where the build cannot run mono.
#if defined(MONO_UNDER_TSAN)
#define SKIP_WITHOUT_MONO() GTEST_SKIP() << "mono does not run with a thread-sanitized library"
#elif defined(WITHOUT_MONO)
#define SKIP_WITHOUT_MONO() GTEST_SKIP() << "Mono (mcs and mono) was not found when the build was configured"
#else
#define SKIP_WITHOUT_MONO() static_cast<void>(0)
#endif

namespace testbed {

// What the C# program printed when run with `args`; it must exit with 0.
inline std::string MonoPrinted(const std::string& args) {
    const ProgramRun run = RunProgram({"/bin/sh", "-c", MONO_COMMAND " " + args});
    EXPECT_EQ(run.status, 0) << args << " printed:\n" << run.out << run.err;
    return run.out;
}

}  // namespace testbed

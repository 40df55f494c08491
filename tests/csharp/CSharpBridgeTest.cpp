// The C# exports: in process (their log lines and pThis) and through
// BridgeTest.exe, a C# program run with mono against the fake service.
#include <glib.h>
#include <sys/wait.h>

#include <cstdint>
#include <regex>
#include <string>
#include <vector>

#include "CSharpBridgeAPI.h"
#include "ClientTestBed.h"
#include "TermsAPI.h"

namespace {

using clienttest::kGreen;
using clienttest::kInfo;
using testbed::FakeReply;
using testbed::ReceivedRequest;

// Exactly one line with the bridge's shape " [CSharpBridgeAPI <export>:<line>]<text>".
::testing::AssertionResult BridgeLogged(const testbed::LogCapture& logs, const std::string& exportName,
                                        const std::string& text) {
    const std::string prefix = " [CSharpBridgeAPI " + exportName + ":";
    std::vector<testbed::LogLine> found;
    for (const testbed::LogLine& line : logs.Lines()) {
        if (line.message.rfind(prefix, 0) == 0) found.push_back(line);
    }
    if (found.size() != 1) return ::testing::AssertionFailure() << found.size() << " lines of " << exportName;
    const testbed::LogLine& line = found.front();
    const std::regex shape(" \\[CSharpBridgeAPI " + exportName + ":" + std::to_string(line.line) + "\\](.*)");
    std::smatch match;
    if (!std::regex_match(line.message, match, shape) || match[1] != text) {
        return ::testing::AssertionFailure() << "line \"" << line.message << "\", expected text \"" << text << "\"";
    }
    if (line.tag != "Veranti" || line.prio != kInfo || line.colour != kGreen || line.function != exportName) {
        return ::testing::AssertionFailure() << "line of " << exportName << " with tag " << line.tag << ", priority "
                                             << line.prio << ", function " << line.function;
    }
    return ::testing::AssertionSuccess();
}

class TheCSharpExports : public clienttest::ClientTestBed {};

TEST_F(TheCSharpExports, KeepTheInstanceInPThisAlsoAfterDestroy) {
    void* instance = CSharpGetInstance();
    EXPECT_EQ(instance, CVerantiAPI::GetInstance());
    EXPECT_EQ(pThis, instance);

    CSharpDestroy();

    EXPECT_EQ(CVerantiAPI::m_pInstance, nullptr);
    EXPECT_EQ(pThis, instance);
}

TEST_F(TheCSharpExports, LogEveryCallInTheBridgeShape) {
    CSharpGetInstance();
    CSharpIsServiceAvailable();
    CSharpSetDisclaimerItemAgreement("privacy", 1, "TV");
    int agreed = 0;
    CSharpGetDisclaimerItemAgreement("privacy", &agreed);
    CSharpDestroy();

    EXPECT_TRUE(BridgeLogged(logs, "CSharpGetInstance", "CVerantiAPI::GetInstance"));
    EXPECT_TRUE(BridgeLogged(logs, "CSharpIsServiceAvailable", "1"));
    EXPECT_TRUE(BridgeLogged(logs, "CSharpSetDisclaimerItemAgreement", "strItemId, =privacy, isagreed =1"));
    // The address that received the answer, not the answer.
    const int address = static_cast<int>(reinterpret_cast<std::uintptr_t>(&agreed));
    EXPECT_TRUE(BridgeLogged(logs, "CSharpGetDisclaimerItemAgreement",
                             "strItemId, =privacy, isagreed =" + std::to_string(address)));
    EXPECT_TRUE(BridgeLogged(logs, "CSharpDestroy", "CVerantiAPI::Destroy"));
}

struct ProgramRun {
    bool exitedWithZero = false;
    std::string output;
};

std::string Describe(const ProgramRun& run) { return "BridgeTest.exe said:\n" + run.output; }

class TheCSharpBridgeProgram : public clienttest::ClientTestBed {
protected:
    void SetUp() override {
#ifdef BRIDGE_UNDER_TSAN
        GTEST_SKIP() << "mono does not run with a thread-sanitized library";
#endif
        ClientTestBed::SetUp();
    }

    // Runs BridgeTest.exe with these arguments; the child inherits the
    // private bus and the temporary store through the environment.
    ProgramRun Run(const std::vector<std::string>& args) {
        std::vector<const char*> argv = {MONO_PROGRAM, "--debug", BRIDGE_TEST_EXE};
        for (const std::string& arg : args) argv.push_back(arg.c_str());
        argv.push_back(nullptr);
        gchar** env = ChildEnvironment();
        gchar* out = nullptr;
        gchar* err = nullptr;
        gint status = 0;
        GError* error = nullptr;
        ProgramRun run;
        if (g_spawn_sync(nullptr, const_cast<gchar**>(argv.data()), env, G_SPAWN_DEFAULT, nullptr, nullptr, &out,
                         &err, &status, &error)) {
            run.exitedWithZero = WIFEXITED(status) && WEXITSTATUS(status) == 0;
            run.output = std::string(out) + err;
        } else {
            run.output = std::string("cannot start mono: ") + error->message;
            g_error_free(error);
        }
        g_free(out);
        g_free(err);
        g_strfreev(env);
        return run;
    }

private:
    static gchar** ChildEnvironment() {
        gchar** env = g_get_environ();
        env = g_environ_setenv(env, "LD_LIBRARY_PATH", BRIDGE_LIBRARY_PATH, TRUE);
        env = g_environ_setenv(env, "DLOG_OUTPUT", "none", TRUE);
#ifdef BRIDGE_PRELOAD
        // mono keeps what it allocates until exit and handles its own faults.
        env = g_environ_setenv(env, "LD_PRELOAD", BRIDGE_PRELOAD, TRUE);
        env = g_environ_setenv(env, "ASAN_OPTIONS", "detect_leaks=0:handle_segv=0:allow_user_segv_handler=1", TRUE);
#endif
        return env;
    }
};

TEST_F(TheCSharpBridgeProgram, GetsTheSameInstanceOnEveryCall) {
    const ProgramRun run = Run({"instance"});
    EXPECT_TRUE(run.exitedWithZero) << Describe(run);
}

TEST_F(TheCSharpBridgeProgram, LearnsWhetherTheServiceIsAvailable) {
    const ProgramRun up = Run({"available", "1"});
    EXPECT_TRUE(up.exitedWithZero) << Describe(up);

    service.SetReply("is service available", FakeReply::Result(false));
    const ProgramRun down = Run({"available", "0"});
    EXPECT_TRUE(down.exitedWithZero) << Describe(down);
}

TEST_F(TheCSharpBridgeProgram, SetsAnAgreementForTheProductTypeItGives) {
    const ProgramRun tv = Run({"set", "privacy", "1", "TV", "1"});
    EXPECT_TRUE(tv.exitedWithZero) << Describe(tv);
    const ProgramRun monitor = Run({"set", "privacy", "0", "Monitor", "1"});
    EXPECT_TRUE(monitor.exitedWithZero) << Describe(monitor);

    const std::vector<ReceivedRequest> requests = service.RequestsNamed("set one agreement");
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].body["request_item"], "privacy");
    EXPECT_EQ(requests[0].body["product_type"], "TV");
    EXPECT_EQ(requests[0].body["is_agreed"], true);
    EXPECT_EQ(requests[1].body["product_type"], "Monitor");
    EXPECT_EQ(requests[1].body["is_agreed"], false);

    service.SetReply("set one agreement", FakeReply::Result(false));
    const ProgramRun refused = Run({"set", "privacy", "1", "TV", "0"});
    EXPECT_TRUE(refused.exitedWithZero) << Describe(refused);
}

TEST_F(TheCSharpBridgeProgram, ReadsAgreementsFromTheStoreThroughThePointer) {
    store.Set(clienttest::kAgreementKey, R"({"agreed":"true","declined":"false","shouted":"TRUE","flag":true})");

    const ProgramRun run = Run({"get", "agreed=1", "declined=0", "shouted=0", "flag=0", "unknown=0"});
    EXPECT_TRUE(run.exitedWithZero) << Describe(run);

    EXPECT_TRUE(service.RequestsBesidesAvailability().empty());
}

}  // namespace

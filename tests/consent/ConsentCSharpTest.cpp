// The C# consent class, from a program run with mono against the simulated service.
#include <VerantiAPI.h>
#include <gtest/gtest.h>

#include <string>

#include "ConsentTestSupport.h"
#include "TempStore.h"

namespace {

const char kCatalogue[] = R"json({
  "disclaimers": {"base": {"title": "Base"}, "child": {"title": "Child", "agree_dependency": "base"},
                  "note": {"title": "Note", "only_notice": true}},
  "countries": {"AA": {"disclaimers": ["child", "base", "note"]}}
})json";

class TheCSharpConsentClass : public testing::Test {
protected:
    void SetUp() override {
#ifdef MONO_UNDER_TSAN
        GTEST_SKIP() << "mono does not run with a thread-sanitized library";
#endif
#ifdef WITHOUT_MONO
        GTEST_SKIP() << "Mono (mcs and mono) was not found when the build was configured";
#endif
        m_Service = std::make_unique<consenttest::SimulatedService>(
            kCatalogue, std::vector<std::string>{"--fail=is service available=delay:150"});
        ASSERT_TRUE(m_Service->Serving());
    }

    // What the program printed; it must exit with 0.
    static std::string Printed(const std::string& args) {
        const testbed::ProgramRun run = testbed::RunProgram({"/bin/sh", "-c", MONO_COMMAND " " + args});
        EXPECT_EQ(run.status, 0) << args << " printed:\n" << run.out << run.err;
        return run.out;
    }

    testbed::TempStore m_Store;
    std::unique_ptr<consenttest::SimulatedService> m_Service;
};

TEST_F(TheCSharpConsentClass, TellsTheStatusAcceptsAndRejectsAllInDependencyOrderAndRaisesAnEventOnAChange) {
    EXPECT_EQ(Printed("status 0"), "Required child,base\n");
    EXPECT_EQ(Printed("async 0 50"), "TimedOut Unknown\n") << "the service takes 150 ms to say it is there";
    EXPECT_EQ(Printed("accept 0"), "True base:Done child:Done note:Notice\n");
    EXPECT_EQ(Printed("async 0 0"), "Completed Obtained\n");
    EXPECT_EQ(Printed("reject 0"), "True note:Notice child:Done base:Done\n");
    testbed::ChildProcess program({"/bin/sh", "-c", MONO_COMMAND " watch"});
    EXPECT_EQ(program.OutputLine(), "ready");
    ASSERT_TRUE(CVerantiAPI::GetInstance()->SetDisclaimerItemAgreement("base", 1, "TV"));
    EXPECT_EQ(program.OutputLine(), "base:No->Yes");
    EXPECT_EQ(program.Wait(), 0);
}

}  // namespace

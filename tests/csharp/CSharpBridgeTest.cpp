// The C# exports: in process, and through BridgeTest.exe, a C# program run with mono against the fake service.
#include <cstdint>

#include "CSharpBridgeAPI.h"
#include "ClientTestBed.h"
#include "MonoProgram.h"
#include "TermsAPI.h"

namespace {

using namespace clienttest;

class TheCSharpExports : public ClientTestBed {};

TEST_F(TheCSharpExports, KeepTheInstanceInPThisAfterDestroyAndLogEachCallWithItsExportAndSourceLine) {
    int agreed = 0;
    void* instance = CSharpGetInstance();
    EXPECT_EQ(instance, CVerantiAPI::GetInstance());
    CSharpIsServiceAvailable();
    CSharpSetDisclaimerItemAgreement("privacy", 1, "TV");
    CSharpGetDisclaimerItemAgreement("privacy", &agreed);
    CSharpDestroy();
    EXPECT_EQ(CVerantiAPI::m_pInstance, nullptr);
    EXPECT_EQ(pThis, instance);

    // The agreement's line shows the address that received the answer.
    const std::string address = std::to_string(static_cast<int>(reinterpret_cast<std::uintptr_t>(&agreed)));
    const std::pair<std::string, std::string> expected[] = {
        {"CSharpGetInstance", "CVerantiAPI::GetInstance"},
        {"CSharpIsServiceAvailable", "1"},
        {"CSharpSetDisclaimerItemAgreement", "strItemId, =privacy, isagreed =1"},
        {"CSharpGetDisclaimerItemAgreement", "strItemId, =privacy, isagreed =" + address},
        {"CSharpDestroy", "CVerantiAPI::Destroy"}};
    for (const auto& e : expected) {
        const std::string prefix = " [CSharpBridgeAPI " + e.first + ":";
        const std::vector<testbed::LogLine> lines = LinesStartingWith(logs, prefix);
        ASSERT_EQ(lines.size(), 1u) << e.first;
        EXPECT_TRUE(Logged(logs, prefix + std::to_string(lines[0].line) + "]" + e.second, kInfo, kGreen));
    }
}

// Runs BridgeTest.exe on the private bus and the temporary store, which it inherits.
class TheCSharpBridgeProgram : public ClientTestBed {
protected:
    void SetUp() override {
        SKIP_WITHOUT_MONO();
        ClientTestBed::SetUp();
    }
};

TEST_F(TheCSharpBridgeProgram, GetsOneInstanceSetsAndReadsAgreementsAndLearnsWhetherTheServiceIsAvailable) {
    EXPECT_EQ(testbed::MonoPrinted("instance"), "True True True\n");
    store.Set(kAgreementKey, R"({"agreed":"true","declined":"false"})");

    EXPECT_EQ(testbed::MonoPrinted("set privacy 1 TV"), "1\n");
    EXPECT_EQ(testbed::MonoPrinted("set privacy 0 Monitor"), "1\n");
    EXPECT_EQ(testbed::MonoPrinted("get agreed declined unknown"), "agreed 0 1\ndeclined 0 0\nunknown 0 0\n");
    service.SetReply("set one agreement", testbed::FakeReply::Result(false));
    EXPECT_EQ(testbed::MonoPrinted("set privacy 1 TV"), "0\n");
    EXPECT_EQ(testbed::MonoPrinted("available"), "1\n");
    service.SetReply("is service available", testbed::FakeReply::Result(false));
    EXPECT_EQ(testbed::MonoPrinted("available"), "0\n");

    const std::vector<testbed::ReceivedRequest> sent = service.RequestsBesidesAvailability();
    ASSERT_EQ(sent.size(), 3u);
    const std::string set = R"({"method":"set one agreement","request_item":"privacy",)";
    EXPECT_EQ(sent[0].body, JsonOf(set + R"("product_type":"TV","is_agreed":true})"));
    EXPECT_EQ(sent[1].body, JsonOf(set + R"("product_type":"Monitor","is_agreed":false})"));
}

}  // namespace

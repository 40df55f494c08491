// The built simulator on the private bus, driven through the library's class
// and C interfaces and through terms-cli: agreements read back from the store,
// restarts, concurrent clients, failure modes, raw bad requests, clone data.
#include <TermsAPI.h>
#include <VerantiAPI.h>
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "SimTestCatalogue.h"
#include "TempStore.h"
#include "ToolProcesses.h"

namespace fs = std::filesystem;
using tooltest::Cli;
using tooltest::CliRun;

namespace {

const char kBusName[] = "com.velmora.tv.termsclient";

// Sends a request past the library: the reply's JSON, or null when none came in time.
Json::Value RawRequest(const char* protocol, const std::string& body, int timeoutMs = 10000) {
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    GVariant* result =
        g_dbus_connection_call_sync(bus, kBusName, "/com/velmora/tv/termsclient", kBusName, "SendMessage",
                                    g_variant_new("(suss)", "raw", 0u, protocol, body.c_str()), nullptr,
                                    G_DBUS_CALL_FLAGS_NONE, timeoutMs, nullptr, nullptr);
    g_object_unref(bus);
    if (!result) return Json::Value();
    const gchar* text = nullptr;
    g_variant_get_child(result, 3, "&s", &text);
    const Json::Value reply = tooltest::ParsedJson(text);
    g_variant_unref(result);
    return reply;
}

class ARunningSimulator : public testing::Test {
protected:
    // The catalogue and the clone directories sit beside the store's keys.
    void SetUp() override {
        fs::create_directories(m_Dir);
        std::ofstream(m_Dir / "catalogue.json") << simtest::kTestCatalogue;
        Start();
    }
    // A clean stop is exit status 0 (also under the sanitizers, which fail the exit on a leak).
    void TearDown() override { EXPECT_EQ(m_Sim->Stop(), 0); }

    void Start(const std::vector<std::string>& failures = {}) {
        std::vector<std::string> args = {"--catalogue",  m_Dir / "catalogue.json",
                                         "--store-root", m_Store.Root(),
                                         "--set-dir",    m_Dir / "set",
                                         "--usb-dir",    m_Dir / "usb"};
        for (const std::string& failure : failures) args.insert(args.end(), {"--fail", failure});
        m_Sim = std::make_unique<tooltest::SimProcess>(args);
        ASSERT_TRUE(m_Sim->Serving());
    }
    void Restart(const std::vector<std::string>& failures = {}) {
        EXPECT_EQ(m_Sim->Stop(), 0);
        Start(failures);
    }

    int Agreement(const std::string& id) {
        int agreed = -1;
        Api().GetDisclaimerItemAgreement(id, &agreed, "TV");
        return agreed;
    }
    static CVerantiAPI& Api() { return *CVerantiAPI::GetInstance(); }

    testbed::TempStore m_Store;
    const fs::path m_Dir = fs::path(m_Store.Root()) / "sim";
    std::unique_ptr<tooltest::SimProcess> m_Sim;
};

TEST_F(ARunningSimulator, AnswersTheStatusHeaderCheckAndServiceRequests) {
    EXPECT_TRUE(Api().IsServiceAvailable());
    Json::Value header;
    Api().GetInformationForDisclaimer(header);
    EXPECT_EQ(header["h"], "aa");
    Api().GetInformationForDisclaimerWebView(header);
    EXPECT_EQ(header["w"], "aa");
    int code = -1, reason = -1;
    std::string message = "x";
    EXPECT_TRUE(Api().DravikCheck(code, reason) && Api().DravikCheck(code, reason, message));
    EXPECT_EQ(std::to_string(code) + std::to_string(reason) + message, "00");
    EXPECT_TRUE(Api().RequestDisclaimersRESTAPI("wizard", "all") && Api().RequestDisclaimerID("TV", true) &&
                Api().RequestUpdateDisclaimers("TV") && Api().RequestCountryCodeList() && Api().RequestResetNimbra());
    EXPECT_FALSE(Api().SetCountryCode("ZZ"));
}

TEST_F(ARunningSimulator, DeliversDisclaimersWithEveryMemberAndTheirSections) {
    EXPECT_EQ(Api().GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), 2);
    std::vector<STHomeDisclaimerContentItem*> items;
    Api().GetDisclaimerDetails(items, E_DISCLAIMER_REQUESTER_0, "TV");
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0]->strItemId, "base");
    EXPECT_EQ(items[0]->vecDetailData, (std::vector<std::string>{"S1", "D1", "S2", "D2"}));
    EXPECT_EQ(items[0]->strButton3, "More");
    EXPECT_EQ(items[1]->strAgreeDependency, "base");
    for (STHomeDisclaimerContentItem* item : items) delete item;

    STHomeDisclaimerContentItem extra;
    ASSERT_EQ(Api().GetDisclaimerDetail(extra, 0, E_DISCLAIMER_REQUESTER_1, "TV"), 0);
    EXPECT_EQ(extra.strItemId + std::to_string(extra.nOrder) + extra.strButton10, "extra310");
    EXPECT_TRUE(extra.bPPUsed && extra.bReverse);
    STHomeDisclaimerContentItem note;
    ASSERT_EQ(Api().GetDisclaimerDetail("note", note, "TV"), 0);
    EXPECT_TRUE(note.bOnlyNotice);
    EXPECT_EQ(Api().GetDisclaimerDetail("nope", note, "TV"), -1);

    std::vector<STHomeDisclaimerContentItem*> revised;
    ASSERT_TRUE(Api().GetRevisedDisclaimers(revised, "TV", "all"));
    ASSERT_EQ(revised.size(), 1u);
    EXPECT_EQ(revised[0]->strItemId, "child");
    delete revised[0];
}

TEST_F(ARunningSimulator, RecordsAgreementsThatTheDirectStoreQueryReadsBack) {
    EXPECT_EQ(Agreement("base"), 0);
    ASSERT_TRUE(Api().SetDisclaimerItemAgreement("base", 1, "TV"));
    EXPECT_EQ(Agreement("base"), 1);
    ASSERT_TRUE(Api().SetRevisedTermAgreement("child", true, "TV"));
    EXPECT_EQ(Agreement("child"), 1);
    Json::Value agreements;
    agreements["extra"] = true;
    ASSERT_TRUE(Api().SetDisclaimersAgreement(agreements, false, "TV"));
    EXPECT_EQ(Agreement("extra"), 1);
    ASSERT_TRUE(Api().SetAllDisclaimerItemAgreement(0, "TV"));
    EXPECT_EQ(Agreement("base") + Agreement("child") + Agreement("extra"), 0);
    EXPECT_FALSE(Api().IsDisclaimerItemExist("nope", "TV"));
}

TEST_F(ARunningSimulator, AnswersTheCFunctions) {
    EXPECT_EQ(::IsServiceAvailable(), 1);
    ::SetDisclaimerItemAgreement("base", 1);
    EXPECT_EQ(::GetDisclaimerItemAgreement("base"), 1);
    EXPECT_EQ(::SetDisclaimerItemsAgreements(R"({"extra":"true"})"), 1);
    EXPECT_EQ(::GetDisclaimerItemAgreement("extra"), 1);
    EXPECT_EQ(::IsDisclaimerItemExist("note"), 1);
    EXPECT_EQ(::RequestUpdateDisclaimers("TV"), 1);
    char* header = ::GetInfoForDisclaimerWebView();
    EXPECT_STREQ(header, R"({"w":"aa"})");
    free(header);
    std::string dependency;
    ::GetDisclaimerDetail(
        "child", [](TermsContentItem* item, void* out) { *static_cast<std::string*>(out) = item->strAgreeDependency; },
        &dependency);
    EXPECT_EQ(dependency, "base");
}

TEST_F(ARunningSimulator, TakesTheCommandLineClientThroughTheMainFlow) {
    EXPECT_EQ(Cli("status").status, 0);
    EXPECT_EQ(Cli("--json list").JsonOut()["disclaimers"][1]["id"], "child");
    EXPECT_NE(Cli("show base").out.find("  sections:\n    S1\n      D1\n"), std::string::npos);
    EXPECT_EQ(Cli("agree base child").status, 0);
    EXPECT_EQ(Agreement("child"), 1);
    EXPECT_TRUE(Cli("--json agreement base").JsonOut()["agreed"].asBool());
    EXPECT_FALSE(Cli("--json exists nope").JsonOut()["exists"].asBool());
    EXPECT_TRUE(Cli("--json revised").JsonOut()["disclaimers"][0]["is_agreed"].asBool());
    EXPECT_EQ(Cli("country set BB").status, 0);
    EXPECT_EQ(Cli("--json titles").JsonOut()["titles"], tooltest::ParsedJson(R"(["Bé"])"));
    EXPECT_EQ(m_Sim->Stop(), 0);
    const CliRun unreachable = Cli("list");
    EXPECT_EQ(unreachable.status, 3);
    EXPECT_TRUE(unreachable.ErrIsOneLine()) << unreachable.err;
}

TEST_F(ARunningSimulator, KeepsCountryTextsTitlesAndAgreementsAcrossARestart) {
    std::string title;
    ASSERT_EQ(Api().GetDisclaimerTitle(title, 1), 0);
    EXPECT_EQ(title, "A2");
    ASSERT_TRUE(Api().SetCountryCode("BB"));
    ASSERT_TRUE(Api().SetDisclaimerItemAgreement("bb_only", 1, "TV"));
    Restart();
    ASSERT_EQ(Api().GetDisclaimerTitle(title, 0), 0);
    EXPECT_EQ(title, "Bé");
    EXPECT_EQ(Api().GetDisclaimerTitle(title, 1), -1);
    EXPECT_EQ(Agreement("bb_only"), 1);
    STHomeDisclaimerContentItem item;
    ASSERT_EQ(Api().GetDisclaimerDetail(item, 0, E_DISCLAIMER_REQUESTER_0, "TV"), 0);
    EXPECT_EQ(item.strItemId, "bb_only");
    EXPECT_TRUE(item.bIsAgreed);
    ASSERT_EQ(Api().GetDisclaimerDetail("base", item, "TV"), 0);
    EXPECT_EQ(item.strTitle + " / " + item.strIntro + " / " + item.strVersion, "Grundlage – 기본 / Read me / 1.1");
}

TEST_F(ARunningSimulator, ServesConcurrentClients) {
    std::atomic<int> failures{0};
    std::vector<std::thread> clients;
    for (const char* id : {"base", "extra", "base", "extra"}) {
        clients.emplace_back([id, &failures] {
            for (int i = 0; i < 10; ++i) {
                STHomeDisclaimerContentItem item;
                const bool ok = Api().GetDisclaimerDetail(id, item, "TV") == 0 && item.strItemId == id &&
                                Api().GetDisclaimerNum(E_DISCLAIMER_REQUESTER_1, "TV") == 2 &&
                                Api().SetDisclaimerItemAgreement(id, 1, "TV");
                if (!ok) ++failures;
            }
        });
    }
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Agreement("base") + Agreement("extra"), 2);
}

TEST_F(ARunningSimulator, RefusesAnswersLateOrKeepsSilentOnPurposeAsTold) {
    Restart({"set one agreement=refuse", "get disclaimer number=delay:200", "set all agreement=delay:100",
             "request reset nimbra=silent"});
    EXPECT_FALSE(Api().SetDisclaimerItemAgreement("base", 1, "TV"));
    EXPECT_EQ(Agreement("base"), 0);
    const CliRun refused = Cli("agree base");
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.ErrIsOneLine()) << refused.err;
    EXPECT_EQ(Api().GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), 2);
    EXPECT_TRUE(Api().SetAllDisclaimerItemAgreement(1, "TV"));
    EXPECT_EQ(Agreement("extra"), 1);
    EXPECT_TRUE(RawRequest("", R"({"method":"request reset nimbra"})", 200).isNull());
    EXPECT_TRUE(Api().IsServiceAvailable());  // while the silent request still waits
}

TEST_F(ARunningSimulator, AnswersBadRequestsSentRawOverTheBusWithResultFalse) {
    const std::string storedBefore = m_Store.Get("db/veranti/disclaimeragrees").value_or("");
    const std::pair<const char*, const char*> kRaw[] = {
        {"", "not json"},
        {"", R"({"method":"no such method"})"},
        {"", R"({"method":"set one agreement","request_item":"base","is_agreed":"yes","product_type":"TV"})"},
        {"common_protocol", R"({"method":"get disclaimer agreement","request_item":"base"})"},
        {"something else", R"({"method":"is service available"})"},
    };
    for (const auto& [protocol, body] : kRaw) {
        const Json::Value reply = RawRequest(protocol, body);
        EXPECT_EQ(reply["result"], false) << body;
        EXPECT_TRUE(reply["errormessage"].isString()) << body;
    }
    EXPECT_EQ(m_Store.Get("db/veranti/disclaimeragrees").value_or(""), storedBefore);
    EXPECT_TRUE(Api().IsServiceAvailable());
}

TEST_F(ARunningSimulator, CopiesCloneDataInsideItsDirectoriesOnly) {
    std::ofstream(m_Dir / "set" / "tv.dat") << "clone";
    fs::create_symlink(m_Dir / "catalogue.json", m_Dir / "set" / "link-out");
    EXPECT_TRUE(Api().CopyCloneDataTVtoUSB("tv.dat", "backup/tv.dat"));
    EXPECT_TRUE(Api().CopyCloneDataUSBtoTV("backup/tv.dat", "restored.dat"));
    EXPECT_TRUE(fs::exists(m_Dir / "set" / "restored.dat"));
    EXPECT_FALSE(Api().CopyCloneDataTVtoUSB("tv.dat", "../escaped.dat"));
    EXPECT_FALSE(Api().CopyCloneDataUSBtoTV("/etc/hostname", "hostname"));
    EXPECT_FALSE(Api().CopyCloneDataTVtoUSB("link-out", "catalogue.json"));
    EXPECT_FALSE(fs::exists(m_Dir / "escaped.dat") || fs::exists(m_Dir / "usb" / "catalogue.json"));
}

TEST(TheSimulatorProgram, ExitsWithTwoOnBadUsageAndOneWhenItCannotStart) {
    for (const char* bad : {"--no-such-option", "--fail=set one agreement=explode", "--fail=*=delay:9x"}) {
        tooltest::SimProcess badUsage({bad});
        EXPECT_FALSE(badUsage.Serving());
        EXPECT_EQ(badUsage.Stop(), 2) << bad;
    }
    tooltest::SimProcess noCatalogue({"--catalogue", "/nonexistent/catalogue.json"});
    EXPECT_FALSE(noCatalogue.Serving());
    EXPECT_EQ(noCatalogue.Stop(), 1);
}

}  // namespace

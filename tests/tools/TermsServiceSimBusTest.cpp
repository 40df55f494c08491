// The built simulator on the private bus, driven through the library's
// class interface: every client method, agreements read back from the store,
// restarts, concurrent clients, failure modes, raw bad requests, clone data.
#include <VerantiAPI.h>
#include <corvane/TCServer.h>
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "SimProcess.h"
#include "SimTestCatalogue.h"
#include "TempStore.h"

namespace fs = std::filesystem;

namespace {

const char kBusName[] = "com.velmora.tv.termsclient";
const char kObjectPath[] = "/com/velmora/tv/termsclient";

using Items = std::vector<std::unique_ptr<STHomeDisclaimerContentItem>>;

Items Owned(const std::vector<STHomeDisclaimerContentItem*>& items) {
    Items owned;
    for (STHomeDisclaimerContentItem* item : items) owned.emplace_back(item);
    return owned;
}

class ARunningSimulator : public testing::Test {
protected:
    // The simulator's catalogue and clone directories sit beside the store's keys.
    ARunningSimulator() {
        m_Dir = fs::path(m_Store.Root()) / "sim";
        fs::create_directories(m_Dir);
        std::ofstream(m_Dir / "catalogue.json") << simtest::kTestCatalogue;
    }

    void SetUp() override { StartSimulator(); }
    // A clean stop is exit status 0 (also under the sanitizers, which fail the exit on a leak).
    void TearDown() override { EXPECT_EQ(m_Sim->Stop(), 0); }

    void StartSimulator(const std::vector<std::string>& failures = {}) {
        std::vector<std::string> args = {"--catalogue",  (m_Dir / "catalogue.json").string(),
                                         "--store-root", m_Store.Root(),
                                         "--set-dir",    (m_Dir / "set").string(),
                                         "--usb-dir",    (m_Dir / "usb").string()};
        for (const std::string& failure : failures) args.insert(args.end(), {"--fail", failure});
        m_Sim = std::make_unique<simtest::SimProcess>(args);
        ASSERT_TRUE(m_Sim->Start()) << "the simulator did not start, exit status " << m_Sim->ExitStatus();
    }

    void RestartSimulator(const std::vector<std::string>& failures = {}) {
        EXPECT_EQ(m_Sim->Stop(), 0);
        StartSimulator(failures);
    }

    int Agreement(const std::string& id) {
        int agreed = -1;
        Api().GetDisclaimerItemAgreement(id, &agreed, "TV");
        return agreed;
    }

    static CVerantiAPI& Api() { return *CVerantiAPI::GetInstance(); }

    testbed::TempStore m_Store;
    fs::path m_Dir;
    std::unique_ptr<simtest::SimProcess> m_Sim;
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
    EXPECT_TRUE(Api().DravikCheck(code, reason));
    EXPECT_TRUE(Api().DravikCheck(code, reason, message));
    EXPECT_EQ(code + reason, 0);
    EXPECT_EQ(message, "");
    EXPECT_TRUE(Api().RequestDisclaimersRESTAPI("wizard", "all"));
    EXPECT_TRUE(Api().RequestDisclaimerID("TV", true));
    EXPECT_TRUE(Api().RequestUpdateDisclaimers("TV"));
    EXPECT_TRUE(Api().RequestCountryCodeList());
    EXPECT_TRUE(Api().RequestResetNimbra());
    EXPECT_FALSE(Api().SetCountryCode("ZZ"));
}

TEST_F(ARunningSimulator, DeliversDisclaimersWithEveryMemberAndTheirSections) {
    EXPECT_EQ(Api().GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), 2);
    std::vector<STHomeDisclaimerContentItem*> list;
    Api().GetDisclaimerDetails(list, E_DISCLAIMER_REQUESTER_0, "TV");
    const Items items = Owned(list);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0]->strItemId, "base");
    EXPECT_EQ(items[0]->vecDetailData, (std::vector<std::string>{"S1", "D1", "S2", "D2"}));
    EXPECT_EQ(items[0]->strButton3, "More");
    EXPECT_EQ(items[1]->strAgreeDependency, "base");

    STHomeDisclaimerContentItem extra;
    ASSERT_EQ(Api().GetDisclaimerDetail(extra, 0, E_DISCLAIMER_REQUESTER_1, "TV"), 0);
    EXPECT_EQ(extra.strItemId, "extra");
    EXPECT_EQ(extra.nOrder, 3);
    EXPECT_EQ(extra.strButton10, "10");
    EXPECT_TRUE(extra.bPPUsed && extra.bReverse);
    STHomeDisclaimerContentItem note;
    ASSERT_EQ(Api().GetDisclaimerDetail("note", note, "TV"), 0);
    EXPECT_TRUE(note.bOnlyNotice);
    EXPECT_EQ(Api().GetDisclaimerDetail("nope", note, "TV"), -1);

    std::vector<STHomeDisclaimerContentItem*> revisedList;
    ASSERT_TRUE(Api().GetRevisedDisclaimers(revisedList, "TV", "all"));
    const Items revised = Owned(revisedList);
    ASSERT_EQ(revised.size(), 1u);
    EXPECT_EQ(revised[0]->strItemId, "child");
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

    EXPECT_TRUE(Api().IsDisclaimerItemExist("note", "TV"));
    EXPECT_FALSE(Api().IsDisclaimerItemExist("nope", "TV"));
    EXPECT_TRUE(Api().IsDisclaimerItemExist("base", "STB"));
    EXPECT_FALSE(Api().IsDisclaimerItemExist("nope", "STB"));
}

TEST_F(ARunningSimulator, WritesTheMenuTitlesOfTheCurrentCountry) {
    std::string title;
    ASSERT_EQ(Api().GetDisclaimerTitle(title, 1), 0);
    EXPECT_EQ(title, "A2");
    ASSERT_TRUE(Api().SetCountryCode("BB"));
    ASSERT_EQ(Api().GetDisclaimerTitle(title, 0), 0);
    EXPECT_EQ(title, "Bé");
    EXPECT_EQ(Api().GetDisclaimerTitle(title, 1), -1);
}

TEST_F(ARunningSimulator, KeepsCountryAndAgreementsAcrossARestart) {
    ASSERT_TRUE(Api().SetCountryCode("BB"));
    ASSERT_TRUE(Api().SetDisclaimerItemAgreement("bb_only", 1, "TV"));
    RestartSimulator();
    EXPECT_EQ(Agreement("bb_only"), 1);
    STHomeDisclaimerContentItem item;
    ASSERT_EQ(Api().GetDisclaimerDetail(item, 0, E_DISCLAIMER_REQUESTER_0, "TV"), 0);
    EXPECT_EQ(item.strItemId, "bb_only");
    EXPECT_TRUE(item.bIsAgreed);
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

TEST_F(ARunningSimulator, RefusesOnPurposeWithoutChangingAnything) {
    RestartSimulator({"set one agreement=refuse"});
    EXPECT_FALSE(Api().SetDisclaimerItemAgreement("base", 1, "TV"));
    EXPECT_EQ(Agreement("base"), 0);
    EXPECT_TRUE(Api().SetAllDisclaimerItemAgreement(1, "TV"));
}

TEST_F(ARunningSimulator, AnswersADelayedRequestLateButRight) {
    RestartSimulator({"get disclaimer number=delay:200", "set all agreement=delay:100"});
    EXPECT_EQ(Api().GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), 2);
    EXPECT_TRUE(Api().SetAllDisclaimerItemAgreement(1, "TV"));
    EXPECT_EQ(Agreement("extra"), 1);
}

TEST_F(ARunningSimulator, LeavesASilentRequestUnansweredWhileServingOthers) {
    RestartSimulator({"request reset nimbra=silent"});
    Corvane::TCServer client("CAutoConnect", Corvane::TCServer::TC_SERVER_TYPE_2);
    ASSERT_TRUE(client.CreateDBusProxy());
    Corvane::TCMessage request, reply;
    request.body["method"] = "request reset nimbra";
    EXPECT_FALSE(client.SendMessage(kBusName, &request, true, &reply, 200));
    client.CloseDBusProxy();

    std::atomic<bool> waiting{true};
    bool resetResult = true;
    std::thread blocked([&] {
        resetResult = Api().RequestResetNimbra();
        waiting = false;
    });
    EXPECT_TRUE(Api().IsServiceAvailable());
    EXPECT_TRUE(waiting);
    EXPECT_EQ(m_Sim->Stop(), 0);
    blocked.join();
    EXPECT_FALSE(resetResult);
}

TEST_F(ARunningSimulator, AnswersBadRequestsSentRawOverTheBusWithResultFalse) {
    const std::string storedBefore =
        m_Store.Get("db/veranti/disclaimeragrees").value_or("") + std::to_string(Agreement("base"));
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    ASSERT_NE(bus, nullptr);
    const std::pair<const char*, const char*> kRaw[] = {
        {"", "not json"},
        {"", "[]"},
        {"", R"({"method":"no such method"})"},
        {"", R"({"method":"set one agreement","request_item":"base","is_agreed":"yes","product_type":"TV"})"},
        {"", R"({"method":"get disclaimer by order","product_type":"TV","requester":0})"},
        {"common_protocol", R"({"method":"get disclaimer agreement","request_item":"base"})"},
        {"something else", R"({"method":"is service available"})"},
    };
    for (const auto& [protocol, body] : kRaw) {
        GVariant* result = g_dbus_connection_call_sync(bus, kBusName, kObjectPath, kBusName, "SendMessage",
                                                       g_variant_new("(suss)", "raw", 0u, protocol, body), nullptr,
                                                       G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, nullptr);
        ASSERT_NE(result, nullptr) << body;
        const gchar* message = nullptr;
        g_variant_get_child(result, 3, "&s", &message);
        Json::Value reply;
        std::istringstream text(message);
        ASSERT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), text, &reply, nullptr)) << message;
        EXPECT_EQ(reply["result"], false) << body;
        EXPECT_TRUE(reply["errormessage"].isString()) << message;
        g_variant_unref(result);
    }
    g_object_unref(bus);
    EXPECT_EQ(m_Store.Get("db/veranti/disclaimeragrees").value_or("") + std::to_string(Agreement("base")),
              storedBefore);
    EXPECT_TRUE(Api().IsServiceAvailable());
}

TEST_F(ARunningSimulator, CopiesCloneDataInsideItsDirectoriesOnly) {
    std::ofstream(m_Dir / "set" / "tv.dat") << "clone";
    EXPECT_TRUE(Api().CopyCloneDataTVtoUSB("tv.dat", "backup/tv.dat"));
    EXPECT_TRUE(fs::exists(m_Dir / "usb" / "backup" / "tv.dat"));
    EXPECT_TRUE(Api().CopyCloneDataUSBtoTV("backup/tv.dat", "restored.dat"));
    EXPECT_TRUE(fs::exists(m_Dir / "set" / "restored.dat"));
    EXPECT_FALSE(Api().CopyCloneDataTVtoUSB("tv.dat", "../escaped.dat"));
    EXPECT_FALSE(Api().CopyCloneDataTVtoUSB("../catalogue.json", "copy.json"));
    EXPECT_FALSE(Api().CopyCloneDataUSBtoTV("/etc/hostname", "hostname"));
    EXPECT_FALSE(fs::exists(m_Dir / "escaped.dat"));
    EXPECT_FALSE(fs::exists(m_Dir / "usb" / "copy.json"));
}

TEST(TheSimulatorProgram, ExitsWithTwoOnBadUsageAndOneWhenItCannotStart) {
    simtest::SimProcess badUsage({"--no-such-option"});
    EXPECT_FALSE(badUsage.Start());
    EXPECT_EQ(badUsage.ExitStatus(), 2);
    simtest::SimProcess noCatalogue({"--catalogue", "/nonexistent/catalogue.json"});
    EXPECT_FALSE(noCatalogue.Start());
    EXPECT_EQ(noCatalogue.ExitStatus(), 1);
}

}  // namespace

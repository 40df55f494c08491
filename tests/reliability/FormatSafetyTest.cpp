// Texts from outside reach the log only as arguments of a format: a text full
// of conversions is driven through every logging path of the library (client,
// C and C# interfaces, bus server toolkit), of the stand-ins and of the tools,
// and must arrive in the log exactly as it was given. A path that used the
// text as a format would print something else, or crash (%n).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "ClientTestBed.h"
#include "ReliabilitySupport.h"
#include "SimState.h"
#include "TermsAPI.h"
#include "TermsDbusAPI.h"
#include "TermsDbusServer.h"
#include "TermsDbusUtil.h"
#include "TermsJsonParser.h"
#include "TermsServiceSim.h"
#include "corvane/TCServer.h"

namespace {

using clienttest::ClientTestBed;
using testbed::FakeReply;

const char kFormatText[] = "%s%n%x%p%d%c%%%5$s%*d";

struct LoggingPath {
    const char* what;
    std::function<void()> run;
};

class OutsideTextInTheLog : public ClientTestBed {
protected:
    // Runs each path and expects a log line that holds the text literally.
    void ExpectLiteralInLog(const std::vector<LoggingPath>& paths) {
        for (const LoggingPath& path : paths) {
            SCOPED_TRACE(path.what);
            logs.Clear();
            path.run();
            EXPECT_TRUE(AnyLineHolds(kFormatText)) << "no log line holds the text literally";
        }
    }

    bool AnyLineHolds(const std::string& text) const {
        for (const testbed::LogLine& line : logs.Lines()) {
            if (line.text.find(text) != std::string::npos) return true;
        }
        return false;
    }

    const std::string outside = kFormatText;
};

TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromEveryPathOfTheClient) {
    Json::Value disclaimer = clienttest::JsonOf(R"({"result":true})");
    for (const char* member : {"id", "title", "intro", "version", "button1", "agree_dependency"}) disclaimer[member] = outside;
    disclaimer["details"] = "[{\"title\":\"" + outside + "\",\"data\":\"" + outside + "\"}]";
    Json::Value revised = clienttest::JsonOf(R"({"result":true,"disclaimers":[]})");
    revised["disclaimers"].append(disclaimer);
    revised["disclaimers"].append(clienttest::JsonOf(R"({"id":"prose"})"));
    revised["disclaimers"][1]["details"] = outside;
    service.SetReply("get disclaimer by term id", FakeReply::WithBody(disclaimer));
    service.SetReply("get revised disclaimers", FakeReply::WithBody(revised));

    ExpectLiteralInLog({
        {"id of a detail request", [&] { STHomeDisclaimerContentItem item; api->GetDisclaimerDetail(outside, item, "TV"); }},
        {"product type of a detail request",
         [&] { STHomeDisclaimerContentItem item; api->GetDisclaimerDetail("x", item, outside); }},
        {"details and ids of revised disclaimers",
         [&] { clienttest::OwnedItems items; api->GetRevisedDisclaimers(items.items, "TV", "all"); }},
        {"id of an existence query", [&] { api->IsDisclaimerItemExist(outside, "TV"); }},
        {"id of an existence query to the service", [&] { api->IsDisclaimerItemExist(outside, "AV"); }},
        {"id and product of an agreement change", [&] { api->SetDisclaimerItemAgreement(outside, 1, outside); }},
        {"product of all agreements", [&] { api->SetAllDisclaimerItemAgreement(1, outside); }},
        {"id of an agreement query",
         [&] { int agreed = 0; api->GetDisclaimerItemAgreement(outside, &agreed, "TV"); }},
        {"agreement cache text",
         [&] { store.Set(clienttest::kAgreementKey, outside); int agreed = 0; api->GetDisclaimerItemAgreement("x", &agreed, "TV"); }},
        {"agreement cache text, existence",
         [&] { store.Set(clienttest::kAgreementKey, outside); api->IsDisclaimerItemExist("x", "TV"); }},
        {"agreement cache value",
         [&] { store.Set(clienttest::kAgreementKey, "{\"x\":\"" + outside + "\"}"); int agreed = 0; api->GetDisclaimerItemAgreement("x", &agreed, "TV"); }},
        {"title", [&] { store.Set(clienttest::kTitlesKey, "[{\"title\":\"" + outside + "\"}]"); std::string t; api->GetDisclaimerTitle(t, 0); }},
        {"titles text", [&] { store.Set(clienttest::kTitlesKey, outside); std::string t; api->GetDisclaimerTitle(t, 0); }},
        {"titles key", [&] { CTermsJsonParser::GetMenuTitleFromVconf(outside, -1); }},
    });
}

TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromEveryPathOfTheCAndCSharpInterfaces) {
    Json::Value disclaimer = clienttest::JsonOf(R"({"result":true})");
    disclaimer["id"] = outside;
    disclaimer["details"] = "[{\"title\":\"" + outside + "\",\"data\":\"d\"}]";
    Json::Value header = clienttest::JsonOf(R"({"result":true})");
    header["headerData"]["title"] = outside;
    service.SetReply("get disclaimer by term id", FakeReply::WithBody(disclaimer));
    service.SetReply("get information for web view disclaimer", FakeReply::WithBody(header));

    ExpectLiteralInLog({
        {"record texts of a detail", [&] { GetDisclaimerDetail("x", nullptr, nullptr); }},
        {"id of a missing detail",
         [&] { service.SetReply("get disclaimer by term id", FakeReply::Result(false)); GetDisclaimerDetail(outside.c_str(), nullptr, nullptr); }},
        {"requester of an update", [&] { RequestUpdateDisclaimers(outside.c_str()); }},
        {"agreements text", [&] { SetDisclaimerItemsAgreements(outside.c_str()); }},
        {"agreement id", [&] { SetDisclaimerItemAgreement(outside.c_str(), 1); }},
        {"header data", [&] { free(GetInfoForDisclaimerWebView()); }},
        {"C# agreement change", [&] { CSharpGetInstance(); CSharpSetDisclaimerItemAgreement(outside.c_str(), 1, "TV"); }},
        {"C# agreement query", [&] { CSharpGetInstance(); int agreed = 0; CSharpGetDisclaimerItemAgreement(outside.c_str(), &agreed); }},
    });
}

TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromEveryPathOfTheBusServerToolkit) {
    const std::string busName = "com.velmora.tv.fmt";
    ExpectLiteralInLog({
        {"handle name", [&] { InitiateTermsDbusServer(outside.c_str()); CloseTermsDbusServer(outside.c_str()); }},
        {"unknown server", [&] { RegisterTermsDbusCallback(outside.c_str(), TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr); }},
        {"unknown server to close", [&] { CloseTermsDbusServer(outside.c_str()); }},
        {"service name that is not a bus name",
         [&] { TermsDbusServer server("fmt"); server.CreateDbusServer(outside); server.CloseDbusServer(); }},
        {"method name", [&] { TermsDbusMessage msg = {}; TermsDbusUtil::MakeParamsToMsgInput(outside, nullptr, msg); }},
        {"texts and destination of a call",
         [&] {
             TermsDbusServer server("fmt");
             server.CreateDbusServer(busName);
             std::string text = outside;
             TermsDbusMessage request = {};
             InitiateTermsDbusMessage(&request, text.data(), 0, text.data(), text.data(), nullptr, 0);
             TermsDbusMessage reply = {};
             server.SendDbusSyncMessage("com.velmora.tv.absent", request, reply, 5000);
             server.SendDbusSyncMessage(outside, request, reply, 5000);
             server.SendDbusSignal(outside, request);
             server.CloseDbusServer();
         }},
    });
}

TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromTheFrameworkStandIn) {
    ExpectLiteralInLog({
        {"destination that is not a bus name",
         [&] {
             Corvane::TCServer server("CAutoConnect", Corvane::TCServer::TC_SERVER_TYPE_2);
             Corvane::TCMessage request, reply;
             server.SendMessage(outside.c_str(), &request, true, &reply, 1000);
         }},
    });
}

TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromTheSimulatedServicesRequestHandling) {
    const termssim::Catalogue catalogue = termssim::Catalogue::Load(SAMPLE_CATALOGUE);
    termssim::SimState state(catalogue);
    const std::string setDir = store.Root() + "/set", usbDir = store.Root() + "/usb";
    std::filesystem::create_directories(setDir);
    std::filesystem::create_directories(usbDir);
    termssim::TermsServiceSim sim(catalogue, state, termssim::CloneDirs(setDir, usbDir));
    const std::string quoted = "\"" + outside + "\"";
    ExpectLiteralInLog({
        {"request name", [&] { sim.Handle("", "{\"method\":" + quoted + "}"); }},
        {"protocol", [&] { sim.Handle(outside, "{}"); }},
        {"item id", [&] { sim.Handle("", R"({"method":"set one agreement","product_type":"TV","is_agreed":true,"request_item":)" + quoted + "}"); }},
        {"country code", [&] { sim.Handle("", R"({"method":"set country code","country_code":)" + quoted + "}"); }},
        {"clone path", [&] { sim.Handle("", R"({"method":"Copy Clone Data TV to USB","dest":"d","src":)" + quoted + "}"); }},
    });
}

// The command-line client is a process of its own; its library lines go to a
// log file through the log stand-in.
TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromTheCommandLineClient) {
    char logPath[] = "/tmp/veranti-format-log-XXXXXX";
    const int fd = mkstemp(logPath);
    ASSERT_GE(fd, 0);
    close(fd);
    setenv("DLOG_OUTPUT", (std::string("file:") + logPath).c_str(), 1);
    unsetenv("DLOG_MIN_PRIO");
    const std::vector<std::vector<std::string>> runs = {
        {"show", outside}, {"exists", outside}, {"agreement", outside}, {"agree", outside},
    };
    for (const std::vector<std::string>& args : runs) {
        SCOPED_TRACE(args.front());
        std::ofstream(logPath, std::ios::trunc).close();
        const reliability::ProgramRun run = reliability::RunProgram(TERMS_CLI_PATH, args);
        EXPECT_NE(run.status, -1) << "the client did not exit normally: " << run.err;
        std::ifstream file(logPath);
        std::stringstream log;
        log << file.rdbuf();
        EXPECT_NE((log.str() + run.out + run.err).find(outside), std::string::npos) << log.str() << run.err;
    }
    unsetenv("DLOG_OUTPUT");
    unlink(logPath);
}

}  // namespace

// A text full of conversions, driven through every logging path of the library, the stand-ins and the tools,
// must reach the log exactly as given. Used as a format it would print something else, or crash (%n).
#include "ClientTestBed.h"
#include "ReliabilitySupport.h"
#include "SimState.h"
#include "TermsDbusServer.h"
#include "TermsDbusUtil.h"
#include "TermsJsonParser.h"
#include "TermsServiceSim.h"
#include "corvane/TCServer.h"

namespace {

using namespace clienttest;

const std::string kOutside = "%s%n%x%p%d%c%%%5$s%*d";
const char* const kOutsideText = kOutside.c_str();

// The text with kOutside for every '@'.
std::string With(std::string text) {
    for (size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at)) text.replace(at, 1, kOutside);
    return text;
}

bool LogHolds(const testbed::LogCapture& logs, const std::string& text) {
    const std::vector<testbed::LogLine> lines = logs.Lines();
    return std::any_of(lines.begin(), lines.end(), [&](auto& line) { return line.text.find(text) != text.npos; });
}

// Runs the statements on a cleared log and expects a line that holds kOutside as it is.
#define EXPECT_LOGGED_LITERALLY(...)                           \
    do {                                                       \
        logs.Clear();                                          \
        __VA_ARGS__;                                           \
        EXPECT_TRUE(LogHolds(logs, kOutside)) << #__VA_ARGS__; \
    } while (false)

using OutsideTextInTheLog = ClientTestBed;

TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromEveryPathOfTheClientAndItsCAndCSharpInterfaces) {
    const std::string disclaimer = With(R"({"result":true,"id":"@","title":"@","intro":"@","version":"@",)"
                                        R"("button1":"@","agree_dependency":"@",)"
                                        R"("details":"[{\"title\":\"@\",\"data\":\"@\"}]"})");
    Reply("get disclaimer by term id", disclaimer);
    Reply("get revised disclaimers",
          With(R"({"result":true,"disclaimers":[{"id":"prose","details":"@"},)") + disclaimer + "]}");
    Reply("get information for web view disclaimer", With(R"({"result":true,"headerData":{"title":"@"}})"));
    STHomeDisclaimerContentItem item;
    std::string title;
    int agreed = 0;
    EXPECT_LOGGED_LITERALLY(api->GetDisclaimerDetail(kOutside, item, "TV"));
    EXPECT_LOGGED_LITERALLY(api->GetDisclaimerDetail("x", item, kOutside));
    EXPECT_LOGGED_LITERALLY(OwnedItems revised; api->GetRevisedDisclaimers(revised.items, "TV", "all"));
    EXPECT_LOGGED_LITERALLY(api->IsDisclaimerItemExist(kOutside, "TV"));
    EXPECT_LOGGED_LITERALLY(api->IsDisclaimerItemExist(kOutside, "AV"));
    EXPECT_LOGGED_LITERALLY(api->SetDisclaimerItemAgreement(kOutside, 1, kOutside));
    EXPECT_LOGGED_LITERALLY(api->SetAllDisclaimerItemAgreement(1, kOutside));
    EXPECT_LOGGED_LITERALLY(api->GetDisclaimerItemAgreement(kOutside, &agreed, "TV"));
    EXPECT_LOGGED_LITERALLY(store.Set(kAgreementKey, kOutside); api->GetDisclaimerItemAgreement("x", &agreed, "TV"));
    EXPECT_LOGGED_LITERALLY(store.Set(kAgreementKey, kOutside); api->IsDisclaimerItemExist("x", "TV"));
    EXPECT_LOGGED_LITERALLY(store.Set(kAgreementKey, With(R"({"x":"@"})"));
                            api->GetDisclaimerItemAgreement("x", &agreed, "TV"));
    EXPECT_LOGGED_LITERALLY(store.Set(kTitlesKey, With(R"([{"title":"@"}])")); api->GetDisclaimerTitle(title, 0));
    EXPECT_LOGGED_LITERALLY(store.Set(kTitlesKey, kOutside); api->GetDisclaimerTitle(title, 0));
    EXPECT_LOGGED_LITERALLY(CTermsJsonParser::GetMenuTitleFromVconf(kOutside, -1));
    EXPECT_LOGGED_LITERALLY(GetDisclaimerDetail("x", nullptr, nullptr));
    EXPECT_LOGGED_LITERALLY(RequestUpdateDisclaimers(kOutsideText));
    EXPECT_LOGGED_LITERALLY(SetDisclaimerItemsAgreements(kOutsideText));
    EXPECT_LOGGED_LITERALLY(SetDisclaimerItemAgreement(kOutsideText, 1));
    EXPECT_LOGGED_LITERALLY(free(GetInfoForDisclaimerWebView()));
    EXPECT_LOGGED_LITERALLY(CSharpGetInstance(); CSharpSetDisclaimerItemAgreement(kOutsideText, 1, "TV"));
    EXPECT_LOGGED_LITERALLY(CSharpGetInstance(); CSharpGetDisclaimerItemAgreement(kOutsideText, &agreed));
    Reply("get disclaimer by term id", R"({"result":false})");
    EXPECT_LOGGED_LITERALLY(GetDisclaimerDetail(kOutsideText, nullptr, nullptr));
}

TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromEveryPathOfTheToolkitTheFrameworkStandInAndTheSimulatedService) {
    std::string text = kOutside;
    TermsDbusMessage request = {}, reply = {}, method = {};
    InitiateTermsDbusMessage(&request, text.data(), 0, text.data(), text.data(), nullptr, 0);
    EXPECT_LOGGED_LITERALLY(InitiateTermsDbusServer(kOutsideText); CloseTermsDbusServer(kOutsideText));
    EXPECT_LOGGED_LITERALLY(RegisterTermsDbusCallback(kOutsideText, TERMS_DBUS_CALLBACK_MESSAGE, nullptr, nullptr));
    EXPECT_LOGGED_LITERALLY(CloseTermsDbusServer(kOutsideText));
    EXPECT_LOGGED_LITERALLY(TermsDbusUtil::MakeParamsToMsgInput(kOutside, nullptr, method));
    TermsDbusServer server("fmt");
    EXPECT_LOGGED_LITERALLY(server.CreateDbusServer(kOutside); server.CloseDbusServer());
    ASSERT_TRUE(server.CreateDbusServer("com.velmora.tv.fmt"));
    EXPECT_LOGGED_LITERALLY(server.SendDbusSyncMessage("com.velmora.tv.absent", request, reply, 5000));
    EXPECT_LOGGED_LITERALLY(server.SendDbusSyncMessage(kOutside, request, reply, 5000));
    EXPECT_LOGGED_LITERALLY(server.SendDbusSignal(kOutside, request));
    server.CloseDbusServer();
    Corvane::TCServer framework("CAutoConnect", Corvane::TCServer::TC_SERVER_TYPE_2);
    Corvane::TCMessage frameworkRequest, frameworkReply;
    EXPECT_LOGGED_LITERALLY(framework.SendMessage(kOutsideText, &frameworkRequest, true, &frameworkReply, 1000));

    const termssim::Catalogue catalogue = termssim::Catalogue::Load(SAMPLE_CATALOGUE);
    termssim::SimState state(catalogue);
    termssim::TermsServiceSim sim(catalogue, state, termssim::CloneDirs(store.Root(), store.Root()));
    EXPECT_LOGGED_LITERALLY(sim.Handle("", With(R"({"method":"@"})")));
    EXPECT_LOGGED_LITERALLY(sim.Handle(kOutside, "{}"));
    EXPECT_LOGGED_LITERALLY(sim.Handle("", With(R"({"method":"set one agreement","product_type":"TV",)"
                                                R"("is_agreed":true,"request_item":"@"})")));
    EXPECT_LOGGED_LITERALLY(sim.Handle("", With(R"({"method":"set country code","country_code":"@"})")));
    EXPECT_LOGGED_LITERALLY(sim.Handle("", With(R"({"method":"Copy Clone Data TV to USB","dest":"d","src":"@"})")));
}

// The command-line client writes its library lines to a log file through the log stand-in.
TEST_F(OutsideTextInTheLog, ArrivesLiterallyFromTheCommandLineClient) {
    for (const std::string command : {"show", "exists", "agreement", "agree"}) {
        const std::string log = store.Root() + "/" + command + ".log";
        const testbed::ProgramRun run = testbed::RunProgram(
            {"env", "-u", "DLOG_MIN_PRIO", "DLOG_OUTPUT=file:" + log, TERMS_CLI_PATH, command, kOutside});
        const std::string out = run.out + run.err;
        EXPECT_NE(run.status, -1) << command << ": " << out;
        EXPECT_NE((reliability::ReadFile(log) + out).find(kOutside), std::string::npos) << command << ": " << out;
    }
}

}  // namespace

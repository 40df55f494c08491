// terms-cli run as a child process against the scriptable service on the
// private bus, with a temporary configuration store.
#include <gtest/gtest.h>

#include "FakeTermsService.h"
#include "TempStore.h"
#include "ToolProcesses.h"

namespace {

using testbed::FakeReply;
using testbed::ReceivedRequest;
using tooltest::Cli;
using tooltest::CliRun;
using tooltest::ParsedJson;

class TheTermsCli : public testing::Test {
protected:
    void SetUp() override {
        service.Start();
        Refuse("nothing");
    }

    // Refuses the requests named `refused`; answers the others like a service
    // with two disclaimers of two sections each, "first" and "second".
    void Refuse(const std::string& refused) {
        service.SetHandler([refused](const ReceivedRequest& request) {
            Json::Value reply = ParsedJson(
                R"({"number":2,"errorcode":3,"errorreason":7,"errormessage":"x","version":"1.0",
                "details":"[{\"title\":\"Scope\",\"data\":\"Line one\"},{\"title\":\"Rights\",\"data\":\"Two\"}]",
                "button1":"Agree","button2":"Decline"})");
            const int order = request.body["request_index"].asInt();
            reply["id"] = request.body.get("request_item", order == 0 ? "first" : "second");
            reply["order"] = order;
            reply["is_agreed"] = order == 0;
            reply["result"] = request.Name() != refused;
            if (reply["result"].asBool()) reply["headerData"]["title"] = "Terms";
            return FakeReply::WithBody(reply);
        });
    }

    testbed::TempStore store;
    testbed::FakeTermsService service;
};

TEST_F(TheTermsCli, SendsEachSubcommandsRequestAndExitsWithOneWhenRefusedAndThreeWhenUnavailable) {
    // The command line and the members its request must carry, with these values.
    const std::pair<const char*, const char*> kCases[] = {
        {"list --requester 2", R"({"method":"get disclaimer number","requester":2,"product_type":"TV"})"},
        {"show first --product-type HUB",
         R"({"method":"get disclaimer by term id","request_item":"first","product_type":"HUB"})"},
        {"show --index 3 --requester 1", R"({"method":"get disclaimer by order","request_index":3,"requester":1})"},
        {"revised --terms privacy", R"({"method":"get revised disclaimers","product_type":"TV","terms":"privacy"})"},
        {"agree first", R"({"method":"set one agreement","request_item":"first","is_agreed":true})"},
        {"disagree first --product-type HUB",
         R"({"method":"set one agreement","is_agreed":false,"product_type":"HUB"})"},
        {"agree --all", R"({"method":"set all agreement","is_agreed":true,"product_type":"TV"})"},
        {"disagree --all", R"({"method":"set all agreement","is_agreed":false})"},
        {R"(agree --json {"first":"true","second":"false"})", R"({"method":"set agreements","second":"false"})"},
        {"country set DE", R"({"method":"set country code","country_code":"DE","data":null})"},
        {"country list", R"({"method":"request country code list","data":null})"},
        {"update", R"({"method":"request update disclaimers","product_type":"TV","request_from":"wizard-terms"})"},
        {"update-api settings privacy", R"({"method":"request disclaimer api","request_from":"settings"})"},
        {"disclaimer-id", R"({"method":"request disclaimerid","product_type":"TV","other_page":false})"},
        {"disclaimer-id --other-page", R"({"method":"request disclaimerid","other_page":true})"},
        {"header", R"({"method":"get information for disclaimer","data":null})"},
        {"header --web-view", R"({"method":"get information for web view disclaimer"})"},
        {"check", R"({"method":"dravik check"})"},
        {"check --info", R"({"method":"dravik get error info"})"},
        {"clone to-usb a.dat b/a.dat", R"({"method":"Copy Clone Data TV to USB","src":"a.dat","dest":"b/a.dat"})"},
        {"clone to-tv b/a.dat a.dat", R"({"method":"Copy Clone Data USB to TV","src":"b/a.dat","dest":"a.dat"})"},
        {"reset", R"({"method":"request reset nimbra","data":null})"},
    };
    for (const auto& [line, members] : kCases) {
        SCOPED_TRACE(line);
        const Json::Value expected = ParsedJson(members);
        service.ClearRequests();
        const CliRun done = Cli(line);
        EXPECT_EQ(done.status, 0) << done.err;
        EXPECT_EQ(done.err, "");
        const std::vector<ReceivedRequest> requests = service.RequestsBesidesAvailability();
        ASSERT_FALSE(requests.empty());  // "list" goes on to ask for each disclaimer
        for (const std::string& member : expected.getMemberNames()) {
            EXPECT_EQ(requests[0].body.get(member, "(missing)"), expected[member]) << member;
        }

        Refuse(expected["method"].asString());
        const CliRun refused = Cli(line);
        const bool readAsNone = expected["method"] == "get disclaimer number";  // the library's reading of a refusal
        EXPECT_EQ(refused.status, readAsNone ? 0 : 1);
        EXPECT_TRUE(readAsNone ? refused.err.empty() : refused.ErrIsOneLine()) << refused.err;

        Refuse("is service available");
        service.ClearRequests();
        const CliRun unavailable = Cli(line);
        EXPECT_EQ(unavailable.status, 3);
        EXPECT_EQ(unavailable.out, "");
        EXPECT_TRUE(unavailable.ErrIsOneLine()) << unavailable.err;
        EXPECT_NE(unavailable.err.find("could not be reached"), std::string::npos) << unavailable.err;
        EXPECT_TRUE(service.RequestsBesidesAvailability().empty());
        Refuse("nothing");
    }
}

TEST_F(TheTermsCli, PrintsOneJsonDocumentWithTheJsonOptionBeforeOrAfterTheCommand) {
    const Json::Value list = Cli("--json list").JsonOut();
    EXPECT_TRUE(list["ok"].asBool());
    ASSERT_EQ(list["disclaimers"].size(), 2u);
    EXPECT_TRUE(list["disclaimers"][0]["is_agreed"].asBool());
    EXPECT_EQ(list["disclaimers"][1]["id"], "second");
    EXPECT_EQ(list["disclaimers"][1]["buttons"], ParsedJson(R"(["Agree","Decline"])"));
    EXPECT_EQ(list["disclaimers"][1]["sections"],
              ParsedJson(R"([{"title":"Scope","text":"Line one"},{"title":"Rights","text":"Two"}])"));
    EXPECT_EQ(Cli("show first --json").JsonOut()["disclaimer"]["id"], "first");
    Refuse("dravik get error info");  // the error is printed also when the check fails
    const CliRun check = Cli("check --info --json");
    EXPECT_EQ(check.status, 1);
    EXPECT_FALSE(check.JsonOut()["ok"].asBool());
    EXPECT_EQ(check.JsonOut()["errorcode"].asInt() * 10 + check.JsonOut()["errorreason"].asInt(), 37);
    EXPECT_EQ(check.JsonOut()["errormessage"], "x");
}

TEST_F(TheTermsCli, AnswersStoreQueriesWithoutTheService) {
    service.Stop();
    store.Set("db/veranti/disclaimeragrees", R"({"first":"true","second":"false"})");
    store.Set("db/veranti/terms_title", R"([{"title":"Nutzungsbedingungen"},{"title":"Datenschutzerklärung"}])");
    EXPECT_TRUE(Cli("--json agreement first").JsonOut()["agreed"].asBool());
    EXPECT_FALSE(Cli("--json exists third").JsonOut()["exists"].asBool());
    EXPECT_EQ(Cli("title 1").out, "Datenschutzerklärung\n");
    EXPECT_EQ(Cli("title 2").status, 1);
    EXPECT_EQ(Cli("store set db/test/key wert-ä").status, 0);
    EXPECT_EQ(store.Get("db/test/key"), "wert-ä");
    EXPECT_EQ(Cli("store get db/test/key").out, "wert-ä\n");
    EXPECT_EQ(Cli("store unset db/test/key").status, 0);
    EXPECT_EQ(Cli("store get db/test/key").status, 1);
}

TEST_F(TheTermsCli, AnswersHelpOnEveryLevelWithoutAskingTheService) {
    const std::string commands[] = {
        "status", "list",   "show",         "revised",     "agree",        "disagree",  "agreement",  "exists",
        "title",  "titles", "language",     "country set", "country list", "update",    "update-api", "disclaimer-id",
        "header", "check",  "clone to-usb", "clone to-tv", "reset",        "store get", "store set",  "store unset"};
    std::vector<std::string> lines = {"-h", "--json --help", "country --help", "store -h"};
    const std::string globalHelp = Cli("--help").out;
    for (const std::string& command : commands) {
        EXPECT_NE(globalHelp.find("  " + command), std::string::npos) << command;
        lines.push_back(command + " --help");
    }
    EXPECT_NE(globalHelp.find("3  the terms-client service could not be reached"), std::string::npos);
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        const CliRun run = Cli(line);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out.rfind("Usage: terms-cli", 0), 0u) << run.out;
    }
    EXPECT_TRUE(service.Requests().empty());
}

TEST_F(TheTermsCli, RejectsBadUsageWithExitTwoAndOneLineOnStandardError) {
    const char* kCases[] = {"",
                            "--json",
                            "frobnicate",
                            "--bogus status",
                            "status extra",
                            "show",
                            "show --index x",
                            "show first --index 1",
                            "list --requester 5",
                            "agree first --all",
                            "agree --json [1]",
                            "title -1",
                            "clone to-usb only-one",
                            "store get ../escape"};
    for (const char* line : kCases) {
        SCOPED_TRACE(line);
        const CliRun run = Cli(line);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(run.ErrIsOneLine()) << run.err;
        EXPECT_EQ(run.err.rfind("terms-cli: ", 0), 0u) << run.err;
    }
    EXPECT_TRUE(service.Requests().empty());
}

}  // namespace

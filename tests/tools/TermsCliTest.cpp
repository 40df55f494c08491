// terms-cli run as a child process against the scriptable service on the
// private bus, with a temporary configuration store.
#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "CliProcess.h"
#include "FakeTermsService.h"
#include "TempStore.h"

namespace {

using clitest::CliRun;
using testbed::FakeReply;
using testbed::FakeTermsService;
using testbed::ReceivedRequest;
using Args = std::vector<std::string>;

const char kAvailability[] = "is service available";
const char kAgreementsKey[] = "db/veranti/disclaimeragrees";
const char kTitlesKey[] = "db/veranti/terms_title";

CliRun Cli(const Args& args) {
    return clitest::RunProgram(TERMS_CLI_PATH, args);
}

std::string Joined(const Args& args) {
    std::string text = "terms-cli";
    for (const std::string& arg : args) text += " " + arg;
    return text;
}

// Strict: the whole text must be one JSON document.
Json::Value ParseJson(const std::string& text) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
        ADD_FAILURE() << "not one JSON document (" << errors << "):\n" << text;
    }
    return value;
}

// Number of characters (not bytes) in UTF-8 text.
size_t Characters(const std::string& text) {
    size_t count = 0;
    for (unsigned char c : text) count += (c & 0xC0) != 0x80;
    return count;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// The flat reply of "get disclaimer by order" / "get disclaimer by term id".
Json::Value DisclaimerReply(const std::string& id, int order) {
    Json::Value reply(Json::objectValue);
    reply["result"] = true;
    reply["id"] = id;
    reply["order"] = order;
    reply["version"] = "1.0";
    reply["title"] = "Title of " + id;
    reply["intro"] = "Please read.";
    reply["details"] = R"([{"title":"Scope","data":"Line one"},{"title":"Rights","data":"Line two"}])";
    reply["button1"] = "Agree";
    reply["button2"] = "Decline";
    reply["is_agreed"] = order == 0;
    return reply;
}

// A service with two disclaimers, "first" and "second".
FakeReply CatalogueReply(const ReceivedRequest& request) {
    const std::string ids[] = {"first", "second"};
    if (request.Name() == "get disclaimer number") {
        Json::Value reply(Json::objectValue);
        reply["result"] = true;
        reply["number"] = 2;
        return FakeReply::WithBody(reply);
    }
    if (request.Name() == "get disclaimer by order") {
        const int index = request.body["request_index"].asInt();
        return FakeReply::WithBody(DisclaimerReply(ids[index], index));
    }
    if (request.Name() == "get disclaimer by term id") {
        return FakeReply::WithBody(DisclaimerReply(request.body["request_item"].asString(), 1));
    }
    return FakeReply::Result(true);
}

class TheTermsCli : public testing::Test {
protected:
    void SetUp() override {
        unsetenv("DLOG_OUTPUT");
        service.Start();
    }

    // Every request refuses that is named `refused`; the others succeed
    // (with header data for the header requests).
    void Refuse(const std::string& refused) {
        service.SetHandler([refused](const ReceivedRequest& request) {
            Json::Value reply(Json::objectValue);
            reply["result"] = request.Name() != refused;
            if (reply["result"].asBool()) reply["headerData"]["title"] = "Terms";
            return FakeReply::WithBody(reply);
        });
    }

    testbed::TempStore store;
    FakeTermsService service;
};

// Commands that talk to the service, one form each.
const std::vector<Args> kServiceCommands = {
    {"status"},
    {"list"},
    {"show", "first"},
    {"show", "--index", "0"},
    {"revised"},
    {"agree", "first"},
    {"agree", "--all"},
    {"agree", "--json", R"({"first":"true"})"},
    {"disagree", "first"},
    {"disagree", "--all"},
    {"country", "set", "DE"},
    {"country", "list"},
    {"update"},
    {"update-api", "wizard", "all"},
    {"disclaimer-id"},
    {"header"},
    {"header", "--web-view"},
    {"check"},
    {"check", "--info"},
    {"clone", "to-usb", "a.dat", "b.dat"},
    {"clone", "to-tv", "a.dat", "b.dat"},
    {"reset"},
};

TEST_F(TheTermsCli, ExitsWithThreeAndAsksNothingElseWhenTheServiceSaysItIsNotAvailable) {
    Refuse(kAvailability);
    for (const Args& args : kServiceCommands) {
        SCOPED_TRACE(Joined(args));
        const CliRun run = Cli(args);
        EXPECT_EQ(run.status, 3);
        EXPECT_EQ(run.out, "");
        ASSERT_EQ(run.ErrLines().size(), 1u) << run.err;
        EXPECT_NE(run.err.find("could not be reached"), std::string::npos) << run.err;
    }
    EXPECT_TRUE(service.RequestsBesidesAvailability().empty());
}

TEST_F(TheTermsCli, ExitsWithThreeWhenNoServiceOwnsTheName) {
    service.Stop();
    for (const Args& args : kServiceCommands) {
        SCOPED_TRACE(Joined(args));
        const CliRun run = Cli(args);
        EXPECT_EQ(run.status, 3) << run.err;
        EXPECT_EQ(run.ErrLines().size(), 1u) << run.err;
    }
}

TEST_F(TheTermsCli, AnswersStoreQueriesWithoutTheService) {
    service.Stop();
    store.Set(kAgreementsKey, R"({"first":"true"})");
    store.Set(kTitlesKey, R"([{"title":"Terms"}])");
    const Args queries[] = {{"agreement", "first"}, {"exists", "first"},
                            {"title", "0"},         {"titles"},
                            {"language"},           {"store", "get", kAgreementsKey}};
    for (const Args& args : queries) {
        SCOPED_TRACE(Joined(args));
        const CliRun run = Cli(args);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.err, "");
    }
}

TEST_F(TheTermsCli, SendsEachSubcommandsRequestAndExitsWithOneWhenTheServiceRefusesIt) {
    struct Case {
        Args args;
        std::string name;
        std::string members;  // members the body must carry, with these values
        int whenRefused = 1;  // the exit status when the service refuses the request
    };
    const Case cases[] = {
        // The library reads a refused count as no disclaimers.
        {{"list", "--requester", "2"},
         "get disclaimer number",
         R"({"requester":2,"product_type":"TV","data":null})",
         0},
        {{"show", "first", "--product-type", "MONITOR"},
         "get disclaimer by term id",
         R"({"request_item":"first","product_type":"MONITOR"})"},
        {{"show", "--index", "3", "--requester", "1"},
         "get disclaimer by order",
         R"({"request_index":3,"requester":1,"product_type":"TV"})"},
        {{"revised", "--product-type", "HUB", "--terms", "privacy"},
         "get revised disclaimers",
         R"({"product_type":"HUB","terms":"privacy","data":null})"},
        {{"agree", "first"}, "set one agreement", R"({"request_item":"first","is_agreed":true,"product_type":"TV"})"},
        {{"disagree", "first"}, "set one agreement", R"({"request_item":"first","is_agreed":false})"},
        {{"agree", "--all"}, "set all agreement", R"({"is_agreed":true,"product_type":"TV"})"},
        {{"disagree", "--all", "--product-type", "HUB"},
         "set all agreement",
         R"({"is_agreed":false,"product_type":"HUB"})"},
        {{"agree", "--json", R"({"first":"true","second":"false"})"},
         "set agreements",
         R"({"first":"true","second":"false","product_type":"TV","data":null})"},
        {{"country", "set", "DE"}, "set country code", R"({"country_code":"DE","data":null})"},
        {{"country", "list"}, "request country code list", R"({"data":null})"},
        {{"update", "--product-type", "HUB"},
         "request update disclaimers",
         R"({"product_type":"HUB","request_from":"wizard-terms"})"},
        {{"update-api", "settings", "privacy"},
         "request disclaimer api",
         R"({"request_from":"settings","terms":"privacy","product_type":"TV"})"},
        {{"disclaimer-id"}, "request disclaimerid", R"({"product_type":"TV","other_page":false})"},
        {{"disclaimer-id", "--other-page"}, "request disclaimerid", R"({"other_page":true})"},
        {{"header"}, "get information for disclaimer", R"({"data":null})"},
        {{"header", "--web-view"}, "get information for web view disclaimer", R"({"data":null})"},
        {{"check"}, "dravik check", "{}"},
        {{"check", "--info"}, "dravik get error info", "{}"},
        {{"clone", "to-usb", "clone.dat", "backup/clone.dat"},
         "Copy Clone Data TV to USB",
         R"({"src":"clone.dat","dest":"backup/clone.dat"})"},
        {{"clone", "to-tv", "backup/clone.dat", "clone.dat"},
         "Copy Clone Data USB to TV",
         R"({"src":"backup/clone.dat","dest":"clone.dat"})"},
        {{"reset"}, "request reset nimbra", R"({"data":null})"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Joined(c.args));
        Refuse("nothing");
        service.ClearRequests();
        const CliRun done = Cli(c.args);
        EXPECT_EQ(done.status, 0) << done.err;
        EXPECT_EQ(done.err, "");
        const std::vector<ReceivedRequest> requests = service.RequestsBesidesAvailability();
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].Name(), c.name);
        const Json::Value expected = ParseJson(c.members);
        for (const std::string& member : expected.getMemberNames()) {
            EXPECT_TRUE(requests[0].body.isMember(member) && requests[0].body[member] == expected[member])
                << member << " in " << requests[0].bodyText;
        }

        Refuse(c.name);
        const CliRun refused = Cli(c.args);
        EXPECT_EQ(refused.status, c.whenRefused);
        EXPECT_EQ(refused.ErrLines().size(), c.whenRefused == 0 ? 0u : 1u) << refused.err;
    }
}

TEST_F(TheTermsCli, SendsOneAgreementRequestPerIdAndNamesTheRefusedOnes) {
    service.SetHandler([](const ReceivedRequest& request) {
        return FakeReply::Result(request.body["request_item"].asString() != "second");
    });
    const CliRun run = Cli({"agree", "first", "second", "third"});
    EXPECT_EQ(run.status, 1);
    std::vector<std::string> ids;
    for (const ReceivedRequest& request : service.RequestsNamed("set one agreement")) {
        ids.push_back(request.body["request_item"].asString());
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"first", "second", "third"}));
    ASSERT_EQ(run.ErrLines().size(), 1u);
    EXPECT_NE(run.err.find("\"second\""), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("\"first\""), std::string::npos) << run.err;
}

TEST_F(TheTermsCli, PrintsTheDisclaimersOfARequesterAsOneJsonDocument) {
    service.SetHandler(CatalogueReply);
    const CliRun run = Cli({"--json", "list"});
    ASSERT_EQ(run.status, 0) << run.err;
    const Json::Value document = ParseJson(run.out);
    EXPECT_TRUE(document["ok"].asBool());
    ASSERT_EQ(document["disclaimers"].size(), 2u);
    const Json::Value& second = document["disclaimers"][1];
    EXPECT_EQ(second["id"], "second");
    EXPECT_EQ(second["order"], 1);
    EXPECT_EQ(second["buttons"], ParseJson(R"(["Agree","Decline"])"));
    EXPECT_EQ(second["sections"],
              ParseJson(R"([{"title":"Scope","text":"Line one"},{"title":"Rights","text":"Line two"}])"));
    EXPECT_TRUE(document["disclaimers"][0]["is_agreed"].asBool());
}

TEST_F(TheTermsCli, TakesTheGlobalJsonOptionAfterTheCommandToo) {
    service.SetHandler(CatalogueReply);
    const CliRun run = Cli({"show", "first", "--json"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(ParseJson(run.out)["disclaimer"]["id"], "first");
}

TEST_F(TheTermsCli, ListsDisclaimersAsATableAlignedByCharacters) {
    service.SetHandler([](const ReceivedRequest& request) {
        if (request.Name() == "get disclaimer number") return CatalogueReply(request);
        const int index = request.body["request_index"].asInt();
        return FakeReply::WithBody(DisclaimerReply(index == 0 ? "übersicht" : "privacy", index));
    });
    const CliRun run = Cli({"list"});
    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 3u) << run.out;
    EXPECT_EQ(lines[0].rfind("#", 0), 0u) << run.out;
    const size_t versionColumn = Characters(lines[0].substr(0, lines[0].find("VERSION")));
    for (size_t row = 1; row < lines.size(); ++row) {
        EXPECT_EQ(Characters(lines[row].substr(0, lines[row].find("1.0"))), versionColumn) << run.out;
    }
}

TEST_F(TheTermsCli, ShowsSectionsIndentedUnderTheirTitles) {
    service.SetHandler(CatalogueReply);
    const CliRun run = Cli({"show", "first"});
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string expected = "  sections:\n    Scope\n      Line one\n    Rights\n      Line two\n";
    EXPECT_NE(run.out.find(expected), std::string::npos) << run.out;
    EXPECT_EQ(run.out.rfind("Title of first\n", 0), 0u) << run.out;
}

TEST_F(TheTermsCli, PrintsTheCheckErrorCodeReasonAndMessageAlsoWhenTheCheckFails) {
    service.SetReply("dravik get error info",
                     FakeReply::WithBody(
                         ParseJson(R"({"result":false,"errorcode":3,"errorreason":7,"errormessage":"no network"})")));
    const CliRun run = Cli({"--json", "check", "--info"});
    EXPECT_EQ(run.status, 1);
    const Json::Value document = ParseJson(run.out);
    EXPECT_FALSE(document["ok"].asBool());
    EXPECT_EQ(document["errorcode"], 3);
    EXPECT_EQ(document["errorreason"], 7);
    EXPECT_EQ(document["errormessage"], "no network");
    EXPECT_NE(run.err.find("error code 3"), std::string::npos) << run.err;

    const CliRun human = Cli({"check", "--info"});
    EXPECT_NE(human.out.find("no network"), std::string::npos) << human.out;
}

TEST_F(TheTermsCli, ReportsAnUnreachableServiceInTheJsonDocument) {
    service.Stop();
    const CliRun run = Cli({"--json", "status"});
    EXPECT_EQ(run.status, 3);
    const Json::Value document = ParseJson(run.out);
    EXPECT_FALSE(document["ok"].asBool());
    EXPECT_FALSE(document["available"].asBool());
    EXPECT_TRUE(document["error"].isString());
}

TEST_F(TheTermsCli, ReadsAgreementsAndTitlesFromTheStore) {
    store.Set(kAgreementsKey, R"({"first":"true","second":"false"})");
    store.Set(kTitlesKey, R"([{"title":"Nutzungsbedingungen"},{"title":"Datenschutzerklärung"}])");

    EXPECT_TRUE(ParseJson(Cli({"--json", "agreement", "first"}).out)["agreed"].asBool());
    EXPECT_FALSE(ParseJson(Cli({"--json", "agreement", "second"}).out)["agreed"].asBool());
    EXPECT_TRUE(ParseJson(Cli({"--json", "exists", "second"}).out)["exists"].asBool());
    EXPECT_FALSE(ParseJson(Cli({"--json", "exists", "third"}).out)["exists"].asBool());
    EXPECT_EQ(ParseJson(Cli({"--json", "titles"}).out)["titles"],
              ParseJson(R"(["Nutzungsbedingungen","Datenschutzerklärung"])"));
    EXPECT_EQ(Cli({"title", "1"}).out, "Datenschutzerklärung\n");
    EXPECT_EQ(Cli({"title", "2"}).status, 1);
}

TEST_F(TheTermsCli, SetsReadsAndUnsetsStoreKeys) {
    EXPECT_EQ(Cli({"store", "set", "db/test/key", "wert ä"}).status, 0);
    EXPECT_EQ(store.Get("db/test/key"), "wert ä");
    EXPECT_EQ(Cli({"store", "get", "db/test/key"}).out, "wert ä\n");
    EXPECT_EQ(Cli({"store", "unset", "db/test/key"}).status, 0);
    const CliRun missing = Cli({"store", "get", "db/test/key"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.ErrLines().size(), 1u);
}

TEST_F(TheTermsCli, AnswersHelpOnEveryLevelWithoutAskingTheService) {
    const Args levels[] = {
        {"--help"}, {"-h"}, {"--json", "--help"}, {"country", "--help"}, {"clone", "--help"}, {"store", "-h"},
    };
    const char* commands[] = {"status",       "list",        "show",       "revised",       "agree",     "disagree",
                              "agreement",    "exists",      "title",      "titles",        "language",  "country set",
                              "country list", "update",      "update-api", "disclaimer-id", "header",    "check",
                              "clone to-usb", "clone to-tv", "reset",      "store get",     "store set", "store unset"};
    std::vector<Args> all(std::begin(levels), std::end(levels));
    for (const char* command : commands) {
        Args args;
        std::istringstream words(command);
        for (std::string word; words >> word;) args.push_back(word);
        args.push_back("--help");
        all.push_back(args);
    }
    const std::string globalHelp = Cli({"--help"}).out;
    for (const Args& args : all) {
        SCOPED_TRACE(Joined(args));
        const CliRun run = Cli(args);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.out.rfind("Usage: terms-cli", 0), 0u) << run.out;
    }
    for (const char* command : commands) {
        EXPECT_NE(globalHelp.find(std::string("  ") + command), std::string::npos) << command;
    }
    EXPECT_NE(globalHelp.find("3  the terms-client service could not be reached"), std::string::npos);
    EXPECT_TRUE(service.Requests().empty());
}

TEST_F(TheTermsCli, RejectsBadUsageWithExitTwoAndOneLineOnStandardError) {
    const Args cases[] = {
        {},
        {"--json"},
        {"frobnicate"},
        {"--bogus", "status"},
        {"status", "extra"},
        {"status", "--bogus"},
        {"show"},
        {"show", "first", "second"},
        {"show", "--index", "x"},
        {"show", "--index"},
        {"show", "first", "--requester", "1"},
        {"show", "first", "--index", "1"},
        {"list", "--requester", "5"},
        {"list", "--requester", "-1"},
        {"list", "--requester", "1", "--requester", "2"},
        {"agree"},
        {"agree", "first", "--all"},
        {"agree", "--all", "--json", "{}"},
        {"agree", "--json", "[1]"},
        {"agree", "--json", "not json"},
        {"agree", "--all=yes"},
        {"title"},
        {"title", "x"},
        {"title", "-1"},
        {"country"},
        {"country", "frob"},
        {"clone", "to-usb", "only-one"},
        {"update-api", "a"},
        {"store", "get"},
        {"store", "set", "db/a"},
        {"store", "get", "../escape"},
    };
    for (const Args& args : cases) {
        SCOPED_TRACE(Joined(args));
        const CliRun run = Cli(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        ASSERT_EQ(run.ErrLines().size(), 1u) << run.err;
        EXPECT_EQ(run.err.rfind("terms-cli: ", 0), 0u) << run.err;
    }
    EXPECT_TRUE(service.Requests().empty());
}

TEST_F(TheTermsCli, KeepsTheLibraryLogOffTheTerminalUnlessAskedFor) {
    const CliRun quiet = Cli({"status"});
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.err, "");

    const CliRun verbose = Cli({"status", "--verbose"});
    EXPECT_EQ(verbose.status, 0);
    EXPECT_NE(verbose.err.find("IsServiceAvailable"), std::string::npos) << verbose.err;

    const std::string logFile = store.Root() + "/cli.log";
    setenv("DLOG_OUTPUT", ("file:" + logFile).c_str(), 1);
    const CliRun redirected = Cli({"status"});
    unsetenv("DLOG_OUTPUT");
    EXPECT_EQ(redirected.err, "");
    std::ifstream log(logFile);
    const std::string logged((std::istreambuf_iterator<char>(log)), std::istreambuf_iterator<char>());
    EXPECT_NE(logged.find("IsServiceAvailable"), std::string::npos);
}

}  // namespace

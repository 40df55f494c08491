// The tools: the simulator's catalogue, terms-cli against the scriptable service, the simulator on the private bus.
#include <TermsAPI.h>
#include <VerantiAPI.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <regex>
#include <thread>
#include <tuple>

#include "Catalogue.h"
#include "ChildProcess.h"
#include "FakeTermsService.h"
#include "PrivateBus.h"
#include "TempStore.h"

namespace fs = std::filesystem;

namespace {

// Its comments and its sections without a title or data are part of the test: the simulator takes them.
const char kCatalogue[] = R"json({
  // AA (default): base, child (needs base), note (notice only), extra; revised: child; BB: bb_only, base.
  /* In AA, requester 0 lists base, child; requester 1 extra, base; the others all four. */
  "default_country": "AA", "header": {"h": "top"}, "web_view_header": {"w": "top"}, "menu_titles": ["T1", "T2"],
  "disclaimers": {
    "base": {"version": "1.0", "title": "Base terms", "intro": "Read me", "buttons": ["Agree", "Disagree", "More"],
             "details": [{"title": "S1", "data": "D1"}, {"title": "S2", "data": "D2"}],
             "by_country": {"BB": {"title": "Grundlage – 기본", "version": "1.1"}}},
    "child": {"version": "2", "title": "Child", "details": "Plain prose.", "agree_dependency": "base"},
    "note": {"title": "Note", "only_notice": true, "buttons": ["Close"]},
    "extra": {"title": "Extra", "ppused": true, "reverse": true,
              "buttons": ["1", "2", "3", "4", "5", "6", "7", "8", "9", "10"]},
    "bb_only": {"title": "Überblick", "intro": "Résumé – 요약", "details": [{"title": "Only a title"}, {"data": "Only data"}]}
  },
  "countries": {
    "AA": {"disclaimers": ["base", "child", "note", "extra"], "revised": ["child"],
           "requesters": {"0": ["base", "child"], "1": ["extra", "base"]},
           "header": {"h": "aa"}, "web_view_header": {"w": "aa"}, "menu_titles": ["A1", "A2"]},
    "BB": {"disclaimers": ["bb_only", "base"], "header": {"h": "bb"}, "menu_titles": ["Bé"]}
  }
})json";

// The whole text must be one JSON document.
Json::Value ParsedJson(const std::string& text) {
    Json::Value value;
    std::string error;
    EXPECT_TRUE(termssim::ParseStrictJson(text, value, error)) << error << ": " << text;
    return value;
}

// `text` holds `part`; when it does not, the failure shows `text`.
testing::AssertionResult Holds(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no \"" << part << "\" in: " << text;
}

using testbed::ProgramRun;

ProgramRun Cli(const std::string& line) {
    return testbed::RunCommandLine(TERMS_CLI_PATH, line);
}

Json::Value CliJson(const std::string& line) {
    return ParsedJson(Cli(line).out);
}

// `line` failed with `status`, printing `out` and one line that says why on standard error.
ProgramRun ExpectFailure(const std::string& line, int status, const std::string& why, const std::string& out = "") {
    const ProgramRun run = Cli(line);
    EXPECT_TRUE(run.status == status && run.out == out && run.ErrIsOneLine() && run.err.rfind("terms-cli: ", 0) == 0 &&
                run.err.find(why) != std::string::npos)
        << line << " -> " << run.status << ": " << run.out << run.err;
    return run;
}

// What loading a catalogue says when it refuses it; "accepted" when it does not.
std::string Refusal(const std::function<void()>& load) {
    try {
        load();
    } catch (const termssim::CatalogueError& error) {
        return error.what();
    }
    return "accepted";
}

TEST(ACatalogue, NamesThePlaceOfEachMistakeAndWhyAFileCannotBeOne) {
    // The test catalogue with `from` replaced by `to` is refused naming `place`.
    const std::string kMistakes[][3] = {
        {R"(["T1", "T2"],)", R"(["T1", "T2"])", "not valid JSON"},
        {R"(["A1", "A2"]},)", R"(["A1", "A2",]},)", "not valid JSON"},
        {R"("default_country": "AA")", R"("default_country": "ZZ")", "default_country"},
        {R"("title": "Child")", R"("titel": "Child")", "disclaimers.child.titel: unknown member"},
        {R"("agree_dependency": "base")", R"("agree_dependency": "nope")", "disclaimers.child.agree_dependency"},
        {R"("agree_dependency": "base")", R"("agree_dependency": "note")", "is a notice"},
        {R"("revised": ["child"])", R"("revised": ["bb_only"])", "countries.AA.revised"},
        {R"("0": ["base", "child"])", R"("0": ["base", 5])", "countries.AA.requesters.0[1]"},
        {R"("9", "10"])", R"("9", "10", "11"])", "disclaimers.extra.buttons: at most 10"},
        {R"("bb_only": {)", R"("data": {)", "\"data\" cannot be an id"},
        {R"("by_country": {"BB")", R"("by_country": {"CC")", "disclaimers.base.by_country.CC"},
    };
    for (const auto& [from, to, place] : kMistakes) {
        std::string text = kCatalogue;
        text.replace(text.find(from), from.size(), to);  // throws when `from` is not there
        EXPECT_TRUE(Holds(Refusal([&] { termssim::Catalogue::FromText(text); }), place));
    }
    const std::pair<const char*, const char*> kFiles[] = {{"/tmp", "/tmp: is a directory"},
                                                          {"/dev/zero", "/dev/zero: is larger than 64 MiB"},
                                                          {"/no/such/catalogue", "No such file or directory"}};
    for (const auto& [path, reason] : kFiles)
        EXPECT_TRUE(Holds(Refusal([path = path] { termssim::Catalogue::Load(path); }), reason));
}

// Loading takes time in proportion to the catalogue: 100,000 items in one country and its lists load well
// within the test's time limit (they did not load in a minute when each lookup went through the list).
TEST(ACatalogue, LoadsOneHundredThousandItems) {
    Json::Value root, ids(Json::arrayValue);
    for (int i = 0; i < 100000; ++i)
        root["disclaimers"][ids.append("item" + std::to_string(i)).asString()]["title"] = "T";
    Json::Value& country = root["countries"]["AA"];
    country["disclaimers"] = country["revised"] = ids;
    for (const char* requester : {"0", "1", "2", "3", "4"}) country["requesters"][requester] = ids;
    const auto catalogue = termssim::Catalogue::FromText(termssim::WriteCompactJson(root));
    EXPECT_EQ(catalogue.FindCountry("AA")->OrderOf("item99999"), 99999);
}

TEST(TheSampleCatalogue, HasSeveralCountriesSixItemsANoticeADependencyARevisionAndNonAsciiTexts) {
    const auto catalogue = termssim::Catalogue::Load(SAMPLE_CATALOGUE);
    bool six = false, revised = false, notice = false, dependency = false, nonAscii = false;
    for (const std::string& code : catalogue.CountryCodes()) {
        const auto& country = *catalogue.FindCountry(code);
        six |= country.disclaimers.size() >= 6;
        revised |= !country.revised.empty();
        for (const auto& item : country.disclaimers) {
            notice |= item.onlyNotice;
            dependency |= !item.agreeDependency.empty();
            nonAscii |= std::any_of(item.title.begin(), item.title.end(), [](char c) { return c & 0x80; });
        }
    }
    const bool several = catalogue.CountryCodes().size() >= 3;
    EXPECT_EQ(std::vector<bool>({several, six, revised, notice, dependency, nonAscii}), std::vector<bool>(6, true));
}

// Answers like a service with two disclaimers of two sections each, unless told to refuse.
class TheTermsCli : public testing::Test {
protected:
    void SetUp() override {
        service.Start();
        service.SetDefaultReply(m_Answer);
    }

    const testbed::FakeReply m_Answer = testbed::FakeReply::WithBody(ParsedJson(R"({"result":true,"number":2,
        "details":"[{\"title\":\"Scope\",\"data\":\"Line one\"},{\"title\":\"Rights\",\"data\":\"Two\"}]",
        "id":"first","button1":"Agree","button2":"Decline","headerData":{"title":"Terms"}})"));
    testbed::TempStore store;
    testbed::FakeTermsService service;
};

TEST_F(TheTermsCli, SendsEachSubcommandsRequestAndExitsWithOneWhenRefusedAndThreeWhenUnavailable) {
    // The command line and the members its request must carry, with these values.
    const std::pair<const char*, const char*> kCases[] = {
        {"list --requester 2", R"({"method":"get disclaimer number","requester":2,"product_type":"TV"})"},
        {"show first", R"({"method":"get disclaimer by term id","request_item":"first","product_type":"TV"})"},
        {"show --index 3 --requester 1", R"({"method":"get disclaimer by order","request_index":3,"requester":1})"},
        {"revised --terms privacy", R"({"method":"get revised disclaimers","product_type":"TV","terms":"privacy"})"},
        {"agree first", R"({"method":"set one agreement","request_item":"first","is_agreed":true})"},
        {"disagree first --product-type HUB",
         R"({"method":"set one agreement","is_agreed":false,"product_type":"HUB"})"},
        {"agree --all", R"({"method":"get disclaimer number","requester":0,"product_type":"TV"})"},
        {R"(agree --json '{"first":"true","second":"false"}')", R"({"method":"set agreements","second":"false"})"},
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
        const std::string method = expected["method"].asString();  // none sent yet: see the end of the loop
        const ProgramRun done = Cli(line);
        EXPECT_TRUE(done.status == 0 && done.err.empty()) << done.status << ": " << done.err;
        ASSERT_FALSE(service.RequestsBesidesAvailability().empty());  // "list" goes on to ask for each item
        const Json::Value sent = service.RequestsBesidesAvailability()[0].body;
        for (const std::string& name : expected.getMemberNames()) EXPECT_EQ(sent.get(name, "?"), expected[name]);
        service.SetReply(method, testbed::FakeReply::Result(false));
        const ProgramRun refused = Cli(line);  // the library reads a refused count as no disclaimers
        EXPECT_EQ(refused.status, method == "get disclaimer number" ? 0 : 1);
        EXPECT_TRUE(refused.status == 0 ? refused.err.empty() : refused.ErrIsOneLine()) << refused.err;
        service.SetReply("is service available", testbed::FakeReply::Result(false));
        service.ClearRequests();
        ExpectFailure(line, 3, "could not be reached");
        EXPECT_TRUE(service.RequestsBesidesAvailability().empty());
        for (const std::string& name : {method, std::string("is service available")}) service.SetReply(name, m_Answer);
    }
}

TEST_F(TheTermsCli, AnswersHelpWithZeroAndBadUsageWithTwoWithoutAskingTheService) {
    const std::regex version("terms-(cli|service-sim) [0-9.]+\n");
    for (const ProgramRun& run : {Cli("--version"), testbed::RunProgram({TERMS_SERVICE_SIM_PATH, "--version"})})
        EXPECT_TRUE(run.status == 0 && std::regex_match(run.out, version)) << run.out;
    const std::string help = Cli("-h").out;
    EXPECT_TRUE(Holds(help, "3  the terms-client service could not be reached"));
    for (const std::string command :
         {"status",     "list",          "show",        "revised",  "agree",        "disagree",     "agreement",
          "exists",     "title",         "titles",      "language", "country set",  "country list", "update",
          "update-api", "disclaimer-id", "header",      "check",    "clone to-usb", "clone to-tv",  "reset",
          "store get",  "store set",     "store unset", "--json",   "country",      "store"}) {
        const ProgramRun run = Cli(command + " --help");
        EXPECT_TRUE(Holds(help, "  " + command));
        EXPECT_TRUE(run.status == 0 && run.err.empty() && run.out.rfind("Usage: terms-cli", 0) == 0) << command;
    }
    for (const char* line : {"", "--json", "frobnicate", "--bogus status", "status extra", "show", "show --index x",
                             "show first --index 1", "list --requester 5", "agree first --all", "agree --json [1]",
                             "title -1", "clone to-usb only-one", "store get ../escape"})
        ExpectFailure(line, 2, "");
    EXPECT_TRUE(service.Requests().empty());
}

// A reply within --timeout counts (the refusal of the country code comes late); silence beyond it does not.
TEST_F(TheTermsCli, ExplainsRefusalsMistakesAndTimeoutsInPlainWords) {
    testbed::FakeReply lateRefusal = testbed::FakeReply::Result(false);
    lateRefusal.delayMs = 300;
    service.SetReply("set country code", lateRefusal);
    service.SetReply("set one agreement", testbed::FakeReply::Result(false));
    service.SetReply("dravik check", testbed::FakeReply::NoReply());
    service.SetReply("dravik get error info",
                     testbed::FakeReply::WithBody(
                         ParsedJson(R"({"result":false,"errorcode":3,"errorreason":4,"errormessage":"no network"})")));
    const std::tuple<const char*, int, const char*, const char*> kCases[] = {
        {"disagree first", 1, R"(refused the withdrawal of the agreement to "first" (the service's log says why).)",
         "ID     RESULT\nfirst  refused\n"},
        {"agree first second", 1, R"(refused the agreement to "first", "second" (the service's log says why).)",
         "ID      RESULT\nfirst   refused\nsecond  refused\n"},
        {"--timeout 5 country set ZZ", 1, R"(refused the country code "ZZ" (the service's log says why).)", ""},
        {"check --info", 1, "failed with error code 3 and reason 4: no network.",
         "The service's check failed.\n  error code:   3\n  error reason: 4\n  message:      no network\n"},
        {"list extra", 2, R"(list takes no operands, so "extra" is one too many)", ""},
        {"show a b", 2, R"(show takes only <id>, so "b" is one too many)", ""},
        {"agree", 2, "agree needs <id>... or --all or --none or --json OBJECT", ""},
        {"--timeout -1 status", 2, "--timeout must be a whole number from 0 to 86400", ""},
        {"--timeout 1 check", 4, "did not answer within 1 second (--timeout)", ""},
        {"check --timeout=1", 4, "did not answer within 1 second (--timeout)", ""},
        {"--json --timeout 1 check", 4, "did not answer within 1 second (--timeout)", ""},
    };
    for (const auto& [line, status, sentence, out] : kCases) ExpectFailure(line, status, sentence, out);
    service.SetReply("dravik get error info", testbed::FakeReply::WithBody(ParsedJson("[1]")));
    ExpectFailure("check --info", 1, "the service's reply could not be read (");
}

TEST_F(TheTermsCli, FailsWithOneWhenItsStoreCannotBeReadOrItsOutputCannotBeWritten) {
    for (const char* key : {"db/veranti/disclaimeragrees", "db/veranti/terms_title"})
        fs::create_directories(fs::path(store.Root()) / key);  // exists, but cannot be read as a value
    for (const char* line : {"agreement first", "exists first", "title 0", "titles"})
        EXPECT_TRUE(Holds(ExpectFailure(line, 1, "store cannot be read (db/veranti/").err, std::strerror(EISDIR)));
    fs::remove_all(fs::path(store.Root()) / "db");
    EXPECT_EQ(Cli("agreement first").out + Cli("titles").out, "first: not agreed\nThe store holds no menu titles.\n");
    for (const char* line : {"titles", "--json status", "--help", "status"}) {
        const ProgramRun run =
            testbed::RunProgram({"/bin/sh", "-c", TERMS_CLI_PATH " " + std::string(line) + " >/dev/full"});
        const std::string why = "cannot write to standard output: " + std::string(std::strerror(ENOSPC));
        EXPECT_TRUE(run.status == 1 && Holds(run.err, why)) << line << ": " << run.err;
    }
}

TEST_F(TheTermsCli, CompletesCommandsGroupMembersAndOptionsFromItsOwnHelp) {
    // The words typed so far, the last one being completed -> what completion offers.
    for (const std::string typed :
         {"cou -> country", "country '' -> set list", "store u -> unset", "list --re -> --requester",
          "--json --timeout 5 st -> status store", "--ti -> --timeout", "agree --json '{}' --pro -> --product-type",
          "show --index 1 --req -> --requester"}) {
        const std::string words = typed.substr(0, typed.find(" -> ")), offered = typed.substr(typed.find(" -> ") + 4);
        const std::string script = std::string("source " TERMS_CLI_COMPLETION "; COMP_WORDS=(" TERMS_CLI_PATH " ") +
                                   words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _terms_cli; echo ${COMPREPLY[*]}";
        EXPECT_EQ(testbed::RunProgram({"/bin/bash", "-c", script}).out, offered + "\n") << words;
    }
}

const char kBusName[] = "com.velmora.tv.termsclient", kAgreementsKey[] = "db/veranti/disclaimeragrees",
           kCountryKey[] = "db/veranti/country_code";

class ARunningSimulator : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(m_Dir / "set");
        g_file_set_contents((m_Dir / "catalogue.json").c_str(), kCatalogue, -1, nullptr);
        Restart();
    }
    void TearDown() override { EXPECT_EQ(m_Sim->Stop(), 0); }  // still serving; under sanitizers: no leak
    void Restart(const std::vector<std::string>& args = {}) {
        EXPECT_EQ(m_Sim ? m_Sim->Stop() : 0, 0);
        m_Sim = StartSimulator(args);
        ASSERT_TRUE(m_Sim->AwaitOutput("serving "));
    }

    std::unique_ptr<testbed::ChildProcess> StartSimulator(std::vector<std::string> args) const {
        args.insert(args.begin(), {TERMS_SERVICE_SIM_PATH, "--catalogue", m_Dir / "catalogue.json", "--store-root",
                                   m_Store.Root(), "--set-dir", m_Dir / "set", "--usb-dir", m_Dir / "usb"});
        return std::make_unique<testbed::ChildProcess>(args);
    }
    static CVerantiAPI& Api() { return *CVerantiAPI::GetInstance(); }
    // As the library reads it from the store, without asking the service.
    static int Agreement(const char* id) { return ::GetDisclaimerItemAgreement(id); }
    // Sends a request past the library: the reply's JSON, or null when none came in time.
    static Json::Value Raw(const char* protocol, const std::string& body, int timeoutMs = 10000) {
        g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        g_autoptr(GVariant) reply =
            g_dbus_connection_call_sync(bus, kBusName, "/com/velmora/tv/termsclient", kBusName, "SendMessage",
                                        g_variant_new("(suss)", "raw", 0u, protocol, body.c_str()), nullptr,
                                        G_DBUS_CALL_FLAGS_NONE, timeoutMs, nullptr, nullptr);
        if (!reply) return Json::Value();
        g_autoptr(GVariant) text = g_variant_get_child_value(reply, 3);
        return ParsedJson(g_variant_get_string(text, nullptr));
    }

    testbed::TempStore m_Store;
    const fs::path m_Dir = fs::path(m_Store.Root()) / "sim";
    std::unique_ptr<testbed::ChildProcess> m_Sim;
};

TEST_F(ARunningSimulator, AnswersTheClassAndTheCFunctionsWithTheCatalogueContent) {
    Json::Value header;
    Api().GetInformationForDisclaimer(header);
    int code = -1, reason = -1;
    std::string message = "x";
    EXPECT_TRUE(Api().IsServiceAvailable() && Api().DravikCheck(code, reason) &&
                Api().DravikCheck(code, reason, message) && Api().RequestDisclaimersRESTAPI("wizard", "all") &&
                Api().RequestDisclaimerID("TV", true) && Api().RequestUpdateDisclaimers("TV") &&
                Api().RequestCountryCodeList() && Api().RequestResetNimbra() && !Api().SetCountryCode("ZZ"));
    char* webHeader = ::GetInfoForDisclaimerWebView();
    EXPECT_EQ(header["h"].asString() + webHeader + std::to_string(code + reason) + message, R"(aa{"w":"aa"}0)");
    free(webHeader);
    std::vector<STHomeDisclaimerContentItem*> items, revised;
    Api().GetDisclaimerDetails(items, E_DISCLAIMER_REQUESTER_0, "TV");
    ASSERT_TRUE(Api().GetRevisedDisclaimers(revised, "TV", "all") && items.size() == 2 && revised.size() == 1);
    EXPECT_EQ(items[0]->vecDetailData, (std::vector<std::string>{"S1", "D1", "S2", "D2"}));
    EXPECT_EQ(items[0]->strButton3 + items[1]->strAgreeDependency + revised[0]->strItemId, "Morebasechild");
    for (STHomeDisclaimerContentItem* item : {items[0], items[1], revised[0]}) delete item;
    STHomeDisclaimerContentItem extra, note;
    ASSERT_EQ(Api().GetDisclaimerDetail(extra, 0, E_DISCLAIMER_REQUESTER_1, "TV"), 0);
    EXPECT_TRUE(extra.strItemId == "extra" && extra.nOrder == 3 && extra.strButton10 == "10" && extra.bPPUsed &&
                extra.bReverse);
    EXPECT_TRUE(Api().GetDisclaimerDetail("note", note, "TV") == 0 && note.bOnlyNotice);
    EXPECT_EQ(Api().GetDisclaimerDetail("nope", note, "TV") + ::IsDisclaimerItemExist("nope"), -1);
}

// Set over the bus through each interface, read back from the store by GetDisclaimerItemAgreement.
TEST_F(ARunningSimulator, RecordsAgreementsThatTheDirectStoreQueryReadsBack) {
    EXPECT_FALSE(Api().SetDisclaimerItemAgreement("child", 1, "TV"));  // before the item it depends on
    EXPECT_FALSE(Api().SetDisclaimerItemAgreement("note", 1, "TV"));   // a notice
    ASSERT_TRUE(Api().SetDisclaimerItemAgreement("base", 1, "TV") &&
                Api().SetRevisedTermAgreement("child", true, "TV"));
    EXPECT_EQ(Cli(R"(agree --json '{"extra":true}')").status, 0);
    EXPECT_EQ(Agreement("base") + Agreement("child") + Agreement("extra") + Agreement("note") * 10, 3);
    const char kAsk[] = R"({"request_type":"get disclaimer agreement","product_type":"TV","request_item":"child"})";
    EXPECT_EQ(Raw("common_protocol", kAsk)["is_agreed"], true);
    ::SetDisclaimerItemAgreement("base", 0);
    EXPECT_EQ(Agreement("child"), 0);  // withdrawn with the item it depends on
    ASSERT_TRUE(Api().SetAllDisclaimerItemAgreement(1, "TV"));
    EXPECT_EQ(Agreement("base") + Agreement("child") + Agreement("note") * 10, 2);
    EXPECT_EQ(Cli("disagree --all").status + Agreement("extra"), 0);
    EXPECT_TRUE(::SetDisclaimerItemsAgreements(R"({"base":"true"})") &&
                CliJson("--json agreement base")["agreed"].asBool());
}

// The simulator reads the stored agreements as the library does; what neither can read stays as it is.
TEST_F(ARunningSimulator, ReadsStoredAgreementsAsTheLibraryDoesAndNeverRewritesWhatItCannotRead) {
    const fs::path key = fs::path(m_Store.Root()) / kAgreementsKey;
    const std::pair<const char*, bool> kStored[] = {
        {R"({"base":"true","extra":"true",})", true},
        {"// agreed on the set\n{\"base\":\"true\", /* and */ \"extra\":\"true\"}", true},
        {R"({"base":"tr)", false},
        {R"(["base","extra"])", false},
        {"", false},  // a key that exists but cannot be read
    };
    for (const auto& [text, readable] : kStored) {
        SCOPED_TRACE(text);
        fs::remove(key);
        if (*text) m_Store.Set(kAgreementsKey, text);
        ASSERT_TRUE(*text || mkfifo(key.c_str(), 0600) == 0);
        const bool listed = CliJson("--json list --requester 1")["disclaimers"][1]["is_agreed"].asBool();
        EXPECT_EQ(CliJson("--json agreement base")["agreed"].asBool(), listed);
        const Json::Value refusal =
            Raw("", R"({"method":"set one agreement","product_type":"TV","request_item":"child","is_agreed":true})");
        if (readable) {
            EXPECT_TRUE(listed && refusal["result"].asBool()) << refusal;
            EXPECT_EQ(Agreement("base") + Agreement("extra") + Agreement("child"), 3);
            continue;
        }
        EXPECT_TRUE(Holds(refusal["errormessage"].asString(), "cannot be read"));
        EXPECT_EQ(Cli("agree extra").status + Cli("country set BB").status, 2);
        EXPECT_EQ(*text ? *m_Store.Get(kAgreementsKey) : std::string(fs::is_fifo(key) ? "" : "replaced"), text);
    }
}

TEST_F(ARunningSimulator, KeepsCountryTextsTitlesAndAgreementsAcrossARestart) {
    EXPECT_EQ(Cli("country set BB").status, 0);
    ASSERT_TRUE(Api().SetDisclaimerItemAgreement("bb_only", 1, "TV"));
    Restart();
    std::string title;
    EXPECT_TRUE(Api().GetDisclaimerTitle(title, 0) == 0 && title == "Bé" && Api().GetDisclaimerTitle(title, 1) == -1);
    STHomeDisclaimerContentItem item;
    ASSERT_EQ(Api().GetDisclaimerDetail(item, 0, E_DISCLAIMER_REQUESTER_0, "TV"), 0);
    EXPECT_TRUE(item.strItemId == "bb_only" && item.bIsAgreed);
    EXPECT_EQ(item.vecDetailData, (std::vector<std::string>{"Only a title", "", "", "Only data"}));
    ASSERT_EQ(Api().GetDisclaimerDetail("base", item, "TV"), 0);
    EXPECT_EQ(item.strTitle + " / " + item.strIntro + " / " + item.strVersion, "Grundlage – 기본 / Read me / 1.1");
    EXPECT_TRUE(Holds(Cli("show base").out, "  sections:\n    S1\n      D1\n"));
    EXPECT_EQ(Cli("title 0").out + Cli("store get db/veranti/country_code").out, "Bé\nBB\n");
}

TEST_F(ARunningSimulator, ServesConcurrentClients) {
    std::atomic<int> failures{0};
    const auto client = [&failures](const std::string& id) {
        for (int i = 0; i < 10; ++i) {
            STHomeDisclaimerContentItem item;
            failures += Api().GetDisclaimerDetail(id, item, "TV") != 0 || item.strItemId != id ||
                        !Api().SetDisclaimerItemAgreement(id, 1, "TV");
        }
    };
    std::thread clients[] = {std::thread(client, "base"), std::thread(client, "extra"), std::thread(client, "base"),
                             std::thread(client, "extra")};
    for (std::thread& each : clients) each.join();
    EXPECT_TRUE(failures == 0 && Agreement("base") + Agreement("extra") == 2) << failures;
}

TEST_F(ARunningSimulator, RefusesAnswersLateOrKeepsSilentOnPurposeAsTold) {
    Restart({"--fail=set one agreement=refuse", "--fail=get disclaimer number=delay:300",
             "--fail=request reset nimbra=silent"});
    EXPECT_TRUE(!Api().SetDisclaimerItemAgreement("base", 1, "TV") && Agreement("base") == 0);
    const gint64 start = g_get_monotonic_time();
    EXPECT_EQ(Api().GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), 2);
    EXPECT_GE(g_get_monotonic_time() - start, 300000);
    EXPECT_TRUE(Raw("", R"({"method":"request reset nimbra"})", 200).isNull());
    EXPECT_TRUE(Api().IsServiceAvailable());  // while the silent request still waits
}

TEST_F(ARunningSimulator, AnswersBadRequestsSentRawWithAReasonAndChangesNothing) {
    const std::pair<const char*, const char*> kBadRequests[] = {
        {"", "not json"},
        {"", R"({"method":"set country code","country_code":"BB"} trailing)"},
        {"", R"({"method":"set country code","country_code":"BB","country_code":"AA"})"},
        {"", R"({"method":"no such method"})"},
        {"", R"({"method":"get disclaimer agreement","product_type":"TV","request_item":"base"})"},
        {"common_protocol", R"({"method":"get disclaimer agreement","request_item":"base"})"},
        {"something else", R"({"method":"is service available"})"},
        {"", R"({"method":"set one agreement","product_type":"TV","request_item":"nope","is_agreed":true})"},
        {"", R"({"method":"set agreements","product_type":"TV","base":true,"nope":true})"},
        {"", R"({"method":"set all agreement","product_type":"TV","is_agreed":1})"},
        {"", R"({"method":"Copy Clone Data TV to USB","src":"a"})"},
    };
    const std::string before = *m_Store.Get(kAgreementsKey) + *m_Store.Get(kCountryKey);
    for (const auto& [protocol, body] : kBadRequests) {
        const Json::Value reply = Raw(protocol, body);
        EXPECT_TRUE(reply["result"] == false && reply["errormessage"].asString() != "") << body;
    }
    EXPECT_EQ(*m_Store.Get(kAgreementsKey) + *m_Store.Get(kCountryKey), before);  // and it still serves: see TearDown
}

TEST(TheSimulatedService, AnswersHelpWithZeroAndRefusesBadUsageWithTwoInOneLine) {
    const ProgramRun help = testbed::RunProgram({TERMS_SERVICE_SIM_PATH, "--help"});
    EXPECT_TRUE(help.status == 0 && help.out.rfind("Usage: terms-service-sim", 0) == 0 && Holds(help.out, "4 the bus"));
    const std::pair<std::vector<std::string>, const char*> kBadUsage[] = {
        {{"--bus-name", "no-dots"}, "is not a bus name a service can own"},
        {{"--bus-name=bad..name"}, "is not a bus name a service can own"},
        {{"--bus-name", ":1.5"}, "is not a bus name a service can own"},
        {{"--bus-name", "9starts.with.digit"}, "is not a bus name a service can own"},
        {{"--frobnicate"}, R"(unknown option "--frobnicate")"},
        {{"--catalogue"}, "--catalogue needs a value"},
        {{"--store-root="}, "--store-root needs a non-empty value"},
        {{"--set-dir", "/tmp"}, "--set-dir and --usb-dir go together"},
        {{"--fail", "nothing"}, R"("nothing" is not <method>=<mode>)"},
        {{"--fail", "no such request=refuse"}, R"("no such request" is not a request the service answers)"},
        {{"--fail", "*=sometimes"}, R"("sometimes" is not a failure mode)"},
    };
    for (auto [args, why] : kBadUsage) {
        args.insert(args.begin(), TERMS_SERVICE_SIM_PATH);
        const ProgramRun run = testbed::RunProgram(args);
        EXPECT_TRUE(run.status == 2 && run.ErrIsOneLine() && Holds(run.err, why) && !Holds(run.err, "CRITICAL"))
            << args[1] << ": " << run.status << " " << run.err;
    }
}

TEST_F(ARunningSimulator, RefusesToStartOnAnOwnedNameUnlessToldToReplaceItsOwner) {
    const ProgramRun second = StartSimulator({})->Finish();
    EXPECT_TRUE(second.status == 1 && Holds(second.err, std::string(kBusName) + " already has an owner"));
    auto replacing = StartSimulator({"--replace"});
    ASSERT_TRUE(replacing->AwaitOutput("serving "));
    EXPECT_EQ(m_Sim->Wait(), 3);  // the first one: another process took the name
    std::swap(m_Sim, replacing);
    EXPECT_TRUE(Api().IsServiceAvailable());
}

// As systemd does with the unit (Restart=on-failure): a service that exits because the bus went away is
// started again once the bus is back, and answers.
TEST_F(ARunningSimulator, SaysTheBusWentAwayAndServesAgainWhenRestartedAfterTheBus) {
    testbed::ChildProcess echo({ECHO_SERVER_PATH, "test.tools.echo"});
    ASSERT_TRUE(echo.AwaitOutput("serving "));
    testbed::PrivateBus::Current()->Stop();
    EXPECT_EQ(m_Sim->Wait(), 4);
    const ProgramRun echoed = echo.Finish();
    EXPECT_TRUE(echoed.status == 4 && Holds(echoed.err, "the bus went away")) << echoed.status;
    testbed::PrivateBus::Current()->Start();
    m_Sim.reset();
    Restart();
    EXPECT_TRUE(Api().IsServiceAvailable());
}

TEST(TheEchoServer, SaysSoAndExitsWhenItCannotOwnItsName) {
    // An owner that lets nobody replace it: the echo server is only queued, and never owns the name.
    g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    g_autoptr(GVariant) owned =
        g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "RequestName", g_variant_new("(su)", "test.tools.kept", 0u), G_VARIANT_TYPE("(u)"),
                                    G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    ASSERT_TRUE(owned);
    testbed::ChildProcess echo({ECHO_SERVER_PATH, "test.tools.kept"});
    EXPECT_FALSE(echo.AwaitOutput("serving "));
    const ProgramRun ended = echo.Finish();
    EXPECT_TRUE(ended.status == 1 && Holds(ended.err, "cannot own test.tools.kept")) << ended.status;
}

TEST_F(ARunningSimulator, ReloadsItsCatalogueOnSighupAndKeepsTheOneInUseWhenTheNewOneIsBad) {
    const auto reload = [this](const std::string& text) {
        g_file_set_contents((m_Dir / "catalogue.json").c_str(), text.c_str(), -1, nullptr);
        m_Sim->Signal(SIGHUP);
        return m_Sim->ErrorLine();
    };
    std::string revised = kCatalogue;
    EXPECT_TRUE(
        Holds(reload(revised.replace(revised.find("Base terms"), 10, "Base terms 2")), "reloaded the catalogue"));
    EXPECT_EQ(CliJson("--json show base")["disclaimer"]["title"], "Base terms 2");
    const std::string outcome = reload("{\"disclaimers\": ");
    EXPECT_TRUE(Holds(outcome, "keeping the one in use") && Holds(outcome, "not valid JSON"));
    EXPECT_EQ(CliJson("--json show base")["disclaimer"]["title"], "Base terms 2");
}

TEST_F(ARunningSimulator, CopiesCloneDataInsideItsDirectoriesOnly) {
    fs::create_symlink(m_Dir / "catalogue.json", m_Dir / "set" / "link-out");
    ASSERT_TRUE(g_file_set_contents((m_Dir / "set" / "tv.dat").c_str(), "clone", -1, nullptr));
    EXPECT_TRUE(Api().CopyCloneDataTVtoUSB("tv.dat", "backup/tv.dat") &&
                Api().CopyCloneDataUSBtoTV("backup/tv.dat", "restored.dat") &&
                fs::exists(m_Dir / "set" / "restored.dat"));
    fs::create_directory(m_Dir / "usb" / "dir");
    EXPECT_FALSE(Api().CopyCloneDataTVtoUSB("tv.dat", "../escaped.dat") ||
                 Api().CopyCloneDataUSBtoTV("/etc/hostname", "hostname") ||
                 Api().CopyCloneDataTVtoUSB("link-out", "catalogue.json") || Api().CopyCloneDataTVtoUSB("", "x") ||
                 Api().CopyCloneDataTVtoUSB("missing.dat", "x") || Api().CopyCloneDataTVtoUSB("tv.dat", "dir"));
    EXPECT_FALSE(fs::exists(m_Dir / "escaped.dat") || fs::exists(m_Dir / "usb" / "catalogue.json"));
}

}  // namespace

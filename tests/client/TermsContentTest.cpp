// Disclaimer records filled from the service's replies, and what the configuration store
// answers about agreements and menu titles (keys not set come first: nothing removes one).
#include <algorithm>
#include <optional>
#include <thread>
#include <tuple>

#include "ClientTestBed.h"

namespace clienttest {
namespace {

using testbed::FakeReply;

const std::pair<const char*, std::string Item::*> kTexts[] = {
    {"id", &Item::strItemId},         {"version", &Item::strVersion},
    {"title", &Item::strTitle},       {"intro", &Item::strIntro},
    {"details", &Item::strDetails},   {"button1", &Item::strButton1},
    {"button2", &Item::strButton2},   {"button3", &Item::strButton3},
    {"button4", &Item::strButton4},   {"button5", &Item::strButton5},
    {"button6", &Item::strButton6},   {"button7", &Item::strButton7},
    {"button8", &Item::strButton8},   {"button9", &Item::strButton9},
    {"button10", &Item::strButton10}, {"agree_dependency", &Item::strAgreeDependency}};
const std::pair<const char*, bool Item::*> kFlags[] = {{"is_agreed", &Item::bIsAgreed},
                                                       {"only_notice", &Item::bOnlyNotice},
                                                       {"ppused", &Item::bPPUsed},
                                                       {"reverse", &Item::bReverse}};

// Every member of a record under its name in a reply, and its sections.
Json::Value AsJson(const Item& item) {
    Json::Value json(Json::objectValue);
    for (const auto& [name, text] : kTexts) json[name] = item.*text;
    for (const auto& [name, flag] : kFlags) json[name] = item.*flag;
    json["order"] = item.nOrder;
    for (const std::string& section : item.vecDetailData) json["sections"].append(section);
    return json;
}

// A disclaimer with a distinct value in every member and two sections; bit i
// of `flags` sets kFlags[i]. The patterns 3 and 5 together tell any two flags apart.
Json::Value Disclaimer(const std::string& id, int flags) {
    Json::Value json(Json::objectValue);
    for (const auto& [name, text] : kTexts) json[name] = id + " " + name;
    json["id"] = id;
    for (int i = 0; i < 4; ++i) json[kFlags[i].first] = ((flags >> i) & 1) != 0;
    json["order"] = 7;
    json["details"] = R"([{"title":"S1","data":"D1"},{"title":"S2","data":"D2"}])";
    return json;
}

FakeReply WithResult(Json::Value body, bool result = true) {
    body["result"] = result;
    return FakeReply::WithBody(body);
}

std::vector<std::string> IdsOf(const std::vector<Item*>& items) {
    std::vector<std::string> ids;
    for (const Item* item : items) ids.push_back(item->strItemId);
    return ids;
}

class ARevisedDisclaimersRequest : public ClientTestBed {
protected:
    bool Get(const std::string& reply) {
        Reply("get revised disclaimers", reply);
        return api->GetRevisedDisclaimers(list.items, "TV", "all");
    }
    OwnedItems list;
};

TEST_F(ARevisedDisclaimersRequest, AppendsANewRecordPerDisclaimerWithOnlyTheMembersItReads) {
    list.items.push_back(new Item());
    EXPECT_FALSE(Get(R"({"result":false,"disclaimers":[{"id":"t1"}]})"));
    EXPECT_TRUE(Get(R"({"result":true})"));
    Json::Value reply = JsonOf(R"({"result":true})");
    for (const Json::Value& d : {Disclaimer("t1", 3), Disclaimer("t2", 5)}) reply["disclaimers"].append(d);
    EXPECT_TRUE(Get(reply.toStyledString()));
    ASSERT_EQ(list.items.size(), 3u);
    for (Json::ArrayIndex i = 0; i < 2; ++i) {
        Json::Value expected = reply["disclaimers"][i];
        // Not read: order, version, the last two buttons, the notice flag.
        expected["order"] = 0, expected["only_notice"] = false;
        expected["version"] = expected["button9"] = expected["button10"] = "";
        expected["sections"] = JsonOf(R"(["S1","D1","S2","D2"])");
        EXPECT_EQ(AsJson(*list.items[i + 1]), expected);
    }
    EXPECT_TRUE(Logged(logs, "id t1", kWarn, kRed));

    // A member of the wrong kind raises the JSON library's exception; the records before it stay.
    EXPECT_THROW(Get(R"({"result":true,"disclaimers":{"first":{"id":"x"}}})"), Json::Exception);
    EXPECT_THROW(Get(R"({"result":true,"disclaimers":[{"id":"a"},{"id":"b","title":{"x":1}}]})"), Json::Exception);
    EXPECT_EQ(IdsOf(list.items), (std::vector<std::string>{"", "t1", "t2", "a"}));
}

class ADisclaimerDetailRequest : public ClientTestBed {
protected:
    int ById(Item& item) { return api->GetDisclaimerDetail("t4", item, "TV"); }
};

TEST_F(ADisclaimerDetailRequest, FillsEveryMemberKeepingItsSectionsButNotWhenResultIsFalseAndResetsWhatTheReplyLacks) {
    service.SetReply("get disclaimer by order", WithResult(Disclaimer("t3", 3)));
    service.SetReply("get disclaimer by term id", WithResult(Disclaimer("t4", 5)));
    Item byPosition, byId;
    byPosition.vecDetailData = byId.vecDetailData = {"kept"};
    EXPECT_EQ(api->GetDisclaimerDetail(byPosition, 3, E_DISCLAIMER_REQUESTER_1, "TV"), 0);
    EXPECT_EQ(ById(byId), 0);
    Json::Value expected[] = {Disclaimer("t3", 3), Disclaimer("t4", 5)};
    for (Json::Value& e : expected) e["sections"] = JsonOf(R"(["kept","S1","D1","S2","D2"])");
    EXPECT_EQ(AsJson(byPosition), expected[0]);
    EXPECT_EQ(AsJson(byId), expected[1]);
    EXPECT_TRUE(Logged(logs, "id t3", kDebug, kWhite));

    service.SetReply("get disclaimer by term id", WithResult(Disclaimer("new", 15), false));
    EXPECT_EQ(ById(byId), -1);
    EXPECT_EQ(AsJson(byId), expected[1]);
    // Members missing from the reply get the values of a new record; the sections stay.
    Json::Value blank = AsJson(Item());
    Reply("get disclaimer by term id", R"({"result":true})");
    EXPECT_EQ(ById(byId), 0);
    blank["sections"] = expected[1]["sections"];
    EXPECT_EQ(AsJson(byId), blank);
}

TEST_F(ADisclaimerDetailRequest, CutsItsDetailsTextIntoSectionsOnlyWhenItIsAnArrayOfObjects) {
    const std::string kNotJson = "<<WARN: NOT JSON TYPE MESSAGE>>", kArray = "It is new RULE";
    // Details, sections ({"throws"} for the JSON library's exception), the line logged (kNotJson, kArray or none).
    const std::tuple<const char*, std::vector<std::string>, std::string> cases[] = {
        {"Read the terms.", {}, kNotJson},
        {R"({"title":"T","data":"D"})", {}, ""},
        {"[]", {}, kArray},
        {R"([{"title":"A","data":"1"},{"data":"2","title":"B"}])", {"A", "1", "B", "2"}, kArray},
        {"[null]", {"", ""}, kArray},
        {R"([{"title":5,"data":true}])", {"5", "true"}, kArray},
        {R"(["x"])", {"throws"}, kArray},
        {R"([{"title":[1],"data":"d"}])", {"throws"}, kArray},
    };
    for (const auto& [details, sections, logged] : cases) {
        logs.Clear();
        Json::Value reply;
        reply["details"] = details;
        service.SetReply("get disclaimer by term id", WithResult(reply));
        Item item;
        try {
            EXPECT_EQ(ById(item), 0) << details;
        } catch (const Json::Exception&) {
            item.vecDetailData = {"throws"};
        }
        EXPECT_EQ(item.vecDetailData, sections) << details;
        for (const std::string& line : {kNotJson, kArray}) EXPECT_EQ(logs.Count(line) > 0, line == logged) << details;
    }
}

class ADisclaimerList : public ClientTestBed {
protected:
    // The service counts `count` disclaimers and answers position 1 with `second`, the others with their id.
    void Serve(int count, std::string second = R"({"result":true,"id":"t1"})") {
        service.SetHandler([=](const testbed::ReceivedRequest& request) {
            const std::string index = request.body["request_index"].asString();
            if (request.Name() == "get disclaimer number")
                return FakeReply::WithBody(JsonOf(R"({"result":true,"number":)" + std::to_string(count) + "}"));
            return FakeReply::WithBody(JsonOf(index == "1" ? second : R"({"result":true,"id":"t)" + index + "\"}"));
        });
    }
    Item own;  // the caller's record, never the client's to delete
    OwnedItems list;
};

TEST_F(ADisclaimerList, ReplacesTheCallersPointersWithTheItemsWhoseRequestsSucceed) {
    Serve(0);
    list.items.push_back(&own);
    EXPECT_EQ(api->GetDisclaimerDetails(list.items, E_DISCLAIMER_REQUESTER_0, "TV"), 0);
    EXPECT_EQ(list.items, std::vector<Item*>{&own}) << "a list of no disclaimers is left as it was";

    Serve(3, R"({"result":false,"id":"t1"})");
    service.ClearRequests();
    EXPECT_EQ(api->GetDisclaimerDetails(list.items, E_DISCLAIMER_REQUESTER_OTHER, "AV"), 0);
    EXPECT_EQ(IdsOf(list.items), (std::vector<std::string>{"t0", "t2"}));
    list.items.erase(std::remove(list.items.begin(), list.items.end(), &own), list.items.end());
    const auto items = service.RequestsNamed("get disclaimer by order");
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(std::tie(items[1].body["requester"], items[1].body["product_type"]), std::make_tuple(4, "AV"));
    EXPECT_EQ(OnlyRequest("get disclaimer number").body["product_type"], "TV");
    for (const char* line : {"", "0", "1", "2"}) EXPECT_TRUE(Logged(logs, line, kError, kRed, kSystemBuffer)) << line;

    // An item of the wrong kind raises the JSON library's exception; the records before it stay.
    OwnedItems fresh;
    Serve(3, R"({"result":true,"title":{"x":1}})");
    EXPECT_THROW(api->GetDisclaimerDetails(fresh.items, E_DISCLAIMER_REQUESTER_0, "TV"), Json::Exception);
    EXPECT_EQ(IdsOf(fresh.items), std::vector<std::string>{"t0"});
}

constexpr int kUntouched = 7;  // the caller's agreement before asking
const std::string kThrown;     // the exception's line on the system buffer

class TheConfigurationStore : public ClientTestBed {
protected:
    // The outcome's line (a shown agreement in green, else a warning) or the exception's; no request;
    // every line names the query, not a helper of it.
    void ExpectLineAndNoRequest(const std::string& line, const std::string& query) {
        for (const auto& logged : logs.Lines()) EXPECT_EQ(logged.function, query) << logged.message;
        const bool shown = line.rfind("agreement ", 0) == 0, thrown = line == kThrown;
        const auto handled = LinesStartingWith(logs, "Exception Handled by ");
        ASSERT_EQ(handled.size(), thrown ? 1u : 0u);
        const int prio = thrown ? kError : shown ? kInfo : kWarn;
        EXPECT_TRUE(Logged(logs, thrown ? handled[0].message : line, prio, shown ? kGreen : kRed,
                           thrown ? kSystemBuffer : kMainBuffer));
        EXPECT_TRUE(service.Requests().empty());
    }
};

TEST_F(TheConfigurationStore, TellsForEachKindOfStoredAgreementWhetherTheTermExistsAndWasAgreedTo) {
    const std::string noText = "t1 is not string type", missing = "t1 does not exist", exists = "t1  exist";
    // What is stored (nothing: the key is not set), whether t1 exists, its agreement, the lines of both queries.
    const std::tuple<std::optional<std::string>, bool, int, std::string, std::string> cases[] = {
        {std::nullopt, false, 0, "vconf get str failed", "vconf get str failed, agreement = false"},
        {R"({"t2":"false","t1":"true"})", true, 1, exists, "agreement true."},
        {R"({"t1":"TRUE"})", true, 0, exists, "agreement TRUE."},
        {R"({"t1":""})", true, 0, exists, "agreement ."},
        {R"({"t1":true})", true, 0, exists, noText},
        {R"({"t1":false})", true, 0, exists, noText},
        {R"({"t1":null})", false, 0, missing, noText},
        {R"({"t1":[]})", false, 0, missing, noText},
        {R"({"t1":{}})", false, 0, missing, noText},
        {R"({"t2":"true"})", false, 0, missing, noText},
        {"null", false, 0, missing, noText},
        {R"(["t1"])", false, kUntouched, kThrown, kThrown},
        {"{t1:true", false, 0, "parser failed : \n {t1:true", "parser failed : \n {t1:true , agreement = false"},
        {"", false, 0, "Empty Data", "Empty Data, agreement = false"},
    };
    for (const auto& [stored, exists, agreement, existenceLine, agreementLine] : cases) {
        SCOPED_TRACE(stored.value_or("(not set)"));
        if (stored) store.Set(kAgreementKey, *stored);
        logs.Clear();
        EXPECT_EQ(api->IsDisclaimerItemExist("t1", "TV"), exists);
        ExpectLineAndNoRequest(existenceLine, "IsDisclaimerItemExist");
        logs.Clear();
        int agreed = kUntouched;
        EXPECT_EQ(api->GetDisclaimerItemAgreement("t1", &agreed, "TV"), 0);
        EXPECT_EQ(agreed, agreement);
        ExpectLineAndNoRequest(agreementLine, "GetDisclaimerItemAgreement");
    }
}

TEST_F(TheConfigurationStore, HasTheLastWordOnAgreementsOfOtherProductsWhichOnlyGoToTheServiceOverABus) {
    store.Set(kAgreementKey, R"({"t1":"false"})");
    int agreed = kUntouched;
    Reply("get disclaimer agreement", R"({"result":true,"is_agreed":true})");
    api->GetDisclaimerItemAgreement("t1", &agreed, "AV");
    EXPECT_EQ(agreed, 0);
    EXPECT_TRUE(Logged(logs, "get value : 1", kInfo, kGreen));
    Reply("get disclaimer agreement", R"({"result":false,"is_agreed":true})");
    api->GetDisclaimerItemAgreement("t1", &agreed, "AV");
    EXPECT_TRUE(Logged(logs, "disclaimer t1 is not exist!", kWarn, kYellow));
    // No bus (and a thread without a connection yet): the proxy cannot open, and the caller's value is logged.
    const std::string address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/veranti-test-bus", 1);
    agreed = kUntouched;
    std::thread([&] { api->GetDisclaimerItemAgreement("t1", &agreed, "AV"); }).join();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    EXPECT_TRUE(Logged(logs, "get value : 7", kInfo, kGreen));
}

TEST_F(TheConfigurationStore, GivesAMenuTitleOnlyWhereTheStoredArrayHasANonEmptyOne) {
    const char two[] = R"([{"title":"A"},{"title":"B"}])";
    // Stored text (nothing: key not set), index asked, title (empty: none found), start and priority of the line.
    const std::tuple<std::optional<std::string>, int, std::string, std::string, int> cases[] = {
        {std::nullopt, 0, "", "vconf get str failed", kWarn},
        {two, 1, "B", "array size 2", kDebug},
        {two, 2, "", "order is over length ", kWarn},
        {two, -1, "", "parameter  Error : [db/veranti/terms_title][-1]", kWarn},
        {"[]", 0, "", "Parsing Error : [[]]", kWarn},
        {"[{title:", 0, "", "Parsing Error : [[{title:]", kWarn},
        {R"([{"name":"A"}])", 0, "", "Title is = ", kDebug},
        {R"([{"title":5}])", 0, "5", "Title is = 5", kDebug},
        {R"([{"title":[1]}])", 0, "", "Json Error e = ", kWarn},
        {R"({"a":1,"b":2})", 1, "", "Title is = ", kDebug},
        {"// menu\n[{\"title\":\"A\"} /* first */]", 0, "A", "Title is = A", kDebug},
    };
    for (const auto& [stored, index, found, line, prio] : cases) {
        SCOPED_TRACE(stored.value_or("(not set)") + " at " + std::to_string(index));
        if (stored) store.Set(kTitlesKey, *stored);
        logs.Clear();
        std::string title = "unchanged";
        EXPECT_EQ(api->GetDisclaimerTitle(title, index), found.empty() ? -1 : 0);
        EXPECT_EQ(title, found.empty() ? "unchanged" : found);
        const auto lines = LinesStartingWith(logs, line);
        ASSERT_FALSE(lines.empty()) << line;
        EXPECT_TRUE(Logged(logs, lines.front().message, prio, prio == kDebug ? kWhite : kRed));
    }
}

}  // namespace
}  // namespace clienttest

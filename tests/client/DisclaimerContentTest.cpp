// Disclaimer records filled from the service's replies: revised disclaimers,
// single disclaimer details and the list of all of them.
#include <algorithm>
#include <memory>

#include "ClientTestBed.h"

namespace clienttest {
namespace {

using testbed::FakeReply;
using Sections = std::vector<std::string>;

const char kTwoSections[] = R"([{"title":"S1","data":"D1"},{"title":"S2","data":"D2"}])";

// Flags by bit: 1 is_agreed, 2 only_notice, 4 ppused, 8 reverse. Two records
// with the patterns 3 and 5 tell any two flags apart.
Json::Value DisclaimerJson(const std::string& id, int flags) {
    Json::Value d(Json::objectValue);
    d["id"] = id;
    d["order"] = 7;
    d["version"] = id + " version";
    d["title"] = id + " title";
    d["intro"] = id + " intro";
    d["details"] = kTwoSections;
    for (int i = 1; i <= 10; ++i) d["button" + std::to_string(i)] = id + " button " + std::to_string(i);
    d["is_agreed"] = (flags & 1) != 0;
    d["only_notice"] = (flags & 2) != 0;
    d["agree_dependency"] = id + " dependency";
    d["ppused"] = (flags & 4) != 0;
    d["reverse"] = (flags & 8) != 0;
    return d;
}

Json::Value WithResult(Json::Value body, bool result = true) {
    body["result"] = result;
    return body;
}

Item DetailRecord(const std::string& id, int flags) {
    Item item;
    item.strItemId = id;
    item.nOrder = 7;
    item.strVersion = id + " version";
    item.strTitle = id + " title";
    item.strIntro = id + " intro";
    item.strDetails = kTwoSections;
    std::string* buttons[] = {&item.strButton1, &item.strButton2, &item.strButton3, &item.strButton4,
                              &item.strButton5, &item.strButton6, &item.strButton7, &item.strButton8,
                              &item.strButton9, &item.strButton10};
    for (int i = 0; i < 10; ++i) *buttons[i] = id + " button " + std::to_string(i + 1);
    item.bIsAgreed = (flags & 1) != 0;
    item.bOnlyNotice = (flags & 2) != 0;
    item.strAgreeDependency = id + " dependency";
    item.bPPUsed = (flags & 4) != 0;
    item.bReverse = (flags & 8) != 0;
    item.vecDetailData = {"S1", "D1", "S2", "D2"};
    return item;
}

// What a revised-disclaimers reply fills: not the order, version, last two buttons or notice flag.
Item RevisedRecord(const std::string& id, int flags) {
    Item item = DetailRecord(id, flags);
    item.nOrder = 0;
    item.strVersion.clear();
    item.strButton9.clear();
    item.strButton10.clear();
    item.bOnlyNotice = false;
    return item;
}

void ExpectSameRecord(const Item& actual, const Item& expected) {
    EXPECT_EQ(actual.strItemId, expected.strItemId);
    EXPECT_EQ(actual.nOrder, expected.nOrder);
    EXPECT_EQ(actual.strVersion, expected.strVersion);
    EXPECT_EQ(actual.strTitle, expected.strTitle);
    EXPECT_EQ(actual.strIntro, expected.strIntro);
    EXPECT_EQ(actual.strDetails, expected.strDetails);
    EXPECT_EQ(actual.strButton1, expected.strButton1);
    EXPECT_EQ(actual.strButton2, expected.strButton2);
    EXPECT_EQ(actual.strButton3, expected.strButton3);
    EXPECT_EQ(actual.strButton4, expected.strButton4);
    EXPECT_EQ(actual.strButton5, expected.strButton5);
    EXPECT_EQ(actual.strButton6, expected.strButton6);
    EXPECT_EQ(actual.strButton7, expected.strButton7);
    EXPECT_EQ(actual.strButton8, expected.strButton8);
    EXPECT_EQ(actual.strButton9, expected.strButton9);
    EXPECT_EQ(actual.strButton10, expected.strButton10);
    EXPECT_EQ(actual.bIsAgreed, expected.bIsAgreed);
    EXPECT_EQ(actual.bOnlyNotice, expected.bOnlyNotice);
    EXPECT_EQ(actual.strAgreeDependency, expected.strAgreeDependency);
    EXPECT_EQ(actual.bPPUsed, expected.bPPUsed);
    EXPECT_EQ(actual.bReverse, expected.bReverse);
    EXPECT_EQ(actual.vecDetailData, expected.vecDetailData);
}

std::vector<std::string> IdsOf(const std::vector<Item*>& items) {
    std::vector<std::string> ids;
    for (const Item* item : items) ids.push_back(item->strItemId);
    return ids;
}

TEST(ADisclaimerRecord, StartsWithEmptyTextsZeroOrderFalseFlagsAndNoSections) {
    const Item item;
    for (const std::string* text :
         {&item.strItemId, &item.strVersion, &item.strTitle, &item.strIntro, &item.strDetails, &item.strButton1,
          &item.strButton2, &item.strButton3, &item.strButton4, &item.strButton5, &item.strButton6, &item.strButton7,
          &item.strButton8, &item.strButton9, &item.strButton10, &item.strAgreeDependency})
        EXPECT_EQ(*text, "");
    EXPECT_EQ(item.nOrder, 0);
    EXPECT_FALSE(item.bIsAgreed || item.bOnlyNotice || item.bPPUsed || item.bReverse);
    EXPECT_TRUE(item.vecDetailData.empty());
}

// ---- Revised disclaimers ----

class ARevisedDisclaimersRequest : public ClientTestBed {
protected:
    void ReplyDisclaimers(const std::string& disclaimersJson, bool result = true) {
        Json::Value body(Json::objectValue);
        body["result"] = result;
        body["disclaimers"] = JsonOf(disclaimersJson);
        service.SetReply("get revised disclaimers", FakeReply::WithBody(body));
    }
    OwnedItems list;
};

TEST_F(ARevisedDisclaimersRequest, AppendsANewRecordPerDisclaimerWithOnlyTheMembersItReads) {
    Json::Value body(Json::objectValue);
    body["result"] = true;
    body["disclaimers"].append(DisclaimerJson("t1", 3));
    body["disclaimers"].append(DisclaimerJson("t2", 5));
    service.SetReply("get revised disclaimers", FakeReply::WithBody(body));
    list.items.push_back(new Item());

    EXPECT_TRUE(api->GetRevisedDisclaimers(list.items, "TV", "all"));

    ASSERT_EQ(list.items.size(), 3u);
    ExpectSameRecord(*list.items[1], RevisedRecord("t1", 3));
    ExpectSameRecord(*list.items[2], RevisedRecord("t2", 5));
    EXPECT_TRUE(Logged(logs, "GetRevisedDisclaimers called", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "id t1", kWarn, kRed));
    EXPECT_TRUE(Logged(logs, std::string("datailData=") + kTwoSections, kDebug, kWhite));
    EXPECT_TRUE(Logged(logs, "It is new RULE", kDebug, kWhite));
    EXPECT_TRUE(Logged(logs, "push back", kWarn, kRed));
    EXPECT_EQ(logs.Count("push back"), 4u);
}

TEST_F(ARevisedDisclaimersRequest, IsTrueWithoutAppendingWhenTheReplyHasNoDisclaimers) {
    list.items.push_back(new Item());
    EXPECT_TRUE(api->GetRevisedDisclaimers(list.items, "TV", "all"));
    EXPECT_EQ(list.items.size(), 1u);
}

TEST_F(ARevisedDisclaimersRequest, IsFalseWithoutAppendingWhenResultIsFalse) {
    ReplyDisclaimers(R"([{"id":"t1"}])", false);
    EXPECT_FALSE(api->GetRevisedDisclaimers(list.items, "TV", "all"));
    EXPECT_TRUE(list.items.empty());
    EXPECT_EQ(LinesStartingWith(logs, "id ").size(), 0u);
}

TEST_F(ARevisedDisclaimersRequest, KeepsTheRecordsOfEarlierCallsFirst) {
    ReplyDisclaimers(R"([{"id":"a"}])");
    api->GetRevisedDisclaimers(list.items, "TV", "all");
    ReplyDisclaimers(R"([{"id":"b"},{"id":"c"}])");
    api->GetRevisedDisclaimers(list.items, "TV", "all");
    EXPECT_EQ(IdsOf(list.items), (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(ARevisedDisclaimersRequest, DeliversARecordWhoseDetailsAreProse) {
    ReplyDisclaimers(R"([{"id":"a","details":"Read this."}])");
    EXPECT_TRUE(api->GetRevisedDisclaimers(list.items, "TV", "all"));
    ASSERT_EQ(list.items.size(), 1u);
    EXPECT_EQ(list.items[0]->strDetails, "Read this.");
    EXPECT_TRUE(list.items[0]->vecDetailData.empty());
    EXPECT_TRUE(Logged(logs, "<<WARN: NOT JSON TYPE MESSAGE>>", kDebug, kWhite));
}

TEST_F(ARevisedDisclaimersRequest, LetsTheJsonErrorOfAMemberPassAndKeepsTheRecordsBefore) {
    ReplyDisclaimers(R"([{"id":"a"},{"id":"b","title":{"x":1}}])");
    EXPECT_THROW(api->GetRevisedDisclaimers(list.items, "TV", "all"), Json::Exception);
    EXPECT_EQ(IdsOf(list.items), std::vector<std::string>{"a"});
    EXPECT_TRUE(api->IsServiceAvailable());
}

TEST_F(ARevisedDisclaimersRequest, LetsTheJsonErrorOfDisclaimersThatAreAnObjectPass) {
    ReplyDisclaimers(R"({"first":{"id":"a"}})");
    EXPECT_THROW(api->GetRevisedDisclaimers(list.items, "TV", "all"), Json::Exception);
    EXPECT_TRUE(list.items.empty());
}

// ---- Single disclaimer details ----

class ADisclaimerDetailRequest : public ClientTestBed {
protected:
    void ReplyToBoth(const Json::Value& body) {
        service.SetReply("get disclaimer by order", FakeReply::WithBody(body));
        service.SetReply("get disclaimer by term id", FakeReply::WithBody(body));
    }
    int ByPosition(Item& item) { return api->GetDisclaimerDetail(item, 3, E_DISCLAIMER_REQUESTER_1, "TV"); }
    int ById(Item& item) { return api->GetDisclaimerDetail("t3", item, "TV"); }
    void ExpectBothFailLeavingTheRecord() {
        Item item = DetailRecord("old", 3);
        EXPECT_EQ(ByPosition(item), -1);
        EXPECT_EQ(ById(item), -1);
        ExpectSameRecord(item, DetailRecord("old", 3));
    }
};

TEST_F(ADisclaimerDetailRequest, ByPositionFillsEveryMemberFromTheFlatReply) {
    service.SetReply("get disclaimer by order", FakeReply::WithBody(WithResult(DisclaimerJson("t3", 3))));
    Item item;
    EXPECT_EQ(ByPosition(item), 0);
    ExpectSameRecord(item, DetailRecord("t3", 3));
    EXPECT_TRUE(Logged(logs, "id t3", kDebug, kWhite));
    EXPECT_EQ(logs.Count("push back"), 2u);
    EXPECT_TRUE(LinesStartingWith(logs, "datailData=").empty());
}

TEST_F(ADisclaimerDetailRequest, ByIdFillsEveryMemberFromTheFlatReply) {
    service.SetReply("get disclaimer by term id", FakeReply::WithBody(WithResult(DisclaimerJson("t3", 5))));
    Item item;
    EXPECT_EQ(ById(item), 0);
    ExpectSameRecord(item, DetailRecord("t3", 5));
}

TEST_F(ADisclaimerDetailRequest, LeavesTheRecordUntouchedWhenTheServiceSaysNo) {
    ReplyToBoth(WithResult(DisclaimerJson("new", 5), false));
    ExpectBothFailLeavingTheRecord();
}

TEST_F(ADisclaimerDetailRequest, LeavesTheRecordUntouchedWhenNoReplyCame) {
    service.SetDefaultReply(FakeReply::Error());
    ExpectBothFailLeavingTheRecord();
}

TEST_F(ADisclaimerDetailRequest, ResetsEveryMemberButTheSectionsForAReplyWithOnlyResult) {
    Item item = DetailRecord("old", 15);
    EXPECT_EQ(ById(item), 0);
    Item expected;
    expected.vecDetailData = DetailRecord("old", 15).vecDetailData;
    ExpectSameRecord(item, expected);
}

TEST_F(ADisclaimerDetailRequest, AppendsTheSectionsOfEachFillToTheRecord) {
    ReplyToBoth(WithResult(DisclaimerJson("t3", 0)));
    Item item;
    ByPosition(item);
    ById(item);
    EXPECT_EQ(item.vecDetailData, (Sections{"S1", "D1", "S2", "D2", "S1", "D1", "S2", "D2"}));
}

TEST_F(ADisclaimerDetailRequest, LetsTheJsonErrorOfAnOrderOfTheWrongKindPass) {
    for (const char* reply : {R"({"result":true,"order":{"n":1}})", R"({"result":true,"order":"7"})"}) {
        ReplyToBoth(JsonOf(reply));
        Item item;
        EXPECT_THROW(ByPosition(item), Json::Exception) << reply;
        EXPECT_THROW(ById(item), Json::Exception) << reply;
    }
    EXPECT_TRUE(api->IsServiceAvailable());
}

class ADisclaimerDetailRequestWithoutService : public ClientTestBedWithoutService {};

TEST_F(ADisclaimerDetailRequestWithoutService, FailsAndLeavesTheRecordUntouched) {
    Item item = DetailRecord("old", 3);
    EXPECT_EQ(api->GetDisclaimerDetail(item, 0, E_DISCLAIMER_REQUESTER_0, "TV"), -1);
    EXPECT_EQ(api->GetDisclaimerDetail("old", item, "TV"), -1);
    ExpectSameRecord(item, DetailRecord("old", 3));
}

// ---- Details texts cut into sections ----

struct DetailsCase {
    const char* label;
    const char* details;
    Sections sections;
    bool throws;
    bool notJson;     // "<<WARN: NOT JSON TYPE MESSAGE>>"
    bool newRule;     // "It is new RULE"
};

void PrintTo(const DetailsCase& c, std::ostream* out) { *out << c.label; }

const DetailsCase kDetailsCases[] = {
    {"Prose", "Read the terms.", {}, false, true, false},
    {"EmptyText", "", {}, false, true, false},
    {"EmptyArray", "[]", {}, false, false, true},
    {"Object", R"({"title":"T","data":"D"})", {}, false, false, false},
    {"Number", "42", {}, false, false, false},
    {"QuotedText", R"("text")", {}, false, false, false},
    {"ThreeSections", R"([{"title":"A","data":"1"},{"title":"B","data":"2"},{"data":"3","title":"C"}])",
     {"A", "1", "B", "2", "C", "3"}, false, false, true},
    {"SectionWithoutTitle", R"([{"data":"only data"}])", {"", "only data"}, false, false, true},
    {"NullSection", "[null]", {"", ""}, false, false, true},
    {"SectionsOfOtherScalars", R"([{"title":5,"data":true}])", {"5", "true"}, false, false, true},
    {"NumberSection", "[5]", {}, true, false, true},
    {"TextSection", R"(["x"])", {}, true, false, true},
    {"SectionTitleOfTheWrongKind", R"([{"title":[1],"data":"d"}])", {}, true, false, true},
};

class ADetailsText : public ClientTestBed, public ::testing::WithParamInterface<DetailsCase> {};

TEST_P(ADetailsText, IsCutIntoTitleAndTextSections) {
    const DetailsCase& c = GetParam();
    Json::Value reply = JsonOf(R"({"result":true,"id":"t1"})");
    reply["details"] = c.details;
    service.SetReply("get disclaimer by term id", FakeReply::WithBody(reply));
    Item item;

    if (c.throws) {
        EXPECT_THROW(api->GetDisclaimerDetail("t1", item, "TV"), Json::Exception);
    } else {
        EXPECT_EQ(api->GetDisclaimerDetail("t1", item, "TV"), 0);
        EXPECT_EQ(item.strDetails, c.details);
        EXPECT_EQ(item.vecDetailData, c.sections);
        EXPECT_EQ(logs.Count("push back"), c.sections.size() / 2);
    }
    EXPECT_EQ(logs.Has("<<WARN: NOT JSON TYPE MESSAGE>>"), c.notJson);
    EXPECT_EQ(logs.Has("It is new RULE"), c.newRule);
}

INSTANTIATE_TEST_SUITE_P(EveryKindOfText, ADetailsText, ::testing::ValuesIn(kDetailsCases),
                         [](const auto& info) { return std::string(info.param.label); });

// ---- The list of all disclaimer details ----

class ADisclaimerList : public ClientTestBed {
protected:
    // The service counts `count` disclaimers and answers each position with `item`.
    void Serve(int count, std::function<FakeReply(int)> item) {
        service.SetHandler([count, item](const testbed::ReceivedRequest& request) {
            if (request.Name() == "get disclaimer number") {
                Json::Value body = JsonOf(R"({"result":true})");
                body["number"] = count;
                return FakeReply::WithBody(body);
            }
            if (request.Name() == "get disclaimer by order") return item(request.body["request_index"].asInt());
            return FakeReply::Result(true);
        });
    }
    static FakeReply ItemAt(int index) {
        return FakeReply::WithBody(JsonOf(R"({"result":true,"id":"t)" + std::to_string(index) + "\"}"));
    }
    // A record of the caller's own, put in the list before the call.
    void PutOwnRecord() { list.items.push_back(own.get()); }
    void TakeOwnRecordBack() { list.items.erase(std::remove(list.items.begin(), list.items.end(), own.get()), list.items.end()); }

    std::unique_ptr<Item> own = std::make_unique<Item>();
    OwnedItems list;
};

TEST_F(ADisclaimerList, DropsTheItemWhoseRequestFails) {
    Serve(3, [](int index) { return index == 1 ? FakeReply::Result(false) : ItemAt(index); });

    EXPECT_EQ(api->GetDisclaimerDetails(list.items, E_DISCLAIMER_REQUESTER_2, "AV"), 0);

    EXPECT_EQ(IdsOf(list.items), (std::vector<std::string>{"t0", "t2"}));
    const auto items = service.RequestsNamed("get disclaimer by order");
    ASSERT_EQ(items.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(items[i].body["request_index"], i);
        EXPECT_EQ(items[i].body["requester"], 2);
        EXPECT_EQ(items[i].body["product_type"], "AV");
    }
    EXPECT_EQ(OnlyRequest("get disclaimer number").body,
              JsonOf(R"({"method":"get disclaimer number","data":null,"product_type":"TV","requester":2})"));
}

TEST_F(ADisclaimerList, LogsEachPositionToTheSystemBuffer) {
    Serve(2, ItemAt);
    api->GetDisclaimerDetails(list.items, E_DISCLAIMER_REQUESTER_OTHER, "TV");

    EXPECT_TRUE(Logged(logs, "GetDisclaimerDetails called for req: 4", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "", kError, kRed, kSystemBuffer));
    EXPECT_EQ(logs.Count(""), 2u);
    EXPECT_TRUE(Logged(logs, "0", kError, kRed, kSystemBuffer));
    EXPECT_TRUE(Logged(logs, "1", kError, kRed, kSystemBuffer));
    EXPECT_LT(PositionOf(logs, "0"), PositionOf(logs, "GetDisclaimerDetail called for index: 0 and requester: 4"));
}

TEST_F(ADisclaimerList, OfNoDisclaimersLeavesTheCallersListAsItWas) {
    Serve(0, ItemAt);
    PutOwnRecord();

    EXPECT_EQ(api->GetDisclaimerDetails(list.items, E_DISCLAIMER_REQUESTER_0, "TV"), 0);

    EXPECT_EQ(list.items, std::vector<Item*>{own.get()});
    EXPECT_TRUE(service.RequestsNamed("get disclaimer by order").empty());
    for (const testbed::LogLine& line : logs.Lines()) EXPECT_NE(line.logId, kSystemBuffer) << line.message;
    TakeOwnRecordBack();
}

TEST_F(ADisclaimerList, DropsThePointersTheCallersListHeldBeforeFillingIt) {
    Serve(1, ItemAt);
    PutOwnRecord();

    api->GetDisclaimerDetails(list.items, E_DISCLAIMER_REQUESTER_0, "TV");

    EXPECT_EQ(IdsOf(list.items), std::vector<std::string>{"t0"});
    EXPECT_NE(list.items[0], own.get());
}

TEST_F(ADisclaimerList, LetsTheJsonErrorOfAnItemPassAndKeepsTheRecordsBefore) {
    Serve(3, [](int index) {
        return index == 1 ? FakeReply::WithBody(JsonOf(R"({"result":true,"title":{"x":1}})")) : ItemAt(index);
    });
    EXPECT_THROW(api->GetDisclaimerDetails(list.items, E_DISCLAIMER_REQUESTER_0, "TV"), Json::Exception);
    EXPECT_EQ(IdsOf(list.items), std::vector<std::string>{"t0"});
}

class ADisclaimerListWithoutService : public ClientTestBedWithoutService {};

TEST_F(ADisclaimerListWithoutService, LeavesTheCallersListAsItWas) {
    Item own;
    std::vector<Item*> items{&own};
    EXPECT_EQ(api->GetDisclaimerDetails(items, E_DISCLAIMER_REQUESTER_0, "TV"), 0);
    EXPECT_EQ(items, std::vector<Item*>{&own});
}

}  // namespace
}  // namespace clienttest

// The C terms interface end to end against the fake terms-client service, through the shared library as a C
// caller uses it (tests/abi shows that C and C++ see the same records), and the record conversions.
#include <cstring>

#include "ClientTestBed.h"
#include "TermsAPIInternal.h"

namespace {

using namespace clienttest;
using testbed::FakeReply;
using testbed::ReceivedRequest;

// The disclaimer of ExpectTheSample; button9 and button10 are left out.
const char kSampleReply[] = R"({"result":true,"id":"privacy-notice","order":7,"version":"3.1","title":"Privacy Notice",
  "intro":"How the set uses what you watch","agree_dependency":"terms-of-use","is_agreed":true,"only_notice":false,
  "details":"[{\"title\":\"Scope\",\"data\":\"Viewing history\"},{\"data\":\"Kept for one year\"}]","ppused":true,
  "button1":"Agree","button2":"Disagree","button3":"Details","button4":"Back","button5":"Next","button6":"Later",
  "button7":"Help","button8":"Close","reverse":false})";

// Knows the sample by its id and lists `count` disclaimers "disclaimer-<index>" in order.
testbed::FakeTermsService::Handler Catalogue(int count) {
    return [count](const ReceivedRequest& request) {
        const int index = request.body["request_index"].asInt();
        Json::Value body = JsonOf(R"({"result":true})");
        if (request.Name() == "get disclaimer number") body["number"] = count;
        if (request.Name() == "get disclaimer by order") body["id"] = "disclaimer-" + std::to_string(index);
        if (request.Name() == "get disclaimer by order") body["order"] = index;
        if (request.Name() == "get disclaimer by term id")
            body = JsonOf(request.body["request_item"] == "privacy-notice" ? kSampleReply : R"({"result":false})");
        return FakeReply::WithBody(body);
    };
}

// The texts of a C record in field order, then its detail array.
std::vector<const void*> PointersOf(const TermsContentItem& r) {
    return {r.strItemId,  r.strVersion, r.strTitle,    r.strIntro,           r.strDetails,  r.strButton1,
            r.strButton2, r.strButton3, r.strButton4,  r.strButton5,         r.strButton6,  r.strButton7,
            r.strButton8, r.strButton9, r.strButton10, r.strAgreeDependency, r.ppDetailData};
}
// Order, agreed, only notice, privacy policy used, reverse, detail entries.
std::vector<int> NumbersOf(const TermsContentItem& r) {
    return {r.nOrder, r.bIsAgreed, r.bOnlyNotice, r.bPPUsed, r.bReverse, r.nDetailDataCount};
}

// The record the callback is handed for kSampleReply: its texts, null where the reply has none, and two sections,
// the second without a title.
void ExpectTheSample(const TermsContentItem& item) {
    const char* details = R"([{"title":"Scope","data":"Viewing history"},{"data":"Kept for one year"}])";
    const char* const texts[] = {"privacy-notice", "3.1",   "Privacy Notice", "How the set uses what you watch",
                                 details,          "Agree", "Disagree",       "Details",
                                 "Back",           "Next",  "Later",          "Help",
                                 "Close",          nullptr, nullptr,          "terms-of-use"};
    const std::vector<const void*> pointers = PointersOf(item);
    for (size_t i = 0; i < std::size(texts); ++i) EXPECT_STREQ(static_cast<const char*>(pointers[i]), texts[i]) << i;
    EXPECT_EQ(NumbersOf(item), (std::vector<int>{7, 1, 0, 1, 0, 4}));
    const char* const sections[] = {"Scope", "Viewing history", nullptr, "Kept for one year"};
    for (int i = 0; i < 4 && item.nDetailDataCount == 4; ++i) EXPECT_STREQ(item.ppDetailData[i], sections[i]);
}

// The callbacks count their calls in user_data; each detail call is made again without a callback.
class TheCTermsInterface : public ClientTestBed {
protected:
    int Detail(const char* id) {
        int calls = 0;
        GetDisclaimerDetail(
            id, [](TermsContentItem* item, void* calls) { ExpectTheSample(*item), ++*static_cast<int*>(calls); },
            &calls);
        GetDisclaimerDetail(id, nullptr, nullptr);
        return calls;
    }
    // The ids the one callback was handed, in list order, with their orders checked against their positions.
    std::vector<std::string> AllDetails(TermsRequester requester) {
        std::vector<std::string> ids;
        GetAllDisclaimerDetail(
            requester,
            [](TermsContentItem** items, int count, void* ids) {
                auto& listed = *static_cast<std::vector<std::string>*>(ids);
                EXPECT_TRUE(listed.empty() && count > 0) << "one call, with disclaimers";
                for (int i = 0; i < count; ++i)
                    listed.push_back(items[i]->strItemId + std::string(":") + std::to_string(items[i]->nOrder - i));
            },
            &ids);
        GetAllDisclaimerDetail(requester, nullptr, nullptr);
        return ids;
    }
};

TEST_F(TheCTermsInterface, HandsAKnownDisclaimerToTheCallbackOnceWithEveryFieldAndAnUnknownOneNever) {
    service.SetHandler(Catalogue(0));

    EXPECT_EQ(Detail("privacy-notice"), 1);
    EXPECT_EQ(Detail("ghost"), 0);

    EXPECT_EQ(service.RequestsNamed("get disclaimer by term id").at(0).body["product_type"], "TV");
    EXPECT_TRUE(Logged(logs, "There is no id[ghost]", kWarn, kRed));
}

TEST_F(TheCTermsInterface, HandsAllDisclaimersToTheCallbackOnceInListOrderAskingForTheMappedRequester) {
    // Requester given, requester sent, disclaimers listed.
    const int cases[][3] = {{2, 2, 3}, {0, 0, 0}, {1, 1, 1}, {3, 3, 1}, {4, 4, 1}, {5, 4, 1}, {-1, 4, 1}};
    for (const auto& c : cases) {
        service.ClearRequests();
        service.SetHandler(Catalogue(c[2]));
        std::vector<std::string> expected;
        for (int i = 0; i < c[2]; ++i) expected.push_back("disclaimer-" + std::to_string(i) + ":0");
        EXPECT_EQ(AllDetails(static_cast<TermsRequester>(c[0])), expected) << c[0];
        EXPECT_EQ(service.RequestsNamed("get disclaimer by order").size(), 2u * c[2]) << c[0];
        for (const ReceivedRequest& request : service.RequestsBesidesAvailability()) {
            EXPECT_EQ(request.body["requester"], c[1]) << c[0] << " in " << request.Name();
            EXPECT_EQ(request.body["product_type"], "TV") << request.Name();
        }
    }
    EXPECT_TRUE(Logged(logs, "numofTerms[3]", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "There is no Terms", kWarn, kRed));
}

TEST_F(TheCTermsInterface, ReturnsTheWebViewHeaderAsCompactTextOrTheTextNullOnFailure) {
    const auto header = [] {
        char* text = GetInfoForDisclaimerWebView();
        const std::string copy = text ? text : "(null)";
        free(text);
        return copy;
    };
    Reply("get information for web view disclaimer", R"({"result":true,"headerData":{"lang":"en","step":2}})");
    EXPECT_EQ(header(), R"({"lang":"en","step":2})");
    EXPECT_TRUE(Logged(logs, R"(GetWebDiscliamerHeaderData {{"lang":"en","step":2}})", kError, kRed, kSystemBuffer));

    service.SetReply("get information for web view disclaimer", FakeReply::Error());
    EXPECT_EQ(header(), "null");
}

TEST_F(TheCTermsInterface, AnswersStoredAgreementsRefusesBadInputsLocallyAndSendsTheRestForTheSet) {
    store.Set(kAgreementKey, R"({"agreed":"true","declined":"false"})");

    for (const auto& [id, exists, agreed] : {std::tuple("agreed", 1, 1), {"declined", 1, 0}, {"unknown", 0, 0}})
        EXPECT_EQ(std::make_pair(IsDisclaimerItemExist(id), GetDisclaimerItemAgreement(id)), std::pair(exists, agreed));
    EXPECT_EQ((std::vector<int>{RequestUpdateDisclaimers(nullptr), SetDisclaimerItemsAgreements(nullptr),
                                SetDisclaimerItemsAgreements("abc")}),
              std::vector<int>(3, 0));
    EXPECT_TRUE(service.Requests().empty());
    EXPECT_TRUE(Logged(logs, "empty requester", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "empty agreements", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "agreements:abc", kError, kRed, kSystemBuffer));
    EXPECT_TRUE(Logged(logs, "<<WARN: NOT JSON TYPE MESSAGE>>", kError, kRed, kSystemBuffer));

    // The requester of an update goes out as its product type.
    SetDisclaimerItemAgreement("privacy", 5);
    EXPECT_EQ(SetDisclaimerItemsAgreements(R"({"privacy":"true"})"), 1);
    service.SetReply("request update disclaimers", FakeReply::Result(false));
    EXPECT_EQ(RequestUpdateDisclaimers("wizard"), 0);
    EXPECT_EQ(OnlyRequest("set one agreement").body["product_type"], "TV");
    EXPECT_EQ(OnlyRequest("set agreements").body["product_type"], "TV");
    EXPECT_EQ(OnlyRequest("request update disclaimers").body["product_type"], "wizard");
}

// Records handed to callbacks leave the array unset when they have no entries.
TEST(ATermsItemConversion, StartsFromZeroTurnsEmptyTextsIntoNullAndLeavesOnlyTheNumbersWhenDestroyedTwice) {
    testbed::LogCapture logs;
    TermsContentItem record;
    std::memset(&record, 0xa5, sizeof record);
    InitailizeTermsContentItem(&record);
    const std::vector<const void*> none(17, nullptr);
    EXPECT_EQ(PointersOf(record), none);
    EXPECT_EQ(NumbersOf(record), std::vector<int>(6, 0));

    Item empty;  // a new record: empty texts, numbers and flags 0
    ConvertTermItem(&record, &empty);
    EXPECT_EQ(PointersOf(record), none);
    EXPECT_EQ(NumbersOf(record), std::vector<int>(6, 0));
    EXPECT_EQ(logs.Count("empty"), 16u);
    EXPECT_TRUE(Logged(logs, "empty", kWarn, kRed));

    Item full;
    full.strAgreeDependency = "dependency";
    full.nOrder = 3;
    full.bIsAgreed = full.bReverse = true;
    full.vecDetailData = {"title 0", "", "title 1", "text 1"};
    ConvertTermItem(&record, &full);
    ASSERT_EQ(record.nDetailDataCount, 4);
    EXPECT_EQ(record.ppDetailData[1], nullptr);
    DestroyTermItem(&record);
    DestroyTermItem(&record);
    EXPECT_EQ(PointersOf(record), none);
    EXPECT_EQ(NumbersOf(record), (std::vector<int>{3, 1, 0, 0, 1, 0}));
    char* entries[1] = {nullptr};
    record.ppDetailData = entries;
    DestroyTermItem(&record);
    EXPECT_EQ(record.ppDetailData, entries);
}

}  // namespace

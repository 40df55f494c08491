// The C terms interface end to end: the C scenarios of CTermsScenarios.c
// against the fake terms-client service on the private bus.
#include <chrono>
#include <thread>

#include "CTermsScenarios.h"
#include "ClientTestBed.h"
#include "SampleDisclaimer.h"

namespace {

using clienttest::kError;
using clienttest::kGreen;
using clienttest::kInfo;
using clienttest::kRed;
using clienttest::kSystemBuffer;
using clienttest::kWarn;
using clienttest::Logged;
using testbed::FakeReply;
using testbed::ReceivedRequest;

Json::Value SampleDisclaimerReply() {
    Json::Value body(Json::objectValue);
    body["result"] = true;
    body["id"] = SAMPLE_ID;
    body["order"] = SAMPLE_ORDER;
    body["version"] = SAMPLE_VERSION;
    body["title"] = SAMPLE_TITLE;
    body["intro"] = SAMPLE_INTRO;
    body["details"] = SAMPLE_DETAILS;
    const char* buttons[] = {SAMPLE_BUTTON1, SAMPLE_BUTTON2, SAMPLE_BUTTON3, SAMPLE_BUTTON4,
                             SAMPLE_BUTTON5, SAMPLE_BUTTON6, SAMPLE_BUTTON7, SAMPLE_BUTTON8};
    for (int i = 0; i < 8; ++i) body["button" + std::to_string(i + 1)] = buttons[i];
    body["is_agreed"] = SAMPLE_IS_AGREED != 0;
    body["only_notice"] = SAMPLE_ONLY_NOTICE != 0;
    body["agree_dependency"] = SAMPLE_AGREE_DEPENDENCY;
    body["ppused"] = SAMPLE_PP_USED != 0;
    body["reverse"] = SAMPLE_REVERSE != 0;
    return body;
}

// A service whose list holds disclaimers with these ids, each with its index
// as order; a request with "result" false for any other position.
testbed::FakeTermsService::Handler ListOf(std::vector<std::string> ids) {
    return [ids](const ReceivedRequest& request) {
        Json::Value body(Json::objectValue);
        body["result"] = true;
        if (request.Name() == "get disclaimer number") {
            body["number"] = static_cast<int>(ids.size());
        } else if (request.Name() == "get disclaimer by order") {
            const int index = request.body["request_index"].asInt();
            if (index < 0 || index >= static_cast<int>(ids.size())) return FakeReply::Result(false);
            body["id"] = ids[index];
            body["order"] = index;
        }
        return FakeReply::WithBody(body);
    };
}

class TheCTermsInterface : public clienttest::ClientTestBed {};

TEST_F(TheCTermsInterface, HandsADisclaimerByIdToTheCallbackOnceWithEveryField) {
    service.SetReply("get disclaimer by term id", FakeReply::WithBody(SampleDisclaimerReply()));

    EXPECT_EQ(scenario_sample_detail(), 0);

    const ReceivedRequest request = OnlyRequest("get disclaimer by term id");
    EXPECT_EQ(request.body["request_item"], SAMPLE_ID);
    EXPECT_EQ(request.body["product_type"], "TV");
}

TEST_F(TheCTermsInterface, NeverCallsBackForAnIdTheServiceDoesNotKnow) {
    service.SetReply("get disclaimer by term id", FakeReply::Result(false));

    EXPECT_EQ(scenario_no_detail("ghost"), 0);

    EXPECT_TRUE(Logged(logs, "There is no id[ghost]", kWarn, kRed));
}

TEST_F(TheCTermsInterface, HandsAllDisclaimersToTheCallbackOnceInListOrder) {
    const char* const ids[] = {"first", "second", "third"};
    service.SetHandler(ListOf({ids, ids + 3}));

    EXPECT_EQ(scenario_all_details(TERMS_REQUESTER_2, ids, 3), 0);

    EXPECT_TRUE(Logged(logs, "numofTerms[3]", kInfo, kGreen));
    for (const ReceivedRequest& request : service.RequestsNamed("get disclaimer by order")) {
        EXPECT_EQ(request.body["requester"], 2);
        EXPECT_EQ(request.body["product_type"], "TV");
    }
}

TEST_F(TheCTermsInterface, NeverCallsBackWhenThereAreNoDisclaimers) {
    service.SetHandler(ListOf({}));

    EXPECT_EQ(scenario_all_details(TERMS_REQUESTER_0, nullptr, 0), 0);

    EXPECT_TRUE(Logged(logs, "There is no Terms", kWarn, kRed));
}

TEST_F(TheCTermsInterface, ConvertsAndReleasesDetailsWithoutACallback) {
    service.SetHandler([](const ReceivedRequest& request) {
        return request.Name() == "get disclaimer by term id" ? FakeReply::WithBody(SampleDisclaimerReply())
                                                             : ListOf({"first", "second", "third"})(request);
    });

    scenario_details_without_callback(SAMPLE_ID, TERMS_REQUESTER_1);

    EXPECT_TRUE(Logged(logs, "numofTerms[3]", kInfo, kGreen));
    EXPECT_TRUE(logs.Has("[" SAMPLE_ID "]"));
}

TEST_F(TheCTermsInterface, AsksForTheCatchAllRequesterForValuesBeyondTheKnownOnes) {
    const struct {
        int given;
        int sent;
    } cases[] = {{9, 4}, {-1, 4}, {4, 4}, {3, 3}, {0, 0}};
    const char* const ids[] = {"only"};
    service.SetHandler(ListOf({"only"}));
    for (const auto& c : cases) {
        service.ClearRequests();
        EXPECT_EQ(scenario_all_details(static_cast<TermsRequester>(c.given), ids, 1), 0) << c.given;
        EXPECT_EQ(OnlyRequest("get disclaimer number").body["requester"], c.sent) << c.given;
        EXPECT_EQ(OnlyRequest("get disclaimer by order").body["requester"], c.sent) << c.given;
    }
}

TEST_F(TheCTermsInterface, AnswersAgreementsFromTheStoreWithoutAskingTheService) {
    store.Set(clienttest::kAgreementKey, R"({"agreed":"true","declined":"false","flag":true})");

    EXPECT_EQ(scenario_stored_agreement("agreed", 1, 1), 0);
    EXPECT_EQ(scenario_stored_agreement("declined", 1, 0), 0);
    EXPECT_EQ(scenario_stored_agreement("flag", 1, 0), 0);
    EXPECT_EQ(scenario_stored_agreement("unknown", 0, 0), 0);

    EXPECT_TRUE(service.Requests().empty());
}

TEST_F(TheCTermsInterface, ReturnsTheWebViewHeaderAsCompactText) {
    Reply("get information for web view disclaimer", R"({"result":true,"headerData":{"lang":"en","step":2}})");

    EXPECT_EQ(scenario_web_view_header(R"({"lang":"en","step":2})"), 0);

    EXPECT_TRUE(Logged(logs, R"(GetWebDiscliamerHeaderData {{"lang":"en","step":2}})", kError, kRed, kSystemBuffer));
}

TEST_F(TheCTermsInterface, ReturnsTheTextNullAsWebViewHeaderWhenTheServiceFails) {
    service.SetReply("get information for web view disclaimer", FakeReply::Error());

    EXPECT_EQ(scenario_web_view_header("null"), 0);
}

TEST_F(TheCTermsInterface, RefusesNullAndUnparsableInputsWithoutARequest) {
    EXPECT_EQ(scenario_refused_inputs(), 0);

    EXPECT_TRUE(service.Requests().empty());
    EXPECT_TRUE(Logged(logs, "empty requester", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "empty agreements", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "agreements:abc", kError, kRed, kSystemBuffer));
    EXPECT_TRUE(Logged(logs, "<<WARN: NOT JSON TYPE MESSAGE>>", kError, kRed, kSystemBuffer));
}

TEST_F(TheCTermsInterface, SendsAgreementsForTheSetItself) {
    SetDisclaimerItemAgreement("privacy", 5);
    EXPECT_EQ(SetDisclaimerItemsAgreements(R"({"privacy":"true"})"), 1);

    const ReceivedRequest one = OnlyRequest("set one agreement");
    EXPECT_EQ(one.body["request_item"], "privacy");
    EXPECT_EQ(one.body["is_agreed"], true);
    EXPECT_EQ(one.body["product_type"], "TV");
    const ReceivedRequest all = OnlyRequest("set agreements");
    EXPECT_EQ(all.body["privacy"], "true");
    EXPECT_EQ(all.body["product_type"], "TV");
}

TEST_F(TheCTermsInterface, SendsTheRequesterOfAnUpdateAsProductTypeAndReturnsTheResult) {
    EXPECT_EQ(RequestUpdateDisclaimers("wizard"), 1);
    EXPECT_EQ(OnlyRequest("request update disclaimers").body["product_type"], "wizard");

    service.SetReply("request update disclaimers", FakeReply::Result(false));
    EXPECT_EQ(RequestUpdateDisclaimers("wizard"), 0);
}

TEST_F(TheCTermsInterface, TriggersTheServiceOnABackgroundThread) {
    TriggerTermsService();

    EXPECT_TRUE(Logged(logs, "Finish Trigger Terms Service", kError, kRed, kSystemBuffer));
    // The background request ends by itself; wait for its report.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!logs.Has("IsServiceAvailable true") && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(Logged(logs, "IsServiceAvailable true", kError, kRed, kSystemBuffer));
    EXPECT_EQ(service.RequestsNamed("is service available").size(), 1u);
}

}  // namespace

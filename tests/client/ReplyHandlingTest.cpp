// How the client reads the service's replies, and what it answers when none comes.
#include <functional>

#include "ClientTestBed.h"

namespace clienttest {
namespace {

using testbed::FakeReply;

struct BoolRequest {
    const char* label;
    const char* name;  // the request's name as the service sees it
    std::function<bool(CVerantiAPI&)> send;
};

void PrintTo(const BoolRequest& r, std::ostream* out) { *out << r.label; }

const BoolRequest kBoolRequests[] = {
    {"IsServiceAvailable", "is service available", [](CVerantiAPI& api) { return api.IsServiceAvailable(); }},
    {"DravikCheck", "dravik check", [](CVerantiAPI& api) { int c = 0, r = 0; return api.DravikCheck(c, r); }},
    {"DravikCheckWithMessage", "dravik get error info",
     [](CVerantiAPI& api) { int c = 0, r = 0; std::string m; return api.DravikCheck(c, r, m); }},
    {"RequestDisclaimersRESTAPI", "request disclaimer api",
     [](CVerantiAPI& api) { return api.RequestDisclaimersRESTAPI("home", "all"); }},
    {"RequestDisclaimerID", "request disclaimerid", [](CVerantiAPI& api) { return api.RequestDisclaimerID("TV", true); }},
    {"SetDisclaimersAgreement", "set agreements",
     [](CVerantiAPI& api) { Json::Value v(Json::objectValue); return api.SetDisclaimersAgreement(v, true, "TV"); }},
    {"SetCountryCode", "set country code", [](CVerantiAPI& api) { return api.SetCountryCode("FR"); }},
    {"RequestUpdateDisclaimers", "request update disclaimers",
     [](CVerantiAPI& api) { return api.RequestUpdateDisclaimers("TV"); }},
    {"RequestCountryCodeList", "request country code list", [](CVerantiAPI& api) { return api.RequestCountryCodeList(); }},
    {"CopyCloneDataUSBtoTV", "Copy Clone Data USB to TV",
     [](CVerantiAPI& api) { return api.CopyCloneDataUSBtoTV("a", "b"); }},
    {"CopyCloneDataTVtoUSB", "Copy Clone Data TV to USB",
     [](CVerantiAPI& api) { return api.CopyCloneDataTVtoUSB("a", "b"); }},
    {"RequestResetNimbra", "request reset nimbra", [](CVerantiAPI& api) { return api.RequestResetNimbra(); }},
    {"SetAllDisclaimerItemAgreement", "set all agreement",
     [](CVerantiAPI& api) { return api.SetAllDisclaimerItemAgreement(1, "TV"); }},
    {"SetRevisedTermAgreement", "set one agreement",
     [](CVerantiAPI& api) { return api.SetRevisedTermAgreement("t1", true, "TV"); }},
    {"SetDisclaimerItemAgreement", "set one agreement",
     [](CVerantiAPI& api) { return api.SetDisclaimerItemAgreement("t1", 1, "TV"); }},
    {"IsDisclaimerItemExistForAnotherProduct", "get disclaimer by term id",
     [](CVerantiAPI& api) { return api.IsDisclaimerItemExist("t1", "AV"); }},
    {"GetRevisedDisclaimers", "get revised disclaimers",
     [](CVerantiAPI& api) { OwnedItems list; return api.GetRevisedDisclaimers(list.items, "TV", "all"); }},
};

FakeReply WithShape(FakeReply reply, FakeReply::Shape shape) {
    reply.shape = shape;
    return reply;
}

class ABooleanRequest : public ClientTestBed, public ::testing::WithParamInterface<BoolRequest> {};

TEST_P(ABooleanRequest, IsTrueOnlyWhenAReplyCameWithResultTrue) {
    const struct {
        const char* situation;
        FakeReply reply;
        bool expected;
    } situations[] = {
        {"result true", FakeReply::Result(true), true},
        {"result true in a reply without payload", WithShape(FakeReply::Result(true), FakeReply::Shape::Plain), true},
        {"result false", FakeReply::Result(false), false},
        {"no result", FakeReply::WithBody(Json::Value(Json::objectValue)), false},
        {"a reply that is not JSON", FakeReply::NotJson("{\"result\":true"), false},
        {"a reply of another type", WithShape(FakeReply::Result(true), FakeReply::Shape::Other), false},
        {"a D-Bus error", FakeReply::Error(), false},
    };
    for (const auto& s : situations) {
        service.SetReply(GetParam().name, s.reply);
        EXPECT_EQ(GetParam().send(*api), s.expected) << s.situation;
    }
}

INSTANTIATE_TEST_SUITE_P(EveryBooleanRequest, ABooleanRequest, ::testing::ValuesIn(kBoolRequests),
                         [](const auto& info) { return std::string(info.param.label); });

class ABooleanRequestWithoutService : public ClientTestBedWithoutService,
                                      public ::testing::WithParamInterface<BoolRequest> {};

TEST_P(ABooleanRequestWithoutService, IsFalse) { EXPECT_FALSE(GetParam().send(*api)); }

INSTANTIATE_TEST_SUITE_P(EveryBooleanRequest, ABooleanRequestWithoutService, ::testing::ValuesIn(kBoolRequests),
                         [](const auto& info) { return std::string(info.param.label); });

class TheAvailabilityCheck : public ClientTestBed {};

TEST_F(TheAvailabilityCheck, LogsFalseForAReplyWithoutResult) {
    Reply("is service available", "{}");
    EXPECT_FALSE(api->IsServiceAvailable());
    EXPECT_TRUE(Logged(logs, "IsServiceAvailable result : false", kInfo, kGreen));
}

TEST_F(TheAvailabilityCheck, WaitsForADelayedReply) {
    FakeReply late = FakeReply::Result(true);
    late.delayMs = 200;
    service.SetReply("is service available", late);
    EXPECT_TRUE(api->IsServiceAvailable());
}

TEST_F(TheAvailabilityCheck, LetsTheJsonErrorOfAResultOfTheWrongKindPassAndStillWorksAfterwards) {
    Reply("is service available", R"({"result":"yes"})");
    EXPECT_THROW(api->IsServiceAvailable(), Json::Exception);

    service.SetReply("is service available", FakeReply::Result(true));
    EXPECT_TRUE(api->IsServiceAvailable());
}

TEST_F(TheAvailabilityCheck, GoesOnWithTheRequestWhenTheServiceSaysItIsDown) {
    service.SetReply("is service available", FakeReply::Result(false));
    EXPECT_TRUE(api->SetCountryCode("IT"));
    EXPECT_EQ(OnlyRequest("set country code").body["country_code"], "IT");
}

class ADravikCheck : public ClientTestBed {
protected:
    int code = -1;
    int reason = -1;
    std::string message = "untouched";
};

TEST_F(ADravikCheck, WritesTheServiceErrorAlsoWhenResultIsFalse) {
    Reply("dravik check", R"({"result":false,"errorcode":3,"errorreason":7})");
    Reply("dravik get error info", R"({"result":false,"errorcode":4,"errorreason":8,"errormessage":"no disk"})");

    EXPECT_FALSE(api->DravikCheck(code, reason));
    EXPECT_EQ(code, 3);
    EXPECT_EQ(reason, 7);
    EXPECT_FALSE(api->DravikCheck(code, reason, message));
    EXPECT_EQ(code, 4);
    EXPECT_EQ(reason, 8);
    EXPECT_EQ(message, "no disk");
}

TEST_F(ADravikCheck, WritesZeroesForMissingMembersOfAReply) {
    EXPECT_TRUE(api->DravikCheck(code, reason, message));
    EXPECT_EQ(code, 0);
    EXPECT_EQ(reason, 0);
    EXPECT_EQ(message, "");
}

TEST_F(ADravikCheck, LeavesTheOutputsUntouchedWhenNoReplyCame) {
    service.SetDefaultReply(FakeReply::Error());
    EXPECT_FALSE(api->DravikCheck(code, reason));
    EXPECT_FALSE(api->DravikCheck(code, reason, message));
    EXPECT_EQ(code, -1);
    EXPECT_EQ(reason, -1);
    EXPECT_EQ(message, "untouched");
}

TEST_F(ADravikCheck, LetsTheJsonErrorOfAnErrorCodeInTextPass) {
    Reply("dravik check", R"({"result":true,"errorcode":"x"})");
    EXPECT_THROW(api->DravikCheck(code, reason), Json::Exception);
    EXPECT_TRUE(api->IsServiceAvailable());
}

class TheDisclaimerCount : public ClientTestBed {};

TEST_F(TheDisclaimerCount, IsTheServiceNumberOnlyWhenResultIsTrue) {
    Reply("get disclaimer number", R"({"result":true,"number":4})");
    EXPECT_EQ(api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), 4);
    EXPECT_TRUE(Logged(logs, "GetDisclaimerNum 4", kInfo, kGreen));

    Reply("get disclaimer number", R"({"result":false,"number":4})");
    EXPECT_EQ(api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), 0);
    EXPECT_TRUE(Logged(logs, "GetDisclaimerNum 0", kInfo, kGreen));
}

TEST_F(TheDisclaimerCount, LetsTheJsonErrorOfANumberInTextPass) {
    Reply("get disclaimer number", R"({"result":true,"number":"many"})");
    EXPECT_THROW(api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV"), Json::Exception);
}

class TheHeaderGetters : public ClientTestBed {};

TEST_F(TheHeaderGetters, CopyTheHeaderDataOfTheReply) {
    Reply("get information for disclaimer", R"({"result":false,"headerData":{"logo":"a.png","n":[1]}})");
    Reply("get information for web view disclaimer", R"({"result":true,"headerData":"web"})");
    Json::Value header;
    Json::Value webHeader;

    api->GetInformationForDisclaimer(header);
    api->GetInformationForDisclaimerWebView(webHeader);

    EXPECT_EQ(header, JsonOf(R"({"logo":"a.png","n":[1]})"));
    EXPECT_EQ(webHeader, Json::Value("web"));
}

TEST_F(TheHeaderGetters, LeaveNullInTheCallerValueWhenTheReplyHasNoHeaderData) {
    Json::Value header("stale");
    api->GetInformationForDisclaimer(header);
    EXPECT_TRUE(header.isNull());
}

class TheClientWithoutService : public ClientTestBedWithoutService {};

TEST_F(TheClientWithoutService, LeavesNullHeadersAndCountsNoDisclaimers) {
    Json::Value header("stale");
    Json::Value webHeader("stale");
    api->GetInformationForDisclaimer(header);
    api->GetInformationForDisclaimerWebView(webHeader);
    EXPECT_TRUE(header.isNull());
    EXPECT_TRUE(webHeader.isNull());

    EXPECT_EQ(api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_OTHER, "TV"), 0);
    EXPECT_TRUE(Logged(logs, "GetDisclaimerNum 0", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "IsServiceAvailable result : false", kInfo, kGreen));
}

class AnAgreementsUpload : public ClientTestBed {};

TEST_F(AnAgreementsUpload, TakesTheCallersObjectAway) {
    Json::Value agreements = JsonOf(R"({"t1":"true","t2":"false"})");
    EXPECT_TRUE(api->SetDisclaimersAgreement(agreements, true, "TV"));
    EXPECT_FALSE(agreements.isMember("t1"));
    EXPECT_FALSE(agreements.isMember("t2"));
    EXPECT_TRUE(agreements.empty());
}

}  // namespace
}  // namespace clienttest

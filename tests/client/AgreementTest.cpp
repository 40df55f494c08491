// Whether a term exists and whether the user agreed to it: the agreement cache
// in the configuration store for the set itself, the service for other products.
#include <cstdlib>
#include <optional>
#include <thread>

#include "ClientTestBed.h"

namespace clienttest {
namespace {

using testbed::FakeReply;

constexpr int kUntouched = 7;  // what the caller put in the agreement before asking

struct CacheCase {
    const char* label;
    std::optional<std::string> stored;  // nothing: the key is not set
    bool exists;
    std::string existenceLine;          // "" for the exception line on the system buffer
    int agreed;
    std::string agreementLine;          // "" for the exception line on the system buffer
};

void PrintTo(const CacheCase& c, std::ostream* out) { *out << c.label; }

const CacheCase kCacheCases[] = {
    {"TrueText", R"({"t2":"false","t1":"true"})", true, "t1  exist", 1, "agreement true."},
    {"UpperCaseTrueText", R"({"t1":"TRUE"})", true, "t1  exist", 0, "agreement TRUE."},
    {"YesText", R"({"t1":"yes"})", true, "t1  exist", 0, "agreement yes."},
    {"EmptyText", R"({"t1":""})", true, "t1  exist", 0, "agreement ."},
    {"JsonTrue", R"({"t1":true})", true, "t1  exist", 0, "t1 is not string type"},
    {"Zero", R"({"t1":0})", true, "t1  exist", 0, "t1 is not string type"},
    {"NonEmptyArray", R"({"t1":["true"]})", true, "t1  exist", 0, "t1 is not string type"},
    {"Null", R"({"t1":null})", false, "t1 does not exist", 0, "t1 is not string type"},
    {"EmptyArray", R"({"t1":[]})", false, "t1 does not exist", 0, "t1 is not string type"},
    {"EmptyObject", R"({"t1":{}})", false, "t1 does not exist", 0, "t1 is not string type"},
    {"MissingId", R"({"t2":"true"})", false, "t1 does not exist", 0, "t1 is not string type"},
    {"NoAgreementsAtAll", "{}", false, "t1 does not exist", 0, "t1 is not string type"},
    {"NullRoot", "null", false, "t1 does not exist", 0, "t1 is not string type"},
    {"ArrayRoot", R"(["t1"])", false, "", kUntouched, ""},
    {"NumberRoot", "42", false, "", kUntouched, ""},
    {"TextRoot", R"("t1")", false, "", kUntouched, ""},
    {"Unparsable", "{t1:true", false, "parser failed : \n {t1:true", 0, "parser failed : \n {t1:true , agreement = false"},
    {"EmptyValue", "", false, "Empty Data", 0, "Empty Data, agreement = false"},
    {"KeyNotSet", std::nullopt, false, "vconf get str failed", 0, "vconf get str failed, agreement = false"},
};

class TheAgreementCache : public ClientTestBed, public ::testing::WithParamInterface<CacheCase> {
protected:
    void SetUp() override {
        ClientTestBed::SetUp();
        if (GetParam().stored) store.Set(kAgreementKey, *GetParam().stored);
    }

    // The outcome line, or the exception line on the system buffer when `message` is empty.
    void ExpectOutcomeLine(const std::string& message, int prio, const char* colour) {
        if (!message.empty()) {
            EXPECT_TRUE(Logged(logs, message, prio, colour));
            return;
        }
        const auto handled = LinesStartingWith(logs, "Exception Handled by ");
        ASSERT_EQ(handled.size(), 1u);
        EXPECT_GT(handled[0].message.size(), std::string("Exception Handled by ").size());
        EXPECT_TRUE(Logged(logs, handled[0].message, kError, kRed, kSystemBuffer));
    }

    void ExpectCacheReadLines() {
        EXPECT_TRUE(Logged(logs, "requested ID t1", kWarn, kRed));
        if (GetParam().stored) {
            EXPECT_TRUE(Logged(logs, "Get vconf savedData: " + *GetParam().stored, kInfo, kGreen));
        }
        EXPECT_TRUE(service.Requests().empty()) << "the set itself is answered without the service";
    }
};

TEST_P(TheAgreementCache, AnswersWhetherTheTermExists) {
    EXPECT_EQ(api->IsDisclaimerItemExist("t1", "TV"), GetParam().exists);
    ExpectOutcomeLine(GetParam().existenceLine, kWarn, kRed);
    ExpectCacheReadLines();
}

TEST_P(TheAgreementCache, AnswersWhetherTheUserAgreed) {
    int agreed = kUntouched;
    EXPECT_EQ(api->GetDisclaimerItemAgreement("t1", &agreed, "TV"), 0);
    EXPECT_EQ(agreed, GetParam().agreed);
    const bool agreementShown = GetParam().agreementLine.rfind("agreement ", 0) == 0;
    ExpectOutcomeLine(GetParam().agreementLine, agreementShown ? kInfo : kWarn, agreementShown ? kGreen : kRed);
    ExpectCacheReadLines();
}

INSTANTIATE_TEST_SUITE_P(EveryKindOfStoredValue, TheAgreementCache, ::testing::ValuesIn(kCacheCases),
                         [](const auto& info) { return std::string(info.param.label); });

// ---- Other products: the service is asked ----

class AnAgreementQueryForAnotherProduct : public ClientTestBed {
protected:
    testbed::ReceivedRequest AgreementRequest() { return OnlyRequest("get disclaimer agreement"); }
};

TEST_F(AnAgreementQueryForAnotherProduct, AsksTheServiceForExistence) {
    Reply("get disclaimer by term id", R"({"result":false})");
    EXPECT_FALSE(api->IsDisclaimerItemExist("t1", "AV"));
    Reply("get disclaimer by term id", R"({"result":true})");
    EXPECT_TRUE(api->IsDisclaimerItemExist("t1", "AV"));

    EXPECT_EQ(service.RequestsNamed("is service available").size(), 2u);
    EXPECT_FALSE(logs.Has("requested ID t1"));
}

TEST_F(AnAgreementQueryForAnotherProduct, LogsTheServiceAnswerButReturnsTheCachedOne) {
    store.Set(kAgreementKey, R"({"t1":"false"})");
    Reply("get disclaimer agreement", R"({"result":true,"is_agreed":true})");
    int agreed = 0;

    api->GetDisclaimerItemAgreement("t1", &agreed, "AV");

    EXPECT_EQ(agreed, 0);
    EXPECT_TRUE(Logged(logs, "get value : 1", kInfo, kGreen));
    EXPECT_LT(PositionOf(logs, "get value : 1"), PositionOf(logs, "requested ID t1"));
    EXPECT_EQ(AgreementRequest().protocol, "common_protocol");
}

TEST_F(AnAgreementQueryForAnotherProduct, ReportsATermTheServiceDoesNotKnow) {
    store.Set(kAgreementKey, R"({"t1":"true"})");
    Reply("get disclaimer agreement", R"({"result":false,"is_agreed":true})");
    int agreed = kUntouched;

    api->GetDisclaimerItemAgreement("t1", &agreed, "AV");

    EXPECT_TRUE(Logged(logs, "disclaimer t1 is not exist!", kWarn, kYellow));
    EXPECT_TRUE(Logged(logs, "get value : 0", kInfo, kGreen));
    EXPECT_EQ(agreed, 1);
}

TEST_F(AnAgreementQueryForAnotherProduct, KeepsTheServiceAnswerWhenTheCacheCannotBeRead) {
    store.Set(kAgreementKey, R"(["t1"])");
    Reply("get disclaimer agreement", R"({"result":true,"is_agreed":true})");
    int agreed = 0;

    api->GetDisclaimerItemAgreement("t1", &agreed, "AV");

    EXPECT_EQ(agreed, 1);
    EXPECT_EQ(LinesStartingWith(logs, "Exception Handled by ").size(), 1u);
}

TEST_F(AnAgreementQueryForAnotherProduct, TreatsLowerCaseTvAsAnotherProduct) {
    store.Set(kAgreementKey, R"({"t1":"true"})");
    int agreed = 0;
    api->GetDisclaimerItemAgreement("t1", &agreed, "tv");
    EXPECT_EQ(AgreementRequest().body["product_type"], "tv");
    EXPECT_EQ(agreed, 1);
}

TEST_F(AnAgreementQueryForAnotherProduct, LetsTheJsonErrorOfTheServiceReplyPass) {
    Reply("get disclaimer agreement", R"({"result":true,"is_agreed":"maybe"})");
    int agreed = 0;
    EXPECT_THROW(api->GetDisclaimerItemAgreement("t1", &agreed, "AV"), Json::Exception);
}

class AnAgreementQueryWithoutService : public ClientTestBedWithoutService {};

TEST_F(AnAgreementQueryWithoutService, FallsBackToNotAgreedBeforeReadingTheCache) {
    store.Set(kAgreementKey, R"({"t1":"true"})");
    int agreed = kUntouched;

    api->GetDisclaimerItemAgreement("t1", &agreed, "AV");

    EXPECT_TRUE(Logged(logs, "disclaimer t1 is not exist!", kWarn, kYellow));
    EXPECT_TRUE(logs.Has("get value : 0"));
    EXPECT_EQ(agreed, 1);
    EXPECT_FALSE(api->IsDisclaimerItemExist("t1", "AV"));
}

// No bus at all: the proxy cannot be opened, so the agreement request is not even tried.
class AnAgreementQueryWithoutBus : public ClientTestBedWithoutService {
protected:
    void SetUp() override {
        ClientTestBedWithoutService::SetUp();
        m_Address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/veranti-test-bus", 1);
    }
    void TearDown() override {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", m_Address.c_str(), 1);
        ClientTestBedWithoutService::TearDown();
    }

private:
    std::string m_Address;
};

TEST_F(AnAgreementQueryWithoutBus, LogsTheCallersValueAndStillReadsTheCache) {
    store.Set(kAgreementKey, R"({"t1":"true"})");
    int agreed = kUntouched;

    // A thread of its own, which has no bus connection of its own yet.
    std::thread([&] { api->GetDisclaimerItemAgreement("t1", &agreed, "AV"); }).join();

    EXPECT_TRUE(Logged(logs, "get value : 7", kInfo, kGreen));
    EXPECT_FALSE(logs.Has("disclaimer t1 is not exist!"));
    EXPECT_EQ(agreed, 1);
}

}  // namespace
}  // namespace clienttest

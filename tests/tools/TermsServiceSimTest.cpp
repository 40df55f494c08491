// The simulated service's request handling, without a bus: every request,
// bad requests, and the state it keeps in a real (temporary) store.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>

#include "SimTestCatalogue.h"
#include "TempStore.h"
#include "TermsServiceSim.h"

using namespace termssim;

namespace {

Json::Value Parsed(const std::string& text) {
    Json::Value value;
    std::string error;
    EXPECT_TRUE(ParseStrictJson(text, value, error)) << error << ": " << text;
    return value;
}

class ASimulatedService : public testing::Test {
protected:
    ASimulatedService() { Restart(); }

    // A new state and handler over the same store, as after a restart.
    void Restart() {
        m_Sim.reset();
        m_State = std::make_unique<SimState>(m_Catalogue);
        m_Sim = std::make_unique<TermsServiceSim>(m_Catalogue, *m_State, CloneDirs());
    }

    Json::Value Call(const std::string& body, const std::string& protocol = "") {
        return m_Sim->Handle(protocol, body);
    }

    Json::Value StoredAgreements() const { return Parsed(m_Store.Get(kAgreementsKey).value_or("null")); }
    std::string StoredState() const {
        std::string state;
        for (const char* key : {kAgreementsKey, kTitlesKey, kCountryKey}) state += m_Store.Get(key).value_or("-") + "|";
        return state;
    }

    testbed::TempStore m_Store;
    Catalogue m_Catalogue = Catalogue::FromText(simtest::kTestCatalogue);
    std::unique_ptr<SimState> m_State;
    std::unique_ptr<TermsServiceSim> m_Sim;
};

struct RequestCase {
    const char* protocol;
    const char* body;
    const char* reply;  // members the reply must hold, with these values
};

// One valid request of every kind the library sends, and what it reads back.
const RequestCase kEveryRequest[] = {
    {"", R"({"method":"is service available"})", R"({"result":true})"},
    {"", R"({"method":"get information for disclaimer","data":null})", R"({"result":true,"headerData":{"h":"aa"}})"},
    {"", R"({"method":"get information for web view disclaimer","data":null})",
     R"({"result":true,"headerData":{"w":"aa"}})"},
    {"", R"({"method":"dravik check"})", R"({"result":true,"errorcode":0,"errorreason":0})"},
    {"", R"({"method":"dravik get error info"})", R"({"result":true,"errorcode":0,"errorreason":0,"errormessage":""})"},
    {"", R"({"method":"request disclaimer api","data":null,"product_type":"TV","terms":"all","request_from":"x"})",
     R"({"result":true})"},
    {"", R"({"method":"request disclaimerid","product_type":"TV","request_from":"wizard-terms","other_page":false})",
     R"({"result":true})"},
    {"", R"({"method":"set agreements","data":null,"product_type":"TV","extra":true})", R"({"result":true})"},
    {"", R"({"method":"set country code","country_code":"AA","data":null})", R"({"result":true})"},
    {"", R"({"method":"request update disclaimers","product_type":"TV","request_from":"wizard-terms"})",
     R"({"result":true})"},
    {"", R"({"method":"request country code list","data":null})", R"({"result":true,"country_codes":["AA","BB"]})"},
    {"", R"({"method":"Copy Clone Data TV to USB","src":"a","dest":"b","data":null})", R"({"result":false})"},
    {"", R"({"method":"Copy Clone Data USB to TV","src":"a","dest":"b","data":null})", R"({"result":false})"},
    {"", R"({"method":"request reset nimbra","data":null})", R"({"result":true})"},
    {"", R"({"method":"get disclaimer number","product_type":"TV","requester":1,"data":null})",
     R"({"result":true,"number":2})"},
    {"", R"({"method":"set all agreement","product_type":"TV","is_agreed":true})", R"({"result":true})"},
    {"", R"({"method":"set one agreement","product_type":"TV","request_item":"extra","is_agreed":true})",
     R"({"result":true})"},
    {"", R"({"method":"get revised disclaimers","product_type":"TV","terms":"","data":null})", R"({"result":true})"},
    {"", R"({"method":"get disclaimer by order","product_type":"TV","requester":1,"request_index":0,"data":null})",
     R"({"result":true,"id":"extra","order":3})"},
    {"", R"({"method":"get disclaimer by term id","product_type":"TV","request_item":"child","data":null})",
     R"({"result":true,"id":"child","order":1})"},
    {"common_protocol", R"({"request_type":"get disclaimer agreement","product_type":"TV","request_item":"base"})",
     R"({"result":true,"is_agreed":true})"},
};

TEST_F(ASimulatedService, AnswersEveryRequestWithTheMembersTheLibraryReads) {
    std::set<std::string> covered;
    for (const RequestCase& request : kEveryRequest) {
        const Json::Value body = Parsed(request.body);
        covered.insert(body.isMember("method") ? body["method"].asString() : body["request_type"].asString());
        const Json::Value reply = Call(request.body, request.protocol);
        const Json::Value expected = Parsed(request.reply);
        for (const std::string& member : expected.getMemberNames()) {
            EXPECT_EQ(reply[member], expected[member]) << request.body << " -> " << WriteCompactJson(reply);
        }
    }
    EXPECT_EQ(covered,
              std::set<std::string>(TermsServiceSim::KnownRequests().begin(), TermsServiceSim::KnownRequests().end()));
}

TEST_F(ASimulatedService, SendsEveryMemberOfADisclaimerWithSectionsAsJsonText) {
    const Json::Value reply =
        Call(R"({"method":"get disclaimer by order","product_type":"TV","requester":0,"request_index":0})");
    EXPECT_EQ(WriteCompactJson(reply),
              R"({"agree_dependency":"","button1":"Agree","button10":"","button2":"Disagree","button3":"More",)"
              R"("button4":"","button5":"","button6":"","button7":"","button8":"","button9":"",)"
              R"("details":"[{\"data\":\"D1\",\"title\":\"S1\"},{\"data\":\"D2\",\"title\":\"S2\"}]",)"
              R"("id":"base","intro":"Read me","is_agreed":false,"only_notice":false,"order":0,"ppused":false,)"
              R"("result":true,"reverse":false,"title":"Base terms","version":"1.0"})");
    const Json::Value prose =
        Call(R"({"method":"get disclaimer by term id","product_type":"TV","request_item":"child"})");
    EXPECT_EQ(prose["details"], "Plain prose.");
    EXPECT_EQ(prose["agree_dependency"], "base");
}

TEST_F(ASimulatedService, GivesEachRequesterItsOwnListAndOthersTheCatchAll) {
    const std::pair<int, int> requesterCounts[] = {{0, 2}, {1, 2}, {2, 4}, {4, 4}, {9, 4}, {-1, 4}};
    for (const auto& [requester, count] : requesterCounts) {
        Json::Value body = Parsed(R"({"method":"get disclaimer number","product_type":"TV"})");
        body["requester"] = requester;
        EXPECT_EQ(Call(WriteCompactJson(body))["number"], count) << requester;
    }
    EXPECT_EQ(
        Call(R"({"method":"get disclaimer by order","product_type":"TV","requester":0,"request_index":2})")["result"],
        false);
}

TEST_F(ASimulatedService, StartsWithTheDefaultCountryItsTitlesAndEveryItemNotAgreed) {
    EXPECT_EQ(m_Store.Get(kCountryKey), "AA");
    EXPECT_EQ(m_Store.Get(kTitlesKey), R"([{"title":"A1"},{"title":"A2"}])");
    EXPECT_EQ(m_Store.Get(kAgreementsKey), R"({"base":"false","child":"false","extra":"false","note":"false"})");
}

TEST_F(ASimulatedService, StoresAgreementsAsTrueOrFalseTextsThatTheAgreementQueryReads) {
    EXPECT_EQ(
        Call(R"({"method":"set one agreement","product_type":"TV","request_item":"base","is_agreed":true})")["result"],
        true);
    EXPECT_EQ(StoredAgreements()["base"], "true");
    const Json::Value query = Call(
        R"({"request_type":"get disclaimer agreement","product_type":"TV","request_item":"base"})", kCommonProtocol);
    EXPECT_EQ(query["is_agreed"], true);
    EXPECT_EQ(Call(R"({"method":"set agreements","product_type":"TV","base":"false","extra":true})")["result"], true);
    EXPECT_EQ(StoredAgreements()["base"], "false");
    EXPECT_EQ(StoredAgreements()["extra"], "true");
}

TEST_F(ASimulatedService, AgreesToADependentItemOnlyWithItsDependencyAndWithdrawsItWithIt) {
    const std::string agreeChild =
        R"({"method":"set one agreement","product_type":"TV","request_item":"child","is_agreed":true})";
    EXPECT_EQ(Call(agreeChild)["result"], false);
    EXPECT_EQ(StoredAgreements()["child"], "false");
    EXPECT_EQ(Call(R"({"method":"set agreements","product_type":"TV","child":true,"base":true})")["result"], true);
    EXPECT_EQ(StoredAgreements()["child"], "true");
    EXPECT_EQ(
        Call(R"({"method":"set one agreement","product_type":"TV","request_item":"base","is_agreed":false})")["result"],
        true);
    EXPECT_EQ(StoredAgreements()["child"], "false");
}

TEST_F(ASimulatedService, LeavesNoticesOutOfAgreements) {
    EXPECT_EQ(
        Call(R"({"method":"set one agreement","product_type":"TV","request_item":"note","is_agreed":true})")["result"],
        false);
    EXPECT_EQ(Call(R"({"method":"set all agreement","product_type":"TV","is_agreed":true})")["result"], true);
    EXPECT_EQ(WriteCompactJson(StoredAgreements()), R"({"base":"true","child":"true","extra":"true","note":"false"})");
    EXPECT_EQ(Call(R"({"method":"set all agreement","product_type":"TV","is_agreed":false})")["result"], true);
    EXPECT_EQ(WriteCompactJson(StoredAgreements()),
              R"({"base":"false","child":"false","extra":"false","note":"false"})");
}

TEST_F(ASimulatedService, ListsRevisedItemsFilteredByTheTermsSelector) {
    const Json::Value all = Call(R"({"method":"get revised disclaimers","product_type":"TV","terms":"all"})");
    ASSERT_EQ(all["disclaimers"].size(), 1u);
    EXPECT_EQ(all["disclaimers"][0]["id"], "child");
    EXPECT_EQ(
        Call(R"({"method":"get revised disclaimers","product_type":"TV","terms":"base,extra"})")["disclaimers"].size(),
        0u);
}

TEST_F(ASimulatedService, SwitchesCountryWithItsTextsTitlesAndHeaderAndKeepsEarlierAgreements) {
    Call(R"({"method":"set one agreement","product_type":"TV","request_item":"base","is_agreed":true})");
    EXPECT_EQ(Call(R"({"method":"set country code","country_code":"BB"})")["result"], true);
    EXPECT_EQ(m_Store.Get(kCountryKey), "BB");
    EXPECT_EQ(m_Store.Get(kTitlesKey), R"([{"title":"Bé"}])");
    EXPECT_EQ(StoredAgreements()["base"], "true");
    EXPECT_EQ(StoredAgreements()["bb_only"], "false");
    const Json::Value base =
        Call(R"({"method":"get disclaimer by term id","product_type":"TV","request_item":"base"})");
    EXPECT_EQ(base["title"], "Grundlage – 기본");
    EXPECT_EQ(base["order"], 1);
    EXPECT_EQ(Call(R"({"method":"get information for web view disclaimer"})")["headerData"]["w"], "top");
    EXPECT_EQ(Call(R"({"method":"get disclaimer by term id","product_type":"TV","request_item":"child"})")["result"],
              false);
}

TEST_F(ASimulatedService, KeepsCountryAndAgreementsAcrossARestart) {
    Call(R"({"method":"set country code","country_code":"BB"})");
    Call(R"({"method":"set one agreement","product_type":"TV","request_item":"bb_only","is_agreed":true})");
    Restart();
    EXPECT_EQ(m_State->CurrentCountry().code, "BB");
    EXPECT_EQ(
        Call(
            R"({"method":"get disclaimer by order","product_type":"TV","requester":0,"request_index":0})")["is_agreed"],
        true);
}

TEST_F(ASimulatedService, FallsBackToTheDefaultCountryWhenTheStoredOneIsUnknown) {
    m_Store.Set(kCountryKey, "ZZ");
    m_Store.Set(kAgreementsKey, "not json");
    Restart();
    EXPECT_EQ(m_Store.Get(kCountryKey), "AA");
    EXPECT_EQ(StoredAgreements()["base"], "false");
}

// Bad requests: each gets "result" false with an "errormessage" and changes nothing.
const std::pair<const char*, std::string> kBadRequests[] = {
    {"", ""},
    {"", "not json"},
    {"", "[1,2]"},
    {"", "42"},
    {"", R"("text")"},
    {"", R"({"method":"set country code","country_code":"BB"} trailing)"},
    {"", R"({"method":"set country code","country_code":"BB","country_code":"AA"})"},
    {"", "{\"method\":\"set country code\",\"country_code\":\"\xff\xfe\"}"},
    {"", std::string("{\"method\":\"set country code\",\"country_code\":\"B") + '\0' + "B\"}"},
    {"", R"({"method":"no such method"})"},
    {"", R"({"method":7})"},
    {"", R"({"request":"is service available"})"},
    {"", R"({"method":"get disclaimer agreement","product_type":"TV","request_item":"base"})"},
    {"common_protocol", R"({"method":"is service available"})"},
    {"other_protocol", R"({"method":"is service available"})"},
    {"\xff", R"({"method":"is service available"})"},
    {"", R"({"method":"set country code"})"},
    {"", R"({"method":"set country code","country_code":"ZZ"})"},
    {"", R"({"method":"set country code","country_code":["BB"]})"},
    {"", R"({"method":"set one agreement","product_type":"TV","request_item":"base","is_agreed":"yes"})"},
    {"", R"({"method":"set one agreement","product_type":"TV","request_item":"nope","is_agreed":true})"},
    {"", R"({"method":"set one agreement","request_item":"base","is_agreed":true})"},
    {"", R"({"method":"set agreements","product_type":"TV","base":true,"nope":true})"},
    {"", R"({"method":"set agreements","product_type":"TV","base":1})"},
    {"", R"({"method":"set all agreement","product_type":"TV","is_agreed":1})"},
    {"", R"({"method":"get disclaimer by order","product_type":"TV","requester":"0","request_index":0})"},
    {"", R"({"method":"get disclaimer by order","product_type":"TV","requester":0,"request_index":1.5})"},
    {"", R"({"method":"get disclaimer by order","product_type":"TV","requester":0,"request_index":-1})"},
    {"", R"({"method":"request disclaimerid","product_type":"TV","request_from":"x","other_page":"no"})"},
    {"", R"({"method":"Copy Clone Data TV to USB","src":"a"})"},
};

TEST_F(ASimulatedService, RefusesBadRequestsWithAReasonAndChangesNothing) {
    const std::string before = StoredState();
    for (const auto& [protocol, body] : kBadRequests) {
        const Json::Value reply = m_Sim->Handle(protocol, body);
        EXPECT_EQ(reply["result"], false) << body;
        EXPECT_TRUE(reply["errormessage"].isString() && !reply["errormessage"].asString().empty()) << body;
        EXPECT_EQ(StoredState(), before) << body;
    }
}

TEST_F(ASimulatedService, AnswersMutatedRequestsWithAResultAndNeverThrows) {
    std::mt19937 random(20240607);
    const std::string alphabet = "{}[]\":,0-1.etrufalsn \\\xc3\xa9\xff";
    for (int round = 0; round < 4000; ++round) {
        const RequestCase& original = kEveryRequest[random() % std::size(kEveryRequest)];
        std::string body = original.body;
        for (int edits = 1 + static_cast<int>(random() % 3); edits > 0 && !body.empty(); --edits) {
            const size_t at = random() % body.size();
            const char c = alphabet[random() % alphabet.size()];
            switch (random() % 3) {
                case 0:
                    body[at] = c;
                    break;
                case 1:
                    body.insert(at, 1, c);
                    break;
                default:
                    body.erase(at, 1);
            }
        }
        Json::Value reply;
        ASSERT_NO_THROW(reply = m_Sim->Handle(original.protocol, body)) << body;
        ASSERT_TRUE(reply["result"].isBool()) << body;
        ASSERT_TRUE(reply["result"].asBool() || reply["errormessage"].isString()) << body;
    }
}

}  // namespace

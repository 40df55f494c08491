// The simulated service without a bus: catalogue checking, and the handling
// of every request and of bad ones, with its state in a real (temporary) store.
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "SimTestCatalogue.h"
#include "TempStore.h"
#include "TermsServiceSim.h"

using namespace termssim;

namespace {

TEST(ACatalogue, NamesThePlaceOfEachMistake) {
    struct Mistake {
        std::string from, to, place;  // the test catalogue with `from` replaced by `to` names `place`
    };
    const Mistake kMistakes[] = {
        {R"(["T1", "T2"],)", R"(["T1", "T2"])", "not valid JSON"},
        {R"("default_country": "AA")", R"("default_country": "ZZ")", "default_country"},
        {R"("title": "Child")", R"("titel": "Child")", "disclaimers.child.titel: unknown member"},
        {R"("agree_dependency": "base")", R"("agree_dependency": "nope")", "disclaimers.child.agree_dependency"},
        {R"("agree_dependency": "base")", R"("agree_dependency": "note")", "is a notice"},
        {R"("revised": ["child"])", R"("revised": ["bb_only"])", "countries.AA.revised"},
        {R"("0": ["base", "child"])", R"("0": ["base", 5])", "countries.AA.requesters.0[1]"},
        {R"("9", "10"])", R"("9", "10", "11"])", "disclaimers.extra.buttons: at most 10"},
        {R"("bb_only": {)", R"("data": {)", "\"data\" cannot be an id"},
        {R"("only_notice": true)", R"("only_notice": "yes")", "disclaimers.note.only_notice"},
        {R"("by_country": {"BB")", R"("by_country": {"CC")", "disclaimers.base.by_country.CC"},
        {R"({"title": "S1", "data": "D1"})", R"({"title": "S1", "text": "D1"})", "details[0].text"},
    };
    for (const Mistake& mistake : kMistakes) {
        std::string text = simtest::kTestCatalogue;
        const size_t at = text.find(mistake.from);
        ASSERT_NE(at, std::string::npos) << mistake.from;
        try {
            Catalogue::FromText(text.replace(at, mistake.from.size(), mistake.to));
            ADD_FAILURE() << "accepted a catalogue that should name " << mistake.place;
        } catch (const CatalogueError& error) {
            EXPECT_NE(std::string(error.what()).find(mistake.place), std::string::npos) << error.what();
        }
    }
}

TEST(TheSampleCatalogue, HasSeveralCountriesANoticeADependencyARevisionAndNonAsciiTexts) {
    const Catalogue catalogue = Catalogue::Load(SAMPLE_CATALOGUE);
    EXPECT_GE(catalogue.CountryCodes().size(), 3u);
    bool notice = false, dependency = false, revised = false, nonAscii = false, sixItems = false;
    for (const std::string& code : catalogue.CountryCodes()) {
        const Country& country = *catalogue.FindCountry(code);
        sixItems = sixItems || country.disclaimers.size() >= 6;
        revised = revised || !country.revised.empty();
        for (const Disclaimer& item : country.disclaimers) {
            notice = notice || item.onlyNotice;
            dependency = dependency || !item.agreeDependency.empty();
            nonAscii = nonAscii || std::any_of(item.title.begin(), item.title.end(), [](char c) { return c & 0x80; });
        }
    }
    EXPECT_TRUE(notice && dependency && revised && nonAscii && sixItems);
}

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
    bool SetOne(const std::string& id, bool agreed) {
        return Call(R"({"method":"set one agreement","product_type":"TV","request_item":")" + id + R"(","is_agreed":)" +
                    (agreed ? "true}" : "false}"))["result"]
            .asBool();
    }
    bool SetAll(bool agreed) {
        return Call(std::string(R"({"method":"set all agreement","product_type":"TV","is_agreed":)") +
                    (agreed ? "true}" : "false}"))["result"]
            .asBool();
    }
    std::string Stored(const char* key) const { return m_Store.Get(key).value_or("-"); }

    testbed::TempStore m_Store;
    Catalogue m_Catalogue = Catalogue::FromText(simtest::kTestCatalogue);
    std::unique_ptr<SimState> m_State;
    std::unique_ptr<TermsServiceSim> m_Sim;
};

// One valid request of every kind the library sends, and the members its
// reply must hold, with these values ("": just "result" true).
const std::pair<const char*, const char*> kEveryRequest[] = {
    {R"({"method":"is service available"})", ""},
    {R"({"method":"get information for disclaimer"})", R"({"result":true,"headerData":{"h":"aa"}})"},
    {R"({"method":"get information for web view disclaimer"})", R"({"result":true,"headerData":{"w":"aa"}})"},
    {R"({"method":"dravik check"})", R"({"result":true,"errorcode":0,"errorreason":0})"},
    {R"({"method":"dravik get error info"})", R"({"result":true,"errorcode":0,"errorreason":0,"errormessage":""})"},
    {R"({"method":"request disclaimer api","product_type":"TV","terms":"all","request_from":"x"})", ""},
    {R"({"method":"request disclaimerid","product_type":"TV","request_from":"wizard-terms","other_page":false})", ""},
    {R"({"method":"set agreements","data":null,"product_type":"TV","extra":true})", ""},
    {R"({"method":"set country code","country_code":"AA"})", ""},
    {R"({"method":"request update disclaimers","product_type":"TV","request_from":"wizard-terms"})", ""},
    {R"({"method":"request country code list"})", R"({"result":true,"country_codes":["AA","BB"]})"},
    {R"({"method":"Copy Clone Data TV to USB","src":"a","dest":"b"})", R"({"result":false})"},
    {R"({"method":"Copy Clone Data USB to TV","src":"a","dest":"b"})", R"({"result":false})"},
    {R"({"method":"request reset nimbra"})", ""},
    {R"({"method":"get disclaimer number","product_type":"TV","requester":1})", R"({"result":true,"number":2})"},
    {R"({"method":"get disclaimer number","product_type":"TV","requester":2})", R"({"number":4})"},
    {R"({"method":"get disclaimer number","product_type":"TV","requester":-1})", R"({"number":4})"},
    {R"({"method":"set all agreement","product_type":"TV","is_agreed":true})", ""},
    {R"({"method":"set one agreement","product_type":"TV","request_item":"extra","is_agreed":true})", ""},
    {R"({"method":"get revised disclaimers","product_type":"TV","terms":""})", ""},
    {R"({"method":"get disclaimer by order","product_type":"TV","requester":1,"request_index":0})",
     R"({"result":true,"id":"extra","order":3})"},
    {R"({"method":"get disclaimer by order","product_type":"TV","requester":0,"request_index":2})",
     R"({"result":false})"},
    {R"({"method":"get disclaimer by term id","product_type":"TV","request_item":"child"})",
     R"({"result":true,"id":"child","order":1})"},
    {R"({"request_type":"get disclaimer agreement","product_type":"TV","request_item":"base"})",
     R"({"result":true,"is_agreed":true})"},
};

TEST_F(ASimulatedService, AnswersEveryRequestWithTheMembersTheLibraryReads) {
    std::set<std::string> covered;
    for (const auto& [request, members] : kEveryRequest) {
        const Json::Value body = Parsed(request);
        const bool common = body.isMember("request_type");
        covered.insert(body[common ? "request_type" : "method"].asString());
        const Json::Value reply = Call(request, common ? kCommonProtocol : "");
        const Json::Value expected = Parsed(*members ? members : R"({"result":true})");
        for (const std::string& member : expected.getMemberNames()) {
            EXPECT_EQ(reply[member], expected[member]) << request << " -> " << WriteCompactJson(reply);
        }
    }
    EXPECT_EQ(covered,
              std::set<std::string>(TermsServiceSim::KnownRequests().begin(), TermsServiceSim::KnownRequests().end()));
}

TEST_F(ASimulatedService, StartsWithTheDefaultCountryWhenTheStoreHoldsNoneOrAnUnknownOne) {
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(Stored(kCountryKey), "AA");
        EXPECT_EQ(Stored(kTitlesKey), R"([{"title":"A1"},{"title":"A2"}])");
        EXPECT_EQ(Stored(kAgreementsKey), R"({"base":"false","child":"false","extra":"false","note":"false"})");
        m_Store.Set(kCountryKey, "ZZ");
        m_Store.Set(kAgreementsKey, "not json");
        Restart();
    }
}

TEST_F(ASimulatedService, AgreesToADependentItemOnlyWithItsDependencyAndWithdrawsItWithIt) {
    EXPECT_FALSE(SetOne("child", true));
    EXPECT_EQ(Call(R"({"method":"set agreements","product_type":"TV","child":true,"base":"true"})")["result"], true);
    EXPECT_EQ(Stored(kAgreementsKey), R"({"base":"true","child":"true","extra":"false","note":"false"})");
    EXPECT_TRUE(SetOne("base", false));
    EXPECT_EQ(Stored(kAgreementsKey), R"({"base":"false","child":"false","extra":"false","note":"false"})");
}

TEST_F(ASimulatedService, LeavesNoticesOutOfAgreements) {
    EXPECT_FALSE(SetOne("note", true));
    EXPECT_TRUE(SetAll(true));
    EXPECT_EQ(Stored(kAgreementsKey), R"({"base":"true","child":"true","extra":"true","note":"false"})");
    EXPECT_TRUE(SetAll(false));
    EXPECT_EQ(Stored(kAgreementsKey), R"({"base":"false","child":"false","extra":"false","note":"false"})");
}

TEST_F(ASimulatedService, RefusesBadRequestsWithAReasonAndChangesNothing) {
    // More, sent over the bus, in the bus test.
    const std::pair<const char*, std::string> kBadRequests[] = {
        {"", ""},
        {"", "[1,2]"},
        {"", R"({"method":"set country code","country_code":"BB"} trailing)"},
        {"", R"({"method":"set country code","country_code":"BB","country_code":"AA"})"},
        {"", "{\"method\":\"set country code\",\"country_code\":\"\xff\xfe\"}"},
        {"", std::string("{\"method\":\"set country code\",\"country_code\":\"B") + '\0' + "B\"}"},
        {"", R"({"method":7})"},
        {"", R"({"method":"get disclaimer agreement","product_type":"TV","request_item":"base"})"},
        {"\xff", R"({"method":"is service available"})"},
        {"", R"({"method":"set country code"})"},
        {"", R"({"method":"set country code","country_code":"ZZ"})"},
        {"", R"({"method":"set country code","country_code":["BB"]})"},
        {"", R"({"method":"set one agreement","product_type":"TV","request_item":"nope","is_agreed":true})"},
        {"", R"({"method":"set one agreement","request_item":"base","is_agreed":true})"},
        {"", R"({"method":"set agreements","product_type":"TV","base":true,"nope":true})"},
        {"", R"({"method":"set all agreement","product_type":"TV","is_agreed":1})"},
        {"", R"({"method":"get disclaimer by order","product_type":"TV","requester":"0","request_index":0})"},
        {"", R"({"method":"get disclaimer by order","product_type":"TV","requester":0,"request_index":1.5})"},
        {"", R"({"method":"request disclaimerid","product_type":"TV","request_from":"x","other_page":"no"})"},
        {"", R"({"method":"Copy Clone Data TV to USB","src":"a"})"},
    };
    const std::string before = Stored(kAgreementsKey) + Stored(kTitlesKey) + Stored(kCountryKey);
    for (const auto& [protocol, body] : kBadRequests) {
        const Json::Value reply = Call(body, protocol);
        EXPECT_EQ(reply["result"], false) << body;
        EXPECT_TRUE(reply["errormessage"].isString() && !reply["errormessage"].asString().empty()) << body;
        EXPECT_EQ(Stored(kAgreementsKey) + Stored(kTitlesKey) + Stored(kCountryKey), before) << body;
    }
}

}  // namespace

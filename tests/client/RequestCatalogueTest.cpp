// Every request of the client as the terms-client service receives it.
#include <functional>

#include "ClientTestBed.h"

namespace clienttest {
namespace {

enum class Placement { BeforeAvailability, AfterAvailability };

struct ExpectedLine {
    std::string message;
    int prio;
    const char* colour;
    Placement placement;
};

struct CatalogueCase {
    const char* label;
    std::function<void(CVerantiAPI&)> send;
    const char* body;  // exactly what the service must receive
    std::vector<ExpectedLine> lines;
    const char* protocol = "";
};

void PrintTo(const CatalogueCase& c, std::ostream* out) { *out << c.label; }

const ExpectedLine kEntryLine{"", kInfo, kGreen, Placement::BeforeAvailability};

const CatalogueCase kCatalogue[] = {
    {"GetInformationForDisclaimer", [](CVerantiAPI& api) { Json::Value header; api.GetInformationForDisclaimer(header); },
     R"({"method":"get information for disclaimer","data":null})", {kEntryLine}},
    {"GetInformationForDisclaimerWebView",
     [](CVerantiAPI& api) { Json::Value header; api.GetInformationForDisclaimerWebView(header); },
     R"({"method":"get information for web view disclaimer","data":null})", {kEntryLine}},
    {"DravikCheck", [](CVerantiAPI& api) { int code = 0, reason = 0; api.DravikCheck(code, reason); },
     R"({"method":"dravik check"})", {kEntryLine}},
    {"DravikCheckWithMessage",
     [](CVerantiAPI& api) { int code = 0, reason = 0; std::string text; api.DravikCheck(code, reason, text); },
     R"({"method":"dravik get error info"})", {kEntryLine}},
    {"RequestDisclaimersRESTAPI", [](CVerantiAPI& api) { api.RequestDisclaimersRESTAPI("home", "privacy"); },
     R"({"method":"request disclaimer api","data":null,"product_type":"TV","terms":"privacy","request_from":"home"})",
     {{"", kDebug, kWhite, Placement::AfterAvailability}}},
    {"RequestDisclaimerIDForAnotherPage", [](CVerantiAPI& api) { api.RequestDisclaimerID("LFD", true); },
     R"({"method":"request disclaimerid","product_type":"LFD","request_from":"wizard-terms","other_page":true,"data":null})",
     {kEntryLine}},
    {"RequestDisclaimerIDForTheWizard", [](CVerantiAPI& api) { api.RequestDisclaimerID("TV", false); },
     R"({"method":"request disclaimerid","product_type":"TV","request_from":"wizard-terms","other_page":false,"data":null})",
     {kEntryLine}},
    {"SetDisclaimersAgreement",
     [](CVerantiAPI& api) {
         Json::Value agreements = JsonOf(R"({"t1":"true","t2":{"nested":[1,2]},"data":7})");
         api.SetDisclaimersAgreement(agreements, false, "AV");
     },
     R"({"t1":"true","t2":{"nested":[1,2]},"product_type":"AV","method":"set agreements","data":null})", {kEntryLine}},
    {"SetCountryCode", [](CVerantiAPI& api) { api.SetCountryCode("DE"); },
     R"({"method":"set country code","country_code":"DE","data":null})", {kEntryLine}},
    {"SetCountryCodeToEmptyText", [](CVerantiAPI& api) { api.SetCountryCode(""); },
     R"({"method":"set country code","country_code":"","data":null})", {kEntryLine}},
    {"RequestUpdateDisclaimers", [](CVerantiAPI& api) { api.RequestUpdateDisclaimers("HUB"); },
     R"({"method":"request update disclaimers","product_type":"HUB","request_from":"wizard-terms","data":null})",
     {kEntryLine}},
    {"RequestCountryCodeList", [](CVerantiAPI& api) { api.RequestCountryCodeList(); },
     R"({"method":"request country code list","data":null})", {kEntryLine}},
    {"CopyCloneDataUSBtoTV", [](CVerantiAPI& api) { api.CopyCloneDataUSBtoTV("/usb/clone.dat", "/opt/clone"); },
     R"({"method":"Copy Clone Data USB to TV","src":"/usb/clone.dat","dest":"/opt/clone","data":null})",
     {{"CopyCloneDataUSBtoTV called", kInfo, kGreen, Placement::BeforeAvailability}}},
    {"CopyCloneDataTVtoUSB", [](CVerantiAPI& api) { api.CopyCloneDataTVtoUSB("/opt/clone", "/usb/clone.dat"); },
     R"({"method":"Copy Clone Data TV to USB","src":"/opt/clone","dest":"/usb/clone.dat","data":null})",
     {{"CopyCloneDataTVtoUSB called", kInfo, kGreen, Placement::BeforeAvailability}}},
    {"CloneDataToUsb", [](CVerantiAPI& api) { api.CloneData("a", "b", true); },
     R"({"method":"Copy Clone Data TV to USB","src":"a","dest":"b","data":null})", {}},
    {"RequestResetNimbra", [](CVerantiAPI& api) { api.RequestResetNimbra(); },
     R"({"method":"request reset nimbra","data":null})",
     {kEntryLine, {"RequestResetNimbra called", kInfo, kGreen, Placement::AfterAvailability}}},
    {"GetDisclaimerNum", [](CVerantiAPI& api) { api.GetDisclaimerNum(E_DISCLAIMER_REQUESTER_3, "AV"); },
     R"({"method":"get disclaimer number","data":null,"product_type":"AV","requester":3})",
     {{"GetDisclaimerNum called with requester: 3", kInfo, kGreen, Placement::BeforeAvailability},
      {"GetDisclaimerNum 0", kInfo, kGreen, Placement::AfterAvailability}}},
    {"SetAllDisclaimerItemAgreementToAnyNonZero", [](CVerantiAPI& api) { api.SetAllDisclaimerItemAgreement(5, "TV"); },
     R"({"method":"set all agreement","product_type":"TV","is_agreed":true})",
     {{"Model TV try to set all agreement to true.", kInfo, kGreen, Placement::BeforeAvailability}}},
    {"SetAllDisclaimerItemAgreementToZero", [](CVerantiAPI& api) { api.SetAllDisclaimerItemAgreement(0, "AV"); },
     R"({"method":"set all agreement","product_type":"AV","is_agreed":false})",
     {{"Model AV try to set all agreement to false.", kInfo, kGreen, Placement::BeforeAvailability}}},
    {"SetRevisedTermAgreement", [](CVerantiAPI& api) { api.SetRevisedTermAgreement("t4", true, "AV"); },
     R"({"method":"set one agreement","product_type":"AV","request_item":"t4","is_agreed":true})",
     {{"SetRevisedTermAgreement called", kInfo, kGreen, Placement::BeforeAvailability}}},
    {"SetDisclaimerItemAgreementToNegative", [](CVerantiAPI& api) { api.SetDisclaimerItemAgreement("t2", -3, "TV"); },
     R"({"method":"set one agreement","request_item":"t2","product_type":"TV","is_agreed":true})",
     {{"Model TV try to set t2 agreement to true.", kInfo, kGreen, Placement::AfterAvailability}}},
    {"SetDisclaimerItemAgreementToZero", [](CVerantiAPI& api) { api.SetDisclaimerItemAgreement("t2", 0, "TV"); },
     R"({"method":"set one agreement","request_item":"t2","product_type":"TV","is_agreed":false})",
     {{"Model TV try to set t2 agreement to false.", kInfo, kGreen, Placement::AfterAvailability}}},
    {"GetRevisedDisclaimers",
     [](CVerantiAPI& api) { OwnedItems list; api.GetRevisedDisclaimers(list.items, "AV", "all"); },
     R"({"method":"get revised disclaimers","product_type":"AV","terms":"all","data":null})",
     {{"GetRevisedDisclaimers called", kInfo, kGreen, Placement::BeforeAvailability}}},
    {"GetDisclaimerDetailByPosition",
     [](CVerantiAPI& api) { Item item; api.GetDisclaimerDetail(item, 3, E_DISCLAIMER_REQUESTER_1, "AV"); },
     R"({"method":"get disclaimer by order","data":null,"product_type":"AV","requester":1,"request_index":3})",
     {{"GetDisclaimerDetail called for index: 3 and requester: 1", kInfo, kGreen, Placement::BeforeAvailability}}},
    {"GetDisclaimerDetailById", [](CVerantiAPI& api) { Item item; api.GetDisclaimerDetail("t9", item, "AV"); },
     R"({"method":"get disclaimer by term id","product_type":"AV","data":null,"request_item":"t9"})",
     {{"GetDisclaimerDetail called for itemId: t9 AV", kInfo, kGreen, Placement::BeforeAvailability}}},
    {"IsDisclaimerItemExistForAnotherProduct", [](CVerantiAPI& api) { api.IsDisclaimerItemExist("t1", "tv"); },
     R"({"method":"get disclaimer by term id","data":null,"product_type":"tv","request_item":"t1"})",
     {{"IsDisclaimerItemExist called for strItemId: t1", kInfo, kGreen, Placement::AfterAvailability}}},
    {"GetDisclaimerItemAgreementForAnotherProduct",
     [](CVerantiAPI& api) { int agreed = 0; api.GetDisclaimerItemAgreement("t1", &agreed, "AV"); },
     R"({"request_type":"get disclaimer agreement","product_type":"AV","request_item":"t1"})",
     {{"get value : 0", kInfo, kGreen, Placement::AfterAvailability}}, "common_protocol"},
};

class ACatalogueRequest : public ClientTestBed, public ::testing::WithParamInterface<CatalogueCase> {};

TEST_P(ACatalogueRequest, ReachesTheServiceWithExactlyItsBodyAfterTheAvailabilityCheck) {
    GetParam().send(*api);

    const std::vector<testbed::ReceivedRequest> requests = service.Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].body, JsonOf(R"({"method":"is service available"})"));
    const testbed::ReceivedRequest& request = requests[1];
    EXPECT_EQ(request.body, JsonOf(GetParam().body)) << request.bodyText;
    EXPECT_EQ(request.bodyText.find('\n'), std::string::npos);
    EXPECT_EQ(request.busMethod, "SendMessage");
    EXPECT_EQ(request.from, "CAutoConnect");
    EXPECT_EQ(request.code, 0u);
    EXPECT_EQ(request.protocol, GetParam().protocol);
}

TEST_P(ACatalogueRequest, WritesItsLogLinesAroundTheAvailabilityCheck) {
    GetParam().send(*api);

    const int availability = PositionOf(logs, "IsServiceAvailable");
    ASSERT_GE(availability, 0);
    for (const ExpectedLine& expected : GetParam().lines) {
        EXPECT_TRUE(Logged(logs, expected.message, expected.prio, expected.colour));
        const int position = PositionOf(logs, expected.message);
        if (expected.placement == Placement::BeforeAvailability) {
            EXPECT_LT(position, availability) << '"' << expected.message << '"';
        } else {
            EXPECT_GT(position, availability) << '"' << expected.message << '"';
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, ACatalogueRequest, ::testing::ValuesIn(kCatalogue),
                         [](const auto& info) { return std::string(info.param.label); });

class TheAvailabilityRequest : public ClientTestBed {};

TEST_F(TheAvailabilityRequest, SendsOnlyTheMethodAndLogsTheAnswer) {
    EXPECT_TRUE(api->IsServiceAvailable());

    EXPECT_EQ(OnlyRequest("is service available").body, JsonOf(R"({"method":"is service available"})"));
    EXPECT_TRUE(Logged(logs, "IsServiceAvailable", kInfo, kGreen));
    EXPECT_TRUE(Logged(logs, "IsServiceAvailable result : true", kInfo, kGreen));
}

}  // namespace
}  // namespace clienttest

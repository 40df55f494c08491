// The client core: each request as the service receives it, replies, the instance, the error descriptor.
#include <tuple>

#include "ClientTestBed.h"

namespace clienttest {
namespace {

using testbed::FakeReply;
using Api = CVerantiAPI&;

// Where a request writes what it gives besides its answer.
struct Out {
    Json::Value json;
    int code = 0, reason = 0;
    std::string message;
    Item item;
    OwnedItems list;
};

struct Request {
    const char* label;
    bool answersResult;  // true exactly when a reply with "result" true came
    bool (*send)(Api, Out&);
    const char* body;  // exactly what the service must receive
    const char* protocol = "";
    friend void PrintTo(const Request& r, std::ostream* out) { *out << r.label; }
};

const Request kCatalogue[] = {
    {"GetInformationForDisclaimer", false, [](Api a, Out& o) { return a.GetInformationForDisclaimer(o.json), false; },
     R"({"method":"get information for disclaimer","data":null})"},
    {"GetInformationForDisclaimerWebView", false,
     [](Api a, Out& o) { return a.GetInformationForDisclaimerWebView(o.json), false; },
     R"({"method":"get information for web view disclaimer","data":null})"},
    {"DravikCheck", true, [](Api a, Out& o) { return a.DravikCheck(o.code, o.reason); },
     R"({"method":"dravik check"})"},
    {"DravikCheckWithMessage", true, [](Api a, Out& o) { return a.DravikCheck(o.code, o.reason, o.message); },
     R"({"method":"dravik get error info"})"},
    {"RequestDisclaimersRESTAPI", true, [](Api a, Out&) { return a.RequestDisclaimersRESTAPI("home", "privacy"); },
     R"({"method":"request disclaimer api","data":null,"product_type":"TV","terms":"privacy","request_from":"home"})"},
    {"RequestDisclaimerIDForAnotherPage", true, [](Api a, Out&) { return a.RequestDisclaimerID("LFD", true); },
     R"({"method":"request disclaimerid","product_type":"LFD","request_from":"wizard-terms","other_page":true,"data":null})"},
    {"RequestDisclaimerIDForTheWizard", true, [](Api a, Out&) { return a.RequestDisclaimerID("TV", false); },
     R"({"method":"request disclaimerid","product_type":"TV","request_from":"wizard-terms","other_page":false,"data":null})"},
    {"SetDisclaimersAgreement", true,  // taking the caller's object away
     [](Api a, Out& o) {
         o.json = JsonOf(R"({"t1":"true","t2":[1],"data":7})");
         return a.SetDisclaimersAgreement(o.json, false, "AV") && o.json.empty();
     },
     R"({"t1":"true","t2":[1],"product_type":"AV","method":"set agreements","data":null})"},
    {"SetCountryCode", true, [](Api a, Out&) { return a.SetCountryCode("DE"); },
     R"({"method":"set country code","country_code":"DE","data":null})"},
    {"RequestUpdateDisclaimers", true, [](Api a, Out&) { return a.RequestUpdateDisclaimers("HUB"); },
     R"({"method":"request update disclaimers","product_type":"HUB","request_from":"wizard-terms","data":null})"},
    {"RequestCountryCodeList", true, [](Api a, Out&) { return a.RequestCountryCodeList(); },
     R"({"method":"request country code list","data":null})"},
    {"CopyCloneDataUSBtoTV", true, [](Api a, Out&) { return a.CopyCloneDataUSBtoTV("/usb/clone.dat", "/opt/clone"); },
     R"({"method":"Copy Clone Data USB to TV","src":"/usb/clone.dat","dest":"/opt/clone","data":null})"},
    {"CopyCloneDataTVtoUSB", true, [](Api a, Out&) { return a.CopyCloneDataTVtoUSB("/opt/clone", "/usb/clone.dat"); },
     R"({"method":"Copy Clone Data TV to USB","src":"/opt/clone","dest":"/usb/clone.dat","data":null})"},
    {"RequestResetNimbra", true, [](Api a, Out&) { return a.RequestResetNimbra(); },
     R"({"method":"request reset nimbra","data":null})"},
    {"GetDisclaimerNum", false, [](Api a, Out&) { return a.GetDisclaimerNum(E_DISCLAIMER_REQUESTER_3, "AV") > 0; },
     R"({"method":"get disclaimer number","data":null,"product_type":"AV","requester":3})"},
    {"SetAllDisclaimerItemAgreementTo5", true, [](Api a, Out&) { return a.SetAllDisclaimerItemAgreement(5, "TV"); },
     R"({"method":"set all agreement","product_type":"TV","is_agreed":true})"},
    {"SetAllDisclaimerItemAgreementToZero", true, [](Api a, Out&) { return a.SetAllDisclaimerItemAgreement(0, "AV"); },
     R"({"method":"set all agreement","product_type":"AV","is_agreed":false})"},
    {"SetRevisedTermAgreement", true, [](Api a, Out&) { return a.SetRevisedTermAgreement("t4", true, "AV"); },
     R"({"method":"set one agreement","product_type":"AV","request_item":"t4","is_agreed":true})"},
    {"SetDisclaimerItemAgreementBelow0", true, [](Api a, Out&) { return a.SetDisclaimerItemAgreement("t2", -3, "TV"); },
     R"({"method":"set one agreement","request_item":"t2","product_type":"TV","is_agreed":true})"},
    {"SetDisclaimerItemAgreementToZero", true, [](Api a, Out&) { return a.SetDisclaimerItemAgreement("t2", 0, "TV"); },
     R"({"method":"set one agreement","request_item":"t2","product_type":"TV","is_agreed":false})"},
    {"GetRevisedDisclaimers", true, [](Api a, Out& o) { return a.GetRevisedDisclaimers(o.list.items, "AV", "all"); },
     R"({"method":"get revised disclaimers","product_type":"AV","terms":"all","data":null})"},
    {"GetDisclaimerDetailByPosition", true,
     [](Api a, Out& o) { return a.GetDisclaimerDetail(o.item, 3, E_DISCLAIMER_REQUESTER_1, "AV") == 0; },
     R"({"method":"get disclaimer by order","data":null,"product_type":"AV","requester":1,"request_index":3})"},
    {"GetDisclaimerDetailById", true, [](Api a, Out& o) { return a.GetDisclaimerDetail("t9", o.item, "AV") == 0; },
     R"({"method":"get disclaimer by term id","product_type":"AV","data":null,"request_item":"t9"})"},
    // Only "TV" exactly is answered from the agreement cache.
    {"IsDisclaimerItemExistForAnotherProduct", true, [](Api a, Out&) { return a.IsDisclaimerItemExist("t1", "tv"); },
     R"({"method":"get disclaimer by term id","data":null,"product_type":"tv","request_item":"t1"})"},
    {"GetDisclaimerItemAgreementForAnotherProduct", false,
     [](Api a, Out& o) { return a.GetDisclaimerItemAgreement("t1", &o.code, "tv") == 0; },
     R"({"request_type":"get disclaimer agreement","product_type":"tv","request_item":"t1"})", "common_protocol"},
};

class ACatalogueRequest : public ClientTestBed, public ::testing::WithParamInterface<Request> {
protected:
    bool Send() { return GetParam().send(*api, out); }
    Out out;
};

TEST_P(ACatalogueRequest, ReachesTheServiceWithExactlyItsBodyAndSucceedsOnlyOnResultTrue) {
    service.SetReply("is service available", FakeReply::Result(false));  // asked first, never decisive
    const bool answer = Send();
    const std::vector<testbed::ReceivedRequest> requests = service.Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].body, JsonOf(R"({"method":"is service available"})"));
    EXPECT_TRUE(Logged(logs, "IsServiceAvailable result : false", kInfo, kGreen));
    const testbed::ReceivedRequest& request = requests[1];
    EXPECT_EQ(request.body, JsonOf(GetParam().body)) << request.bodyText;
    EXPECT_EQ(std::tie(request.busMethod, request.from, request.code, request.protocol),
              std::make_tuple("SendMessage", "CAutoConnect", 0u, GetParam().protocol));
    if (!GetParam().answersResult) return;
    EXPECT_TRUE(answer) << "the service's default reply has result true";
    const std::pair<const char*, FakeReply> failures[] = {
        {"result false", FakeReply::Result(false)},
        {"no result", FakeReply::WithBody(Json::Value(Json::objectValue))},
        {"a reply that is not JSON", FakeReply::NotJson("{\"result\":true")},
        {"a D-Bus error", FakeReply::Error()},
    };
    for (const auto& [situation, reply] : failures) {
        service.SetReply(request.Name(), reply);
        EXPECT_FALSE(Send()) << situation;
    }
    service.Stop();
    EXPECT_FALSE(Send()) << "nobody on the bus";
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, ACatalogueRequest, ::testing::ValuesIn(kCatalogue),
                         [](const auto& info) { return std::string(info.param.label); });

// What a request gives back, as text: its answer and outputs, or "throws" for the JSON library's exception.
const auto Dravik = [](Api a) {
    int code = -1, reason = -1;
    std::string message = "untouched";
    const bool result = a.DravikCheck(code, reason, message);
    return std::to_string(result) + " " + std::to_string(code) + " " + std::to_string(reason) + " " + message;
};
const auto Count = [](Api a) { return std::to_string(a.GetDisclaimerNum(E_DISCLAIMER_REQUESTER_0, "TV")); };
const auto Available = [](Api a) { return std::to_string(a.IsServiceAvailable()); };

const struct {
    const char *name, *reply;  // reply nullptr: a D-Bus error
    std::string (*read)(Api);
    std::string gives;
} kReplies[] = {
    {"dravik get error info", nullptr, Dravik, "0 -1 -1 untouched"},
    {"dravik get error info", R"({"result":false,"errorcode":4,"errorreason":8,"errormessage":"x"})", Dravik,
     "0 4 8 x"},
    {"dravik get error info", R"({"result":true})", Dravik, "1 0 0 "},
    {"get disclaimer number", R"({"result":true,"number":4})", Count, "4"},
    {"get disclaimer number", R"({"result":false,"number":4})", Count, "0"},
    {"is service available", R"({"result":false})", Available, "0"},
    {"is service available", R"({"result":"yes"})", Available, "throws"},
    {"get disclaimer number", R"({"result":true,"number":"many"})", Count, "throws"},
};

class AReply : public ClientTestBed {};

TEST_F(AReply, GivesWhatItsMembersSayOrRaisesTheJsonErrorOfAWrongKindAfterClosingTheConnection) {
    for (const auto& c : kReplies) {
        service.SetReply(c.name, c.reply ? FakeReply::WithBody(JsonOf(c.reply)) : FakeReply::Error());
        std::string gives = "throws";
        try {
            gives = c.read(*api);
        } catch (const Json::Exception&) {
        }
        EXPECT_EQ(gives, c.gives) << c.name << " " << (c.reply ? c.reply : "error");
        service.SetReply(c.name, FakeReply::Result(true));
        EXPECT_TRUE(api->IsServiceAvailable()) << "the client still serves";
    }
}

// Starts every test without an instance; the test makes its own.
class TheClientInstance : public ::testing::Test {
protected:
    void TearDown() override { CVerantiAPI::Destroy(); }
    testbed::LogCapture logs;
};

TEST_F(TheClientInstance, IsMadeAndInitialisedOnceUntilDestroyedButLogsEveryGet) {
    CVerantiAPI* first = CVerantiAPI::GetInstance();
    EXPECT_EQ(CVerantiAPI::GetInstance(), first);
    EXPECT_EQ(logs.Count("CVerantiAPI GetInstance"), 2u);
    CVerantiAPI::Destroy();
    EXPECT_EQ(CVerantiAPI::m_pInstance, nullptr);
    EXPECT_NE(CVerantiAPI::GetInstance(), nullptr);
    EXPECT_EQ(logs.Count("CVerantiAPI m_InitProxy"), 2u);
    for (const char* line : {"CVerantiAPI GetInstance", "CVerantiAPI m_InitProxy", "CVerantiAPI Destroy"})
        EXPECT_TRUE(Logged(logs, line, kDebug, kWhite));

    // One made by the test getter is shared and never initialised; Destroy forgets it even without its pointer.
    CVerantiAPI::Destroy();
    logs.Clear();
    CVerantiAPI* made = CVerantiAPI::GetInstanceUT();
    EXPECT_TRUE(logs.Lines().empty());
    EXPECT_EQ(CVerantiAPI::GetInstance(), made);
    CVerantiAPI::m_pInstance = nullptr;
    EXPECT_EQ(CVerantiAPI::GetInstance(), nullptr);
    delete made;
    CVerantiAPI::Destroy();
    EXPECT_NE(CVerantiAPI::GetInstance(), nullptr);
    EXPECT_EQ(logs.Count("CVerantiAPI m_InitProxy"), 1u);
}

using Descriptor = CVerantiAPI::CErrorDescriptor;
class AnErrorDescriptor : public ClientTestBed {};

TEST_F(AnErrorDescriptor, RoundTripsThroughCompactJsonReadsWhatIsMissingAsZeroAndLetsWrongKindsRaise) {
    EXPECT_EQ(Descriptor(3, 12).ToString(), R"({"error_code":3,"error_reason":12})");
    // Text, code, reason, whether it is not JSON.
    const std::tuple<std::string, int, int, bool> cases[] = {{Descriptor(-1, 2).ToString(), -1, 2, false},
                                                             {Descriptor().ToString(), 0, 0, false},
                                                             {R"({"error_reason":9,"other":"x"})", 0, 9, false},
                                                             {"null", 0, 0, false},
                                                             {"", 0, 0, true},
                                                             {"error 5", 0, 0, true},
                                                             {"{\"error_code\":", 0, 0, true}};
    for (const auto& [text, code, reason, notJson] : cases) {
        logs.Clear();
        const Descriptor d = Descriptor::FromString(text);
        EXPECT_EQ(std::make_pair(d.m_ErrorCode, d.m_ErrorReason), std::make_pair(code, reason)) << text;
        EXPECT_EQ(logs.Lines().size(), notJson ? 1u : 0u) << text;
        EXPECT_EQ(bool(Logged(logs, "<<WARN: NOT JSON TYPE MESSAGE>>", kWarn, kRed)), notJson) << text;
    }
    for (const char* text : {R"({"error_code":"x"})", R"({"error_reason":[1]})", "[1]", "7"})
        EXPECT_THROW(Descriptor::FromString(text), Json::Exception) << text;
}

}  // namespace
}  // namespace clienttest

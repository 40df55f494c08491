// Fuzzes the reply bodies of every other request of the client: the plain
// requests, the count, the header data, the service's own checks, the error
// descriptor text, and the existence and agreement queries for a product
// other than the set (which ask the service). The input is the reply's JSON
// text; the JSON library's exceptions may leave the methods, nothing else.
#include <json/json.h>

#include "FuzzSupport.h"
#include "LoopbackFramework.h"
#include "VerantiAPI.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::UseTemporaryStore();
    const std::string text = fuzzsupport::TextUpToNul(data, size);
    loopback::ClearReplies();
    loopback::SetDefaultReply(text);
    CVerantiAPI* api = CVerantiAPI::GetInstanceUT();

    fuzzsupport::AllowingJsonErrors([&] { api->IsServiceAvailable(); });
    fuzzsupport::AllowingJsonErrors([&] { api->GetDisclaimerNum(E_DISCLAIMER_REQUESTER_1, "TV"); });
    fuzzsupport::AllowingJsonErrors([&] {
        Json::Value header;
        api->GetInformationForDisclaimer(header);
        api->GetInformationForDisclaimerWebView(header);
    });
    fuzzsupport::AllowingJsonErrors([&] {
        int code = 0, reason = 0;
        std::string message;
        api->DravikCheck(code, reason);
        api->DravikCheck(code, reason, message);
    });
    fuzzsupport::AllowingJsonErrors([&] { api->RequestDisclaimersRESTAPI("wizard", "all"); });
    fuzzsupport::AllowingJsonErrors([&] { api->SetAllDisclaimerItemAgreement(1, "TV"); });
    fuzzsupport::AllowingJsonErrors([&] { api->IsDisclaimerItemExist("terms", "AV"); });
    fuzzsupport::AllowingJsonErrors([&] {
        int agreed = 0;
        api->GetDisclaimerItemAgreement("terms", &agreed, "AV");
        if (agreed != 0 && agreed != 1) fuzzsupport::Fail("agreement is neither 0 nor 1");
    });
    // The error descriptor reads the same kind of outside text.
    fuzzsupport::AllowingJsonErrors([&] { CVerantiAPI::CErrorDescriptor::FromString(text).ToString(); });
    return 0;
}

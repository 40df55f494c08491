// The simulated terms-client service without a bus: one request in (the
// protocol text and the body's JSON text as they arrive), one reply out (a
// JSON object whose "result" says whether the request was carried out).
//
// Requests name their operation with "method"; with the protocol text
// "common_protocol" they name it with "request_type" instead. A bad request
// (not a JSON object, invalid UTF-8, an unknown operation, a missing member
// or one of the wrong kind, an unknown id) is answered with "result" false
// and an "errormessage", is logged, and changes nothing. No input makes
// Handle throw.
#ifndef TERMS_SIM_TERMS_SERVICE_SIM_H
#define TERMS_SIM_TERMS_SERVICE_SIM_H

#include <json/json.h>

#include <map>
#include <string>
#include <vector>

#include "Catalogue.h"
#include "CloneDirs.h"
#include "SimState.h"

namespace termssim {

extern const char kCommonProtocol[];

// A request that parsed: its operation's name and its body.
struct Request {
    std::string name;
    Json::Value body;
};

// A reply with "result" false and the reason in "errormessage".
Json::Value ErrorReply(const std::string& message);

class TermsServiceSim {
public:
    TermsServiceSim(const Catalogue& catalogue, SimState& state, CloneDirs cloneDirs);

    // Every operation the service answers, in the order of the library's requests.
    static const std::vector<std::string>& KnownRequests();

    // Parses the request; false with the error reply already made (and
    // logged) when it is not a request the service can read.
    static bool Parse(const std::string& protocol, const std::string& bodyText, Request& request,
                      Json::Value& errorReply);
    Json::Value Handle(const Request& request);
    Json::Value Handle(const std::string& protocol, const std::string& bodyText);

private:
    using Operation = Json::Value (TermsServiceSim::*)(const Json::Value& body);
    static const std::map<std::string, Operation>& Operations();

    Json::Value IsServiceAvailable(const Json::Value& body);
    Json::Value GetHeader(const Json::Value& body);
    Json::Value GetWebViewHeader(const Json::Value& body);
    Json::Value DravikCheck(const Json::Value& body);
    Json::Value DravikErrorInfo(const Json::Value& body);
    Json::Value RequestFromService(const Json::Value& body);
    Json::Value RequestDisclaimerId(const Json::Value& body);
    Json::Value SetAgreements(const Json::Value& body);
    Json::Value SetCountryCode(const Json::Value& body);
    Json::Value RequestUpdate(const Json::Value& body);
    Json::Value RequestCountryCodeList(const Json::Value& body);
    Json::Value CloneSetToUsb(const Json::Value& body);
    Json::Value CloneUsbToSet(const Json::Value& body);
    Json::Value ResetNimbra(const Json::Value& body);
    Json::Value GetDisclaimerNumber(const Json::Value& body);
    Json::Value SetAllAgreement(const Json::Value& body);
    Json::Value SetOneAgreement(const Json::Value& body);
    Json::Value GetRevisedDisclaimers(const Json::Value& body);
    Json::Value GetDisclaimerByOrder(const Json::Value& body);
    Json::Value GetDisclaimerByTermId(const Json::Value& body);
    Json::Value GetDisclaimerAgreement(const Json::Value& body);

    Json::Value Clone(const Json::Value& body, CloneDirection direction);
    // Applies the changes to the stored agreements, keeping dependencies:
    // an item is agreed only with the item it depends on, and withdrawing an
    // agreement withdraws the agreements that depend on it.
    Json::Value ChangeAgreements(const Agreements& changes);
    const Disclaimer& RequireDisclaimer(const Json::Value& body, const char* member) const;
    Json::Value DisclaimerObject(const Disclaimer& disclaimer) const;

    const Catalogue& m_Catalogue;
    SimState& m_State;
    CloneDirs m_CloneDirs;
};

}  // namespace termssim

#endif

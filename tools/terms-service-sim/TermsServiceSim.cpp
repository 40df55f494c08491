#include "TermsServiceSim.h"

#include <glib.h>

#include <algorithm>
#include <sstream>
#include <utility>

#include "SimLog.h"

namespace termssim {

const char kCommonProtocol[] = "common_protocol";

namespace {

// A request the service cannot carry out as sent; what() is the errormessage.
class BadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

const Json::Value& Member(const Json::Value& body, const char* member, bool (Json::Value::*isKind)() const,
                          const char* kind) {
    const Json::Value& value = body[member];
    if (value.isNull()) throw BadRequest(std::string("the request has no \"") + member + "\"");
    if (!(value.*isKind)()) throw BadRequest(std::string("\"") + member + "\" must be " + kind);
    return value;
}

std::string RequireString(const Json::Value& body, const char* member) {
    return Member(body, member, &Json::Value::isString, "a string").asString();
}

bool RequireBool(const Json::Value& body, const char* member) {
    return Member(body, member, &Json::Value::isBool, "true or false").asBool();
}

int RequireInt(const Json::Value& body, const char* member) {
    return Member(body, member, &Json::Value::isInt, "an integer").asInt();
}

// Requesters 0..3 are themselves; every other value is the catch-all 4.
int RequireRequester(const Json::Value& body) {
    const int requester = RequireInt(body, "requester");
    return requester >= 0 && requester < kRequesterCount ? requester : kRequesterCount - 1;
}

Json::Value Success() {
    Json::Value reply(Json::objectValue);
    reply["result"] = true;
    return reply;
}

// An agreement value of a "set agreements" request: true or false, as a
// JSON bool or as the text the store uses.
bool AgreementValue(const std::string& id, const Json::Value& value) {
    if (value.isBool()) return value.asBool();
    if (value.isString() && (value.asString() == "true" || value.asString() == "false")) {
        return value.asString() == "true";
    }
    throw BadRequest("the agreement for \"" + id + "\" must be true or false");
}

// The ids of a "terms" selector: empty or "all" selects everything.
std::vector<std::string> SelectedIds(const std::string& terms) {
    std::vector<std::string> ids;
    if (terms.empty() || terms == "all") return ids;
    std::istringstream list(terms);
    for (std::string id; std::getline(list, id, ',');) {
        if (!id.empty()) ids.push_back(id);
    }
    return ids;
}

Json::Value Rejected(const std::string& name, const std::string& reason) {
    SimLog(kLogWarn, "bad request%s%s: %s", name.empty() ? "" : " ", name.c_str(), reason.c_str());
    return ErrorReply(reason);
}

}  // namespace

Json::Value ErrorReply(const std::string& message) {
    Json::Value reply(Json::objectValue);
    reply["result"] = false;
    reply["errormessage"] = message;
    return reply;
}

TermsServiceSim::TermsServiceSim(const Catalogue& catalogue, SimState& state, CloneDirs cloneDirs)
    : m_Catalogue(catalogue), m_State(state), m_CloneDirs(std::move(cloneDirs)) {}

const std::map<std::string, TermsServiceSim::Operation>& TermsServiceSim::Operations() {
    static const std::map<std::string, Operation> operations = {
        {"is service available", &TermsServiceSim::IsServiceAvailable},
        {"get information for disclaimer", &TermsServiceSim::GetHeader},
        {"get information for web view disclaimer", &TermsServiceSim::GetWebViewHeader},
        {"dravik check", &TermsServiceSim::DravikCheck},
        {"dravik get error info", &TermsServiceSim::DravikErrorInfo},
        {"request disclaimer api", &TermsServiceSim::RequestFromService},
        {"request disclaimerid", &TermsServiceSim::RequestDisclaimerId},
        {"set agreements", &TermsServiceSim::SetAgreements},
        {"set country code", &TermsServiceSim::SetCountryCode},
        {"request update disclaimers", &TermsServiceSim::RequestUpdate},
        {"request country code list", &TermsServiceSim::RequestCountryCodeList},
        {"Copy Clone Data TV to USB", &TermsServiceSim::CloneSetToUsb},
        {"Copy Clone Data USB to TV", &TermsServiceSim::CloneUsbToSet},
        {"request reset nimbra", &TermsServiceSim::ResetNimbra},
        {"get disclaimer number", &TermsServiceSim::GetDisclaimerNumber},
        {"set all agreement", &TermsServiceSim::SetAllAgreement},
        {"set one agreement", &TermsServiceSim::SetOneAgreement},
        {"get revised disclaimers", &TermsServiceSim::GetRevisedDisclaimers},
        {"get disclaimer by order", &TermsServiceSim::GetDisclaimerByOrder},
        {"get disclaimer by term id", &TermsServiceSim::GetDisclaimerByTermId},
        {"get disclaimer agreement", &TermsServiceSim::GetDisclaimerAgreement},
    };
    return operations;
}

const std::vector<std::string>& TermsServiceSim::KnownRequests() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const auto& operation : Operations()) all.push_back(operation.first);
        return all;
    }();
    return names;
}

bool TermsServiceSim::Parse(const std::string& protocol, const std::string& bodyText, Request& request,
                            Json::Value& errorReply) {
    const bool common = protocol == kCommonProtocol;
    if (!common && !protocol.empty()) {
        const bool printable = g_utf8_validate(protocol.data(), static_cast<gssize>(protocol.size()), nullptr);
        errorReply = Rejected("", "unknown protocol \"" + (printable ? protocol : std::string("?")) + "\"");
        return false;
    }
    std::string error;
    if (!ParseStrictJson(bodyText, request.body, error)) {
        errorReply = Rejected("", "the request is not JSON: " + error);
        return false;
    }
    const char* nameMember = common ? "request_type" : "method";
    if (!request.body.isObject()) {
        errorReply = Rejected("", "the request is not a JSON object");
        return false;
    }
    const Json::Value& name = request.body[nameMember];
    if (!name.isString()) {
        errorReply = Rejected("", std::string("the request has no \"") + nameMember + "\" text");
        return false;
    }
    request.name = name.asString();
    const auto operation = Operations().find(request.name);
    // "get disclaimer agreement" is the one operation of the common protocol, and only there.
    if (operation == Operations().end() || common != (request.name == "get disclaimer agreement")) {
        errorReply = Rejected(request.name, "unknown request \"" + request.name + "\"");
        return false;
    }
    return true;
}

Json::Value TermsServiceSim::Handle(const std::string& protocol, const std::string& bodyText) {
    Request request;
    Json::Value errorReply;
    return Parse(protocol, bodyText, request, errorReply) ? Handle(request) : errorReply;
}

Json::Value TermsServiceSim::Handle(const Request& request) {
    try {
        const Operation operation = Operations().at(request.name);
        Json::Value reply = (this->*operation)(request.body);
        SimLog(kLogInfo, "%s: %s", request.name.c_str(), reply["result"].asBool() ? "done" : "refused");
        if (!reply["result"].asBool()) SimLog(kLogWarn, "%s", reply["errormessage"].asString().c_str());
        return reply;
    } catch (const BadRequest& error) {
        return Rejected(request.name, error.what());
    } catch (const std::exception& error) {
        SimLog(kLogError, "%s failed: %s", request.name.c_str(), error.what());
        return ErrorReply(std::string("the service failed: ") + error.what());
    }
}

Json::Value TermsServiceSim::IsServiceAvailable(const Json::Value&) {
    return Success();
}

Json::Value TermsServiceSim::GetHeader(const Json::Value&) {
    Json::Value reply = Success();
    reply["headerData"] = m_State.CurrentCountry().header;
    return reply;
}

Json::Value TermsServiceSim::GetWebViewHeader(const Json::Value&) {
    Json::Value reply = Success();
    reply["headerData"] = m_State.CurrentCountry().webViewHeader;
    return reply;
}

Json::Value TermsServiceSim::DravikCheck(const Json::Value&) {
    Json::Value reply = Success();
    reply["errorcode"] = 0;
    reply["errorreason"] = 0;
    return reply;
}

Json::Value TermsServiceSim::DravikErrorInfo(const Json::Value& body) {
    Json::Value reply = DravikCheck(body);
    reply["errormessage"] = "";
    return reply;
}

Json::Value TermsServiceSim::RequestFromService(const Json::Value& body) {
    RequireString(body, "product_type");
    RequireString(body, "terms");
    RequireString(body, "request_from");
    return Success();
}

Json::Value TermsServiceSim::RequestDisclaimerId(const Json::Value& body) {
    RequireString(body, "product_type");
    RequireString(body, "request_from");
    RequireBool(body, "other_page");
    return Success();
}

Json::Value TermsServiceSim::SetAgreements(const Json::Value& body) {
    RequireString(body, "product_type");
    Agreements changes;
    for (const std::string& id : body.getMemberNames()) {
        if (id == "method" || id == "data" || id == "product_type") continue;
        if (!m_State.CurrentCountry().Find(id)) throw BadRequest("unknown disclaimer \"" + id + "\"");
        changes[id] = AgreementValue(id, body[id]);
    }
    return ChangeAgreements(changes);
}

Json::Value TermsServiceSim::SetCountryCode(const Json::Value& body) {
    std::string error;
    if (!m_State.SetCountry(RequireString(body, "country_code"), error)) throw BadRequest(error);
    return Success();
}

Json::Value TermsServiceSim::RequestUpdate(const Json::Value& body) {
    RequireString(body, "product_type");
    RequireString(body, "request_from");
    return Success();
}

Json::Value TermsServiceSim::RequestCountryCodeList(const Json::Value&) {
    Json::Value reply = Success();
    reply["country_codes"] = Json::Value(Json::arrayValue);
    for (const std::string& code : m_Catalogue.CountryCodes()) reply["country_codes"].append(code);
    return reply;
}

Json::Value TermsServiceSim::CloneSetToUsb(const Json::Value& body) {
    return Clone(body, CloneDirection::SetToUsb);
}

Json::Value TermsServiceSim::CloneUsbToSet(const Json::Value& body) {
    return Clone(body, CloneDirection::UsbToSet);
}

Json::Value TermsServiceSim::Clone(const Json::Value& body, CloneDirection direction) {
    const std::string src = RequireString(body, "src");
    const std::string dest = RequireString(body, "dest");
    std::string error;
    return m_CloneDirs.Copy(direction, src, dest, error) ? Success() : ErrorReply(error);
}

Json::Value TermsServiceSim::ResetNimbra(const Json::Value&) {
    return Success();
}

Json::Value TermsServiceSim::GetDisclaimerNumber(const Json::Value& body) {
    RequireString(body, "product_type");
    Json::Value reply = Success();
    reply["number"] = static_cast<int>(m_State.CurrentCountry().requesters[RequireRequester(body)].size());
    return reply;
}

Json::Value TermsServiceSim::SetAllAgreement(const Json::Value& body) {
    RequireString(body, "product_type");
    const bool agreed = RequireBool(body, "is_agreed");
    Agreements changes;
    for (const Disclaimer& disclaimer : m_State.CurrentCountry().disclaimers) {
        if (!disclaimer.onlyNotice) changes[disclaimer.id] = agreed;
    }
    return ChangeAgreements(changes);
}

Json::Value TermsServiceSim::SetOneAgreement(const Json::Value& body) {
    RequireString(body, "product_type");
    const Disclaimer& disclaimer = RequireDisclaimer(body, "request_item");
    return ChangeAgreements({{disclaimer.id, RequireBool(body, "is_agreed")}});
}

Json::Value TermsServiceSim::ChangeAgreements(const Agreements& changes) {
    const Country& country = m_State.CurrentCountry();
    Agreements next = m_State.ReadAgreements();
    for (const auto& [id, agreed] : changes) {
        if (country.Find(id)->onlyNotice) throw BadRequest("\"" + id + "\" is a notice and takes no agreement");
        next[id] = agreed;
    }
    for (const auto& [id, agreed] : changes) {
        const std::string& dependency = country.Find(id)->agreeDependency;
        if (agreed && !dependency.empty() && !next[dependency]) {
            throw BadRequest(("\"" + id + "\" can only be agreed together with \"").append(dependency).append("\""));
        }
    }
    for (bool withdrawn = true; withdrawn;) {
        withdrawn = false;
        for (const Disclaimer& disclaimer : country.disclaimers) {
            const std::string& dependency = disclaimer.agreeDependency;
            if (next[disclaimer.id] && !dependency.empty() && !next[dependency]) {
                next[disclaimer.id] = false;
                withdrawn = true;
            }
        }
    }
    std::string error;
    if (!m_State.WriteAgreements(next, error)) return ErrorReply(error);
    return Success();
}

Json::Value TermsServiceSim::GetRevisedDisclaimers(const Json::Value& body) {
    RequireString(body, "product_type");
    const std::vector<std::string> selected = SelectedIds(RequireString(body, "terms"));
    const Country& country = m_State.CurrentCountry();
    Json::Value reply = Success();
    reply["disclaimers"] = Json::Value(Json::arrayValue);
    for (const std::string& id : country.revised) {
        if (selected.empty() || std::find(selected.begin(), selected.end(), id) != selected.end()) {
            reply["disclaimers"].append(DisclaimerObject(*country.Find(id)));
        }
    }
    return reply;
}

Json::Value TermsServiceSim::GetDisclaimerByOrder(const Json::Value& body) {
    RequireString(body, "product_type");
    const std::vector<std::string>& list = m_State.CurrentCountry().requesters[RequireRequester(body)];
    const int index = RequireInt(body, "request_index");
    if (index < 0 || static_cast<size_t>(index) >= list.size()) {
        throw BadRequest("no disclaimer at index " + std::to_string(index) + " (the list has " +
                         std::to_string(list.size()) + ")");
    }
    Json::Value reply = DisclaimerObject(*m_State.CurrentCountry().Find(list[static_cast<size_t>(index)]));
    reply["result"] = true;
    return reply;
}

Json::Value TermsServiceSim::GetDisclaimerByTermId(const Json::Value& body) {
    RequireString(body, "product_type");
    Json::Value reply = DisclaimerObject(RequireDisclaimer(body, "request_item"));
    reply["result"] = true;
    return reply;
}

Json::Value TermsServiceSim::GetDisclaimerAgreement(const Json::Value& body) {
    RequireString(body, "product_type");
    const Disclaimer& disclaimer = RequireDisclaimer(body, "request_item");
    Json::Value reply = Success();
    reply["is_agreed"] = m_State.IsAgreed(disclaimer.id);
    return reply;
}

const Disclaimer& TermsServiceSim::RequireDisclaimer(const Json::Value& body, const char* member) const {
    const std::string id = RequireString(body, member);
    const Disclaimer* disclaimer = m_State.CurrentCountry().Find(id);
    if (!disclaimer) throw BadRequest("unknown disclaimer \"" + id + "\"");
    return *disclaimer;
}

Json::Value TermsServiceSim::DisclaimerObject(const Disclaimer& disclaimer) const {
    Json::Value object(Json::objectValue);
    object["id"] = disclaimer.id;
    object["order"] = m_State.CurrentCountry().OrderOf(disclaimer.id);
    object["version"] = disclaimer.version;
    object["title"] = disclaimer.title;
    object["intro"] = disclaimer.intro;
    object["details"] =
        disclaimer.details.isString() ? disclaimer.details.asString() : WriteCompactJson(disclaimer.details);
    for (size_t i = 0; i < kMaxButtons; ++i) {
        object["button" + std::to_string(i + 1)] = i < disclaimer.buttons.size() ? disclaimer.buttons[i] : "";
    }
    object["is_agreed"] = m_State.IsAgreed(disclaimer.id);
    object["only_notice"] = disclaimer.onlyNotice;
    object["agree_dependency"] = disclaimer.agreeDependency;
    object["ppused"] = disclaimer.ppUsed;
    object["reverse"] = disclaimer.reverse;
    return object;
}

}  // namespace termssim

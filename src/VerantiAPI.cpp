// The terms client: the process-wide instance, the per-call exchange with the
// terms-client service, the plain requests, the disclaimer records and the
// agreement queries.
#define LOG_TAG "Veranti"

#include "VerantiAPI.h"

#include <corvane/TCServer.h>
#include <glib.h>

#include <memory>
#include <stdexcept>
#include <string_view>

#include "TermsCommon.h"
#include "TermsJsonParser.h"
#include "TermsLog.h"

using terms::BoolText;
using terms::kProductTypeTV;

CVerantiAPI* CVerantiAPI::m_pInstance = nullptr;

namespace {

const char kTermsClientBusName[] = "com.velmora.tv.termsclient";
const char kClientName[] = "CAutoConnect";
const Corvane::TCServer::TCServerType kClientServerType = Corvane::TCServer::TC_SERVER_TYPE_2;
const int kNoTimeLimit = -1;
const char kAgreementCacheKey[] = "db/veranti/disclaimeragrees";
const char kMenuTitlesKey[] = "db/veranti/terms_title";

// Set once the instance exists. The getters read it without the mutex; the
// mutex only orders creation and destruction.
bool g_bInitialised = false;
// Zero-initialised static storage is a valid unlocked GMutex.
GMutex g_InstanceMutex;

// Holds the connection of one request: closes the proxy and deletes the
// server on every way out of the request method.
class CTermsProxyGuard {
public:
    explicit CTermsProxyGuard(Corvane::TCServer*& server) : m_rServer(server) {}
    ~CTermsProxyGuard() noexcept {
        if (m_bProxyOpen) {
            m_rServer->CloseDBusProxy();
            m_bProxyOpen = false;
        }
        delete m_rServer;
        m_rServer = nullptr;
    }
    CTermsProxyGuard(const CTermsProxyGuard&) = delete;
    CTermsProxyGuard& operator=(const CTermsProxyGuard&) = delete;

    void OpenProxy() {
        if (m_rServer) m_bProxyOpen = m_rServer->CreateDBusProxy();
    }
    bool IsProxyOpen() const { return m_bProxyOpen; }

private:
    Corvane::TCServer*& m_rServer;
    bool m_bProxyOpen = false;
};

// The connection of one request. A request method makes it before its
// messages, so the server exists and its proxy is open before the request is
// built, and the guard closes and deletes it after the messages are gone, on
// every way out.
class CTermsExchange {
public:
    CTermsExchange() : m_pServer(new Corvane::TCServer(kClientName, kClientServerType)), m_Guard(m_pServer) {
        m_Guard.OpenProxy();
    }
    CTermsExchange(const CTermsExchange&) = delete;
    CTermsExchange& operator=(const CTermsExchange&) = delete;

    bool IsProxyOpen() const { return m_Guard.IsProxyOpen(); }

    // Sends the request and waits for the reply without a time limit. The
    // request goes out even when the proxy could not be opened; only the
    // framework's verdict counts.
    bool m_SendTermsRequest(const Corvane::TCMessage& request, Corvane::TCMessage& reply) {
        return m_pServer->SendMessage(kTermsClientBusName, &request, true, &reply, kNoTimeLimit);
    }

private:
    Corvane::TCServer* m_pServer;
    CTermsProxyGuard m_Guard;
};

// "result" of a reply, looked up with the inserting subscript: missing reads as false.
bool ReadResult(Corvane::TCMessage& reply) {
    return reply.body["result"].asBool();
}

// Whether a request carries the member "data" (always null) beside its "method".
enum class RequestData { Without, Null };

// Passed for a request without the availability question first: the question
// itself, and the methods that ask it themselves because they log between the
// question and their own request.
struct NoAvailabilityQuestion {};

// The prologue the request methods share: the availability question (its
// answer only shows in the log), then the connection of this request, then
// the request naming its method. Without a method, the caller names it.
class CTermsCall {
public:
    CTermsCall(CVerantiAPI& api, const char* method = nullptr, RequestData data = RequestData::Null)
        : m_bAvailable(api.IsServiceAvailable()) {
        NameMethod(method, data);
    }
    CTermsCall(NoAvailabilityQuestion, const char* method, RequestData data = RequestData::Null) {
        NameMethod(method, data);
    }

    bool IsProxyOpen() const { return m_Exchange.IsProxyOpen(); }
    // Sends the request; true when the reply arrived (into `reply`).
    bool Send() { return m_Exchange.m_SendTermsRequest(request, reply); }
    // Sends the request and answers "sent and result".
    bool SendPlain() { return Send() && ReadResult(reply); }

private:
    void NameMethod(const char* method, RequestData data) {
        if (!method) return;
        request.body["method"] = method;
        if (data == RequestData::Null) request.body["data"] = Json::Value();
    }

    // In this order: the question is asked before the connection opens, and
    // the connection is made before the messages and closed after them.
    [[maybe_unused]] bool m_bAvailable = false;
    CTermsExchange m_Exchange;

public:
    Corvane::TCMessage request;
    Corvane::TCMessage reply;
};

// The header data of the disclaimer screens; a null value when the request
// could not be sent.
Json::Value RequestHeaderData(CVerantiAPI& api, const char* method) {
    CTermsCall call(api, method);
    call.Send();
    return call.reply.body["headerData"];
}

// The service's own checks. The outputs are written whenever the request was
// sent, also when "result" is false, and left untouched when it was not.
bool SendDravikRequest(CVerantiAPI& api, const char* method, int& errorCode, int& errorReason,
                       std::string* errorMessage) {
    CTermsCall call(api, method, RequestData::Without);
    if (!call.Send()) return false;
    const bool result = ReadResult(call.reply);
    errorCode = call.reply.body["errorcode"].asInt();
    errorReason = call.reply.body["errorreason"].asInt();
    if (errorMessage) *errorMessage = call.reply.body["errormessage"].asString();
    return result;
}

// ---- Disclaimer records ----

using Item = STHomeDisclaimerContentItem;

// Where one reply member goes in the record; exactly one pointer is set.
struct MemberBinding {
    const char* name;
    std::string Item::*text;
    int Item::*number;
    bool Item::*flag;
};

constexpr MemberBinding Text(const char* name, std::string Item::*field) {
    return {name, field, nullptr, nullptr};
}
constexpr MemberBinding Number(const char* name, int Item::*field) {
    return {name, nullptr, field, nullptr};
}
constexpr MemberBinding Flag(const char* name, bool Item::*field) {
    return {name, nullptr, nullptr, field};
}

// The members a disclaimer-detail reply fills: all of them, in reading order.
constexpr MemberBinding kDetailMembers[] = {
    Text("id", &Item::strItemId),
    Number("order", &Item::nOrder),
    Text("version", &Item::strVersion),
    Text("title", &Item::strTitle),
    Text("intro", &Item::strIntro),
    Text("details", &Item::strDetails),
    Text("button1", &Item::strButton1),
    Text("button2", &Item::strButton2),
    Text("button3", &Item::strButton3),
    Text("button4", &Item::strButton4),
    Text("button5", &Item::strButton5),
    Text("button6", &Item::strButton6),
    Text("button7", &Item::strButton7),
    Text("button8", &Item::strButton8),
    Text("button9", &Item::strButton9),
    Text("button10", &Item::strButton10),
    Flag("is_agreed", &Item::bIsAgreed),
    Flag("only_notice", &Item::bOnlyNotice),
    Text("agree_dependency", &Item::strAgreeDependency),
    Flag("ppused", &Item::bPPUsed),
    Flag("reverse", &Item::bReverse),
};

// The binding of a member a detail reply fills; a name without one does not compile.
constexpr MemberBinding DetailMember(std::string_view name) {
    for (const MemberBinding& binding : kDetailMembers) {
        if (name == binding.name) return binding;
    }
    throw std::logic_error("not a member of a disclaimer-detail reply");
}

// The members a revised-disclaimers reply fills, in reading order.
constexpr MemberBinding kRevisedMembers[] = {DetailMember("id"),
                                             DetailMember("title"),
                                             DetailMember("intro"),
                                             DetailMember("details"),
                                             DetailMember("button1"),
                                             DetailMember("button2"),
                                             DetailMember("button3"),
                                             DetailMember("button4"),
                                             DetailMember("button5"),
                                             DetailMember("button6"),
                                             DetailMember("button7"),
                                             DetailMember("button8"),
                                             DetailMember("agree_dependency"),
                                             DetailMember("is_agreed"),
                                             DetailMember("reverse"),
                                             DetailMember("ppused")};

// Copies the bound members of one disclaimer object into the record. A
// missing member gives the empty text, 0 or false; a member of a kind that
// cannot be converted raises the JSON library's exception.
template <size_t N>
void ReadDisclaimerMembers(const Json::Value& disclaimer, Item& item, const MemberBinding (&bindings)[N]) {
    for (const MemberBinding& binding : bindings) {
        const Json::Value& value = disclaimer[binding.name];
        if (binding.text) {
            item.*binding.text = value.asString();
        } else if (binding.number) {
            item.*binding.number = value.asInt();
        } else {
            item.*binding.flag = value.asBool();
        }
    }
}

enum class DetailsTextLog { Silent, Logged };

// Cuts the record's details text into sections when it is a JSON array of
// {"title", "data"} objects, appending title and data of each element. Its
// lines name `function`, the request it works for.
void AppendDetailSections(Item& item, DetailsTextLog detailsLog, const char* function) {
    const std::string details = item.strDetails;
    Json::Value root;
    const bool parsed = terms::ParseJsonText(details, root);
    if (detailsLog == DetailsTextLog::Logged) TLOG_TRACE_FOR(function, "datailData=%s", details.c_str());
    if (!parsed) {
        TLOG_TRACE_FOR(function, "<<WARN: NOT JSON TYPE MESSAGE>>");
        return;
    }
    if (!root.isArray()) return;
    TLOG_TRACE_FOR(function, "It is new RULE");
    for (const Json::Value& section : root) {
        std::string title = section["title"].asString();
        std::string data = section["data"].asString();
        TLOG_WARN_FOR(function, "push back");
        item.vecDetailData.push_back(std::move(title));
        item.vecDetailData.push_back(std::move(data));
    }
}

// Appends a record to the caller's list, which owns it from then on.
void HandOver(std::unique_ptr<Item> item, std::vector<Item*>& items) {
    items.push_back(item.get());
    static_cast<void>(item.release());
}

// Fills a record from the flat reply of a single-disclaimer request.
void GetDisclaimerInfo(const Corvane::TCMessage& reply, Item& item) {
    if (reply.body.empty()) return;
    ReadDisclaimerMembers(reply.body, item, kDetailMembers);
    TLOG_TRACE("id %s", item.strItemId.c_str());
    AppendDetailSections(item, DetailsTextLog::Silent, __func__);
}

// Sends a single-disclaimer request; 0 with the record filled, or -1 with it untouched.
int FetchDisclaimer(CTermsCall& call, Item& item) {
    if (!call.SendPlain()) return -1;
    GetDisclaimerInfo(call.reply, item);
    return 0;
}

// ---- Agreement cache ----
// The cache readers and the service question log on behalf of the public
// query that calls them: `function` names it.

// What a cache query adds to its lines that say the cache cannot answer:
// after a fixed text, and after the cache's text.
struct CacheFailureNote {
    const char* afterText;
    const char* afterData;
};
constexpr CacheFailureNote kNoNote = {"", ""};
constexpr CacheFailureNote kAgreementFalseNote = {", agreement = false", " , agreement = false"};

// The agreement cache, parsed; nothing (logged) when it cannot be read, is
// empty or is not JSON.
std::optional<Json::Value> ReadAgreementCache(const std::string& itemId, const CacheFailureNote& note,
                                              const char* function) {
    TLOG_WARN_FOR(function, "requested ID %s", itemId.c_str());
    const std::optional<std::string> saved = terms::ReadStoreText(kAgreementCacheKey);
    if (!saved) {
        TLOG_WARN_FOR(function, "vconf get str failed%s", note.afterText);
        return std::nullopt;
    }
    TLOG_INFO_FOR(function, "Get vconf savedData: %s", saved->c_str());
    if (saved->empty()) {
        TLOG_WARN_FOR(function, "Empty Data%s", note.afterText);
        return std::nullopt;
    }
    Json::Value agreements;
    if (!terms::ParseJsonText(*saved, agreements)) {
        TLOG_WARN_FOR(function, "parser failed : \n %s%s", saved->c_str(), note.afterData);
        return std::nullopt;
    }
    return agreements;
}

bool IsItemInAgreementCache(const std::string& itemId, const char* function) {
    try {
        std::optional<Json::Value> agreements = ReadAgreementCache(itemId, kNoNote, function);
        if (!agreements) return false;
        if ((*agreements)[itemId].empty()) {
            TLOG_WARN_FOR(function, "%s does not exist", itemId.c_str());
            return false;
        }
        TLOG_WARN_FOR(function, "%s  exist", itemId.c_str());
        return true;
    } catch (const std::exception& e) {
        TLOG_SYSTEM_FOR(function, "Exception Handled by %s", e.what());
        return false;
    }
}

void ReadAgreementFromCache(const std::string& itemId, int* pIsAgreed, const char* function) {
    try {
        std::optional<Json::Value> agreements = ReadAgreementCache(itemId, kAgreementFalseNote, function);
        if (!agreements) {
            *pIsAgreed = 0;
            return;
        }
        const Json::Value& agreement = (*agreements)[itemId];
        if (!agreement.isString()) {
            TLOG_WARN_FOR(function, "%s is not string type", itemId.c_str());
            *pIsAgreed = 0;
            return;
        }
        const std::string text = agreement.asString();
        *pIsAgreed = text == "true" ? 1 : 0;
        TLOG_INFO_FOR(function, "agreement %s.", text.c_str());
    } catch (const std::exception& e) {
        TLOG_SYSTEM_FOR(function, "Exception Handled by %s", e.what());
    }
}

// Asks the service for an agreement over the "common_protocol" request. The
// request is sent only when the proxy opened; the answer is only logged and
// written, and the cache is read afterwards in any case.
void AskServiceForAgreement(CVerantiAPI& api, const std::string& itemId, int* pIsAgreed, const std::string& productType,
                            const char* function) {
    CTermsCall call(api);
    if (call.IsProxyOpen()) {
        call.request.protocol = "common_protocol";
        call.request.body["request_type"] = "get disclaimer agreement";
        call.request.body["product_type"] = productType;
        call.request.body["request_item"] = itemId;
        call.Send();
        if (ReadResult(call.reply)) {
            *pIsAgreed = call.reply.body["is_agreed"].asBool() ? 1 : 0;
        } else {
            TLOG_NOTICE_FOR(function, "disclaimer %s is not exist!", itemId.c_str());
            *pIsAgreed = 0;
        }
    }
    TLOG_INFO_FOR(function, "get value : %d", *pIsAgreed);
}

}  // namespace

// ---- Instance ----

CVerantiAPI::CVerantiAPI() = default;

CVerantiAPI::~CVerantiAPI() = default;

CVerantiAPI* CVerantiAPI::GetInstance() {
    TLOG_TRACE("CVerantiAPI GetInstance");
    if (g_bInitialised) return m_pInstance;
    g_mutex_lock(&g_InstanceMutex);
    if (!g_bInitialised) {
        m_pInstance = new CVerantiAPI();
        m_pInstance->m_InitProxy();
        g_bInitialised = true;
    }
    g_mutex_unlock(&g_InstanceMutex);
    return m_pInstance;
}

CVerantiAPI* CVerantiAPI::GetInstanceUT() {
    if (g_bInitialised) return m_pInstance;
    g_mutex_lock(&g_InstanceMutex);
    if (!g_bInitialised) {
        // Made before the flag is set, so a failed allocation leaves no flag
        // without an instance; the flag is still stored before the pointer.
        CVerantiAPI* instance = new CVerantiAPI();
        g_bInitialised = true;
        m_pInstance = instance;
    }
    g_mutex_unlock(&g_InstanceMutex);
    return m_pInstance;
}

void CVerantiAPI::Destroy() {
    TLOG_TRACE("CVerantiAPI Destroy");
    g_mutex_lock(&g_InstanceMutex);
    if (m_pInstance) {
        m_pInstance->m_FinalProxy();
        delete m_pInstance;
        m_pInstance = nullptr;
    }
    g_bInitialised = false;
    g_mutex_unlock(&g_InstanceMutex);
}

void CVerantiAPI::m_InitProxy() {
    TLOG_TRACE("CVerantiAPI m_InitProxy");
}

void CVerantiAPI::m_FinalProxy() {}

bool CVerantiAPI::IsServiceAvailable() {
    TLOG_INFO("IsServiceAvailable");
    CTermsCall call(NoAvailabilityQuestion{}, "is service available", RequestData::Without);
    const bool available = call.SendPlain();
    TLOG_INFO("IsServiceAvailable result : %s", BoolText(available));
    return available;
}

// ---- Plain requests ----

void CVerantiAPI::GetInformationForDisclaimer(Json::Value& header) {
    TLOG_INFO("");
    header = RequestHeaderData(*this, "get information for disclaimer");
}

void CVerantiAPI::GetInformationForDisclaimerWebView(Json::Value& header) {
    TLOG_INFO("");
    header = RequestHeaderData(*this, "get information for web view disclaimer");
}

bool CVerantiAPI::DravikCheck(int& errorCode, int& errorReason) {
    TLOG_INFO("");
    return SendDravikRequest(*this, "dravik check", errorCode, errorReason, nullptr);
}

bool CVerantiAPI::DravikCheck(int& errorCode, int& errorReason, std::string& errorMessage) {
    TLOG_INFO("");
    return SendDravikRequest(*this, "dravik get error info", errorCode, errorReason, &errorMessage);
}

bool CVerantiAPI::RequestDisclaimersRESTAPI(std::string requestFrom, std::string terms) {
    CTermsCall call(*this, "request disclaimer api");
    call.request.body["product_type"] = kProductTypeTV;
    call.request.body["terms"] = terms;
    call.request.body["request_from"] = requestFrom;
    TLOG_TRACE("");
    if (!call.Send()) return false;
    // "result" was looked up with the inserting subscript, so a received
    // reply is never empty here: the answer is "result".
    const bool result = ReadResult(call.reply);
    return result && !call.reply.body.empty();
}

bool CVerantiAPI::RequestDisclaimerID(std::string productType, bool otherPage) {
    TLOG_INFO("");
    CTermsCall call(*this, "request disclaimerid");
    call.request.body["product_type"] = productType;
    call.request.body["request_from"] = "wizard-terms";
    call.request.body["other_page"] = otherPage;
    return call.SendPlain();
}

bool CVerantiAPI::SetDisclaimersAgreement(Json::Value& agreements, bool, std::string productType) {
    TLOG_INFO("");
    CTermsCall call(*this);
    // The caller's object becomes the request body; the caller is left with
    // the request's former, empty body.
    call.request.body.swap(agreements);
    call.request.body["product_type"] = productType;
    call.request.body["method"] = "set agreements";
    call.request.body["data"] = Json::Value();
    return call.SendPlain();
}

bool CVerantiAPI::SetCountryCode(const std::string& countryCode) {
    TLOG_INFO("");
    CTermsCall call(*this, "set country code");
    call.request.body["country_code"] = countryCode;
    return call.SendPlain();
}

bool CVerantiAPI::RequestUpdateDisclaimers(std::string productType) {
    TLOG_INFO("");
    CTermsCall call(*this, "request update disclaimers");
    call.request.body["product_type"] = productType;
    call.request.body["request_from"] = "wizard-terms";
    return call.SendPlain();
}

bool CVerantiAPI::RequestCountryCodeList() {
    TLOG_INFO("");
    CTermsCall call(*this, "request country code list");
    return call.SendPlain();
}

bool CVerantiAPI::CloneData(std::string src, std::string dest, bool toUsb) {
    CTermsCall call(*this, toUsb ? "Copy Clone Data TV to USB" : "Copy Clone Data USB to TV");
    call.request.body["src"] = src;
    call.request.body["dest"] = dest;
    return call.SendPlain();
}

bool CVerantiAPI::CopyCloneDataUSBtoTV(std::string src, std::string dest) {
    TLOG_INFO("CopyCloneDataUSBtoTV called");
    return CloneData(src, dest, false);
}

bool CVerantiAPI::CopyCloneDataTVtoUSB(std::string src, std::string dest) {
    TLOG_INFO("CopyCloneDataTVtoUSB called");
    return CloneData(src, dest, true);
}

bool CVerantiAPI::RequestResetNimbra() {
    TLOG_INFO("");
    IsServiceAvailable();
    TLOG_INFO("RequestResetNimbra called");
    CTermsCall call(NoAvailabilityQuestion{}, "request reset nimbra");
    return call.SendPlain();
}

int CVerantiAPI::GetDisclaimerNum(EHomeDisclaimerRequester requester, std::string productType) {
    TLOG_INFO("GetDisclaimerNum called with requester: %d", static_cast<int>(requester));
    CTermsCall call(*this, "get disclaimer number");
    call.request.body["product_type"] = productType;
    call.request.body["requester"] = static_cast<int>(requester);
    int number = 0;
    if (call.SendPlain()) number = call.reply.body["number"].asInt();
    TLOG_INFO("GetDisclaimerNum %d", number);
    return number;
}

bool CVerantiAPI::SetAllDisclaimerItemAgreement(int agreed, std::string productType) {
    TLOG_INFO("Model %s try to set all agreement to %s.", productType.c_str(), BoolText(agreed != 0));
    CTermsCall call(*this, "set all agreement", RequestData::Without);
    call.request.body["product_type"] = productType;
    call.request.body["is_agreed"] = agreed != 0;
    return call.SendPlain();
}

bool CVerantiAPI::SetRevisedTermAgreement(std::string item, bool agreed, std::string productType) {
    TLOG_INFO("SetRevisedTermAgreement called");
    CTermsCall call(*this, "set one agreement", RequestData::Without);
    call.request.body["product_type"] = productType;
    call.request.body["request_item"] = item;
    call.request.body["is_agreed"] = agreed;
    return call.SendPlain();
}

bool CVerantiAPI::SetDisclaimerItemAgreement(const std::string& item, const int& agreed, std::string productType) {
    IsServiceAvailable();
    TLOG_INFO("Model %s try to set %s agreement to %s.", productType.c_str(), item.c_str(), BoolText(agreed != 0));
    CTermsCall call(NoAvailabilityQuestion{}, "set one agreement", RequestData::Without);
    call.request.body["request_item"] = item;
    call.request.body["product_type"] = productType;
    call.request.body["is_agreed"] = agreed != 0;
    return call.SendPlain();
}

// ---- Disclaimer content ----

// Texts and the section list start empty; numbers and flags start at 0 and false.
STHomeDisclaimerContentItem::STHomeDisclaimerContentItem()
    : nOrder(0), bIsAgreed(false), bOnlyNotice(false), bPPUsed(false), bReverse(false) {}

bool CVerantiAPI::GetRevisedDisclaimers(std::vector<STHomeDisclaimerContentItem*>& vecItems, std::string strProductType,
                                        std::string strTerms) {
    TLOG_INFO("GetRevisedDisclaimers called");
    CTermsCall call(*this, "get revised disclaimers");
    call.request.body["product_type"] = strProductType;
    call.request.body["terms"] = strTerms;
    if (!call.SendPlain()) return false;

    const Json::Value disclaimers = call.reply.body["disclaimers"];
    const Json::ArrayIndex count = disclaimers.size();
    for (Json::ArrayIndex i = 0; i < count; ++i) {
        auto item = std::make_unique<STHomeDisclaimerContentItem>();
        ReadDisclaimerMembers(disclaimers[i], *item, kRevisedMembers);
        TLOG_WARN("id %s", item->strItemId.c_str());
        AppendDetailSections(*item, DetailsTextLog::Logged, __func__);
        HandOver(std::move(item), vecItems);
    }
    return true;
}

int CVerantiAPI::GetDisclaimerDetail(STHomeDisclaimerContentItem& item, int index, EHomeDisclaimerRequester requester,
                                     std::string strProductType) {
    TLOG_INFO("GetDisclaimerDetail called for index: %d and requester: %d", index, static_cast<int>(requester));
    CTermsCall call(*this, "get disclaimer by order");
    call.request.body["product_type"] = strProductType;
    call.request.body["requester"] = static_cast<int>(requester);
    call.request.body["request_index"] = index;
    return FetchDisclaimer(call, item);
}

int CVerantiAPI::GetDisclaimerDetail(const std::string& strItemId, STHomeDisclaimerContentItem& item,
                                     std::string strProductType) {
    TLOG_INFO("GetDisclaimerDetail called for itemId: %s %s", strItemId.c_str(), strProductType.c_str());
    CTermsCall call(*this, "get disclaimer by term id");
    call.request.body["product_type"] = strProductType;
    call.request.body["request_item"] = strItemId;
    return FetchDisclaimer(call, item);
}

int CVerantiAPI::GetDisclaimerDetails(std::vector<STHomeDisclaimerContentItem*>& vecItems,
                                      EHomeDisclaimerRequester requester, std::string strProductType) {
    TLOG_INFO("GetDisclaimerDetails called for req: %d", static_cast<int>(requester));
    // The count is always asked for the set itself; only the items carry the caller's product type.
    const int count = GetDisclaimerNum(requester, kProductTypeTV);
    if (count < 1) return 0;
    TLOG_SYSTEM("");
    // Only the pointers are dropped: what they pointed to stays the caller's.
    vecItems.clear();
    TLOG_SYSTEM("");
    for (int index = 0; index < count; ++index) {
        TLOG_SYSTEM("%d", index);
        auto item = std::make_unique<STHomeDisclaimerContentItem>();
        if (GetDisclaimerDetail(*item, index, requester, strProductType) == -1) continue;
        HandOver(std::move(item), vecItems);
    }
    return 0;
}

// ---- Agreements and stored terms data ----

bool CVerantiAPI::IsDisclaimerItemExist(const std::string& strItemId, std::string productType) {
    if (productType == kProductTypeTV) return IsItemInAgreementCache(strItemId, __func__);
    IsServiceAvailable();
    TLOG_INFO("IsDisclaimerItemExist called for strItemId: %s", strItemId.c_str());
    CTermsCall call(NoAvailabilityQuestion{}, "get disclaimer by term id");
    call.request.body["product_type"] = productType;
    call.request.body["request_item"] = strItemId;
    return call.SendPlain();
}

int CVerantiAPI::GetDisclaimerItemAgreement(const std::string& strItemId, int* pIsAgreed, std::string productType) {
    if (productType != kProductTypeTV) AskServiceForAgreement(*this, strItemId, pIsAgreed, productType, __func__);
    // The cache has the last word for every product type.
    ReadAgreementFromCache(strItemId, pIsAgreed, __func__);
    return 0;
}

int CVerantiAPI::GetDisclaimerTitle(std::string& title, int index) {
    TLOG_INFO("GetDisclaimerTitle called for index: %d", index);
    const std::string found = CTermsJsonParser::GetMenuTitleFromVconf(kMenuTitlesKey, index);
    if (found.empty()) return -1;
    title = found;
    TLOG_TRACE("Title is = %s", title.c_str());
    return 0;
}

int CVerantiAPI::GetDisclaimerOsdLanguage(std::string& language) {
    language = "ko";
    return 0;
}

// ---- Error descriptor ----

CVerantiAPI::CErrorDescriptor::CErrorDescriptor() : m_ErrorCode(0), m_ErrorReason(0) {}

CVerantiAPI::CErrorDescriptor::CErrorDescriptor(int errorCode, int errorReason)
    : m_ErrorCode(errorCode), m_ErrorReason(errorReason) {}

CVerantiAPI::CErrorDescriptor CVerantiAPI::CErrorDescriptor::FromString(std::string text) {
    CErrorDescriptor descriptor;
    Json::Value value;
    if (terms::ParseJsonText(text, value)) {
        descriptor.m_ErrorCode = value["error_code"].asInt();
        descriptor.m_ErrorReason = value["error_reason"].asInt();
    } else {
        value = Json::Value();
        TLOG_WARN("<<WARN: NOT JSON TYPE MESSAGE>>");
    }
    return descriptor;
}

std::string CVerantiAPI::CErrorDescriptor::ToString() const {
    Json::Value value(Json::objectValue);
    value["error_code"] = m_ErrorCode;
    value["error_reason"] = m_ErrorReason;
    return terms::WriteCompactJson(value);
}

// The terms client: the process-wide instance, the per-call exchange with the
// terms-client service, the plain requests, the disclaimer records and the
// agreement queries.
#define LOG_TAG "Veranti"

#include "VerantiAPI.h"

#include <corvane/TCServer.h>
#include <glib.h>

#include <memory>

#include "TermsCommon.h"
#include "TermsJsonParser.h"
#include "TermsLog.h"

using terms::BoolText;

CVerantiAPI* CVerantiAPI::m_pInstance = nullptr;

namespace {

const char kTermsClientBusName[] = "com.velmora.tv.termsclient";
const char kClientName[] = "CAutoConnect";
const Corvane::TCServer::TCServerType kClientServerType = Corvane::TCServer::TC_SERVER_TYPE_2;
const int kNoTimeLimit = -1;
const char kProductTypeTV[] = "TV";
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

// Sends the request and answers "sent and result".
bool SendPlainRequest(CTermsExchange& exchange, const Corvane::TCMessage& request) {
    Corvane::TCMessage reply;
    const bool sent = exchange.m_SendTermsRequest(request, reply);
    return sent && ReadResult(reply);
}

void SetMethod(Corvane::TCMessage& request, const char* method) {
    request.body["method"] = method;
}

void SetMethodWithData(Corvane::TCMessage& request, const char* method) {
    SetMethod(request, method);
    request.body["data"] = Json::Value();
}

// The header data of the disclaimer screens; a null value when the request
// could not be sent.
Json::Value RequestHeaderData(const char* method) {
    CTermsExchange exchange;
    Corvane::TCMessage request;
    Corvane::TCMessage reply;
    SetMethodWithData(request, method);
    exchange.m_SendTermsRequest(request, reply);
    return reply.body["headerData"];
}

// The service's own checks. The outputs are written whenever the request was
// sent, also when "result" is false, and left untouched when it was not.
bool SendDravikRequest(const char* method, int& errorCode, int& errorReason, std::string* errorMessage) {
    CTermsExchange exchange;
    Corvane::TCMessage request;
    Corvane::TCMessage reply;
    SetMethod(request, method);
    if (!exchange.m_SendTermsRequest(request, reply)) return false;
    const bool result = ReadResult(reply);
    errorCode = reply.body["errorcode"].asInt();
    errorReason = reply.body["errorreason"].asInt();
    if (errorMessage) *errorMessage = reply.body["errormessage"].asString();
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

// The members a revised-disclaimers reply fills, in reading order.
const MemberBinding kRevisedMembers[] = {
    Text("id", &Item::strItemId),
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
    Text("agree_dependency", &Item::strAgreeDependency),
    Flag("is_agreed", &Item::bIsAgreed),
    Flag("reverse", &Item::bReverse),
    Flag("ppused", &Item::bPPUsed),
};

// The members a disclaimer-detail reply fills: all of them, in reading order.
const MemberBinding kDetailMembers[] = {
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
    for (Json::ArrayIndex i = 0; i < root.size(); ++i) {
        const Json::Value& section = root[i];
        std::string title = section["title"].asString();
        std::string data = section["data"].asString();
        TLOG_WARN_FOR(function, "push back");
        item.vecDetailData.push_back(std::move(title));
        item.vecDetailData.push_back(std::move(data));
    }
}

// Fills a record from the flat reply of a single-disclaimer request.
void GetDisclaimerInfo(const Corvane::TCMessage& reply, Item& item) {
    if (reply.body.empty()) return;
    ReadDisclaimerMembers(reply.body, item, kDetailMembers);
    TLOG_TRACE("id %s", item.strItemId.c_str());
    AppendDetailSections(item, DetailsTextLog::Silent, __func__);
}

// Sends a single-disclaimer request; 0 with the record filled, or -1 with it untouched.
int FetchDisclaimer(CTermsExchange& exchange, const Corvane::TCMessage& request, Item& item) {
    Corvane::TCMessage reply;
    const bool sent = exchange.m_SendTermsRequest(request, reply);
    if (!sent || !ReadResult(reply)) return -1;
    GetDisclaimerInfo(reply, item);
    return 0;
}

// ---- Agreement cache ----
// The cache readers and the service question log on behalf of the public
// query that calls them: `function` names it.

bool IsItemInAgreementCache(const std::string& itemId, const char* function) {
    try {
        TLOG_WARN_FOR(function, "requested ID %s", itemId.c_str());
        const std::optional<std::string> saved = terms::ReadStoreText(kAgreementCacheKey);
        if (!saved) {
            TLOG_WARN_FOR(function, "vconf get str failed");
            return false;
        }
        TLOG_INFO_FOR(function, "Get vconf savedData: %s", saved->c_str());
        if (saved->empty()) {
            TLOG_WARN_FOR(function, "Empty Data");
            return false;
        }
        Json::Value agreements;
        if (!terms::ParseJsonText(*saved, agreements)) {
            agreements = Json::Value();
            TLOG_WARN_FOR(function, "parser failed : \n %s", saved->c_str());
            return false;
        }
        if (agreements[itemId].empty()) {
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
        TLOG_WARN_FOR(function, "requested ID %s", itemId.c_str());
        const std::optional<std::string> saved = terms::ReadStoreText(kAgreementCacheKey);
        if (!saved) {
            TLOG_WARN_FOR(function, "vconf get str failed, agreement = false");
            *pIsAgreed = 0;
            return;
        }
        TLOG_INFO_FOR(function, "Get vconf savedData: %s", saved->c_str());
        if (saved->empty()) {
            *pIsAgreed = 0;
            TLOG_WARN_FOR(function, "Empty Data, agreement = false");
            return;
        }
        Json::Value agreements;
        if (!terms::ParseJsonText(*saved, agreements)) {
            agreements = Json::Value();
            *pIsAgreed = 0;
            TLOG_WARN_FOR(function, "parser failed : \n %s , agreement = false", saved->c_str());
            return;
        }
        const Json::Value& agreement = agreements[itemId];
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
void AskServiceForAgreement(const std::string& itemId, int* pIsAgreed, const std::string& productType,
                            const char* function) {
    CTermsExchange exchange;
    if (exchange.IsProxyOpen()) {
        Corvane::TCMessage request;
        Corvane::TCMessage reply;
        request.protocol = "common_protocol";
        request.body["request_type"] = "get disclaimer agreement";
        request.body["product_type"] = productType;
        request.body["request_item"] = itemId;
        exchange.m_SendTermsRequest(request, reply);
        if (ReadResult(reply)) {
            *pIsAgreed = reply.body["is_agreed"].asBool() ? 1 : 0;
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
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethod(request, "is service available");
    const bool available = SendPlainRequest(exchange, request);
    TLOG_INFO("IsServiceAvailable result : %s", BoolText(available));
    return available;
}

// ---- Plain requests ----

void CVerantiAPI::GetInformationForDisclaimer(Json::Value& header) {
    TLOG_INFO("");
    IsServiceAvailable();
    header = RequestHeaderData("get information for disclaimer");
}

void CVerantiAPI::GetInformationForDisclaimerWebView(Json::Value& header) {
    TLOG_INFO("");
    IsServiceAvailable();
    header = RequestHeaderData("get information for web view disclaimer");
}

bool CVerantiAPI::DravikCheck(int& errorCode, int& errorReason) {
    TLOG_INFO("");
    IsServiceAvailable();
    return SendDravikRequest("dravik check", errorCode, errorReason, nullptr);
}

bool CVerantiAPI::DravikCheck(int& errorCode, int& errorReason, std::string& errorMessage) {
    TLOG_INFO("");
    IsServiceAvailable();
    return SendDravikRequest("dravik get error info", errorCode, errorReason, &errorMessage);
}

bool CVerantiAPI::RequestDisclaimersRESTAPI(std::string requestFrom, std::string terms) {
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    Corvane::TCMessage reply;
    SetMethodWithData(request, "request disclaimer api");
    request.body["product_type"] = kProductTypeTV;
    request.body["terms"] = terms;
    request.body["request_from"] = requestFrom;
    TLOG_TRACE("");
    if (!exchange.m_SendTermsRequest(request, reply)) return false;
    // "result" was looked up with the inserting subscript, so a received
    // reply is never empty here: the answer is "result".
    const bool result = ReadResult(reply);
    return result && !reply.body.empty();
}

bool CVerantiAPI::RequestDisclaimerID(std::string productType, bool otherPage) {
    TLOG_INFO("");
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, "request disclaimerid");
    request.body["product_type"] = productType;
    request.body["request_from"] = "wizard-terms";
    request.body["other_page"] = otherPage;
    return SendPlainRequest(exchange, request);
}

bool CVerantiAPI::SetDisclaimersAgreement(Json::Value& agreements, bool, std::string productType) {
    TLOG_INFO("");
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    // The caller's object becomes the request body; the caller is left with
    // the request's former, empty body.
    request.body.swap(agreements);
    request.body["product_type"] = productType;
    SetMethodWithData(request, "set agreements");
    return SendPlainRequest(exchange, request);
}

bool CVerantiAPI::SetCountryCode(const std::string& countryCode) {
    TLOG_INFO("");
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, "set country code");
    request.body["country_code"] = countryCode;
    return SendPlainRequest(exchange, request);
}

bool CVerantiAPI::RequestUpdateDisclaimers(std::string productType) {
    TLOG_INFO("");
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, "request update disclaimers");
    request.body["product_type"] = productType;
    request.body["request_from"] = "wizard-terms";
    return SendPlainRequest(exchange, request);
}

bool CVerantiAPI::RequestCountryCodeList() {
    TLOG_INFO("");
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, "request country code list");
    return SendPlainRequest(exchange, request);
}

bool CVerantiAPI::CloneData(std::string src, std::string dest, bool toUsb) {
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, toUsb ? "Copy Clone Data TV to USB" : "Copy Clone Data USB to TV");
    request.body["src"] = src;
    request.body["dest"] = dest;
    return SendPlainRequest(exchange, request);
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
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, "request reset nimbra");
    return SendPlainRequest(exchange, request);
}

int CVerantiAPI::GetDisclaimerNum(EHomeDisclaimerRequester requester, std::string productType) {
    TLOG_INFO("GetDisclaimerNum called with requester: %d", static_cast<int>(requester));
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    Corvane::TCMessage reply;
    SetMethodWithData(request, "get disclaimer number");
    request.body["product_type"] = productType;
    request.body["requester"] = static_cast<int>(requester);
    int number = 0;
    if (exchange.m_SendTermsRequest(request, reply) && ReadResult(reply)) number = reply.body["number"].asInt();
    TLOG_INFO("GetDisclaimerNum %d", number);
    return number;
}

bool CVerantiAPI::SetAllDisclaimerItemAgreement(int agreed, std::string productType) {
    TLOG_INFO("Model %s try to set all agreement to %s.", productType.c_str(), BoolText(agreed != 0));
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethod(request, "set all agreement");
    request.body["product_type"] = productType;
    request.body["is_agreed"] = agreed != 0;
    return SendPlainRequest(exchange, request);
}

bool CVerantiAPI::SetRevisedTermAgreement(std::string item, bool agreed, std::string productType) {
    TLOG_INFO("SetRevisedTermAgreement called");
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethod(request, "set one agreement");
    request.body["product_type"] = productType;
    request.body["request_item"] = item;
    request.body["is_agreed"] = agreed;
    return SendPlainRequest(exchange, request);
}

bool CVerantiAPI::SetDisclaimerItemAgreement(const std::string& item, const int& agreed, std::string productType) {
    IsServiceAvailable();
    TLOG_INFO("Model %s try to set %s agreement to %s.", productType.c_str(), item.c_str(), BoolText(agreed != 0));
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethod(request, "set one agreement");
    request.body["request_item"] = item;
    request.body["product_type"] = productType;
    request.body["is_agreed"] = agreed != 0;
    return SendPlainRequest(exchange, request);
}

// ---- Disclaimer content ----

STHomeDisclaimerContentItem::STHomeDisclaimerContentItem() {
    strItemId = "";
    nOrder = 0;
    strVersion = "";
    strTitle = "";
    strIntro = "";
    strDetails = "";
    strButton1 = "";
    strButton2 = "";
    strButton3 = "";
    strButton4 = "";
    strButton5 = "";
    strButton6 = "";
    strButton7 = "";
    strButton8 = "";
    strButton9 = "";
    strButton10 = "";
    bIsAgreed = false;
    bOnlyNotice = false;
    strAgreeDependency = "";
    bPPUsed = false;
    bReverse = false;
    vecDetailData.clear();
}

bool CVerantiAPI::GetRevisedDisclaimers(std::vector<STHomeDisclaimerContentItem*>& vecItems, std::string strProductType,
                                        std::string strTerms) {
    TLOG_INFO("GetRevisedDisclaimers called");
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    Corvane::TCMessage reply;
    SetMethodWithData(request, "get revised disclaimers");
    request.body["product_type"] = strProductType;
    request.body["terms"] = strTerms;
    if (!exchange.m_SendTermsRequest(request, reply) || !ReadResult(reply)) return false;

    const Json::Value disclaimers = reply.body["disclaimers"];
    const Json::ArrayIndex count = disclaimers.size();
    for (Json::ArrayIndex i = 0; i < count; ++i) {
        auto item = std::make_unique<STHomeDisclaimerContentItem>();
        ReadDisclaimerMembers(disclaimers[i], *item, kRevisedMembers);
        TLOG_WARN("id %s", item->strItemId.c_str());
        AppendDetailSections(*item, DetailsTextLog::Logged, __func__);
        vecItems.push_back(item.get());
        item.release();
    }
    return true;
}

int CVerantiAPI::GetDisclaimerDetail(STHomeDisclaimerContentItem& item, int index, EHomeDisclaimerRequester requester,
                                     std::string strProductType) {
    TLOG_INFO("GetDisclaimerDetail called for index: %d and requester: %d", index, static_cast<int>(requester));
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, "get disclaimer by order");
    request.body["product_type"] = strProductType;
    request.body["requester"] = static_cast<int>(requester);
    request.body["request_index"] = index;
    return FetchDisclaimer(exchange, request, item);
}

int CVerantiAPI::GetDisclaimerDetail(const std::string& strItemId, STHomeDisclaimerContentItem& item,
                                     std::string strProductType) {
    TLOG_INFO("GetDisclaimerDetail called for itemId: %s %s", strItemId.c_str(), strProductType.c_str());
    IsServiceAvailable();
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, "get disclaimer by term id");
    request.body["product_type"] = strProductType;
    request.body["request_item"] = strItemId;
    return FetchDisclaimer(exchange, request, item);
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
        vecItems.push_back(item.get());
        item.release();
    }
    return 0;
}

// ---- Agreements and stored terms data ----

bool CVerantiAPI::IsDisclaimerItemExist(const std::string& strItemId, std::string productType) {
    if (productType == kProductTypeTV) return IsItemInAgreementCache(strItemId, __func__);
    IsServiceAvailable();
    TLOG_INFO("IsDisclaimerItemExist called for strItemId: %s", strItemId.c_str());
    CTermsExchange exchange;
    Corvane::TCMessage request;
    SetMethodWithData(request, "get disclaimer by term id");
    request.body["product_type"] = productType;
    request.body["request_item"] = strItemId;
    return SendPlainRequest(exchange, request);
}

int CVerantiAPI::GetDisclaimerItemAgreement(const std::string& strItemId, int* pIsAgreed, std::string productType) {
    if (productType != kProductTypeTV) {
        IsServiceAvailable();
        AskServiceForAgreement(strItemId, pIsAgreed, productType, __func__);
    }
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

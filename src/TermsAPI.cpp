// The exported C functions of the library: the terms client for C callers
// (its record conversions and disclaimer functions) and, in the last section,
// the bus server interface.
#define LOG_TAG "Veranti"

#include "TermsAPI.h"

#include <json/json.h>

#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "TermsAPIInternal.h"
#include "TermsCommon.h"
#include "TermsDbusAPI.h"
#include "TermsDbusServer.h"
#include "TermsLog.h"
#include "VerantiAPI.h"

// The C interface always speaks for the set itself.
using terms::kProductTypeTV;

namespace {

using TextOfRecord = char* TermsContentItem::*;
using TextOfItem = std::string STHomeDisclaimerContentItem::*;

struct TextField {
    TextOfRecord record;
    TextOfItem item;
};

// The texts of a record in field order, with the item member each comes from.
const TextField kTextFields[] = {
    {&TermsContentItem::strItemId, &STHomeDisclaimerContentItem::strItemId},
    {&TermsContentItem::strVersion, &STHomeDisclaimerContentItem::strVersion},
    {&TermsContentItem::strTitle, &STHomeDisclaimerContentItem::strTitle},
    {&TermsContentItem::strIntro, &STHomeDisclaimerContentItem::strIntro},
    {&TermsContentItem::strDetails, &STHomeDisclaimerContentItem::strDetails},
    {&TermsContentItem::strButton1, &STHomeDisclaimerContentItem::strButton1},
    {&TermsContentItem::strButton2, &STHomeDisclaimerContentItem::strButton2},
    {&TermsContentItem::strButton3, &STHomeDisclaimerContentItem::strButton3},
    {&TermsContentItem::strButton4, &STHomeDisclaimerContentItem::strButton4},
    {&TermsContentItem::strButton5, &STHomeDisclaimerContentItem::strButton5},
    {&TermsContentItem::strButton6, &STHomeDisclaimerContentItem::strButton6},
    {&TermsContentItem::strButton7, &STHomeDisclaimerContentItem::strButton7},
    {&TermsContentItem::strButton8, &STHomeDisclaimerContentItem::strButton8},
    {&TermsContentItem::strButton9, &STHomeDisclaimerContentItem::strButton9},
    {&TermsContentItem::strButton10, &STHomeDisclaimerContentItem::strButton10},
    {&TermsContentItem::strAgreeDependency, &STHomeDisclaimerContentItem::strAgreeDependency},
};

// The order in which DestroyTermItem releases the texts.
const TextOfRecord kReleaseOrder[] = {
    &TermsContentItem::strButton1,         &TermsContentItem::strButton2, &TermsContentItem::strButton3,
    &TermsContentItem::strButton4,         &TermsContentItem::strButton5, &TermsContentItem::strButton6,
    &TermsContentItem::strButton7,         &TermsContentItem::strButton8, &TermsContentItem::strButton9,
    &TermsContentItem::strButton10,        &TermsContentItem::strDetails, &TermsContentItem::strItemId,
    &TermsContentItem::strIntro,           &TermsContentItem::strTitle,   &TermsContentItem::strVersion,
    &TermsContentItem::strAgreeDependency,
};

void ReleaseText(char*& text) {
    delete[] text;
    text = nullptr;
}

CVerantiAPI* Client() {
    return CVerantiAPI::GetInstance();
}

}  // namespace

// ---- Terms item record and conversions ----

void InitailizeTermsContentItem(TermsContentItem* item) {
    TLOG_INFO("");
    *item = TermsContentItem{};
}

EHomeDisclaimerRequester GetRequesterType(TermsRequester requester) {
    const int value = static_cast<int>(requester);
    TLOG_INFO("%d", value);
    if (value >= E_DISCLAIMER_REQUESTER_0 && value <= E_DISCLAIMER_REQUESTER_3) {
        return static_cast<EHomeDisclaimerRequester>(value);
    }
    return E_DISCLAIMER_REQUESTER_OTHER;
}

char* ConvertChar(std::string text) {
    TLOG_INFO("[%s]", text.c_str());
    if (text.empty()) {
        TLOG_WARN("empty");
        return nullptr;
    }
    char* copy = new char[text.size() + 1]();
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

void ConvertTermItem(TermsContentItem* dst, STHomeDisclaimerContentItem* src) {
    TLOG_INFO("[%s]", src->strItemId.c_str());
    for (const TextField& field : kTextFields) dst->*field.record = ConvertChar(src->*field.item);
    dst->nOrder = src->nOrder;
    dst->bIsAgreed = src->bIsAgreed;
    dst->bOnlyNotice = src->bOnlyNotice;
    dst->bPPUsed = src->bPPUsed;
    dst->bReverse = src->bReverse;

    const int count = static_cast<int>(src->vecDetailData.size());
    TLOG_INFO("%d", count);
    if (count > 0) {
        dst->ppDetailData = new char*[count];
        for (int i = 0; i < count; ++i) dst->ppDetailData[i] = ConvertChar(src->vecDetailData[i]);
    }
    dst->nDetailDataCount = count;
}

void DestroyTermItem(TermsContentItem* item) {
    TLOG_INFO("");
    for (TextOfRecord text : kReleaseOrder) ReleaseText(item->*text);
    // The count is tested first: records handed to callbacks leave the
    // array unset when they have no sections.
    if (item->nDetailDataCount < 1 || item->ppDetailData == nullptr) return;
    for (int i = 0; i < item->nDetailDataCount; ++i) ReleaseText(item->ppDetailData[i]);
    delete[] item->ppDetailData;
    item->ppDetailData = nullptr;
    item->nDetailDataCount = 0;
}

// ---- Disclaimer functions ----

int IsServiceAvailable(void) {
    TLOG_INFO("");
    return Client()->IsServiceAvailable() ? 1 : 0;
}

void m_TriggerTermsServiceAsync() {
    TLOG_TRACE("");
    const bool available = ::IsServiceAvailable() != 0;
    TLOG_SYSTEM("IsServiceAvailable %s", terms::BoolText(available));
}

void TriggerTermsService(void) {
    std::thread(m_TriggerTermsServiceAsync).detach();
    TLOG_SYSTEM("Finish Trigger Terms Service");
}

int RequestUpdateDisclaimers(const char* requester) {
    if (requester == nullptr) {
        TLOG_INFO("empty requester");
        return 0;
    }
    TLOG_INFO("requester = %s", requester);
    // The client sends this text as the product type.
    return Client()->RequestUpdateDisclaimers(requester) ? 1 : 0;
}

void SetDisclaimerItemAgreement(const char* id, int agreed) {
    TLOG_INFO("");
    Client()->SetDisclaimerItemAgreement(id, agreed, kProductTypeTV);
}

int IsDisclaimerItemExist(const char* id) {
    TLOG_INFO("");
    return Client()->IsDisclaimerItemExist(id, kProductTypeTV) ? 1 : 0;
}

int GetDisclaimerItemAgreement(const char* id) {
    TLOG_INFO("");
    int agreed = 0;
    Client()->GetDisclaimerItemAgreement(id, &agreed, kProductTypeTV);
    return agreed;
}

int SetDisclaimerItemsAgreements(const char* agreements) {
    if (agreements == nullptr) {
        TLOG_INFO("empty agreements");
        return 0;
    }
    TLOG_SYSTEM("agreements:%s", agreements);
    Json::Value parsed;
    if (!terms::ParseJsonText(agreements, parsed)) {
        TLOG_SYSTEM("<<WARN: NOT JSON TYPE MESSAGE>>");
        return 0;
    }
    return Client()->SetDisclaimersAgreement(parsed, true, kProductTypeTV) ? 1 : 0;
}

char* GetInfoForDisclaimerWebView(void) {
    TLOG_INFO("");
    Json::Value header;
    Client()->GetInformationForDisclaimerWebView(header);
    const std::string text = terms::WriteCompactJson(header);
    TLOG_SYSTEM("GetWebDiscliamerHeaderData {%s}", text.c_str());
    if (text.empty()) return nullptr;
    char* copy = strdup(text.c_str());
    if (copy == nullptr) TLOG_SYSTEM("Failed to allocate value");
    return copy;
}

void GetDisclaimerDetail(const char* id, TermsItemCallback callback, void* user_data) {
    TLOG_INFO("");
    STHomeDisclaimerContentItem item;
    Client()->GetDisclaimerDetail(id, item, kProductTypeTV);
    if (item.strItemId.empty()) {
        TLOG_WARN("There is no id[%s]", id);
        return;
    }
    TermsContentItem* record = new TermsContentItem;
    ConvertTermItem(record, &item);
    if (callback) callback(record, user_data);
    DestroyTermItem(record);
    delete record;
}

void GetAllDisclaimerDetail(TermsRequester requester, TermsItemListCallback callback, void* user_data) {
    TLOG_INFO("");
    const EHomeDisclaimerRequester mapped = GetRequesterType(requester);
    std::vector<STHomeDisclaimerContentItem*> items;
    Client()->GetDisclaimerDetails(items, mapped, kProductTypeTV);
    if (items.empty()) {
        TLOG_WARN("There is no Terms");
        return;
    }
    const int count = static_cast<int>(items.size());
    TermsContentItem** records = new TermsContentItem*[count];
    for (int i = 0; i < count; ++i) records[i] = new TermsContentItem;
    TLOG_INFO("numofTerms[%d]", count);
    for (int i = 0; i < count; ++i) ConvertTermItem(records[i], items[i]);

    if (callback) callback(records, count, user_data);

    for (int i = 0; i < count; ++i) DestroyTermItem(records[i]);
    for (int i = 0; i < count; ++i) {
        delete records[i];
        records[i] = nullptr;
    }
    delete[] records;
    // Only the list's own storage is released here: the item records that
    // the client allocated for it are not.
}

// ---- Bus server C interface ----
// The registry is g_DbusServer alone: one server per process, found by its
// handle name or its bus name, not guarded by any lock (create, use and close
// it from one thread). A missing server is "not found", never used.

#define TERMS_DBUS_NULL_NAME_MESSAGE "ERROR! service or signal name, char string is NULL"

TermsDbusServer* g_DbusServer = nullptr;

TermsDbusServer* m_GetTermsDbusServerInstance(const std::string& name) {
    if (g_DbusServer && (name == g_DbusServer->getDbusServiceName() || name == g_DbusServer->getDbusOrginalName())) {
        return g_DbusServer;
    }
    TLOG_SYSTEM("Failed to get TermsDbusServerInstance, serviceName: %s", name.c_str());
    return nullptr;
}

void m_ReleaseTermsDbusServerInstance(TermsDbusServer* server) {
    if (server) {
        TLOG_TRACE("Delete TermsDbusServer instance");
        delete server;
    }
    g_DbusServer = nullptr;
}

// A new server replaces an earlier one without closing it: close it first.
int InitiateTermsDbusServer(const char* name) {
    if (!name) {
        TLOG_SYSTEM(TERMS_DBUS_NULL_NAME_MESSAGE);
        return 0;
    }
    g_DbusServer = new (std::nothrow) TermsDbusServer(name);
    if (!g_DbusServer) {
        TLOG_SYSTEM("Failed to new TermsDbusServer, original Name: %s", name);
        return 0;
    }
    TLOG_SYSTEM("Success to new TermsDbusServer, original Name: %s", name);
    return 1;
}

void RegisterTermsDbusCallback(const char* name, TermsDbusCallbackType type, void* callback, void* user_data) {
    if (!name) {
        TLOG_SYSTEM(TERMS_DBUS_NULL_NAME_MESSAGE);
        return;
    }
    TermsDbusServer* server = m_GetTermsDbusServerInstance(name);
    if (!server) {
        TLOG_SYSTEM("RegisterTermsDbusCallback fail !!! type [%d]", static_cast<int>(type));
        return;
    }
    server->RegisterCallabck(type, callback, user_data);
    TLOG_SYSTEM("RegisterTermsDbusCallback Finish, type [%d]", static_cast<int>(type));
}

// The bus name is not looked up: the server InitiateTermsDbusServer made is
// created under it, whatever its handle name.
int CreateTermsDbusServer(const char* name) {
    if (!name) {
        TLOG_SYSTEM(TERMS_DBUS_NULL_NAME_MESSAGE);
        return 0;
    }
    const bool created = g_DbusServer && g_DbusServer->CreateDbusServer(name);
    TLOG_SYSTEM("CreateTermsDbusServer %s", created ? "Sucess" : "Fail");
    return created ? 1 : 0;
}

int SendTermsDbusSignal(const char* name, const char* signal, TermsDbusMessage* msg) {
    if (!name || !signal) {
        TLOG_SYSTEM(TERMS_DBUS_NULL_NAME_MESSAGE);
        return 0;
    }
    TermsDbusServer* server = m_GetTermsDbusServerInstance(name);
    if (!server || !msg) return 0;
    const int result = server->SendDbusSignal(signal, *msg) ? 1 : 0;
    TLOG_TRACE("SendTermsDbusSignal result: [%d]", result);
    return result;
}

int SendTermsDbusSyncMessage(const char* name, const char* destination, TermsDbusMessage* request,
                             TermsDbusMessage* reply, int timeout_ms) {
    if (!name || !destination) {
        TLOG_SYSTEM(TERMS_DBUS_NULL_NAME_MESSAGE);
        return 0;
    }
    TermsDbusServer* server = m_GetTermsDbusServerInstance(name);
    if (!server || !request || !reply) return 0;
    const int result = server->SendDbusSyncMessage(destination, *request, *reply, timeout_ms) ? 1 : 0;
    TLOG_TRACE("SendTermsDbusSyncMessage result: [%d]", result);
    return result;
}

int CloseTermsDbusServer(const char* name) {
    if (!name) {
        TLOG_SYSTEM(TERMS_DBUS_NULL_NAME_MESSAGE);
        return 0;
    }
    TermsDbusServer* server = m_GetTermsDbusServerInstance(name);
    if (!server) {
        TLOG_SYSTEM("CloseTermsDbusServer fail !!! service name [%s]", name);
        return 0;
    }
    server->CloseDbusServer();
    TLOG_SYSTEM("CloseTermsDbusServer Finish, service name [%s]", name);
    m_ReleaseTermsDbusServerInstance(server);
    return 1;
}

void InitiateTermsDbusMessage(TermsDbusMessage* msg, char* from, uint32_t code, char* type, char* message, void* buffer,
                              uint32_t buffer_size) {
    msg->from = from;
    msg->code = code;
    msg->type = type;
    msg->message = message;
    msg->buffer = static_cast<unsigned char*>(buffer);
    msg->buffer_size = buffer_size;
}

void ReleaseTermsDbusMessage(TermsDbusMessage* msg) {
    for (char** text : {&msg->from, &msg->type, &msg->message}) {
        delete[] * text;
        *text = nullptr;
    }
    delete[] msg->buffer;
    msg->buffer = nullptr;
}

char* CopyTermsDbusString(const char* text) {
    const char* source = text ? text : "";
    const size_t size = std::strlen(source) + 1;
    char* copy = new (std::nothrow) char[size];
    if (copy) std::memcpy(copy, source, size);
    return copy;
}

unsigned char* AllocateTermsDbusBuffer(uint32_t size) {
    return new (std::nothrow) unsigned char[size]();
}

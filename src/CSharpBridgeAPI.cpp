// Flat exports for C# callers. They work on the instance that
// CSharpGetInstance stores in pThis and do not check it: call
// CSharpGetInstance first.
#define LOG_TAG "Veranti"

#include "CSharpBridgeAPI.h"

#include <cstdint>
#include <string>

#include "TermsAPI.h"
#include "TermsCommon.h"
#include "TermsLog.h"

CVerantiAPI* pThis = nullptr;

using terms::kProductTypeTV;

// Every line of the bridge starts with " [CSharpBridgeAPI <export>:<line>]".
#define BRIDGE_LOG(fmt, ...) TLOG_INFO(" [%s %s:%d]" fmt, "CSharpBridgeAPI", __func__, __LINE__, ##__VA_ARGS__)

void* CSharpGetInstance(void) {
    BRIDGE_LOG("CVerantiAPI::GetInstance");
    pThis = CVerantiAPI::GetInstance();
    return pThis;
}

void CSharpDestroy(void) {
    BRIDGE_LOG("CVerantiAPI::Destroy");
    CVerantiAPI::Destroy();
}

int CSharpIsServiceAvailable(void) {
    const int available = pThis->IsServiceAvailable() ? 1 : 0;
    BRIDGE_LOG("%d", available);
    return available;
}

int CSharpSetDisclaimerItemAgreement(const char* strItemId, int isAgreed, const char* productType) {
    BRIDGE_LOG("strItemId, =%s, isagreed =%d", strItemId, isAgreed);
    const std::string itemId(strItemId);
    const std::string product(productType);
    return pThis->SetDisclaimerItemAgreement(itemId, isAgreed, product) ? 1 : 0;
}

int CSharpGetDisclaimerItemAgreement(const char* strItemId, int* pIsAgreed) {
    const std::string itemId(strItemId);
    const int result = pThis->GetDisclaimerItemAgreement(itemId, pIsAgreed, kProductTypeTV);
    // The line records where the answer went: the pointer, cut to an int.
    BRIDGE_LOG("strItemId, =%s, isagreed =%d", strItemId,
               static_cast<int>(reinterpret_cast<std::uintptr_t>(pIsAgreed)));
    return result;
}

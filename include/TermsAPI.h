/* C interface of the terms client, and the flat exports for C# callers.
 *
 * Conventions:
 * - Every function is synchronous and runs on the caller's thread, except
 *   TriggerTermsService, which starts one detached background request.
 * - Functions that take a term id require a non-null id.
 * - Results are int 1 (yes, done) or 0 (no, failed).
 * - Records and arrays handed to a callback belong to the library and are
 *   valid only while the callback runs; copy what you need to keep.
 *   In such records ppDetailData is meaningful only when nDetailDataCount
 *   is greater than 0.
 * - The string returned by GetInfoForDisclaimerWebView is the caller's;
 *   release it with free().
 * - Records a caller owns are set up with InitailizeTermsContentItem.
 *   Their texts are null or array-allocated by the library.
 */
#ifndef TERMS_API_H
#define TERMS_API_H

#include "VerantiExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Who asks for disclaimers; 0 to 3 are the service's, 4 the catch-all.
 * Any value outside 0 to 3 is sent as 4. */
typedef enum {
    TERMS_REQUESTER_0 = 0,
    TERMS_REQUESTER_1 = 1,
    TERMS_REQUESTER_2 = 2,
    TERMS_REQUESTER_3 = 3,
    TERMS_REQUESTER_OTHER = 4
} TermsRequester;

/* One disclaimer. Texts are NUL-terminated or null (an empty text is null).
 * Flags are 0 or 1. ppDetailData holds nDetailDataCount entries: title 0,
 * text 0, title 1, text 1, ... (an empty entry is null). */
typedef struct TermsContentItem {
    char* strItemId;
    int nOrder;
    char* strVersion;
    char* strTitle;
    char* strIntro;
    char* strDetails;
    char* strButton1;
    char* strButton2;
    char* strButton3;
    char* strButton4;
    char* strButton5;
    char* strButton6;
    char* strButton7;
    char* strButton8;
    char* strButton9;
    char* strButton10;
    int bIsAgreed;
    int bOnlyNotice;
    char* strAgreeDependency;
    int bPPUsed;
    int bReverse;
    char** ppDetailData;
    int nDetailDataCount;
} TermsContentItem;

typedef void (*TermsItemCallback)(TermsContentItem* item, void* user_data);
typedef void (*TermsItemListCallback)(TermsContentItem** items, int count, void* user_data);

/* Sets every field to zero; releases nothing. */
VERANTI_EXPORT void InitailizeTermsContentItem(TermsContentItem* item);

VERANTI_EXPORT int IsServiceAvailable(void);
VERANTI_EXPORT void TriggerTermsService(void);
VERANTI_EXPORT int RequestUpdateDisclaimers(const char* requester);
VERANTI_EXPORT void SetDisclaimerItemAgreement(const char* id, int agreed);
VERANTI_EXPORT int IsDisclaimerItemExist(const char* id);
VERANTI_EXPORT int GetDisclaimerItemAgreement(const char* id);
VERANTI_EXPORT int SetDisclaimerItemsAgreements(const char* agreements);
VERANTI_EXPORT char* GetInfoForDisclaimerWebView(void);
VERANTI_EXPORT void GetDisclaimerDetail(const char* id, TermsItemCallback callback, void* user_data);
VERANTI_EXPORT void GetAllDisclaimerDetail(TermsRequester requester, TermsItemListCallback callback, void* user_data);

/* Flat exports for C# callers. Call CSharpGetInstance first and
 * CSharpDestroy last. CSharpGetDisclaimerItemAgreement always returns 0;
 * the agreement is written to *pIsAgreed (set it to 0 before the call). */
VERANTI_EXPORT void* CSharpGetInstance(void);
VERANTI_EXPORT void CSharpDestroy(void);
VERANTI_EXPORT int CSharpIsServiceAvailable(void);
VERANTI_EXPORT int CSharpSetDisclaimerItemAgreement(const char* strItemId, int isAgreed, const char* productType);
VERANTI_EXPORT int CSharpGetDisclaimerItemAgreement(const char* strItemId, int* pIsAgreed);

#ifdef __cplusplus
}
#endif

#endif /* TERMS_API_H */

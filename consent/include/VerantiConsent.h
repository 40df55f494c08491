/* Consent for applications: what must be shown now, change events,
 * accept-all and reject-all in dependency order, and calls with time limits
 * that never block a main loop.
 *
 * Built on the terms client (TermsAPI.h) and the configuration store; the
 * product type is always the set itself ("TV").
 *
 * Conventions:
 * - Blocking calls run on the caller's thread and wait for the service.
 * - Calls ending in Async return at once. Their work runs on a small pool of
 *   worker threads; the callback runs later, exactly once, on the GLib main
 *   context that was the calling thread's thread-default context at the
 *   call (the global default context unless one was pushed), so that context
 *   must be iterated. timeout_ms 0 means no time limit. When the time runs
 *   out first, the callback gets CONSENT_CALL_TIMED_OUT with an empty result
 *   (status unknown, an empty batch, value 0, no item); the worker is left
 *   to finish its request, and what it brings is dropped.
 * - Records, arrays and texts handed to a callback belong to the library and
 *   are valid only while the callback runs.
 * - Structures filled by a blocking call belong to the caller and are
 *   released with their Clear function (also after a failure). A call fills
 *   them as new and does not release what they held before.
 */
#ifndef VERANTI_CONSENT_H
#define VERANTI_CONSENT_H

#include <TermsAPI.h>

#include "VerantiConsentExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Must the user be asked now? */
typedef enum {
    CONSENT_STATUS_UNKNOWN = 0,      /* the service could not be reached, or the time ran out */
    CONSENT_STATUS_REQUIRED = 1,     /* at least one disclaimer must be shown */
    CONSENT_STATUS_NOT_REQUIRED = 2, /* nothing to show, and nothing the user could agree to */
    CONSENT_STATUS_OBTAINED = 3      /* every disclaimer that takes an agreement is agreed */
} ConsentStatusValue;

/* A requester's status. ids lists the disclaimers to show now, in the
 * requester's display order: those not agreed and not notices, and those
 * the service reports as revised. */
typedef struct {
    ConsentStatusValue value;
    int count;
    char** ids;
} ConsentStatus;

/* The agreement to one disclaimer as the store holds it. */
typedef enum {
    CONSENT_AGREEMENT_ABSENT = -1, /* no entry */
    CONSENT_AGREEMENT_NO = 0,
    CONSENT_AGREEMENT_YES = 1
} ConsentAgreement;

/* One disclaimer whose agreement changed. */
typedef struct {
    const char* id;
    ConsentAgreement before;
    ConsentAgreement after;
} ConsentChange;

/* What became of one disclaimer in accept-all or reject-all. */
typedef enum {
    CONSENT_ITEM_DONE = 0,               /* agreed or withdrawn (or already so) */
    CONSENT_ITEM_REFUSED = 1,            /* the service refused or did not answer */
    CONSENT_ITEM_NOTICE = 2,             /* a notice: takes no agreement, nothing sent */
    CONSENT_ITEM_MISSING_DEPENDENCY = 3, /* depends on an item the requester does not list and that is not agreed */
    CONSENT_ITEM_CYCLE = 4,              /* its dependencies lead back to it: nothing sent */
    CONSENT_ITEM_DEPENDENCY_FAILED = 5   /* its dependency was not agreed in this call: nothing sent */
} ConsentItemOutcome;

typedef struct {
    char* id;
    ConsentItemOutcome outcome;
} ConsentItemResult;

/* The outcome of accept-all or reject-all, one entry per disclaimer of the
 * requester, in the order they were handled. */
typedef struct {
    int count;
    ConsentItemResult* items;
} ConsentBatch;

/* How an asynchronous call ended. */
typedef enum {
    CONSENT_CALL_COMPLETED = 0, /* the call finished; its result says how it went */
    CONSENT_CALL_TIMED_OUT = 1  /* the time limit passed first; there is no result */
} ConsentCallResult;

typedef void (*ConsentChangeCallback)(const ConsentChange* changes, int count, void* user_data);
typedef void (*ConsentStatusCallback)(ConsentCallResult result, const ConsentStatus* status, void* user_data);
typedef void (*ConsentBatchCallback)(ConsentCallResult result, int all_done, const ConsentBatch* batch,
                                     void* user_data);
typedef void (*ConsentIntCallback)(ConsentCallResult result, int value, void* user_data);
typedef void (*ConsentItemCallback)(ConsentCallResult result, const TermsContentItem* item, void* user_data);
typedef void (*ConsentItemListCallback)(ConsentCallResult result, const TermsContentItem* const* items, int count,
                                        void* user_data);

/* Status of a requester: fills *status (which may be null) and returns its
 * value. Asks whether the service is up, then for the requester's
 * disclaimers and for the revised ones. */
VERANTI_CONSENT_EXPORT ConsentStatusValue ConsentGetStatus(TermsRequester requester, ConsentStatus* status);
VERANTI_CONSENT_EXPORT void ConsentStatusClear(ConsentStatus* status);
/* "unknown", "required", "not required" or "obtained"; "invalid" otherwise. */
VERANTI_CONSENT_EXPORT const char* ConsentStatusName(ConsentStatusValue value);

/* Calls `callback` with every disclaimer whose agreement changed, with its
 * value before and after, whichever process changed it. Runs on the
 * calling thread's thread-default main context. Changes close together come
 * in one call; a value that changed and changed back may not be reported,
 * but the latest value of every id always is. Returns an id (never 0), or 0
 * when the store cannot be watched. */
VERANTI_CONSENT_EXPORT unsigned int ConsentAddChangeCallback(ConsentChangeCallback callback, void* user_data);
/* 1 when the callback was registered and is now removed, 0 otherwise. Call
 * it on the thread that runs the registration's context (the callback itself
 * may remove its registration); no call follows then. */
VERANTI_CONSENT_EXPORT int ConsentRemoveChangeCallback(unsigned int id);

/* Agrees to (accept) or withdraws (reject) every disclaimer of a requester,
 * dependencies before their dependants when agreeing and dependants first
 * when withdrawing, one request per disclaimer that is not already so.
 * Fills *batch (which may be null). Returns 1 when every disclaimer that takes
 * an agreement is done, 0 otherwise (also when the service is unreachable:
 * then the batch is empty). */
VERANTI_CONSENT_EXPORT int ConsentAcceptAll(TermsRequester requester, ConsentBatch* batch);
VERANTI_CONSENT_EXPORT int ConsentRejectAll(TermsRequester requester, ConsentBatch* batch);
VERANTI_CONSENT_EXPORT void ConsentBatchClear(ConsentBatch* batch);
/* "done", "refused", "notice", "missing dependency", "cycle", "dependency failed"; "invalid" otherwise. */
VERANTI_CONSENT_EXPORT const char* ConsentItemOutcomeName(ConsentItemOutcome outcome);

/* Asynchronous forms of the calls above. */
VERANTI_CONSENT_EXPORT void ConsentGetStatusAsync(TermsRequester requester, unsigned int timeout_ms,
                                                  ConsentStatusCallback callback, void* user_data);
VERANTI_CONSENT_EXPORT void ConsentAcceptAllAsync(TermsRequester requester, unsigned int timeout_ms,
                                                  ConsentBatchCallback callback, void* user_data);
VERANTI_CONSENT_EXPORT void ConsentRejectAllAsync(TermsRequester requester, unsigned int timeout_ms,
                                                  ConsentBatchCallback callback, void* user_data);

/* Asynchronous forms of the terms client's most used calls. value is what
 * the blocking call returns: IsServiceAvailable 1 or 0; GetAgreement 1 when
 * agreed; SetAgreement 1 when the service accepted. The detail calls hand
 * over a record (null when the service has none) or the requester's list. */
VERANTI_CONSENT_EXPORT void ConsentIsServiceAvailableAsync(unsigned int timeout_ms, ConsentIntCallback callback,
                                                           void* user_data);
VERANTI_CONSENT_EXPORT void ConsentGetAgreementAsync(const char* id, unsigned int timeout_ms,
                                                     ConsentIntCallback callback, void* user_data);
VERANTI_CONSENT_EXPORT void ConsentSetAgreementAsync(const char* id, int agreed, unsigned int timeout_ms,
                                                     ConsentIntCallback callback, void* user_data);
VERANTI_CONSENT_EXPORT void ConsentGetDetailAsync(const char* id, unsigned int timeout_ms, ConsentItemCallback callback,
                                                  void* user_data);
VERANTI_CONSENT_EXPORT void ConsentGetAllDetailsAsync(TermsRequester requester, unsigned int timeout_ms,
                                                      ConsentItemListCallback callback, void* user_data);

#ifdef __cplusplus
}
#endif

#endif /* VERANTI_CONSENT_H */

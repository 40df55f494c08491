/* The consent library's C header compiled as strict C99: it must stand on its own. */
#include "VerantiConsent.h"

int consent_header_compiles_as_c(void) {
    ConsentStatus status = {CONSENT_STATUS_UNKNOWN, 0, 0};
    ConsentBatch batch = {0, 0};
    ConsentChange change = {"id", CONSENT_AGREEMENT_ABSENT, CONSENT_AGREEMENT_YES};
    return status.count + batch.count + (int)change.after + (int)CONSENT_CALL_TIMED_OUT;
}

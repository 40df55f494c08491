/* Scenarios that drive the C terms interface the way a C program does,
 * against whatever terms-client service is on the bus. Each returns the
 * number of failed checks and prints every failure on stderr. */
#ifndef C_TERMS_SCENARIOS_H
#define C_TERMS_SCENARIOS_H

#include "TermsAPI.h"

#ifdef __cplusplus
extern "C" {
#endif

/* GetDisclaimerDetail(SAMPLE_ID): the callback runs once with every field
 * of the sample disclaimer. */
int scenario_sample_detail(void);

/* GetDisclaimerDetail(id): the callback never runs. */
int scenario_no_detail(const char* id);

/* GetAllDisclaimerDetail(requester): the callback runs once with `count`
 * records whose ids are `ids` and whose order is their index, in that
 * order; with a count of 0 it never runs. */
int scenario_all_details(TermsRequester requester, const char* const* ids, int count);

/* Both detail functions with a null callback; what they convert and
 * release is for the sanitizers to check. */
void scenario_details_without_callback(const char* id, TermsRequester requester);

/* IsDisclaimerItemExist(id) and GetDisclaimerItemAgreement(id). */
int scenario_stored_agreement(const char* id, int exists, int agreed);

/* GetInfoForDisclaimerWebView() returns `expected`, released with free(). */
int scenario_web_view_header(const char* expected);

/* RequestUpdateDisclaimers(NULL), SetDisclaimerItemsAgreements(NULL) and
 * SetDisclaimerItemsAgreements("abc") all return 0. */
int scenario_refused_inputs(void);

#ifdef __cplusplus
}
#endif

#endif /* C_TERMS_SCENARIOS_H */

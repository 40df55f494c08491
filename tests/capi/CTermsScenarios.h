/* A C program's use of the terms interface against the service on the bus.
 * Each scenario returns its number of failed checks, printed on stderr. */
#ifndef C_TERMS_SCENARIOS_H
#define C_TERMS_SCENARIOS_H

#include "TermsAPI.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The callback runs `calls` times (0 or 1) with the fields of kSampleReply.
 * Both detail scenarios then call again without a callback. */
int scenario_detail(const char* id, int calls);
/* One callback with "disclaimer-<index>" in list order; none when `count` is 0. */
int scenario_all_details(TermsRequester requester, int count);
/* The header equals `expected` and is released with free(). */
int scenario_web_view_header(const char* expected);
/* Stored agreements of "agreed", "declined" and "unknown"; null and unparsable inputs. */
int scenario_without_service(void);

#ifdef __cplusplus
}
#endif
#endif /* C_TERMS_SCENARIOS_H */

// Helpers of the C terms interface. They are exported, but with C++
// linkage: they take the client's types, so only the library's own C
// functions (and its tests) call them.
#ifndef TERMS_API_INTERNAL_H
#define TERMS_API_INTERNAL_H

#include <string>

#include "TermsAPI.h"
#include "VerantiAPI.h"
#include "VerantiExport.h"

// 0 to 3 unchanged; every other value (negative ones included) becomes 4.
VERANTI_EXPORT EHomeDisclaimerRequester GetRequesterType(TermsRequester requester);

// A NUL-terminated copy from `new char[]` (release with delete[]), or null
// for an empty text.
VERANTI_EXPORT char* ConvertChar(std::string text);

// Fills every field of `dst` from `src`, overwriting without releasing:
// convert only into a record that holds no texts. With no detail sections
// ppDetailData is left as it was and nDetailDataCount set to 0.
VERANTI_EXPORT void ConvertTermItem(TermsContentItem* dst, STHomeDisclaimerContentItem* src);

// Releases the texts and detail sections of `item` (not the record itself)
// and nulls them. A detail array with a count below 1 is left untouched.
VERANTI_EXPORT void DestroyTermItem(TermsContentItem* item);

// Body of the background thread of TriggerTermsService: one availability
// request, whose answer only reaches the log.
VERANTI_EXPORT void m_TriggerTermsServiceAsync();

#endif  // TERMS_API_INTERNAL_H

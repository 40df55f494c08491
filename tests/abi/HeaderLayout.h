/* Offsets and sizes of the public records as one compiler sees them; the C99 and C++ units fill them alike. */
#ifndef HEADER_LAYOUT_H
#define HEADER_LAYOUT_H

#include <stddef.h>

#include "TermsAPI.h"
#include "TermsDbusAPI.h"

#define HEADER_LAYOUT                                                                                                  \
    {                                                                                                                  \
        sizeof(TermsContentItem), offsetof(TermsContentItem, nOrder), offsetof(TermsContentItem, bIsAgreed),           \
            offsetof(TermsContentItem, strAgreeDependency), offsetof(TermsContentItem, ppDetailData),                  \
            offsetof(TermsContentItem, nDetailDataCount), sizeof(TermsRequester), sizeof(TermsDbusMessage),            \
            offsetof(TermsDbusMessage, buffer), offsetof(TermsDbusMessage, buffer_size), sizeof(TermsDbusCallbackType) \
    }
#define HEADER_LAYOUT_VALUES 11

#ifdef __cplusplus
extern "C" {
#endif
/* Filled by the translation unit compiled as C99. */
extern const size_t header_layout_as_c[HEADER_LAYOUT_VALUES];
#ifdef __cplusplus
}
#endif

#endif /* HEADER_LAYOUT_H */

/* Offsets and sizes of the public records as one compiler sees them. The
 * C99 and the C++ translation units fill them with the same macro. */
#ifndef HEADER_LAYOUT_H
#define HEADER_LAYOUT_H

#include <stddef.h>

#include "TermsAPI.h"
#include "TermsDbusAPI.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    LAYOUT_ITEM_SIZE,
    LAYOUT_ITEM_ORDER,
    LAYOUT_ITEM_AGREED,
    LAYOUT_ITEM_DEPENDENCY,
    LAYOUT_ITEM_DETAILS,
    LAYOUT_ITEM_COUNT,
    LAYOUT_REQUESTER_SIZE,
    LAYOUT_MESSAGE_SIZE,
    LAYOUT_MESSAGE_BUFFER,
    LAYOUT_MESSAGE_BUFFER_SIZE,
    LAYOUT_CALLBACK_TYPE_SIZE,
    LAYOUT_VALUES
};

#define HEADER_LAYOUT_FILL(values)                                                         \
    do {                                                                                   \
        (values)[LAYOUT_ITEM_SIZE] = sizeof(TermsContentItem);                             \
        (values)[LAYOUT_ITEM_ORDER] = offsetof(TermsContentItem, nOrder);                  \
        (values)[LAYOUT_ITEM_AGREED] = offsetof(TermsContentItem, bIsAgreed);              \
        (values)[LAYOUT_ITEM_DEPENDENCY] = offsetof(TermsContentItem, strAgreeDependency); \
        (values)[LAYOUT_ITEM_DETAILS] = offsetof(TermsContentItem, ppDetailData);          \
        (values)[LAYOUT_ITEM_COUNT] = offsetof(TermsContentItem, nDetailDataCount);        \
        (values)[LAYOUT_REQUESTER_SIZE] = sizeof(TermsRequester);                          \
        (values)[LAYOUT_MESSAGE_SIZE] = sizeof(TermsDbusMessage);                          \
        (values)[LAYOUT_MESSAGE_BUFFER] = offsetof(TermsDbusMessage, buffer);              \
        (values)[LAYOUT_MESSAGE_BUFFER_SIZE] = offsetof(TermsDbusMessage, buffer_size);    \
        (values)[LAYOUT_CALLBACK_TYPE_SIZE] = sizeof(TermsDbusCallbackType);               \
    } while (0)

/* Filled by the translation unit compiled as C99. */
void header_layout_as_c(size_t values[LAYOUT_VALUES]);

#ifdef __cplusplus
}
#endif

#endif /* HEADER_LAYOUT_H */

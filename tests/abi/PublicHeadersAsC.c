/* The public C headers compiled as C99 (strict, pedantic). */
#include "HeaderLayout.h"
#include "TermsAPI.h"
#include "TermsDbusAPI.h"

void header_layout_as_c(size_t values[LAYOUT_VALUES]) {
    HEADER_LAYOUT_FILL(values);
}

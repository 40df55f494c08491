/* The public C headers compiled as C99 (strict, pedantic). */
#include "TermsAPI.h"
#include "TermsDbusAPI.h"

#include "HeaderLayout.h"

void header_layout_as_c(size_t values[LAYOUT_VALUES]) { HEADER_LAYOUT_FILL(values); }

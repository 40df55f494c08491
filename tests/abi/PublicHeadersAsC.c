/* The public C headers compiled as C99 (strict, pedantic). */
#include "HeaderLayout.h"

const size_t header_layout_as_c[HEADER_LAYOUT_VALUES] = HEADER_LAYOUT;

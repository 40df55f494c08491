// The public C headers compiled as C++, compared with the C99 view of the
// same records: a header that changes shape under __cplusplus fails here.
#include <cstdio>

#include "HeaderLayout.h"
#include "TermsAPI.h"
#include "TermsDbusAPI.h"

int main() {
    size_t asC[LAYOUT_VALUES] = {};
    size_t asCpp[LAYOUT_VALUES] = {};
    header_layout_as_c(asC);
    HEADER_LAYOUT_FILL(asCpp);
    int differences = 0;
    for (int i = 0; i < LAYOUT_VALUES; ++i) {
        if (asC[i] != asCpp[i]) {
            std::fprintf(stderr, "layout value %d: C %zu, C++ %zu\n", i, asC[i], asCpp[i]);
            ++differences;
        }
    }
    std::printf("%d layout values compared, %d differ\n", static_cast<int>(LAYOUT_VALUES), differences);
    return differences == 0 ? 0 : 1;
}

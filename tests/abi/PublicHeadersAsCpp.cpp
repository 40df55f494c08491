// The public C headers compiled as C++, compared with the C99 view of the
// same records: a header that changes shape under __cplusplus fails here.
#include <cstdio>

#include "HeaderLayout.h"

int main() {
    const size_t asCpp[HEADER_LAYOUT_VALUES] = HEADER_LAYOUT;
    int differences = 0;
    for (int i = 0; i < HEADER_LAYOUT_VALUES; ++i) {
        if (header_layout_as_c[i] != asCpp[i]) {
            std::fprintf(stderr, "layout value %d: C %zu, C++ %zu\n", i, header_layout_as_c[i], asCpp[i]);
            ++differences;
        }
    }
    std::printf("%d layout values compared, %d differ\n", HEADER_LAYOUT_VALUES, differences);
    return differences == 0 ? 0 : 1;
}

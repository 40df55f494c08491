/* A program outside the project, built against the installed library with pkg-config: it must compile, link and
 * run with nothing but what `cmake --install` put in place. */
#include <TermsAPI.h>
#include <TermsDbusAPI.h>
#include <stdio.h>

int main(void) {
    TermsContentItem item;
    TermsDbusMessage message;
    InitailizeTermsContentItem(&item);
    InitiateTermsDbusMessage(&message, NULL, 0, NULL, NULL, NULL, 0);
    ReleaseTermsDbusMessage(&message);
    if (item.strItemId != NULL || item.nDetailDataCount != 0) {
        fprintf(stderr, "consumer: the record was not initialised\n");
        return 1;
    }
    printf("consumer (C): linked and ran\n");
    return 0;
}

/* A C caller of the terms interface, checking what it is handed as C sees it. */
#include "CTermsScenarios.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures, calls, listed;

#define CHECK(condition) \
    ((condition) ? (void)0 : (void)(fprintf(stderr, "CTermsScenarios.c:%d: %s\n", __LINE__, #condition), ++failures))

/* A null `expected` means that the text must be null. */
static void check_text(const char* actual, const char* expected) {
    if (expected == NULL ? actual == NULL : actual != NULL && strcmp(actual, expected) == 0) return;
    fprintf(stderr, "text \"%s\", expected \"%s\"\n", actual ? actual : "(null)", expected ? expected : "(null)");
    ++failures;
}

static void on_sample(TermsContentItem* item, void* user_data) {
    ++calls;
    CHECK(user_data == &calls);
    const char* const texts[][2] = {
        {item->strItemId, "privacy-notice"},
        {item->strVersion, "3.1"},
        {item->strTitle, "Privacy Notice"},
        {item->strIntro, "How the set uses what you watch"},
        {item->strDetails, "[{\"title\":\"Scope\",\"data\":\"Viewing history\"},{\"data\":\"Kept for one year\"}]"},
        {item->strButton1, "Agree"},
        {item->strButton2, "Disagree"},
        {item->strButton3, "Details"},
        {item->strButton4, "Back"},
        {item->strButton5, "Next"},
        {item->strButton6, "Later"},
        {item->strButton7, "Help"},
        {item->strButton8, "Close"},
        {item->strButton9, NULL},
        {item->strButton10, NULL},
        {item->strAgreeDependency, "terms-of-use"}};
    for (size_t i = 0; i < sizeof texts / sizeof texts[0]; ++i) check_text(texts[i][0], texts[i][1]);
    /* Order, agreed, only notice, privacy policy used, reverse, detail entries. */
    char numbers[80];
    snprintf(numbers, sizeof numbers, "%d %d %d %d %d %d", item->nOrder, item->bIsAgreed, item->bOnlyNotice,
             item->bPPUsed, item->bReverse, item->nDetailDataCount);
    check_text(numbers, "7 1 0 1 0 4");
    /* Two sections, the second without a title. */
    const char* const details[] = {"Scope", "Viewing history", NULL, "Kept for one year"};
    for (int i = 0; i < 4 && item->nDetailDataCount == 4; ++i) check_text(item->ppDetailData[i], details[i]);
}

static void on_list(TermsContentItem** items, int count, void* user_data) {
    ++calls;
    CHECK(user_data == &calls);
    CHECK(count == listed);
    for (int i = 0; i < count && i < listed; ++i) {
        char id[32];
        snprintf(id, sizeof id, "disclaimer-%d", i);
        check_text(items[i]->strItemId, id);
        CHECK(items[i]->nOrder == i);
    }
}

int scenario_detail(const char* id, int expected_calls) {
    failures = calls = 0;
    GetDisclaimerDetail(id, on_sample, &calls);
    GetDisclaimerDetail(id, NULL, NULL);
    CHECK(calls == expected_calls);
    return failures;
}

int scenario_all_details(TermsRequester requester, int count) {
    failures = calls = 0;
    listed = count;
    GetAllDisclaimerDetail(requester, on_list, &calls);
    GetAllDisclaimerDetail(requester, NULL, NULL);
    CHECK(calls == (count > 0));
    return failures;
}

int scenario_web_view_header(const char* expected) {
    char* header = GetInfoForDisclaimerWebView();
    failures = 0;
    check_text(header, expected);
    free(header);
    return failures;
}

int scenario_without_service(void) {
    failures = 0;
    CHECK(IsDisclaimerItemExist("agreed") == 1 && GetDisclaimerItemAgreement("agreed") == 1);
    CHECK(IsDisclaimerItemExist("declined") == 1 && GetDisclaimerItemAgreement("declined") == 0);
    CHECK(IsDisclaimerItemExist("unknown") == 0 && GetDisclaimerItemAgreement("unknown") == 0);
    CHECK(RequestUpdateDisclaimers(NULL) == 0);
    CHECK(SetDisclaimerItemsAgreements(NULL) == 0);
    CHECK(SetDisclaimerItemsAgreements("abc") == 0);
    return failures;
}

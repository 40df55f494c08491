/* A C caller of the terms interface: every record the library hands over is
 * checked here, field by field, as C sees it. */
#include "CTermsScenarios.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "SampleDisclaimer.h"

typedef struct {
    int calls;
    int failures;
    const char* const* ids;
    int count;
} Outcome;

static void check(int* failures, int ok, const char* what, const char* file, int line) {
    if (ok) return;
    fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
    ++*failures;
}

/* A null `expected` means that the text must be null. */
static void check_text(int* failures, const char* actual, const char* expected, const char* what, const char* file,
                       int line) {
    const int same = expected == NULL ? actual == NULL : actual != NULL && strcmp(actual, expected) == 0;
    if (same) return;
    fprintf(stderr, "%s:%d: %s is \"%s\", expected \"%s\"\n", file, line, what, actual ? actual : "(null)",
            expected ? expected : "(null)");
    ++*failures;
}

#define CHECK(failures, condition) check((failures), (condition) != 0, #condition, __FILE__, __LINE__)
#define CHECK_TEXT(failures, actual, expected) check_text((failures), (actual), (expected), #actual, __FILE__, __LINE__)

static void check_sample(const TermsContentItem* item, int* failures) {
    CHECK_TEXT(failures, item->strItemId, SAMPLE_ID);
    CHECK(failures, item->nOrder == SAMPLE_ORDER);
    CHECK_TEXT(failures, item->strVersion, SAMPLE_VERSION);
    CHECK_TEXT(failures, item->strTitle, SAMPLE_TITLE);
    CHECK_TEXT(failures, item->strIntro, SAMPLE_INTRO);
    CHECK_TEXT(failures, item->strDetails, SAMPLE_DETAILS);
    CHECK_TEXT(failures, item->strButton1, SAMPLE_BUTTON1);
    CHECK_TEXT(failures, item->strButton2, SAMPLE_BUTTON2);
    CHECK_TEXT(failures, item->strButton3, SAMPLE_BUTTON3);
    CHECK_TEXT(failures, item->strButton4, SAMPLE_BUTTON4);
    CHECK_TEXT(failures, item->strButton5, SAMPLE_BUTTON5);
    CHECK_TEXT(failures, item->strButton6, SAMPLE_BUTTON6);
    CHECK_TEXT(failures, item->strButton7, SAMPLE_BUTTON7);
    CHECK_TEXT(failures, item->strButton8, SAMPLE_BUTTON8);
    CHECK_TEXT(failures, item->strButton9, NULL);
    CHECK_TEXT(failures, item->strButton10, NULL);
    CHECK(failures, item->bIsAgreed == SAMPLE_IS_AGREED);
    CHECK(failures, item->bOnlyNotice == SAMPLE_ONLY_NOTICE);
    CHECK_TEXT(failures, item->strAgreeDependency, SAMPLE_AGREE_DEPENDENCY);
    CHECK(failures, item->bPPUsed == SAMPLE_PP_USED);
    CHECK(failures, item->bReverse == SAMPLE_REVERSE);
    CHECK(failures, item->nDetailDataCount == SAMPLE_DETAIL_ENTRIES);
    if (item->nDetailDataCount != SAMPLE_DETAIL_ENTRIES) return;
    CHECK_TEXT(failures, item->ppDetailData[0], SAMPLE_DETAIL_TITLE_0);
    CHECK_TEXT(failures, item->ppDetailData[1], SAMPLE_DETAIL_DATA_0);
    CHECK_TEXT(failures, item->ppDetailData[2], NULL);
    CHECK_TEXT(failures, item->ppDetailData[3], SAMPLE_DETAIL_DATA_1);
}

static void on_sample(TermsContentItem* item, void* user_data) {
    Outcome* outcome = (Outcome*)user_data;
    ++outcome->calls;
    CHECK(&outcome->failures, item != NULL);
    if (item != NULL) check_sample(item, &outcome->failures);
}

static void on_list(TermsContentItem** items, int count, void* user_data) {
    Outcome* outcome = (Outcome*)user_data;
    int i;
    ++outcome->calls;
    CHECK(&outcome->failures, count == outcome->count);
    for (i = 0; i < count && i < outcome->count; ++i) {
        CHECK_TEXT(&outcome->failures, items[i]->strItemId, outcome->ids[i]);
        CHECK(&outcome->failures, items[i]->nOrder == i);
    }
}

int scenario_sample_detail(void) {
    Outcome outcome = {0, 0, NULL, 0};
    GetDisclaimerDetail(SAMPLE_ID, on_sample, &outcome);
    CHECK(&outcome.failures, outcome.calls == 1);
    return outcome.failures;
}

int scenario_no_detail(const char* id) {
    Outcome outcome = {0, 0, NULL, 0};
    GetDisclaimerDetail(id, on_sample, &outcome);
    CHECK(&outcome.failures, outcome.calls == 0);
    return outcome.failures;
}

int scenario_all_details(TermsRequester requester, const char* const* ids, int count) {
    Outcome outcome = {0, 0, NULL, 0};
    outcome.ids = ids;
    outcome.count = count;
    GetAllDisclaimerDetail(requester, on_list, &outcome);
    CHECK(&outcome.failures, outcome.calls == (count > 0 ? 1 : 0));
    return outcome.failures;
}

void scenario_details_without_callback(const char* id, TermsRequester requester) {
    GetDisclaimerDetail(id, NULL, NULL);
    GetAllDisclaimerDetail(requester, NULL, NULL);
}

int scenario_stored_agreement(const char* id, int exists, int agreed) {
    int failures = 0;
    CHECK(&failures, IsDisclaimerItemExist(id) == exists);
    CHECK(&failures, GetDisclaimerItemAgreement(id) == agreed);
    return failures;
}

int scenario_web_view_header(const char* expected) {
    int failures = 0;
    char* header = GetInfoForDisclaimerWebView();
    CHECK_TEXT(&failures, header, expected);
    free(header);
    return failures;
}

int scenario_refused_inputs(void) {
    int failures = 0;
    CHECK(&failures, RequestUpdateDisclaimers(NULL) == 0);
    CHECK(&failures, SetDisclaimerItemsAgreements(NULL) == 0);
    CHECK(&failures, SetDisclaimerItemsAgreements("abc") == 0);
    return failures;
}

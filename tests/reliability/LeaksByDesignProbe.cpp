// The one leak the library has by design: GetAllDisclaimerDetail releases the
// list the client filled, not the records in it. This program makes that
// leak with records that own heap texts and sections, so that
// check-leaks-by-design.sh can show, from LeakSanitizer's report without
// suppressions, that everything leaked was allocated for those records, and
// that tests/lsan.supp hides it and nothing else.
#include <gtest/gtest.h>

#include "ClientTestBed.h"
#include "ReliabilitySupport.h"
#include "TermsAPI.h"

namespace {

using clienttest::ClientTestBed;
using testbed::FakeReply;

class AListOfAllDisclaimers : public ClientTestBed {};

TEST_F(AListOfAllDisclaimers, LeavesOnlyItsRecordsUnreleased) {
    service.SetReply("get disclaimer number", FakeReply::WithBody(clienttest::JsonOf(R"({"result":true,"number":2})")));
    Json::Value disclaimer = clienttest::JsonOf(R"({"result":true})");
    // Texts longer than any in-place string buffer, so the records own heap blocks.
    const std::string text = reliability::Filler(100);
    for (const char* member : {"id", "title", "intro", "version", "button1", "button10"}) disclaimer[member] = text;
    disclaimer["details"] = "[{\"title\":\"" + text + "\",\"data\":\"" + text + "\"}]";
    service.SetReply("get disclaimer by order", FakeReply::WithBody(disclaimer));

    int calls = 0;
    GetAllDisclaimerDetail(TERMS_REQUESTER_0, [](TermsContentItem**, int count, void* seen) {
        *static_cast<int*>(seen) += count;
    }, &calls);
    EXPECT_EQ(calls, 2);
}

}  // namespace

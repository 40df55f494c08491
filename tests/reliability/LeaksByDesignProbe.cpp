// Makes the one leak the library has by design, with records that own heap texts and sections, for
// check-leaks-by-design.sh: GetAllDisclaimerDetail releases the list the client filled, not the records in it.
#include "ClientTestBed.h"
#include "ReliabilitySupport.h"

namespace {

using AListOfAllDisclaimers = clienttest::ClientTestBed;

TEST_F(AListOfAllDisclaimers, LeavesOnlyItsRecordsUnreleased) {
    Reply("get disclaimer number", R"({"result":true,"number":2})");
    Json::Value disclaimer = clienttest::JsonOf(R"({"result":true})");
    const std::string text = reliability::Filler(100);  // longer than any in-place string buffer
    for (const char* member : {"id", "title", "intro", "version", "button1", "button10"}) disclaimer[member] = text;
    disclaimer["details"] = "[{\"title\":\"" + text + "\",\"data\":\"" + text + "\"}]";
    service.SetReply("get disclaimer by order", testbed::FakeReply::WithBody(disclaimer));
    int records = 0;
    auto count = [](TermsContentItem**, int count, void* seen) { *static_cast<int*>(seen) += count; };
    GetAllDisclaimerDetail(TERMS_REQUESTER_0, count, &records);
    EXPECT_EQ(records, 2);
}

}  // namespace

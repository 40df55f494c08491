// Fuzzes the agreement cache text: the input is stored under the cache key
// and both agreement queries read it for the set itself (no bus request).
// Both methods catch what they may throw, so no exception may leave them;
// the agreement is always 0 or 1.

#include "FuzzSupport.h"
#include "VerantiAPI.h"

namespace {

const char kAgreementCacheKey[] = "db/veranti/disclaimeragrees";
// An id the seeds use, the empty id, and an id that is also a JSON keyword.
const char* const kIds[] = {"terms", "", "true"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::StoreInput(kAgreementCacheKey, data, size);
    CVerantiAPI* api = CVerantiAPI::GetInstanceUT();
    for (const char* id : kIds) {
        api->IsDisclaimerItemExist(id, "TV");
        int agreed = 0;
        api->GetDisclaimerItemAgreement(id, &agreed, "TV");
        if (agreed != 0 && agreed != 1) fuzzsupport::Fail("agreement is neither 0 nor 1");
    }
    return 0;
}

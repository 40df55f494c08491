// Fuzzes a reply body filling disclaimer records and their detail sections:
// the input is the JSON text of the service's reply, read as the framework
// reads it, and fed to every request that fills records (one disclaimer by
// position and by id, the revised disclaimers, all disclaimers of a list).
//
// The JSON library's exceptions may leave these methods (a member of a kind
// that cannot be converted); anything else is a finding, and so is a record
// whose detail sections are not title/text pairs.
#include <json/json.h>

#include <vector>

#include "FuzzSupport.h"
#include "LoopbackFramework.h"
#include "VerantiAPI.h"

namespace {

using Item = STHomeDisclaimerContentItem;

struct OwnedItems {
    std::vector<Item*> items;
    ~OwnedItems() {
        for (Item* item : items) delete item;
    }
};

void CheckSections(const Item& item) {
    if (item.vecDetailData.size() % 2 != 0) fuzzsupport::Fail("detail sections are not title/text pairs");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    loopback::ClearReplies();
    loopback::SetDefaultReply(fuzzsupport::TextUpToNul(data, size));
    // The list request asks for the count first; two items keep it bounded.
    loopback::SetReply("get disclaimer number", R"({"result":true,"number":2})");
    CVerantiAPI* api = CVerantiAPI::GetInstanceUT();

    Item byPosition;
    fuzzsupport::AllowingJsonErrors([&] { api->GetDisclaimerDetail(byPosition, 1, E_DISCLAIMER_REQUESTER_2, "TV"); });
    CheckSections(byPosition);

    // The same record filled again: its sections are appended to.
    fuzzsupport::AllowingJsonErrors([&] { api->GetDisclaimerDetail("terms", byPosition, "TV"); });
    CheckSections(byPosition);

    OwnedItems revised;
    fuzzsupport::AllowingJsonErrors([&] { api->GetRevisedDisclaimers(revised.items, "TV", "all"); });
    for (const Item* item : revised.items) CheckSections(*item);

    OwnedItems all;
    fuzzsupport::AllowingJsonErrors([&] { api->GetDisclaimerDetails(all.items, E_DISCLAIMER_REQUESTER_OTHER, "AV"); });
    if (all.items.size() > 2) fuzzsupport::Fail("more records than the count");
    for (const Item* item : all.items) CheckSections(*item);
    return 0;
}

// Fuzzes the menu titles text: the input is stored under the titles key and
// read back at several positions. The reader catches the JSON library's
// exceptions itself, so nothing may leave it.

#include "FuzzSupport.h"
#include "TermsJsonParser.h"
#include "VerantiAPI.h"

namespace {

const char kMenuTitlesKey[] = "db/veranti/terms_title";
const int kIndices[] = {0, 1, 7, 1 << 30};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::StoreInput(kMenuTitlesKey, data, size);
    CVerantiAPI* api = CVerantiAPI::GetInstanceUT();
    for (int index : kIndices) {
        CTermsJsonParser::GetMenuTitleFromVconf(kMenuTitlesKey, index);
        std::string title = "unchanged";
        if (api->GetDisclaimerTitle(title, index) == 0 && title.empty()) {
            fuzzsupport::Fail("an empty title reported as found");
        }
    }
    return 0;
}

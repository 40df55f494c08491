// Status of a requester: what must be shown now, and one overall value.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>

#include "Consent.h"

namespace consent {

const char kTelevision[] = "TV";
const char kAgreementsKey[] = "db/veranti/disclaimeragrees";

namespace {

CVerantiAPI& Client() {
    return *CVerantiAPI::GetInstance();
}

// Takes over the records that the terms client allocated.
std::vector<std::unique_ptr<STHomeDisclaimerContentItem>> Own(const std::vector<STHomeDisclaimerContentItem*>& list) {
    std::vector<std::unique_ptr<STHomeDisclaimerContentItem>> owned;
    owned.reserve(list.size());
    for (STHomeDisclaimerContentItem* record : list) owned.emplace_back(record);
    return owned;
}

char* CopyText(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

}  // namespace

EHomeDisclaimerRequester ToRequester(TermsRequester requester) {
    const int value = static_cast<int>(requester);
    return value >= 0 && value <= 3 ? static_cast<EHomeDisclaimerRequester>(value) : E_DISCLAIMER_REQUESTER_OTHER;
}

std::vector<Disclaimer> FetchDisclaimers(TermsRequester requester) {
    std::vector<STHomeDisclaimerContentItem*> records;
    Client().GetDisclaimerDetails(records, ToRequester(requester), kTelevision);
    std::vector<Disclaimer> items;
    std::set<std::string> seen;
    for (const auto& record : Own(records)) {
        if (!seen.insert(record->strItemId).second) continue;
        items.push_back({record->strItemId, record->strAgreeDependency, record->bOnlyNotice, record->bIsAgreed});
    }
    return items;
}

bool FetchRevisedIds(std::vector<std::string>& ids) {
    std::vector<STHomeDisclaimerContentItem*> records;
    const bool answered = Client().GetRevisedDisclaimers(records, kTelevision, "");
    for (const auto& record : Own(records)) ids.push_back(record->strItemId);
    return answered;
}

StatusReport StatusOf(const std::vector<Disclaimer>& items, const std::vector<std::string>& revised) {
    StatusReport report;
    bool anyAgreeable = false;
    for (const Disclaimer& item : items) {
        anyAgreeable |= !item.notice;
        const bool isRevised = std::find(revised.begin(), revised.end(), item.id) != revised.end();
        if ((!item.notice && !item.agreed) || isRevised) report.mustShow.push_back(item.id);
    }
    if (!report.mustShow.empty()) {
        report.value = CONSENT_STATUS_REQUIRED;
    } else {
        report.value = anyAgreeable ? CONSENT_STATUS_OBTAINED : CONSENT_STATUS_NOT_REQUIRED;
    }
    return report;
}

StatusReport GetStatus(TermsRequester requester) {
    if (!Client().IsServiceAvailable()) {
        CONSENT_LOG(DLOG_WARN, "the terms service is not available; status unknown");
        return {};
    }
    const std::vector<Disclaimer> items = FetchDisclaimers(requester);
    std::vector<std::string> revised;
    // The revised list also tells that the service still answered after the
    // list, whose failures look like an empty list.
    if (!FetchRevisedIds(revised)) {
        CONSENT_LOG(DLOG_WARN, "the terms service did not answer for revised disclaimers; status unknown");
        return {};
    }
    return StatusOf(items, revised);
}

void FillStatus(const StatusReport& report, ConsentStatus* status) {
    *status = ConsentStatus{report.value, 0, nullptr};
    status->value = report.value;
    if (report.mustShow.empty()) return;
    status->ids = static_cast<char**>(std::calloc(report.mustShow.size(), sizeof(char*)));
    if (!status->ids) return;
    for (const std::string& id : report.mustShow) status->ids[status->count++] = CopyText(id);
}

void FillBatch(const BatchReport& report, ConsentBatch* batch) {
    *batch = ConsentBatch{0, nullptr};
    if (report.items.empty()) return;
    batch->items = static_cast<ConsentItemResult*>(std::calloc(report.items.size(), sizeof(ConsentItemResult)));
    if (!batch->items) return;
    for (const ItemResult& item : report.items) {
        batch->items[batch->count++] = {CopyText(item.id), item.outcome};
    }
}

}  // namespace consent

extern "C" {

ConsentStatusValue ConsentGetStatus(TermsRequester requester, ConsentStatus* status) {
    const consent::StatusReport report = consent::GetStatus(requester);
    if (status) consent::FillStatus(report, status);
    return report.value;
}

void ConsentStatusClear(ConsentStatus* status) {
    if (!status) return;
    for (int i = 0; i < status->count; ++i) std::free(status->ids[i]);
    std::free(status->ids);
    *status = ConsentStatus{CONSENT_STATUS_UNKNOWN, 0, nullptr};
}

const char* ConsentStatusName(ConsentStatusValue value) {
    switch (value) {
        case CONSENT_STATUS_UNKNOWN:
            return "unknown";
        case CONSENT_STATUS_REQUIRED:
            return "required";
        case CONSENT_STATUS_NOT_REQUIRED:
            return "not required";
        case CONSENT_STATUS_OBTAINED:
            return "obtained";
    }
    return "invalid";
}

}  // extern "C"

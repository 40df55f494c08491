// Accept-all and reject-all: every disclaimer of a requester, in an order
// that respects agreement dependencies.
#include <algorithm>
#include <cstdlib>
#include <map>

#include "Consent.h"

namespace consent {
namespace {

enum class Mark { Unvisited, Visiting, Done };

// Depth-first walk that puts every dependency (within the list) before its
// dependants and marks the items that lie on a dependency cycle.
class DependencyOrder {
public:
    explicit DependencyOrder(const std::vector<Disclaimer>& items) : m_Items(items), m_Marks(items.size()) {
        for (size_t i = 0; i < items.size(); ++i) m_Index.emplace(items[i].id, i);
        for (size_t i = 0; i < items.size(); ++i) Visit(i);
    }

    std::vector<PlannedStep> Steps() const {
        std::vector<PlannedStep> steps;
        for (size_t i : m_Order) {
            const Disclaimer& item = m_Items[i];
            if (item.notice) {
                steps.push_back({&item, false, CONSENT_ITEM_NOTICE});
            } else if (m_OnCycle[i]) {
                steps.push_back({&item, false, CONSENT_ITEM_CYCLE});
            } else {
                steps.push_back({&item, true, CONSENT_ITEM_DONE});
            }
        }
        return steps;
    }

private:
    void Visit(size_t i) {
        if (m_Marks[i] == Mark::Done) return;
        if (m_Marks[i] == Mark::Visiting) {
            // Everything on the path from i's first visit to here is a cycle.
            auto from = std::find(m_Path.begin(), m_Path.end(), i);
            for (auto at = from; at != m_Path.end(); ++at) m_OnCycle[*at] = true;
            return;
        }
        m_Marks[i] = Mark::Visiting;
        m_Path.push_back(i);
        const auto dependency = m_Index.find(m_Items[i].dependency);
        if (dependency != m_Index.end()) Visit(dependency->second);
        m_Path.pop_back();
        m_Marks[i] = Mark::Done;
        m_Order.push_back(i);
    }

    const std::vector<Disclaimer>& m_Items;
    std::map<std::string, size_t> m_Index;
    std::vector<Mark> m_Marks;
    std::vector<bool> m_OnCycle = std::vector<bool>(m_Items.size(), false);
    std::vector<size_t> m_Path;
    std::vector<size_t> m_Order;
};

bool Send(const Disclaimer& item, bool agree) {
    const bool accepted = CVerantiAPI::GetInstance()->SetDisclaimerItemAgreement(item.id, agree ? 1 : 0, kTelevision);
    if (!accepted) CONSENT_LOG(DLOG_WARN, "the service refused to set \"%s\" to %d", item.id.c_str(), agree);
    return accepted;
}

bool AgreedInStore(const std::string& id) {
    int agreed = 0;
    CVerantiAPI::GetInstance()->GetDisclaimerItemAgreement(id, &agreed, kTelevision);
    return agreed == 1;
}

// What stands in the way of agreeing to an item, or CONSENT_ITEM_DONE when nothing does.
ConsentItemOutcome DependencyHurdle(const Disclaimer& item, const std::map<std::string, ConsentItemOutcome>& handled,
                                    const std::vector<Disclaimer>& items) {
    if (item.dependency.empty()) return CONSENT_ITEM_DONE;
    const bool listed =
        std::any_of(items.begin(), items.end(), [&](const Disclaimer& other) { return other.id == item.dependency; });
    if (listed) {
        const auto outcome = handled.find(item.dependency);
        return outcome != handled.end() && outcome->second == CONSENT_ITEM_DONE ? CONSENT_ITEM_DONE
                                                                                : CONSENT_ITEM_DEPENDENCY_FAILED;
    }
    return AgreedInStore(item.dependency) ? CONSENT_ITEM_DONE : CONSENT_ITEM_MISSING_DEPENDENCY;
}

ConsentItemOutcome Agree(const Disclaimer& item, const std::map<std::string, ConsentItemOutcome>& handled,
                         const std::vector<Disclaimer>& items) {
    const ConsentItemOutcome hurdle = DependencyHurdle(item, handled, items);
    if (hurdle != CONSENT_ITEM_DONE) return hurdle;
    return item.agreed || Send(item, true) ? CONSENT_ITEM_DONE : CONSENT_ITEM_REFUSED;
}

ConsentItemOutcome Withdraw(const Disclaimer& item) {
    return !item.agreed || Send(item, false) ? CONSENT_ITEM_DONE : CONSENT_ITEM_REFUSED;
}

void LogUnsent(const ItemResult& result) {
    if (result.outcome == CONSENT_ITEM_CYCLE || result.outcome == CONSENT_ITEM_MISSING_DEPENDENCY) {
        CONSENT_LOG(DLOG_ERROR, "\"%s\" not sent: %s", result.id.c_str(), ConsentItemOutcomeName(result.outcome));
    }
}

}  // namespace

std::vector<PlannedStep> PlanAgreeing(const std::vector<Disclaimer>& items) {
    return DependencyOrder(items).Steps();
}

std::vector<PlannedStep> PlanWithdrawing(const std::vector<Disclaimer>& items) {
    std::vector<PlannedStep> steps = PlanAgreeing(items);
    std::reverse(steps.begin(), steps.end());
    return steps;
}

BatchReport SetAll(TermsRequester requester, bool agree) {
    BatchReport report;
    if (!CVerantiAPI::GetInstance()->IsServiceAvailable()) {
        CONSENT_LOG(DLOG_WARN, "the terms service is not available; nothing set");
        return report;
    }
    const std::vector<Disclaimer> items = FetchDisclaimers(requester);
    std::map<std::string, ConsentItemOutcome> handled;
    report.allDone = true;
    for (const PlannedStep& step : agree ? PlanAgreeing(items) : PlanWithdrawing(items)) {
        ConsentItemOutcome outcome = step.outcome;
        if (step.send) outcome = agree ? Agree(*step.item, handled, items) : Withdraw(*step.item);
        handled[step.item->id] = outcome;
        report.items.push_back({step.item->id, outcome});
        LogUnsent(report.items.back());
        report.allDone &= outcome == CONSENT_ITEM_DONE || outcome == CONSENT_ITEM_NOTICE;
    }
    return report;
}

namespace {

int SetAllInto(TermsRequester requester, bool agree, ConsentBatch* batch) {
    const consent::BatchReport report = consent::SetAll(requester, agree);
    if (batch) consent::FillBatch(report, batch);
    return report.allDone ? 1 : 0;
}

}  // namespace

}  // namespace consent

extern "C" {

int ConsentAcceptAll(TermsRequester requester, ConsentBatch* batch) {
    return consent::SetAllInto(requester, true, batch);
}

int ConsentRejectAll(TermsRequester requester, ConsentBatch* batch) {
    return consent::SetAllInto(requester, false, batch);
}

void ConsentBatchClear(ConsentBatch* batch) {
    if (!batch) return;
    for (int i = 0; i < batch->count; ++i) std::free(batch->items[i].id);
    std::free(batch->items);
    *batch = ConsentBatch{0, nullptr};
}

const char* ConsentItemOutcomeName(ConsentItemOutcome outcome) {
    switch (outcome) {
        case CONSENT_ITEM_DONE:
            return "done";
        case CONSENT_ITEM_REFUSED:
            return "refused";
        case CONSENT_ITEM_NOTICE:
            return "notice";
        case CONSENT_ITEM_MISSING_DEPENDENCY:
            return "missing dependency";
        case CONSENT_ITEM_CYCLE:
            return "cycle";
        case CONSENT_ITEM_DEPENDENCY_FAILED:
            return "dependency failed";
    }
    return "invalid";
}

}  // extern "C"

// Internals of libveranti-consent: the C++ forms of the calls, shared by the
// blocking C functions, the asynchronous ones and the tests.
#ifndef VERANTI_CONSENT_INTERNAL_H
#define VERANTI_CONSENT_INTERNAL_H

#include <VerantiAPI.h>
#include <dlog.h>

#include <map>
#include <string>
#include <vector>

#include "VerantiConsent.h"

namespace consent {

// The product type of the set itself.
extern const char kTelevision[];
// The store key of the agreement cache that the terms service keeps.
extern const char kAgreementsKey[];

#define CONSENT_LOG(prio, fmt, ...) \
    __dlog_print(LOG_ID_MAIN, prio, "VerantiConsent", "%s: " fmt, __func__, ##__VA_ARGS__)

// One disclaimer of a requester's list, as accept-all and status need it.
struct Disclaimer {
    std::string id;
    std::string dependency;  // the id that must be agreed first, or ""
    bool notice = false;
    bool agreed = false;
};

struct StatusReport {
    ConsentStatusValue value = CONSENT_STATUS_UNKNOWN;
    std::vector<std::string> mustShow;
};

struct ItemResult {
    std::string id;
    ConsentItemOutcome outcome;
};

struct BatchReport {
    bool allDone = false;
    std::vector<ItemResult> items;
};

// One step of accept-all or reject-all: the item, and whether it is to be
// sent or has its outcome already (a notice, a cycle).
struct PlannedStep {
    const Disclaimer* item;
    bool send;
    ConsentItemOutcome outcome;  // meaningful when !send
};

using Agreements = std::map<std::string, ConsentAgreement>;

struct AgreementChange {
    std::string id;
    ConsentAgreement before;
    ConsentAgreement after;
};

EHomeDisclaimerRequester ToRequester(TermsRequester requester);

// The requester's disclaimers in display order, each id once.
std::vector<Disclaimer> FetchDisclaimers(TermsRequester requester);
// The ids the service reports as revised; false when it did not answer.
bool FetchRevisedIds(std::vector<std::string>& ids);

// The status from a requester's list and the revised ids.
StatusReport StatusOf(const std::vector<Disclaimer>& items, const std::vector<std::string>& revised);
StatusReport GetStatus(TermsRequester requester);

// The order in which to agree (dependencies first) or withdraw (dependants
// first); items caught in a dependency cycle are not sent.
std::vector<PlannedStep> PlanAgreeing(const std::vector<Disclaimer>& items);
std::vector<PlannedStep> PlanWithdrawing(const std::vector<Disclaimer>& items);
BatchReport SetAll(TermsRequester requester, bool agree);

// The agreement cache as it is in the store now (empty when unset or unreadable).
Agreements ReadAgreements();
// Every id whose value differs, in id order.
std::vector<AgreementChange> ChangesBetween(const Agreements& before, const Agreements& after);

// Copies into the caller's C structures, as new: what they held is not released.
void FillStatus(const StatusReport& report, ConsentStatus* status);
void FillBatch(const BatchReport& report, ConsentBatch* batch);

}  // namespace consent

#endif  // VERANTI_CONSENT_INTERNAL_H

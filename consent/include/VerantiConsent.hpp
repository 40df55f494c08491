// C++ interface of libveranti-consent: inline over the C functions of
// VerantiConsent.h, with owned strings and vectors, std::function callbacks
// and a change subscription that ends with its object.
//
// The same conventions hold: blocking calls wait on the caller's thread;
// asynchronous calls end on the caller's thread-default GLib main context.
#ifndef VERANTI_CONSENT_HPP
#define VERANTI_CONSENT_HPP

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "VerantiConsent.h"

namespace veranti {
namespace consent {

struct Status {
    ConsentStatusValue value = CONSENT_STATUS_UNKNOWN;
    std::vector<std::string> mustShow;  // in display order
};

struct ItemOutcome {
    std::string id;
    ConsentItemOutcome outcome;
};

struct Batch {
    bool allDone = false;
    std::vector<ItemOutcome> items;  // in the order they were handled
};

struct Change {
    std::string id;
    ConsentAgreement before;
    ConsentAgreement after;
};

using Milliseconds = std::chrono::milliseconds;

namespace detail {

inline Status ToStatus(const ConsentStatus& status) {
    Status copy;
    copy.value = status.value;
    for (int i = 0; i < status.count; ++i) copy.mustShow.emplace_back(status.ids[i]);
    return copy;
}

inline Batch ToBatch(int allDone, const ConsentBatch& batch) {
    Batch copy;
    copy.allDone = allDone != 0;
    for (int i = 0; i < batch.count; ++i) copy.items.push_back({batch.items[i].id, batch.items[i].outcome});
    return copy;
}

inline unsigned int ToTimeout(Milliseconds limit) {
    return limit.count() <= 0 ? 0u : static_cast<unsigned int>(limit.count());
}

// Moves a std::function to the heap for a C callback that runs once.
template <typename Function>
void* Hand(Function function) {
    return new Function(std::move(function));
}

template <typename Function>
Function Take(void* data) {
    Function* held = static_cast<Function*>(data);
    Function function = std::move(*held);
    delete held;
    return function;
}

// Runs ConsentAcceptAll or ConsentRejectAll and copies its outcome.
inline Batch RunBatch(int (*run)(TermsRequester, ConsentBatch*), TermsRequester requester) {
    ConsentBatch batch;
    const int allDone = run(requester, &batch);
    Batch copy = ToBatch(allDone, batch);
    ConsentBatchClear(&batch);
    return copy;
}

}  // namespace detail

inline Status GetStatus(TermsRequester requester) {
    ConsentStatus status;
    ConsentGetStatus(requester, &status);
    Status copy = detail::ToStatus(status);
    ConsentStatusClear(&status);
    return copy;
}

inline Batch AcceptAll(TermsRequester requester) {
    return detail::RunBatch(ConsentAcceptAll, requester);
}

inline Batch RejectAll(TermsRequester requester) {
    return detail::RunBatch(ConsentRejectAll, requester);
}

// Calls its function with every batch of agreement changes while it lives.
class ChangeSubscription {
public:
    using Handler = std::function<void(const std::vector<Change>&)>;

    explicit ChangeSubscription(Handler handler) : m_Handler(new Handler(std::move(handler))) {
        m_Id = ConsentAddChangeCallback(&ChangeSubscription::Deliver, m_Handler);
    }
    ~ChangeSubscription() {
        if (m_Id != 0) ConsentRemoveChangeCallback(m_Id);
        delete m_Handler;
    }
    ChangeSubscription(const ChangeSubscription&) = delete;
    ChangeSubscription& operator=(const ChangeSubscription&) = delete;

    // False when the store could not be watched.
    bool Active() const { return m_Id != 0; }

private:
    static void Deliver(const ConsentChange* changes, int count, void* data) {
        std::vector<Change> copy;
        for (int i = 0; i < count; ++i) copy.push_back({changes[i].id, changes[i].before, changes[i].after});
        (*static_cast<Handler*>(data))(copy);
    }

    Handler* m_Handler;
    unsigned int m_Id = 0;
};

using StatusHandler = std::function<void(ConsentCallResult, const Status&)>;
using BatchHandler = std::function<void(ConsentCallResult, const Batch&)>;
using IntHandler = std::function<void(ConsentCallResult, int)>;

inline void GetStatusAsync(TermsRequester requester, Milliseconds limit, StatusHandler handler) {
    ConsentGetStatusAsync(
        requester, detail::ToTimeout(limit),
        [](ConsentCallResult result, const ConsentStatus* status, void* data) {
            detail::Take<StatusHandler>(data)(result, detail::ToStatus(*status));
        },
        detail::Hand(std::move(handler)));
}

namespace detail {

inline void DeliverBatch(ConsentCallResult result, int allDone, const ConsentBatch* batch, void* data) {
    Take<BatchHandler>(data)(result, ToBatch(allDone, *batch));
}

inline void DeliverInt(ConsentCallResult result, int value, void* data) {
    Take<IntHandler>(data)(result, value);
}

}  // namespace detail

inline void AcceptAllAsync(TermsRequester requester, Milliseconds limit, BatchHandler handler) {
    ConsentAcceptAllAsync(requester, detail::ToTimeout(limit), detail::DeliverBatch, detail::Hand(std::move(handler)));
}

inline void RejectAllAsync(TermsRequester requester, Milliseconds limit, BatchHandler handler) {
    ConsentRejectAllAsync(requester, detail::ToTimeout(limit), detail::DeliverBatch, detail::Hand(std::move(handler)));
}

inline void IsServiceAvailableAsync(Milliseconds limit, IntHandler handler) {
    ConsentIsServiceAvailableAsync(detail::ToTimeout(limit), detail::DeliverInt, detail::Hand(std::move(handler)));
}

inline void GetAgreementAsync(const std::string& id, Milliseconds limit, IntHandler handler) {
    ConsentGetAgreementAsync(id.c_str(), detail::ToTimeout(limit), detail::DeliverInt,
                             detail::Hand(std::move(handler)));
}

inline void SetAgreementAsync(const std::string& id, bool agreed, Milliseconds limit, IntHandler handler) {
    ConsentSetAgreementAsync(id.c_str(), agreed ? 1 : 0, detail::ToTimeout(limit), detail::DeliverInt,
                             detail::Hand(std::move(handler)));
}

}  // namespace consent
}  // namespace veranti

#endif  // VERANTI_CONSENT_HPP

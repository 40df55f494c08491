// Asynchronous calls: the work runs on a small pool of worker threads, the
// result comes back on the caller's main context, and a time limit on that
// context ends the call early while the worker is left to finish.
#include <glib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "Consent.h"

namespace consent {
namespace {

// Enough for a UI's calls in flight at once; workers blocked past their
// call's time limit hold one each until the service answers.
const int kWorkers = 4;

class AsyncCall;
using CallHandle = std::shared_ptr<AsyncCall>;

// Up to kWorkers threads, made as calls wait for one, that take calls in
// order. The threads live as long as the process.
class WorkerPool {
public:
    void Push(CallHandle call) {
        const std::lock_guard<std::mutex> lock(m_Lock);
        m_Queue.push_back(std::move(call));
        if (m_Queue.size() > m_Idle && m_Threads < kWorkers) {
            ++m_Threads;
            std::thread([this] { Serve(); }).detach();
        } else {
            m_Ready.notify_one();
        }
    }

private:
    void Serve();

    std::mutex m_Lock;
    std::condition_variable m_Ready;
    std::deque<CallHandle> m_Queue;
    size_t m_Idle = 0;
    int m_Threads = 0;
};

WorkerPool& Workers() {
    static auto* pool = new WorkerPool;  // never destroyed: its threads may still wait at exit
    return *pool;
}

// One call: `work` on a worker, then `finish` exactly once on the context of
// the thread that started it, with COMPLETED or TIMED_OUT, whichever comes
// first there.
class AsyncCall {
public:
    using Work = std::function<void()>;
    using Finish = std::function<void(ConsentCallResult)>;

    static void Start(unsigned int timeoutMs, Work work, Finish finish) {
        auto call = std::make_shared<AsyncCall>(std::move(work), std::move(finish));
        call->m_UntilWorkDone = call;
        if (timeoutMs > 0) {
            call->m_Timer = g_timeout_source_new(timeoutMs);
            AttachWithCall(call->m_Timer, OnTimeout, call);
        }
        Workers().Push(call);
    }

    AsyncCall(Work work, Finish finish)
        : m_Context(g_main_context_ref_thread_default()), m_Work(std::move(work)), m_Finish(std::move(finish)) {}
    ~AsyncCall() { g_main_context_unref(m_Context); }
    AsyncCall(const AsyncCall&) = delete;
    AsyncCall& operator=(const AsyncCall&) = delete;

    // On a worker: does the work, then hands the end over to the context.
    // The hand-over lock orders the work's writes before the context's reads.
    void RunWork() {
        try {
            m_Work();
        } catch (const std::exception& e) {
            CONSENT_LOG(DLOG_ERROR, "the call failed: %s", e.what());
        }
        const std::lock_guard<std::mutex> lock(m_HandOver);
        GSource* done = g_idle_source_new();
        g_source_set_priority(done, G_PRIORITY_DEFAULT);
        g_source_set_callback(done, OnWorkDone, this, nullptr);  // m_UntilWorkDone keeps this alive
        g_source_attach(done, m_Context);
        g_source_unref(done);
    }

private:
    static void AttachWithCall(GSource* source, GSourceFunc function, const CallHandle& call) {
        g_source_set_callback(source, function, new CallHandle(call),
                              [](gpointer data) { delete static_cast<CallHandle*>(data); });
        g_source_attach(source, call->m_Context);
    }

    static gboolean OnTimeout(gpointer data) {
        AsyncCall& call = **static_cast<CallHandle*>(data);
        CONSENT_LOG(DLOG_WARN, "the time limit ran out before the call finished");
        call.End(CONSENT_CALL_TIMED_OUT);
        return G_SOURCE_REMOVE;
    }

    static gboolean OnWorkDone(gpointer data) {
        auto* call = static_cast<AsyncCall*>(data);
        CallHandle self;
        {
            const std::lock_guard<std::mutex> lock(call->m_HandOver);
            self = std::move(call->m_UntilWorkDone);
        }
        self->End(CONSENT_CALL_COMPLETED);
        return G_SOURCE_REMOVE;
    }

    // On the context: the first end wins; the other is dropped.
    void End(ConsentCallResult result) {
        if (m_Ended) return;
        m_Ended = true;
        if (m_Timer) {
            g_source_destroy(m_Timer);
            g_source_unref(m_Timer);
            m_Timer = nullptr;
        }
        m_Finish(result);
    }

    GMainContext* m_Context;
    std::mutex m_HandOver;
    CallHandle m_UntilWorkDone;  // the call's own reference until its end reached the context
    GSource* m_Timer = nullptr;
    bool m_Ended = false;
    Work m_Work;
    Finish m_Finish;
};

void WorkerPool::Serve() {
    std::unique_lock<std::mutex> lock(m_Lock);
    for (;;) {
        ++m_Idle;
        m_Ready.wait(lock, [this] { return !m_Queue.empty(); });
        --m_Idle;
        CallHandle call = std::move(m_Queue.front());
        m_Queue.pop_front();
        lock.unlock();
        call->RunWork();
        call.reset();
        lock.lock();
    }
}

// Runs `work` on a worker and gives `deliver` its result, or a default one
// when the time ran out.
template <typename Result>
void RunAsync(unsigned int timeoutMs, std::function<Result()> work,
              std::function<void(ConsentCallResult, const Result&)> deliver) {
    auto result = std::make_shared<Result>();
    AsyncCall::Start(
        timeoutMs, [result, work = std::move(work)] { *result = work(); },
        [result, deliver = std::move(deliver)](ConsentCallResult end) {
            deliver(end, end == CONSENT_CALL_COMPLETED ? *result : Result());
        });
}

CVerantiAPI& Client() {
    return *CVerantiAPI::GetInstance();
}

using OwnedItems = std::vector<std::shared_ptr<STHomeDisclaimerContentItem>>;

// A TermsContentItem whose texts point into a record of the terms client.
class ItemView {
public:
    explicit ItemView(const STHomeDisclaimerContentItem& item) {
        for (const std::string& entry : item.vecDetailData) m_Details.push_back(Text(entry));
        m_Item = TermsContentItem{Text(item.strItemId),
                                  item.nOrder,
                                  Text(item.strVersion),
                                  Text(item.strTitle),
                                  Text(item.strIntro),
                                  Text(item.strDetails),
                                  Text(item.strButton1),
                                  Text(item.strButton2),
                                  Text(item.strButton3),
                                  Text(item.strButton4),
                                  Text(item.strButton5),
                                  Text(item.strButton6),
                                  Text(item.strButton7),
                                  Text(item.strButton8),
                                  Text(item.strButton9),
                                  Text(item.strButton10),
                                  item.bIsAgreed ? 1 : 0,
                                  item.bOnlyNotice ? 1 : 0,
                                  Text(item.strAgreeDependency),
                                  item.bPPUsed ? 1 : 0,
                                  item.bReverse ? 1 : 0,
                                  m_Details.empty() ? nullptr : m_Details.data(),
                                  static_cast<int>(m_Details.size())};
    }
    const TermsContentItem* Get() const { return &m_Item; }

private:
    // An empty text is null, as in the records of the C interface.
    static char* Text(const std::string& text) { return text.empty() ? nullptr : const_cast<char*>(text.c_str()); }

    std::vector<char*> m_Details;
    TermsContentItem m_Item{};
};

void SetAllAsync(TermsRequester requester, bool agree, unsigned int timeout_ms, ConsentBatchCallback callback,
                 void* user_data) {
    RunAsync<consent::BatchReport>(
        timeout_ms, [requester, agree] { return consent::SetAll(requester, agree); },
        [callback, user_data](ConsentCallResult end, const consent::BatchReport& report) {
            ConsentBatch batch;
            consent::FillBatch(report, &batch);
            if (callback) callback(end, report.allDone ? 1 : 0, &batch, user_data);
            ConsentBatchClear(&batch);
        });
}

void IntAsync(unsigned int timeout_ms, std::function<int()> work, ConsentIntCallback callback, void* user_data) {
    RunAsync<int>(timeout_ms, std::move(work), [callback, user_data](ConsentCallResult end, const int& value) {
        if (callback) callback(end, value, user_data);
    });
}

std::string IdText(const char* id) {
    return id ? id : "";
}

}  // namespace
}  // namespace consent

extern "C" {

using consent::IdText;
using consent::IntAsync;
using consent::RunAsync;
using consent::SetAllAsync;

void ConsentGetStatusAsync(TermsRequester requester, unsigned int timeout_ms, ConsentStatusCallback callback,
                           void* user_data) {
    RunAsync<consent::StatusReport>(
        timeout_ms, [requester] { return consent::GetStatus(requester); },
        [callback, user_data](ConsentCallResult end, const consent::StatusReport& report) {
            ConsentStatus status;
            consent::FillStatus(report, &status);
            if (callback) callback(end, &status, user_data);
            ConsentStatusClear(&status);
        });
}

void ConsentAcceptAllAsync(TermsRequester requester, unsigned int timeout_ms, ConsentBatchCallback callback,
                           void* user_data) {
    SetAllAsync(requester, true, timeout_ms, callback, user_data);
}

void ConsentRejectAllAsync(TermsRequester requester, unsigned int timeout_ms, ConsentBatchCallback callback,
                           void* user_data) {
    SetAllAsync(requester, false, timeout_ms, callback, user_data);
}

void ConsentIsServiceAvailableAsync(unsigned int timeout_ms, ConsentIntCallback callback, void* user_data) {
    IntAsync(
        timeout_ms, [] { return consent::Client().IsServiceAvailable() ? 1 : 0; }, callback, user_data);
}

void ConsentGetAgreementAsync(const char* id, unsigned int timeout_ms, ConsentIntCallback callback, void* user_data) {
    IntAsync(
        timeout_ms,
        [item = IdText(id)] {
            int agreed = 0;
            consent::Client().GetDisclaimerItemAgreement(item, &agreed, consent::kTelevision);
            return agreed;
        },
        callback, user_data);
}

void ConsentSetAgreementAsync(const char* id, int agreed, unsigned int timeout_ms, ConsentIntCallback callback,
                              void* user_data) {
    IntAsync(
        timeout_ms,
        [item = IdText(id), agreed] {
            return consent::Client().SetDisclaimerItemAgreement(item, agreed, consent::kTelevision) ? 1 : 0;
        },
        callback, user_data);
}

void ConsentGetDetailAsync(const char* id, unsigned int timeout_ms, ConsentItemCallback callback, void* user_data) {
    RunAsync<consent::OwnedItems>(
        timeout_ms,
        [item = IdText(id)] {
            auto record = std::make_shared<STHomeDisclaimerContentItem>();
            const int found = consent::Client().GetDisclaimerDetail(item, *record, consent::kTelevision);
            return found == 0 ? consent::OwnedItems{record} : consent::OwnedItems{};
        },
        [callback, user_data](ConsentCallResult end, const consent::OwnedItems& records) {
            if (!callback) return;
            if (records.empty()) return callback(end, nullptr, user_data);
            const consent::ItemView view(*records.front());
            callback(end, view.Get(), user_data);
        });
}

void ConsentGetAllDetailsAsync(TermsRequester requester, unsigned int timeout_ms, ConsentItemListCallback callback,
                               void* user_data) {
    RunAsync<consent::OwnedItems>(
        timeout_ms,
        [requester] {
            std::vector<STHomeDisclaimerContentItem*> list;
            consent::Client().GetDisclaimerDetails(list, consent::ToRequester(requester), consent::kTelevision);
            return consent::OwnedItems(list.begin(), list.end());
        },
        [callback, user_data](ConsentCallResult end, const consent::OwnedItems& records) {
            if (!callback) return;
            std::vector<std::unique_ptr<consent::ItemView>> views;
            std::vector<const TermsContentItem*> items;
            for (const auto& record : records) {
                views.push_back(std::make_unique<consent::ItemView>(*record));
                items.push_back(views.back()->Get());
            }
            callback(end, items.empty() ? nullptr : items.data(), static_cast<int>(items.size()), user_data);
        });
}

}  // extern "C"

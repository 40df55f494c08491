// The consent library, its command-line commands and its C# class against the
// simulated terms service on the private bus: status, accept-all and reject-all
// in dependency order, change events from every kind of writer, and
// asynchronous calls with time limits.
#include <VerantiAPI.h>
#include <gtest/gtest.h>
#include <vconf.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "ConsentTestSupport.h"
#include "MonoProgram.h"
#include "TempStore.h"
#include "VerantiConsent.h"
#include "VerantiConsent.hpp"

namespace {

using namespace veranti;
using namespace consenttest;

// AA: requester 0 lists a dependant before its dependency, a notice and a free
// item; 1 only a notice; 2 a cycle, an item that depends on it and a free
// item; 3 an item whose dependency it does not list; 4 a revised item.
const char kCatalogue[] = R"json({"default_country": "AA", "disclaimers": {
  "base": {"title": "Base"}, "child": {"title": "Child", "agree_dependency": "base"},
  "note": {"title": "Note", "only_notice": true}, "loose": {"title": "Loose", "details": [{"title": "S", "data": "D"}]},
  "cyc1": {"title": "C1", "agree_dependency": "cyc2"}, "cyc2": {"title": "C2", "agree_dependency": "cyc1"},
  "tail": {"title": "Tail", "agree_dependency": "cyc1"}, "outside": {"title": "Outside"},
  "ext": {"title": "Ext", "agree_dependency": "outside"}, "rev": {"title": "Revised"}, "newcomer": {"title": "Newcomer"}
}, "countries": {
  "AA": {"disclaimers": ["base", "child", "note", "loose", "cyc1", "cyc2", "tail", "outside", "ext", "rev"],
         "requesters": {"0": ["child", "base", "note", "loose"], "1": ["note"], "2": ["cyc1", "tail", "cyc2", "base"],
                        "3": ["ext"], "4": ["rev", "base"]}, "revised": ["rev"]},
  "BB": {"disclaimers": ["base", "newcomer"]}
}})json";

testbed::ProgramRun Cli(const std::string& line) {
    return testbed::RunCommandLine(TERMS_CLI_PATH, line);
}

int Agreement(const std::string& id) {
    int agreed = 0;
    CVerantiAPI::GetInstance()->GetDisclaimerItemAgreement(id, &agreed, "TV");
    return agreed;
}

// The batch's items in the order it sent them, each as "<id> <outcome> <agreement stored after it>".
void ExpectBatch(const consent::Batch& batch, bool allDone, const std::string& items) {
    std::string described;
    for (const auto& item : batch.items) {
        described += (described.empty() ? "" : ", ") + item.id + " " + ConsentItemOutcomeName(item.outcome) + " " +
                     std::to_string(Agreement(item.id));
    }
    EXPECT_EQ(described, items);
    EXPECT_EQ(batch.allDone, allDone) << items;
}

class AConsentClient : public testing::Test {
protected:
    // terms-service-sim serving `catalogue` with the options `extra` (--fail ...), its state in the store.
    void Serve(const std::string& catalogue, const std::vector<std::string>& extra = {}) {
        if (m_Service) m_Service->Stop();  // one service owns the bus name at a time
        const std::string file = m_Store.Root() + "/catalogue.json";
        std::ofstream(file) << catalogue;
        std::vector<std::string> argv{TERMS_SERVICE_SIM_PATH, "--catalogue", file};
        argv.insert(argv.end(), extra.begin(), extra.end());
        m_Service = std::make_unique<testbed::ChildProcess>(argv);
        ASSERT_TRUE(m_Service->AwaitOutput(": serving "));
    }
    void SetUp() override { Serve(kCatalogue); }
    ~AConsentClient() override {
        if (m_Service) m_Service->Stop();
    }

    testbed::TempStore m_Store;
    std::unique_ptr<testbed::ChildProcess> m_Service;
};

TEST_F(AConsentClient, TellsEachOfTheFourStatusValuesWithWhatMustBeShownInDisplayOrder) {
    enum Before { kNothing, kAcceptAll, kStopTheService };
    const struct {
        const char* situation;
        TermsRequester requester;
        Before before;
        ConsentStatusValue value;
        std::vector<std::string> mustShow;
    } kCases[] = {
        {"nothing agreed", TERMS_REQUESTER_0, kNothing, CONSENT_STATUS_REQUIRED, {"child", "base", "loose"}},
        {"only a notice", TERMS_REQUESTER_1, kNothing, CONSENT_STATUS_NOT_REQUIRED, {}},
        {"everything agreed", TERMS_REQUESTER_0, kAcceptAll, CONSENT_STATUS_OBTAINED, {}},
        {"agreed but revised", TERMS_REQUESTER_OTHER, kAcceptAll, CONSENT_STATUS_REQUIRED, {"rev"}},
        {"service gone", TERMS_REQUESTER_0, kStopTheService, CONSENT_STATUS_UNKNOWN, {}},
    };
    for (const auto& c : kCases) {
        if (c.before == kAcceptAll) consent::AcceptAll(c.requester);
        if (c.before == kStopTheService) m_Service->Stop();
        const consent::Status status = consent::GetStatus(c.requester);
        EXPECT_EQ(status.value, c.value) << c.situation << ": " << ConsentStatusName(status.value);
        EXPECT_EQ(status.mustShow, c.mustShow) << c.situation;
    }
    EXPECT_STREQ(ConsentStatusName(CONSENT_STATUS_NOT_REQUIRED), "not required");
    EXPECT_STREQ(ConsentStatusName(static_cast<ConsentStatusValue>(9)), "invalid");
    EXPECT_EQ(ConsentGetStatus(TERMS_REQUESTER_0, nullptr), CONSENT_STATUS_UNKNOWN) << "no status to fill";
    ConsentStatusClear(nullptr);
    ConsentBatchClear(nullptr);
}

// Each step accepts or withdraws everything a requester lists.
TEST_F(AConsentClient, AgreesDependenciesFirstWithdrawsDependantsFirstAndSendsNoCycle) {
    ExpectBatch(consent::AcceptAll(TERMS_REQUESTER_0), true, "base done 1, child done 1, note notice 0, loose done 1");
    ExpectBatch(consent::RejectAll(TERMS_REQUESTER_0), true, "loose done 0, note notice 0, child done 0, base done 0");
    // A cycle and what depends on it are reported, not sent.
    ExpectBatch(consent::AcceptAll(TERMS_REQUESTER_2), false,
                "cyc2 cycle 0, cyc1 cycle 0, tail dependency failed 0, base done 1");
    ExpectBatch(consent::RejectAll(TERMS_REQUESTER_2), false, "base done 0, tail done 0, cyc1 cycle 0, cyc2 cycle 0");
    // A dependency the requester does not list must be agreed already.
    ExpectBatch(consent::AcceptAll(TERMS_REQUESTER_3), false, "ext missing dependency 0");
    ASSERT_TRUE(CVerantiAPI::GetInstance()->SetDisclaimerItemAgreement("outside", 1, "TV"));
    ExpectBatch(consent::AcceptAll(TERMS_REQUESTER_3), true, "ext done 1");
}

TEST_F(AConsentClient, ReportsEachRefusalAndDoesNotSendWhatDependsOnARefusedItem) {
    Serve(kCatalogue, {"--fail=set one agreement=refuse"});
    ExpectBatch(consent::AcceptAll(TERMS_REQUESTER_0), false,
                "base refused 0, child dependency failed 0, note notice 0, loose refused 0");
    m_Service->Stop();
    ConsentBatch empty{5, nullptr};
    EXPECT_EQ(ConsentAcceptAll(TERMS_REQUESTER_0, &empty), 0);
    EXPECT_EQ(empty.count, 0) << "an unreachable service: nothing to report per item";
}

// Collects every change event of one registration.
class AChangeListener : public AConsentClient {
protected:
    void SetUp() override {
        AConsentClient::SetUp();
        m_Id = ConsentAddChangeCallback(&AChangeListener::OnChanges, this);
        ASSERT_NE(m_Id, 0u);
    }
    void TearDown() override {
        if (m_Id != 0) {
            EXPECT_EQ(ConsentRemoveChangeCallback(m_Id), 1);
        }
    }

    static void OnChanges(const ConsentChange* changes, int count, void* data) {
        auto* self = static_cast<AChangeListener*>(data);
        ++self->m_Events;
        for (int i = 0; i < count; ++i) {
            const auto [entry, first] = self->m_Values.try_emplace(changes[i].id, changes[i].before, changes[i].after);
            if (!first) entry->second.second = changes[i].after;
        }
    }

    // Runs the main context until `id` was reported with `after`; the first
    // reported "before" of the id is then `before`.
    bool Reports(const std::string& id, ConsentAgreement before, ConsentAgreement after) {
        const bool seen = IterateUntil([&] { return m_Values.count(id) && m_Values[id].second == after; });
        return seen && m_Values[id].first == before;
    }

    unsigned int m_Id = 0;
    int m_Events = 0;
    // id -> (the first "before" reported, the latest "after")
    std::map<std::string, std::pair<ConsentAgreement, ConsentAgreement>> m_Values;
};

TEST_F(AChangeListener, HearsEveryKindOfWriterWithTheValuesBeforeAndAfter) {
    const struct {
        const char* writer;
        std::function<void()> change;
        const char* id;
        ConsentAgreement before, after;
    } kWriters[] = {
        {"this process", [] { CVerantiAPI::GetInstance()->SetDisclaimerItemAgreement("base", 1, "TV"); }, "base",
         CONSENT_AGREEMENT_NO, CONSENT_AGREEMENT_YES},
        {"the command-line tool", [] { EXPECT_EQ(Cli("agree loose").status, 0); }, "loose", CONSENT_AGREEMENT_NO,
         CONSENT_AGREEMENT_YES},
        {"the store tool", [] { Vconftool(R"(set db/veranti/disclaimeragrees '{"child":"true"}')"); }, "child",
         CONSENT_AGREEMENT_NO, CONSENT_AGREEMENT_YES},
        {"the service, for a new country", [] { CVerantiAPI::GetInstance()->SetCountryCode("BB"); }, "newcomer",
         CONSENT_AGREEMENT_ABSENT, CONSENT_AGREEMENT_NO},
    };
    for (const auto& w : kWriters) {
        w.change();
        EXPECT_TRUE(Reports(w.id, w.before, w.after)) << w.writer;
    }
}

TEST_F(AChangeListener, LosesNoneOfAThousandQuickChanges) {
    std::string object = "{";
    for (int i = 0; i < 1000; ++i) {
        object += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":\"true\"";
        ASSERT_EQ(vconf_set_str("db/veranti/disclaimeragrees", (object + "}").c_str()), 0);
    }
    const auto agreedAndNew = [this] {
        return std::count_if(m_Values.begin(), m_Values.end(), [](const auto& entry) {
            return entry.first[0] == 'k' &&
                   entry.second == std::make_pair(CONSENT_AGREEMENT_ABSENT, CONSENT_AGREEMENT_YES);
        });
    };
    EXPECT_TRUE(IterateUntil([&] { return agreedAndNew() == 1000; })) << agreedAndNew();
    EXPECT_LT(m_Events, 1000) << "changes close together come in one event";
}

TEST_F(AChangeListener, IsSilentOnceRemovedFromItsOwnCallbackOrOnceItsSubscriptionEnds) {
    static unsigned int selfRemoving;  // a callback that removes itself on its first call
    static int selfRemovingCalls;
    selfRemoving = ConsentAddChangeCallback(
        [](const ConsentChange*, int, void*) {
            ++selfRemovingCalls;
            EXPECT_EQ(ConsentRemoveChangeCallback(selfRemoving), 1);
        },
        nullptr);
    ASSERT_NE(selfRemoving, 0u);
    std::vector<consent::Change> seen;
    {
        const consent::ChangeSubscription subscription([&](const std::vector<consent::Change>& changes) {
            seen.insert(seen.end(), changes.begin(), changes.end());
        });
        ASSERT_TRUE(subscription.Active());
        consent::AcceptAll(TERMS_REQUESTER_0);
        ASSERT_TRUE(Reports("loose", CONSENT_AGREEMENT_NO, CONSENT_AGREEMENT_YES));
        ASSERT_TRUE(IterateUntil([&] { return seen.size() >= 3; }));
    }
    const size_t count = seen.size();
    consent::RejectAll(TERMS_REQUESTER_0);
    ASSERT_TRUE(Reports("base", CONSENT_AGREEMENT_NO, CONSENT_AGREEMENT_NO));
    EXPECT_EQ(seen.size(), count);
    EXPECT_EQ(seen.front().id, "base");
    EXPECT_EQ(selfRemovingCalls, 1);
    EXPECT_EQ(ConsentRemoveChangeCallback(selfRemoving), 0) << "not twice";
    EXPECT_EQ(ConsentAddChangeCallback(nullptr, nullptr), 0u);
}

// The asynchronous calls, against a service that answers and one that keeps silent.
using AnAsynchronousCall = AConsentClient;

TEST_F(AnAsynchronousCall, BringsTheBlockingCallsResultBackOnTheCallersContext) {
    // What each call brought back, in its slot; empty until the call ends.
    std::map<std::string, std::string> got;
    const auto keep = [](ConsentCallResult result, int value, void* slot) {
        *static_cast<std::string*>(slot) = result == CONSENT_CALL_COMPLETED ? std::to_string(value) : "failed";
    };
    const auto allEnded = [&] {
        return std::none_of(got.begin(), got.end(), [](const auto& slot) { return slot.second.empty(); });
    };
    ConsentIsServiceAvailableAsync(0, keep, &got["available"]);
    ConsentSetAgreementAsync("loose", 1, 5000, keep, &got["set"]);
    ConsentSetAgreementAsync("nope", 1, 5000, keep, &got["set unknown"]);
    ConsentGetDetailAsync(
        "loose", 5000,
        [](ConsentCallResult, const TermsContentItem* item, void* slot) {
            *static_cast<std::string*>(slot) = item ? std::string(item->strTitle) + "/" + item->ppDetailData[0] : "-";
        },
        &got["detail"]);
    ConsentGetAllDetailsAsync(
        TERMS_REQUESTER_0, 5000,
        [](ConsentCallResult, const TermsContentItem* const*, int count, void* slot) {
            *static_cast<std::string*>(slot) = std::to_string(count);
        },
        &got["all details"]);
    consent::GetStatusAsync(TERMS_REQUESTER_1, consent::Milliseconds(5000),
                            [slot = &got["status"]](ConsentCallResult result, const consent::Status& status) {
                                *slot = result == CONSENT_CALL_COMPLETED ? ConsentStatusName(status.value) : "failed";
                            });
    ASSERT_TRUE(IterateUntil(allEnded));
    ConsentGetAgreementAsync("loose", 5000, keep, &got["agreed"]);  // once the set has ended
    ASSERT_TRUE(IterateUntil(allEnded));
    const std::map<std::string, std::string> kBroughtBack{
        {"available", "1"},         {"set", "1"},   {"set unknown", "0"}, {"detail", "Loose/S"}, {"all details", "4"},
        {"status", "not required"}, {"agreed", "1"}};
    EXPECT_EQ(got, kBroughtBack);
}

TEST_F(AnAsynchronousCall, EndsAtItsTimeLimitWhileTheMainLoopRunsOnWhenTheServiceKeepsSilent) {
    Serve(kCatalogue, {"--fail=*=silent"});
    const consent::Milliseconds limit(300);
    std::vector<ConsentCallResult> ends;
    const auto start = std::chrono::steady_clock::now();
    consent::GetStatusAsync(TERMS_REQUESTER_0, limit, [&](ConsentCallResult result, const consent::Status& status) {
        ends.push_back(result);
        EXPECT_EQ(status.value, CONSENT_STATUS_UNKNOWN);
    });
    consent::AcceptAllAsync(TERMS_REQUESTER_0, limit, [&](ConsentCallResult result, const consent::Batch& batch) {
        ends.push_back(result);
        EXPECT_TRUE(batch.items.empty() && !batch.allDone);
    });
    consent::SetAgreementAsync("base", true, limit, [&](ConsentCallResult result, int value) {
        ends.push_back(result);
        EXPECT_EQ(value, 0);
    });
    ConsentGetDetailAsync(
        "base", limit.count(),
        [](ConsentCallResult result, const TermsContentItem* item, void* list) {
            static_cast<std::vector<ConsentCallResult>*>(list)->push_back(result);
            EXPECT_EQ(item, nullptr);
        },
        &ends);
    consent::IsServiceAvailableAsync(limit, [&](ConsentCallResult result, int) { ends.push_back(result); });
    int turns = 0;  // of the main loop while waiting: at least one per 5 ms when nothing blocks it
    ASSERT_TRUE(IterateUntil([&] {
        ++turns;
        return ends.size() == 5;
    }));
    EXPECT_EQ(ends, std::vector<ConsentCallResult>(5, CONSENT_CALL_TIMED_OUT));
    EXPECT_GE(std::chrono::steady_clock::now() - start, limit);
    EXPECT_GT(turns, 10) << "the main loop kept running while the workers waited";
    // The service gives up; the late results of the blocked workers are dropped.
    m_Service->Stop();
    IterateFor(300);
    EXPECT_EQ(ends.size(), 5u);
}

using TheTermsCliConsentCommands = AConsentClient;

TEST_F(TheTermsCliConsentCommands, TellTheStatusAndAgreeOrWithdrawEverythingInDependencyOrder) {
    // `line` ends with `status` and prints `out` on standard output and `err` on standard error, among other text.
    const auto expectRun = [](const char* line, int status, const char* out, const char* err = "") {
        const testbed::ProgramRun done = Cli(line);
        EXPECT_EQ(done.status, status) << line << ": " << done.err;
        EXPECT_NE(done.out.find(out), std::string::npos) << line << ":\n" << done.out;
        EXPECT_NE(done.err.find(err), std::string::npos) << line << ":\n" << done.err;
    };
    expectRun("status", 0, "Consent for requester 0: required\nTo show, in order: child, base, loose\n");
    expectRun("--json status --requester 1", 0, R"("status" : "not required")");
    expectRun("agree --all", 0, "ID     RESULT\nbase   done\nchild  done\nnote   notice\nloose  done\n");
    expectRun("status", 0, "Consent for requester 0: obtained\n");
    expectRun("agree --none", 0, "loose  done\nnote   notice\nchild  done\nbase   done\n");
    expectRun("--json agree --all --requester 2", 1, R"("outcome" : "dependency failed")");
    expectRun("agree --none --requester 2", 1, "tail  done\ncyc1  cycle\n", "could not withdraw cyc1, cyc2");
    m_Service->Stop();
    expectRun("--json status", 3, R"("status" : "unknown")");
}

TEST_F(TheTermsCliConsentCommands, WatchPrintsEachChangeAsItHappensAsTextOrJson) {
    const struct {
        std::vector<std::string> argv;
        const char* out;
    } kForms[] = {
        {{TERMS_CLI_PATH, "watch", "--count", "1"}, "base: no -> yes\n"},
        {{TERMS_CLI_PATH, "--json", "watch", "--count", "1"},
         R"({"changes":[{"after":"no","before":"yes","id":"base"}]})"},
    };
    bool agreed = false;
    for (const auto& form : kForms) {
        testbed::ChildProcess watcher(form.argv);
        ASSERT_FALSE(watcher.ErrorLine().empty()) << "it says when it watches";
        agreed = !agreed;
        ASSERT_TRUE(CVerantiAPI::GetInstance()->SetDisclaimerItemAgreement("base", agreed ? 1 : 0, "TV"));
        const testbed::ProgramRun watched = watcher.Finish();
        EXPECT_EQ(watched.status, 0);
        EXPECT_NE(watched.out.find(form.out), std::string::npos) << form.argv[1] << ":\n" << watched.out;
    }
}

using TheCSharpConsentClass = AConsentClient;

TEST_F(TheCSharpConsentClass, TellsTheStatusAcceptsAndRejectsAllInDependencyOrderAndRaisesAnEventOnAChange) {
    SKIP_WITHOUT_MONO();
    Serve(kCatalogue, {"--fail=is service available=delay:150"});
    EXPECT_EQ(testbed::MonoPrinted("status 0"), "Required child,base,loose\n");
    EXPECT_EQ(testbed::MonoPrinted("async 0 50"), "TimedOut Unknown\n")
        << "the service takes 150 ms to say it is there";
    EXPECT_EQ(testbed::MonoPrinted("accept 0"), "True base:Done child:Done note:Notice loose:Done\n");
    EXPECT_EQ(testbed::MonoPrinted("async 0 0"), "Completed Obtained\n");
    EXPECT_EQ(testbed::MonoPrinted("reject 0"), "True loose:Done note:Notice child:Done base:Done\n");
    testbed::ChildProcess program({"/bin/sh", "-c", MONO_COMMAND " watch"});
    EXPECT_EQ(program.OutputLine(), "ready");
    ASSERT_TRUE(CVerantiAPI::GetInstance()->SetDisclaimerItemAgreement("base", 1, "TV"));
    EXPECT_EQ(program.OutputLine(), "base:No->Yes");
    EXPECT_EQ(program.Wait(), 0);
}

}  // namespace

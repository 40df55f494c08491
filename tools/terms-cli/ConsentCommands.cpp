#include "ConsentCommands.h"

#include <glib-unix.h>
#include <glib.h>
#include <signal.h>

#include <VerantiConsent.hpp>
#include <iostream>

#include "Commands.h"
#include "Format.h"

namespace termscli {
namespace {

TermsRequester Requester(const Invocation& invocation) {
    return static_cast<TermsRequester>(invocation.Integer("--requester", 0));
}

const char* AgreementName(ConsentAgreement agreement) {
    switch (agreement) {
        case CONSENT_AGREEMENT_YES:
            return "yes";
        case CONSENT_AGREEMENT_NO:
            return "no";
        case CONSENT_AGREEMENT_ABSENT:
            break;
    }
    return "absent";
}

std::string JoinedIds(const std::vector<std::string>& ids) {
    std::string text;
    for (const std::string& id : ids) text += (text.empty() ? "" : ", ") + id;
    return text;
}

Json::Value ChangesToJson(const std::vector<veranti::consent::Change>& changes) {
    Json::Value list(Json::arrayValue);
    for (const auto& change : changes) {
        Json::Value entry(Json::objectValue);
        entry["id"] = change.id;
        entry["before"] = AgreementName(change.before);
        entry["after"] = AgreementName(change.after);
        list.append(entry);
    }
    return list;
}

// One event: a line per change, or one line of JSON.
void PrintChanges(const std::vector<veranti::consent::Change>& changes, bool json) {
    if (json) {
        Json::StreamWriterBuilder compact;
        compact["indentation"] = "";
        compact["emitUTF8"] = true;
        Json::Value event(Json::objectValue);
        event["changes"] = ChangesToJson(changes);
        std::cout << Json::writeString(compact, event) << '\n';
    } else {
        for (const auto& change : changes) {
            std::cout << change.id << ": " << AgreementName(change.before) << " -> " << AgreementName(change.after)
                      << '\n';
        }
    }
    std::cout.flush();
}

gboolean QuitLoop(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

Outcome BatchOutcome(const veranti::consent::Batch& batch, bool agree, TermsRequester requester) {
    Outcome outcome;
    std::vector<Row> rows;
    std::vector<std::string> undone;
    outcome.data["agreed"] = agree;
    outcome.data["requester"] = static_cast<int>(requester);
    outcome.data["items"] = Json::Value(Json::arrayValue);
    for (const auto& item : batch.items) {
        Json::Value entry(Json::objectValue);
        entry["id"] = item.id;
        entry["outcome"] = ConsentItemOutcomeName(item.outcome);
        outcome.data["items"].append(entry);
        rows.push_back({item.id, ConsentItemOutcomeName(item.outcome)});
        if (item.outcome != CONSENT_ITEM_DONE && item.outcome != CONSENT_ITEM_NOTICE) undone.push_back(item.id);
    }
    outcome.text = rows.empty() ? "The requester lists no disclaimers.\n" : Table({"ID", "RESULT"}, rows);
    if (!undone.empty()) {
        outcome.status = kExitRefused;
        outcome.error = std::string("could not ") + (agree ? "agree to " : "withdraw ") + JoinedIds(undone);
    }
    return outcome;
}

}  // namespace

Outcome RunConsentStatus(const Invocation& invocation) {
    const TermsRequester requester = Requester(invocation);
    const veranti::consent::Status status = veranti::consent::GetStatus(requester);
    Outcome outcome;
    const bool available = status.value != CONSENT_STATUS_UNKNOWN;
    if (!available) outcome = Unreachable();
    outcome.data["available"] = available;
    outcome.data["service"] = kServiceName;
    outcome.data["requester"] = static_cast<int>(requester);
    outcome.data["status"] = ConsentStatusName(status.value);
    outcome.data["must_show"] = Json::Value(Json::arrayValue);
    for (const std::string& id : status.mustShow) outcome.data["must_show"].append(id);
    if (!available) return outcome;
    outcome.text = "Consent for requester " + std::to_string(static_cast<int>(requester)) + ": " +
                   ConsentStatusName(status.value) + "\n";
    if (!status.mustShow.empty()) outcome.text += "To show, in order: " + JoinedIds(status.mustShow) + "\n";
    return outcome;
}

Outcome RunWatch(const Invocation& invocation) {
    const int wanted = invocation.Integer("--count", 0);
    int events = 0;
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    const veranti::consent::ChangeSubscription subscription([&](const std::vector<veranti::consent::Change>& changes) {
        PrintChanges(changes, invocation.json);
        if (++events == wanted) g_main_loop_quit(loop);
    });
    Outcome outcome;
    if (!subscription.Active()) {
        g_main_loop_unref(loop);
        outcome.status = kExitRefused;
        outcome.error = "cannot watch the configuration store for agreement changes";
        return outcome;
    }
    const guint interrupt = g_unix_signal_add(SIGINT, QuitLoop, loop);
    const guint terminate = g_unix_signal_add(SIGTERM, QuitLoop, loop);
    // On stderr, so that the JSON on stdout stays clean; scripts may wait for it.
    std::cerr << "terms-cli: watching agreement changes (Ctrl-C ends)" << std::endl;
    g_main_loop_run(loop);
    g_source_remove(interrupt);
    g_source_remove(terminate);
    g_main_loop_unref(loop);
    outcome.data["events"] = events;
    return outcome;
}

Outcome RunConsentAgree(const Invocation& invocation) {
    const bool all = invocation.Has("--all");
    if (!all && !invocation.Has("--none")) return RunAgree(invocation);
    const TermsRequester requester = Requester(invocation);
    return BatchOutcome(all ? veranti::consent::AcceptAll(requester) : veranti::consent::RejectAll(requester), all,
                        requester);
}

}  // namespace termscli

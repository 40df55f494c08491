// Agreement change events: a watch on the agreement cache in the store, and
// the difference between what a subscriber last saw and what is there now.
#include <vconf.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "Consent.h"

namespace consent {
namespace {

struct Subscription {
    unsigned int watchId = 0;
    ConsentChangeCallback callback = nullptr;
    void* userData = nullptr;
    Agreements seen;
};

std::mutex g_Lock;
std::map<unsigned int, std::unique_ptr<Subscription>>& Subscriptions() {
    static auto* subscriptions = new std::map<unsigned int, std::unique_ptr<Subscription>>;
    return *subscriptions;
}

ConsentAgreement AgreementOf(const Json::Value& value) {
    return value.isString() && value.asString() == "true" ? CONSENT_AGREEMENT_YES : CONSENT_AGREEMENT_NO;
}

ConsentAgreement ValueIn(const Agreements& agreements, const std::string& id) {
    const auto found = agreements.find(id);
    return found == agreements.end() ? CONSENT_AGREEMENT_ABSENT : found->second;
}

// Runs on the subscriber's context, after the store's key changed.
void OnStoreChange(const char*, void* data) {
    auto* subscription = static_cast<Subscription*>(data);
    Agreements now = ReadAgreements();
    const std::vector<AgreementChange> changes = ChangesBetween(subscription->seen, now);
    if (changes.empty()) return;
    subscription->seen = std::move(now);
    std::vector<ConsentChange> list;
    list.reserve(changes.size());
    for (const AgreementChange& change : changes) list.push_back({change.id.c_str(), change.before, change.after});
    // The callback may remove this subscription: nothing of it is used after the call.
    subscription->callback(list.data(), static_cast<int>(list.size()), subscription->userData);
}

}  // namespace

Agreements ReadAgreements() {
    Agreements agreements;
    char* text = vconf_get_str(kAgreementsKey);
    if (!text) return agreements;
    const std::string stored(text);
    std::free(text);
    Json::Value object;
    Json::CharReaderBuilder builder;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string error;
    if (!reader->parse(stored.data(), stored.data() + stored.size(), &object, &error) || !object.isObject()) {
        CONSENT_LOG(DLOG_WARN, "the agreement cache is not a JSON object: %s", error.c_str());
        return agreements;
    }
    for (const std::string& id : object.getMemberNames()) agreements[id] = AgreementOf(object[id]);
    return agreements;
}

std::vector<AgreementChange> ChangesBetween(const Agreements& before, const Agreements& after) {
    std::vector<AgreementChange> changes;
    for (const auto& [id, value] : before) {
        const ConsentAgreement now = ValueIn(after, id);
        if (now != value) changes.push_back({id, value, now});
    }
    for (const auto& [id, value] : after) {
        if (before.count(id) == 0) changes.push_back({id, CONSENT_AGREEMENT_ABSENT, value});
    }
    std::sort(changes.begin(), changes.end(),
              [](const AgreementChange& a, const AgreementChange& b) { return a.id < b.id; });
    return changes;
}

}  // namespace consent

extern "C" {

unsigned int ConsentAddChangeCallback(ConsentChangeCallback callback, void* user_data) {
    if (!callback) return 0;
    auto subscription = std::make_unique<consent::Subscription>();
    subscription->callback = callback;
    subscription->userData = user_data;
    const std::lock_guard<std::mutex> lock(consent::g_Lock);
    subscription->watchId = vconf_watch_add(consent::kAgreementsKey, consent::OnStoreChange, subscription.get());
    if (subscription->watchId == 0) {
        CONSENT_LOG(DLOG_ERROR, "cannot watch the agreement cache: %s", std::strerror(errno));
        return 0;
    }
    // Read once the watch is in place, so that no change falls between the two.
    subscription->seen = consent::ReadAgreements();
    const unsigned int id = subscription->watchId;
    consent::Subscriptions()[id] = std::move(subscription);
    return id;
}

int ConsentRemoveChangeCallback(unsigned int id) {
    std::unique_ptr<consent::Subscription> removed;
    {
        const std::lock_guard<std::mutex> lock(consent::g_Lock);
        auto found = consent::Subscriptions().find(id);
        if (found == consent::Subscriptions().end()) return 0;
        removed = std::move(found->second);
        consent::Subscriptions().erase(found);
    }
    vconf_watch_remove(removed->watchId);
    return 1;
}

}  // extern "C"

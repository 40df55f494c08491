// bench-store: the queries answered from the configuration store (agreement
// cache, menu titles) against reading the key with vconf_get_str and parsing
// it with JsonCpp, the least any reader of the key must do. A bus monitor
// counts the messages on the bus meanwhile: there must be none.
//
// The store is a fresh directory under VCONF_ROOT (set by the caller, or a
// temporary directory made here).
#include <VerantiAPI.h>
#include <json/json.h>
#include <vconf.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "BenchSupport.h"

namespace {

const char kAgreementKey[] = "db/veranti/disclaimeragrees";
const char kTitlesKey[] = "db/veranti/terms_title";
const char kTitles[] = R"([{"title":"Terms & Conditions"},{"title":"Privacy Notice"},{"title":"Recommendations"},)"
                       R"({"title":"Voice Control"},{"title":"Personalised Advertising"},{"title":"Nimbra Services"},)"
                       R"({"title":"Open Source Notice"}])";
const int kTitleIndex = 3;

std::string IdAt(long index) {
    return "disclaimer-" + std::to_string(index);
}

// A cache of `count` ids, every other one agreed; the id looked up is in the middle.
std::string AgreementCache(long count) {
    Json::Value cache(Json::objectValue);
    for (long i = 0; i < count; ++i) cache[IdAt(i)] = i % 2 == 0 ? "true" : "false";
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, cache);
}

std::string LookedUpId(long count) {
    return IdAt(count / 2 - (count / 2) % 2);
}

void Store(const char* key, const std::string& value) {
    if (vconf_set_str(key, value.c_str()) != 0) std::abort();
}

bench::BusMessageCounter& Counter() {
    static bench::BusMessageCounter counter;
    return counter;
}

// Runs `body` in the benchmark loop and reports the bus messages seen meanwhile.
template <typename Body>
void RunCountingBusMessages(benchmark::State& state, Body body) {
    bench::BusMessageCounter& counter = Counter();
    counter.Settle();
    const uint64_t before = counter.Count();
    for (auto _ : state) body();
    counter.Settle();
    state.counters["bus_messages"] = static_cast<double>(counter.Count() - before);
}

// ---- Baselines ----

// The key's text as the store hands it out, copied and freed.
std::string ReadKey(const char* key) {
    std::unique_ptr<char, decltype(&free)> value(vconf_get_str(key), &free);
    return value ? std::string(value.get()) : std::string();
}

bool ParseJson(const std::string& text, Json::Value& root) {
    static const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), &root, nullptr);
}

void BM_Baseline_ReadAndParseAgreements(benchmark::State& state) {
    Store(kAgreementKey, AgreementCache(state.range(0)));
    const std::string id = LookedUpId(state.range(0));
    RunCountingBusMessages(state, [&] {
        Json::Value root;
        const bool agreed = ParseJson(ReadKey(kAgreementKey), root) && root[id].asString() == "true";
        if (!agreed) state.SkipWithError("the id is not agreed in the baseline");
    });
}

// The same with a reader made for each parse, as the simplest code does.
void BM_Baseline_ReadAndParseAgreementsNewReader(benchmark::State& state) {
    Store(kAgreementKey, AgreementCache(state.range(0)));
    const std::string id = LookedUpId(state.range(0));
    RunCountingBusMessages(state, [&] {
        const std::string text = ReadKey(kAgreementKey);
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        Json::Value root;
        const bool agreed =
            reader->parse(text.data(), text.data() + text.size(), &root, nullptr) && root[id].asString() == "true";
        if (!agreed) state.SkipWithError("the id is not agreed in the baseline");
    });
}

void BM_Baseline_ReadAndParseTitles(benchmark::State& state) {
    Store(kTitlesKey, kTitles);
    RunCountingBusMessages(state, [&] {
        Json::Value root;
        if (!ParseJson(ReadKey(kTitlesKey), root) || root[kTitleIndex]["title"].asString().empty()) {
            state.SkipWithError("no title in the baseline");
        }
    });
}

// ---- The library ----

void BM_Lib_GetDisclaimerItemAgreement(benchmark::State& state) {
    Store(kAgreementKey, AgreementCache(state.range(0)));
    const std::string id = LookedUpId(state.range(0));
    CVerantiAPI* client = CVerantiAPI::GetInstance();
    RunCountingBusMessages(state, [&] {
        int agreed = 0;
        client->GetDisclaimerItemAgreement(id, &agreed, "TV");
        if (agreed != 1) state.SkipWithError("the id is not agreed");
    });
}

void BM_Lib_IsDisclaimerItemExist(benchmark::State& state) {
    Store(kAgreementKey, AgreementCache(state.range(0)));
    const std::string id = LookedUpId(state.range(0));
    CVerantiAPI* client = CVerantiAPI::GetInstance();
    RunCountingBusMessages(state, [&] {
        if (!client->IsDisclaimerItemExist(id, "TV")) state.SkipWithError("the id does not exist");
    });
}

void BM_Lib_GetDisclaimerTitle(benchmark::State& state) {
    Store(kTitlesKey, kTitles);
    CVerantiAPI* client = CVerantiAPI::GetInstance();
    RunCountingBusMessages(state, [&] {
        std::string title;
        if (client->GetDisclaimerTitle(title, kTitleIndex) != 0) state.SkipWithError("no title");
    });
}

void UseOwnStoreWhenNoneIsGiven() {
    if (std::getenv("VCONF_ROOT")) return;
    static char root[] = "/tmp/veranti-bench-store-XXXXXX";
    if (!mkdtemp(root)) std::abort();
    setenv("VCONF_ROOT", root, 1);
}

void Register() {
    using bench::Tune;
    const struct {
        const char* name;
        void (*function)(benchmark::State&);
    } cacheQueries[] = {{"BM_Baseline_ReadAndParseAgreements", BM_Baseline_ReadAndParseAgreements},
                        {"BM_Lib_GetDisclaimerItemAgreement", BM_Lib_GetDisclaimerItemAgreement},
                        {"BM_Lib_IsDisclaimerItemExist", BM_Lib_IsDisclaimerItemExist},
                        {"BM_Baseline_ReadAndParseAgreementsNewReader", BM_Baseline_ReadAndParseAgreementsNewReader}};
    for (const auto& query : cacheQueries) {
        Tune(benchmark::RegisterBenchmark(query.name, query.function)->Arg(10)->Arg(1000));
    }
    Tune(benchmark::RegisterBenchmark("BM_Baseline_ReadAndParseTitles", BM_Baseline_ReadAndParseTitles));
    Tune(benchmark::RegisterBenchmark("BM_Lib_GetDisclaimerTitle", BM_Lib_GetDisclaimerTitle));
}

}  // namespace

int main(int argc, char** argv) {
    bench::TakeSmokeFlag(&argc, argv);
    UseOwnStoreWhenNoneIsGiven();
    Register();
    return bench::RunBenchmarks(argc, argv);
}

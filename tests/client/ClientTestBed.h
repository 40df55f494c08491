// Shared fixture of the client tests: the client instance, a fake terms-client
// service on the private bus, a temporary configuration store and the log.
#ifndef CLIENT_TEST_BED_H
#define CLIENT_TEST_BED_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeTermsService.h"
#include "LogCapture.h"
#include "TempStore.h"
#include "VerantiAPI.h"

namespace clienttest {

using Item = STHomeDisclaimerContentItem;

constexpr int kDebug = 3, kInfo = 4, kWarn = 5, kError = 6;  // priorities
constexpr int kMainBuffer = 0, kSystemBuffer = 2;            // log ids
inline constexpr char kWhite[] = "\033[37m", kGreen[] = "\033[32m", kYellow[] = "\033[33m", kRed[] = "\033[31m";
inline constexpr char kAgreementKey[] = "db/veranti/disclaimeragrees", kTitlesKey[] = "db/veranti/terms_title";

// The JSON value of a text the test itself writes; throws on a typo.
Json::Value JsonOf(const std::string& text);
// Lines with this message exist, all with the client's tag, this priority, colour and log id.
::testing::AssertionResult Logged(const testbed::LogCapture& logs, const std::string& message, int prio,
                                  const std::string& colour, int logId = kMainBuffer);
std::vector<testbed::LogLine> LinesStartingWith(const testbed::LogCapture& logs, const std::string& prefix);

// Records handed out by the client, deleted at the end of the test.
struct OwnedItems {
    std::vector<Item*> items;
    ~OwnedItems() {
        for (Item* item : items) delete item;
    }
};

class ClientTestBed : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override { CVerantiAPI::Destroy(); }
    // The service answers requests named `name` with this JSON text.
    void Reply(const std::string& name, const std::string& jsonText) {
        service.SetReply(name, testbed::FakeReply::WithBody(JsonOf(jsonText)));
    }
    // The one request named `name` the service received (a test failure unless exactly one).
    testbed::ReceivedRequest OnlyRequest(const std::string& name) const;

    testbed::TempStore store;
    testbed::FakeTermsService service;
    testbed::LogCapture logs;
    CVerantiAPI* api = nullptr;
};

}  // namespace clienttest

#endif  // CLIENT_TEST_BED_H

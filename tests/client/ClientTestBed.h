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

constexpr int kDebug = 3;
constexpr int kInfo = 4;
constexpr int kWarn = 5;
constexpr int kError = 6;

constexpr int kMainBuffer = 0;
constexpr int kSystemBuffer = 2;

extern const char kWhite[];
extern const char kGreen[];
extern const char kYellow[];
extern const char kRed[];

extern const char kAgreementKey[];
extern const char kTitlesKey[];

// The JSON value of a text the test itself writes; throws on a typo.
Json::Value JsonOf(const std::string& text);

// Lines with this message exist, and every one of them was written with the
// client's tag, this priority, this colour and to this buffer.
::testing::AssertionResult Logged(const testbed::LogCapture& logs, const std::string& message, int prio,
                                  const std::string& colour, int logId = kMainBuffer);
// Position of the first line with this message, or -1.
int PositionOf(const testbed::LogCapture& logs, const std::string& message);
// Lines whose message starts with `prefix`.
std::vector<testbed::LogLine> LinesStartingWith(const testbed::LogCapture& logs, const std::string& prefix);

// Records handed out by the client, deleted at the end of the test.
struct OwnedItems {
    std::vector<Item*> items;
    ~OwnedItems();
};

class ClientTestBed : public ::testing::Test {
protected:
    explicit ClientTestBed(bool withService = true) : m_WithService(withService) {}
    void SetUp() override;
    void TearDown() override;

    // The service answers requests named `name` with this JSON text.
    void Reply(const std::string& name, const std::string& jsonText);
    // The one request named `name` that the service received (an empty one
    // with a test failure when there is not exactly one).
    testbed::ReceivedRequest OnlyRequest(const std::string& name) const;

    testbed::TempStore store;
    testbed::FakeTermsService service;
    testbed::LogCapture logs;
    CVerantiAPI* api = nullptr;

private:
    bool m_WithService;
};

// The same test bed with nobody owning the service's bus name.
class ClientTestBedWithoutService : public ClientTestBed {
protected:
    ClientTestBedWithoutService() : ClientTestBed(false) {}
};

}  // namespace clienttest

#endif  // CLIENT_TEST_BED_H

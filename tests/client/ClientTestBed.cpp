#include "ClientTestBed.h"

#include <memory>
#include <stdexcept>

namespace clienttest {

const char kWhite[] = "\033[37m";
const char kGreen[] = "\033[32m";
const char kYellow[] = "\033[33m";
const char kRed[] = "\033[31m";

const char kAgreementKey[] = "db/veranti/disclaimeragrees";
const char kTitlesKey[] = "db/veranti/terms_title";

Json::Value JsonOf(const std::string& text) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors))
        throw std::invalid_argument("test JSON does not parse: " + text);
    return value;
}

::testing::AssertionResult Logged(const testbed::LogCapture& logs, const std::string& message, int prio,
                                  const std::string& colour, int logId) {
    const std::vector<testbed::LogLine> lines = logs.WithMessage(message);
    if (lines.empty()) return ::testing::AssertionFailure() << "no line \"" << message << "\"";
    for (const testbed::LogLine& line : lines) {
        if (line.tag != "Veranti" || line.prio != prio || line.colour != colour || line.logId != logId) {
            return ::testing::AssertionFailure()
                   << "line \"" << message << "\" written with tag " << line.tag << ", priority " << line.prio
                   << ", buffer " << line.logId << ", colour " << line.colour.substr(1);
        }
    }
    return ::testing::AssertionSuccess();
}

int PositionOf(const testbed::LogCapture& logs, const std::string& message) {
    const std::vector<testbed::LogLine> lines = logs.Lines();
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].message == message) return static_cast<int>(i);
    }
    return -1;
}

std::vector<testbed::LogLine> LinesStartingWith(const testbed::LogCapture& logs, const std::string& prefix) {
    std::vector<testbed::LogLine> found;
    for (const testbed::LogLine& line : logs.Lines()) {
        if (line.message.rfind(prefix, 0) == 0) found.push_back(line);
    }
    return found;
}

OwnedItems::~OwnedItems() {
    for (Item* item : items) delete item;
}

void ClientTestBed::SetUp() {
    if (m_WithService) service.Start();
    api = CVerantiAPI::GetInstance();
    logs.Clear();
}

void ClientTestBed::TearDown() { CVerantiAPI::Destroy(); }

void ClientTestBed::Reply(const std::string& name, const std::string& jsonText) {
    service.SetReply(name, testbed::FakeReply::WithBody(JsonOf(jsonText)));
}

testbed::ReceivedRequest ClientTestBed::OnlyRequest(const std::string& name) const {
    const std::vector<testbed::ReceivedRequest> requests = service.RequestsNamed(name);
    EXPECT_EQ(requests.size(), 1u) << "requests named \"" << name << "\"";
    return requests.size() == 1 ? requests.front() : testbed::ReceivedRequest();
}

}  // namespace clienttest

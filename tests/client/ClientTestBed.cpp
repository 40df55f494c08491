#include "ClientTestBed.h"

#include <memory>
#include <stdexcept>

namespace clienttest {

Json::Value JsonOf(const std::string& text) {
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value value;
    std::string errors;
    if (reader->parse(text.data(), text.data() + text.size(), &value, &errors)) return value;
    throw std::invalid_argument("test JSON does not parse: " + text);
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

std::vector<testbed::LogLine> LinesStartingWith(const testbed::LogCapture& logs, const std::string& prefix) {
    std::vector<testbed::LogLine> found;
    for (const testbed::LogLine& line : logs.Lines())
        if (line.message.rfind(prefix, 0) == 0) found.push_back(line);
    return found;
}

void ClientTestBed::SetUp() {
    service.Start();
    api = CVerantiAPI::GetInstance();
    logs.Clear();
}

testbed::ReceivedRequest ClientTestBed::OnlyRequest(const std::string& name) const {
    const std::vector<testbed::ReceivedRequest> requests = service.RequestsNamed(name);
    EXPECT_EQ(requests.size(), 1u) << "requests named \"" << name << "\"";
    return requests.size() == 1 ? requests.front() : testbed::ReceivedRequest();
}

}  // namespace clienttest

// A scriptable terms-client service on the private bus.
//
// It owns a bus name (by default "com.velmora.tv.termsclient") on its own connection, on its own thread, and exports
// the two-method message interface at "/" + name with '.' replaced by '/'. Every call is recorded; the reply is chosen
// per request: a JSON body ({"result":true} by default), a text that is not JSON, no reply at all, or a D-Bus error.
#ifndef TESTBED_FAKE_TERMS_SERVICE_H
#define TESTBED_FAKE_TERMS_SERVICE_H

#include <json/json.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace testbed {

struct ReceivedRequest {
    std::string busMethod;  // "SendMessage" or "SendMessageWithBuffer"
    std::string from;
    uint32_t code = 0;
    std::string protocol;  // the third argument ("type")
    std::string bodyText;  // the fourth argument as received
    Json::Value body;      // bodyText parsed (null if it is not JSON)
    // body["method"], or body["request_type"] for "common_protocol" requests.
    std::string Name() const;
};

struct FakeReply {
    enum class Kind { Json, Text, None, DbusError };
    enum class Shape { WithPayload, Plain, Other };  // "(sussa(y))", "(suss)", "(s)"

    Kind kind = Kind::Json;
    Shape shape = Shape::WithPayload;
    Json::Value body{};       // Kind::Json
    std::string text{};       // Kind::Text: sent as the fourth member
    std::string errorName{};  // Kind::DbusError
    int delayMs = 0;          // answer after this many milliseconds

    static FakeReply Result(bool result);  // {"result": result}
    static FakeReply WithBody(Json::Value body) { return {Kind::Json, Shape::WithPayload, std::move(body)}; }
    static FakeReply NotJson(std::string text) { return {Kind::Text, Shape::WithPayload, {}, std::move(text)}; }
    static FakeReply NoReply() { return {Kind::None}; }
    static FakeReply Error(std::string name = "org.freedesktop.DBus.Error.Failed") {
        return {Kind::DbusError, Shape::WithPayload, {}, {}, std::move(name)};
    }
};

class FakeTermsService {
public:
    using Handler = std::function<FakeReply(const ReceivedRequest&)>;

    explicit FakeTermsService(std::string busName = "com.velmora.tv.termsclient");
    ~FakeTermsService();

    // Returns once the name is owned and the object exported; throws on failure.
    void Start();
    // Releases the name, drops pending calls unanswered, stops the thread.
    void Stop();

    // The reply for requests whose Name() equals `name`; replaces an earlier one.
    void SetReply(const std::string& name, FakeReply reply);
    // The reply for every request without its own; {"result":true} by default.
    void SetDefaultReply(FakeReply reply) { SetReply("", std::move(reply)); }
    // A handler that chooses every reply instead of the replies above. It
    // runs on the service's thread and must not call back into the service.
    void SetHandler(Handler handler);

    std::vector<ReceivedRequest> Requests() const;
    // Requests whose Name() equals `name`.
    std::vector<ReceivedRequest> RequestsNamed(const std::string& name) const;
    // Requests other than "is service available".
    std::vector<ReceivedRequest> RequestsBesidesAvailability() const;
    void ClearRequests();

private:
    struct Impl;
    std::unique_ptr<Impl> m_Impl;
};

}  // namespace testbed

#endif

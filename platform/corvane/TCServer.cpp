// Host stand-in for the bus-client framework, over sd-bus.
//
// Every thread keeps one system bus connection for all its requests, with
// the JSON writer and reader and the scratch text they work in, so a request
// costs one round trip and no connection set-up. The connection is checked
// before each request (incoming messages are drained, which also reveals a
// closed socket) and replaced when it is found closed; it is closed when
// the thread ends.
#include "corvane/TCServer.h"

#include <dlog.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <streambuf>

#define CORVANE_LOG_ERROR(...) __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "Corvane", __VA_ARGS__)

namespace Corvane {

TCMessage::TCMessage() = default;
TCMessage::~TCMessage() = default;

namespace {

const char kMethodName[] = "SendMessage";
const char kReplyWithPayload[] = "sussa(y)";
const char kPlainReply[] = "suss";

// A stream buffer that appends to a string which keeps its capacity between uses.
class StringSink : public std::streambuf {
public:
    std::string text;

protected:
    int_type overflow(int_type c) override {
        if (!traits_type::eq_int_type(c, traits_type::eof())) text.push_back(traits_type::to_char_type(c));
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* data, std::streamsize count) override {
        text.append(data, static_cast<size_t>(count));
        return count;
    }
};

// Compact JSON writer and strict reader, made once per thread.
class JsonCodec {
public:
    JsonCodec() {
        Json::StreamWriterBuilder writerBuilder;
        writerBuilder["indentation"] = "";
        m_Writer.reset(writerBuilder.newStreamWriter());
        Json::CharReaderBuilder readerBuilder;
        readerBuilder["collectComments"] = false;
        readerBuilder["failIfExtra"] = true;
        m_Reader.reset(readerBuilder.newCharReader());
    }

    // The value as compact JSON text; valid until the next call.
    const char* Write(const Json::Value& value) {
        m_Sink.text.clear();
        m_Writer->write(value, &m_Out);
        return m_Sink.text.c_str();
    }

    // Parses the whole text into `value` (left half-filled on failure).
    bool Read(const char* text, Json::Value* value) {
        try {
            return m_Reader->parse(text, text + std::strlen(text), value, &m_Errors);
        } catch (const Json::Exception&) {
            return false;  // nested deeper than the reader allows
        }
    }

private:
    std::unique_ptr<Json::StreamWriter> m_Writer;
    std::unique_ptr<Json::CharReader> m_Reader;
    StringSink m_Sink;
    std::ostream m_Out{&m_Sink};
    std::string m_Errors;
};

// The thread's system bus connection: opened on demand, replaced when found
// closed, closed with the thread.
class BusConnection {
public:
    BusConnection() = default;
    ~BusConnection() { Drop(); }
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;

    // A usable connection, or null (logged) when none can be opened. Checks
    // the connection it has (one read from the socket), so call it once a request.
    sd_bus* Get() {
        if (m_pBus && !DrainAndCheck()) Drop();
        return Open();
    }

    // The connection it has, unchecked, or a new one; null (logged) when none
    // can be opened.
    sd_bus* Open() {
        if (!m_pBus) Connect();
        return m_pBus;
    }

    // After a failed call: forgets the connection when it is no longer usable.
    void DropIfBroken(int error) {
        if (m_pBus && (error == -ECHILD || sd_bus_is_open(m_pBus) <= 0)) Drop();
    }

private:
    // Handles whatever arrived since the last request (stale replies,
    // signals); false when the connection turns out to be closed.
    bool DrainAndCheck() {
        int result;
        while ((result = sd_bus_process(m_pBus, nullptr)) > 0) {
        }
        return result == 0 && sd_bus_is_open(m_pBus) > 0;
    }

    void Connect() {
        sd_bus* bus = nullptr;
        const int result = sd_bus_open_system(&bus);
        if (result < 0) {
            CORVANE_LOG_ERROR("cannot connect to the system bus: %s\n", std::strerror(-result));
            return;
        }
        sd_bus_set_exit_on_disconnect(bus, 0);
        m_pBus = bus;
    }

    void Drop() { m_pBus = sd_bus_flush_close_unref(m_pBus); }

    sd_bus* m_pBus = nullptr;
};

struct ThreadState {
    BusConnection connection;
    JsonCodec codec;
    std::string objectPath;

    const char* ObjectPathOf(const char* dest) {
        objectPath.assign(1, '/');
        objectPath.append(dest);
        std::replace(objectPath.begin(), objectPath.end(), '.', '/');
        return objectPath.c_str();
    }
};

thread_local ThreadState t_State;

struct MessageUnref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using MessagePtr = std::unique_ptr<sd_bus_message, MessageUnref>;

struct ErrorHolder {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    ~ErrorHolder() { sd_bus_error_free(&error); }
};

// sd-bus reads 0 as "its default limit", so a limit of 0 ms becomes the
// shortest real one; a negative limit means none at all.
uint64_t TimeoutUsec(int timeout_ms) {
    if (timeout_ms < 0) return UINT64_MAX;
    return timeout_ms == 0 ? 1 : static_cast<uint64_t>(timeout_ms) * 1000;
}

// sd-bus reports its own time limit as ETIMEDOUT under the Timeout error
// name, but maps error replies to errno values too: the bus's NoReply (the
// peer left without answering) also arrives as ETIMEDOUT. Only a call that
// had a limit and failed with that name ran out of time here.
bool RanOutOfTime(int result, const sd_bus_error& error, int timeout_ms) {
    return result == -ETIMEDOUT && timeout_ms >= 0 && sd_bus_error_has_name(&error, SD_BUS_ERROR_TIMEOUT);
}

void LogCallFailure(const char* dest, int result, const sd_bus_error& error, int timeout_ms) {
    if (RanOutOfTime(result, error, timeout_ms)) {
        CORVANE_LOG_ERROR("SendMessage to %s timed out after %d ms\n", dest, timeout_ms);
        return;
    }
    const char* name = error.name ? error.name : "unknown error";
    const char* text = error.message ? error.message : std::strerror(-result);
    CORVANE_LOG_ERROR("SendMessage to %s failed with D-Bus error %s: %s\n", dest, name, text);
}

bool IsExpectedReplyType(const char* signature) {
    return signature && (std::strcmp(signature, kReplyWithPayload) == 0 || std::strcmp(signature, kPlainReply) == 0);
}

// Reads the fourth member of a "(sussa(y))" or "(suss)" reply as JSON.
bool ReadReply(ThreadState& state, const char* dest, sd_bus_message* answer, Json::Value* body) {
    const char* signature = sd_bus_message_get_signature(answer, 1);
    if (!IsExpectedReplyType(signature)) {
        CORVANE_LOG_ERROR("SendMessage to %s got a reply of unexpected type \"(%s)\"\n", dest,
                          signature ? signature : "");
        return false;
    }
    const char* from = nullptr;
    uint32_t code = 0;
    const char* type = nullptr;
    const char* text = nullptr;
    const int result = sd_bus_message_read(answer, kPlainReply, &from, &code, &type, &text);
    if (result < 0) {
        CORVANE_LOG_ERROR("SendMessage to %s cannot read the reply: %s\n", dest, std::strerror(-result));
        return false;
    }
    if (!state.codec.Read(text, body)) {
        CORVANE_LOG_ERROR("SendMessage to %s got a reply body that does not parse as JSON\n", dest);
        return false;
    }
    return true;
}

bool SendWithoutReply(ThreadState& state, const char* dest, sd_bus* bus, sd_bus_message* call) {
    sd_bus_message_set_expect_reply(call, 0);
    int result = sd_bus_send(bus, call, nullptr);
    if (result >= 0) result = sd_bus_flush(bus);
    if (result < 0) {
        CORVANE_LOG_ERROR("SendMessage to %s cannot send the call: %s\n", dest, std::strerror(-result));
        state.connection.DropIfBroken(result);
        return false;
    }
    return true;
}

bool CallAndRead(ThreadState& state, const char* dest, sd_bus* bus, sd_bus_message* call, Json::Value* body,
                 int timeout_ms) {
    ErrorHolder error;
    sd_bus_message* raw = nullptr;
    const int result = sd_bus_call(bus, call, TimeoutUsec(timeout_ms), &error.error, &raw);
    const MessagePtr answer(raw);
    if (result < 0) {
        LogCallFailure(dest, result, error.error, timeout_ms);
        state.connection.DropIfBroken(result);
        return false;
    }
    return ReadReply(state, dest, answer.get(), body);
}

}  // namespace

TCServer::TCServer(std::string name, TCServerType type) : m_strName(std::move(name)), m_eType(type) {}

TCServer::~TCServer() = default;

// The connection is checked when a request goes out, not here: a request
// made right after would pay for the check twice.
bool TCServer::CreateDBusProxy() {
    m_bProxyOpen = t_State.connection.Open() != nullptr;
    return m_bProxyOpen;
}

void TCServer::CloseDBusProxy() {
    m_bProxyOpen = false;
}

bool TCServer::SendMessage(const char* dest, const TCMessage* request, bool sync, TCMessage* reply, int timeout_ms) {
    if (!dest || !request) {
        CORVANE_LOG_ERROR("SendMessage needs a destination and a request\n");
        return false;
    }
    ThreadState& state = t_State;
    sd_bus* bus = state.connection.Get();
    if (!bus) return false;

    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_call(bus, &raw, dest, state.ObjectPathOf(dest), dest, kMethodName);
    MessagePtr call(raw);
    if (result >= 0) {
        result = sd_bus_message_append(call.get(), "suss", m_strName.c_str(), 0u, request->protocol.c_str(),
                                       state.codec.Write(request->body));
    }
    if (result < 0) {
        CORVANE_LOG_ERROR("SendMessage to %s cannot build the call: %s\n", dest, std::strerror(-result));
        return false;
    }
    if (!sync) return SendWithoutReply(state, dest, bus, call.get());

    Json::Value unused;
    Json::Value* body = reply ? &reply->body : &unused;
    const bool answered = CallAndRead(state, dest, bus, call.get(), body, timeout_ms);
    if (!answered) *body = Json::Value();
    return answered;
}

}  // namespace Corvane

#include "LoopbackFramework.h"

#include <corvane/TCServer.h>

#include <cstring>
#include <map>
#include <memory>

namespace loopback {
namespace {

struct Replies {
    std::string defaultText;
    std::map<std::string, std::string> byName;
    unsigned requests = 0;
};

Replies& State() {
    static Replies replies;
    return replies;
}

std::string NameOf(const Json::Value& body) {
    if (!body.isObject()) return std::string();
    for (const char* member : {"method", "request_type"}) {
        const Json::Value* name = body.find(member, member + std::strlen(member));
        if (name && name->isString()) return name->asString();
    }
    return std::string();
}

// The host framework's reader settings for reply bodies.
bool ParseReply(const std::string& text, Json::Value& body) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    try {
        return reader->parse(text.data(), text.data() + text.size(), &body, &errors);
    } catch (const Json::Exception&) {
        return false;
    }
}

}  // namespace

void SetDefaultReply(std::string text) {
    State().defaultText = std::move(text);
}

void SetReply(const std::string& name, std::string text) {
    State().byName[name] = std::move(text);
}

void ClearReplies() {
    State().defaultText.clear();
    State().byName.clear();
    State().requests = 0;
}

unsigned RequestCount() {
    return State().requests;
}

}  // namespace loopback

namespace Corvane {

TCMessage::TCMessage() = default;
TCMessage::~TCMessage() = default;

TCServer::TCServer(std::string name, TCServerType type) : m_strName(std::move(name)), m_eType(type) {}
TCServer::~TCServer() = default;

bool TCServer::CreateDBusProxy() {
    m_bProxyOpen = true;
    return true;
}

void TCServer::CloseDBusProxy() {
    m_bProxyOpen = false;
}

bool TCServer::SendMessage(const char* dest, const TCMessage* request, bool sync, TCMessage* reply, int) {
    if (!dest || !request) return false;
    loopback::Replies& replies = loopback::State();
    ++replies.requests;
    if (!sync || !reply) return true;
    const auto named = replies.byName.find(loopback::NameOf(request->body));
    const std::string& text = named != replies.byName.end() ? named->second : replies.defaultText;
    const bool parsed = loopback::ParseReply(text, reply->body);
    if (!parsed) reply->body = Json::Value();
    return parsed;
}

}  // namespace Corvane

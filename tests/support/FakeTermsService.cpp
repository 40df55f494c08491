#include "FakeTermsService.h"

#include <gio/gio.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

namespace testbed {
namespace {

const char kIntrospection[] =
    "<node><interface name='@NAME@'>"
    "<method name='SendMessage'>"
    "<arg type='s' direction='in'/><arg type='u' direction='in'/>"
    "<arg type='s' direction='in'/><arg type='s' direction='in'/>"
    "</method>"
    "<method name='SendMessageWithBuffer'>"
    "<arg type='s' direction='in'/><arg type='u' direction='in'/>"
    "<arg type='s' direction='in'/><arg type='s' direction='in'/><arg type='a(y)' direction='in'/>"
    "</method>"
    "</interface></node>";

std::string ObjectPathOf(const std::string& name) {
    std::string path = "/" + name;
    std::replace(path.begin(), path.end(), '.', '/');
    return path;
}

Json::Value ParseJson(const std::string& text) {
    Json::Value value;
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) return Json::Value();
    return value;
}

std::string CompactJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

GVariant* ReplyValue(const FakeReply& reply) {
    const std::string text = reply.kind == FakeReply::Kind::Json ? CompactJson(reply.body) : reply.text;
    switch (reply.shape) {
        case FakeReply::Shape::Plain:
            return g_variant_new("(suss)", "fake", 0u, "", text.c_str());
        case FakeReply::Shape::Other:
            return g_variant_new("(s)", text.c_str());
        case FakeReply::Shape::WithPayload:
            break;
    }
    static const guchar placeholder = 0;
    GVariant* payload =
        g_variant_new_from_data(G_VARIANT_TYPE("a(y)"), &placeholder, 1, TRUE, nullptr, nullptr);
    return g_variant_new("(suss@a(y))", "fake", 0u, "", text.c_str(), payload);
}

}  // namespace

std::string ReceivedRequest::Name() const {
    if (body.isObject() && body.isMember("method") && body["method"].isString()) return body["method"].asString();
    if (body.isObject() && body.isMember("request_type") && body["request_type"].isString())
        return body["request_type"].asString();
    return std::string();
}

FakeReply FakeReply::Result(bool result) {
    Json::Value body(Json::objectValue);
    body["result"] = result;
    return WithBody(body);
}

FakeReply FakeReply::WithBody(Json::Value body) {
    FakeReply reply;
    reply.body = std::move(body);
    return reply;
}

FakeReply FakeReply::NotJson(std::string text) {
    FakeReply reply;
    reply.kind = Kind::Text;
    reply.text = std::move(text);
    return reply;
}

FakeReply FakeReply::NoReply() {
    FakeReply reply;
    reply.kind = Kind::None;
    return reply;
}

FakeReply FakeReply::Error(std::string name) {
    FakeReply reply;
    reply.kind = Kind::DbusError;
    reply.errorName = std::move(name);
    return reply;
}

struct FakeTermsService::Impl {
    std::string busName;
    std::string objectPath;

    mutable std::mutex mutex;
    std::condition_variable started;
    std::optional<std::string> startError;
    bool ready = false;

    std::vector<ReceivedRequest> requests;
    std::map<std::string, FakeReply> replies;
    FakeReply defaultReply = FakeReply::Result(true);
    Handler handler;

    std::thread thread;
    GMainContext* context = nullptr;
    GMainLoop* loop = nullptr;
    GDBusConnection* connection = nullptr;
    GDBusNodeInfo* nodeInfo = nullptr;
    guint ownerId = 0;
    guint registrationId = 0;
    std::vector<GDBusMethodInvocation*> unanswered;

    void Run();
    void Setup();
    void Teardown();
    void ReportStart(std::optional<std::string> error);
    FakeReply ChooseReply(const ReceivedRequest& request);
    void Answer(GDBusMethodInvocation* invocation, const FakeReply& reply);
    void AnswerLater(GDBusMethodInvocation* invocation, const FakeReply& reply);

    static void OnMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method,
                             GVariant* params, GDBusMethodInvocation* invocation, gpointer data);
    static void OnNameAcquired(GDBusConnection*, const gchar*, gpointer data);
    static void OnNameLost(GDBusConnection*, const gchar*, gpointer data);
};

void FakeTermsService::Impl::ReportStart(std::optional<std::string> error) {
    std::lock_guard<std::mutex> lock(mutex);
    if (ready) return;
    startError = std::move(error);
    ready = true;
    started.notify_all();
}

void FakeTermsService::Impl::Setup() {
    GError* error = nullptr;
    const char* address = g_getenv("DBUS_SYSTEM_BUS_ADDRESS");
    connection = g_dbus_connection_new_for_address_sync(
        address ? address : "",
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (!connection) {
        ReportStart(std::string("cannot connect: ") + error->message);
        g_error_free(error);
        return;
    }
    g_dbus_connection_set_exit_on_close(connection, FALSE);

    std::string xml = kIntrospection;
    xml.replace(xml.find("@NAME@"), 6, busName);
    nodeInfo = g_dbus_node_info_new_for_xml(xml.c_str(), nullptr);
    static const GDBusInterfaceVTable vtable = {&Impl::OnMethodCall, nullptr, nullptr, {}};
    registrationId = g_dbus_connection_register_object(connection, objectPath.c_str(), nodeInfo->interfaces[0],
                                                       &vtable, this, nullptr, &error);
    if (!registrationId) {
        ReportStart(std::string("cannot register: ") + error->message);
        g_error_free(error);
        return;
    }
    ownerId = g_bus_own_name_on_connection(connection, busName.c_str(), G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE,
                                           &Impl::OnNameAcquired, &Impl::OnNameLost, this, nullptr);
}

void FakeTermsService::Impl::Teardown() {
    for (GDBusMethodInvocation* invocation : unanswered) g_object_unref(invocation);
    unanswered.clear();
    if (ownerId) g_bus_unown_name(ownerId);
    if (registrationId) g_dbus_connection_unregister_object(connection, registrationId);
    if (connection) {
        g_dbus_connection_flush_sync(connection, nullptr, nullptr);
        g_dbus_connection_close_sync(connection, nullptr, nullptr);
        g_object_unref(connection);
    }
    if (nodeInfo) g_dbus_node_info_unref(nodeInfo);
    ownerId = registrationId = 0;
    connection = nullptr;
    nodeInfo = nullptr;
    // Let the pending callbacks of the closed connection run and release their references.
    while (g_main_context_iteration(context, FALSE)) {
    }
}

void FakeTermsService::Impl::Run() {
    g_main_context_push_thread_default(context);
    Setup();
    g_main_loop_run(loop);
    Teardown();
    g_main_context_pop_thread_default(context);
}

void FakeTermsService::Impl::OnNameAcquired(GDBusConnection*, const gchar*, gpointer data) {
    static_cast<Impl*>(data)->ReportStart(std::nullopt);
}

void FakeTermsService::Impl::OnNameLost(GDBusConnection*, const gchar* name, gpointer data) {
    static_cast<Impl*>(data)->ReportStart(std::string("cannot own ") + name);
}

FakeReply FakeTermsService::Impl::ChooseReply(const ReceivedRequest& request) {
    std::lock_guard<std::mutex> lock(mutex);
    requests.push_back(request);
    if (handler) return handler(request);
    auto found = replies.find(request.Name());
    return found != replies.end() ? found->second : defaultReply;
}

void FakeTermsService::Impl::Answer(GDBusMethodInvocation* invocation, const FakeReply& reply) {
    switch (reply.kind) {
        case FakeReply::Kind::None:
            unanswered.push_back(invocation);
            return;
        case FakeReply::Kind::DbusError:
            g_dbus_method_invocation_return_dbus_error(invocation, reply.errorName.c_str(), "fake failure");
            return;
        case FakeReply::Kind::Json:
        case FakeReply::Kind::Text:
            break;
    }
    // Built by hand so that replies of any shape can be sent.
    GDBusMessage* message = g_dbus_message_new_method_reply(g_dbus_method_invocation_get_message(invocation));
    g_dbus_message_set_body(message, ReplyValue(reply));
    g_dbus_connection_send_message(connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(message);
    g_object_unref(invocation);
}

void FakeTermsService::Impl::AnswerLater(GDBusMethodInvocation* invocation, const FakeReply& reply) {
    struct Later {
        Impl* impl;
        GDBusMethodInvocation* invocation;
        FakeReply reply;
    };
    GSource* source = g_timeout_source_new(reply.delayMs);
    g_source_set_callback(
        source,
        [](gpointer data) -> gboolean {
            auto* later = static_cast<Later*>(data);
            later->impl->Answer(later->invocation, later->reply);
            return G_SOURCE_REMOVE;
        },
        new Later{this, invocation, reply}, [](gpointer data) { delete static_cast<Later*>(data); });
    g_source_attach(source, context);
    g_source_unref(source);
}

void FakeTermsService::Impl::OnMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                          const gchar* method, GVariant* params, GDBusMethodInvocation* invocation,
                                          gpointer data) {
    auto* impl = static_cast<Impl*>(data);
    ReceivedRequest request;
    request.busMethod = method;
    const gchar* from = nullptr;
    const gchar* type = nullptr;
    const gchar* text = nullptr;
    g_variant_get_child(params, 0, "&s", &from);
    g_variant_get_child(params, 1, "u", &request.code);
    g_variant_get_child(params, 2, "&s", &type);
    g_variant_get_child(params, 3, "&s", &text);
    request.from = from;
    request.protocol = type;
    request.bodyText = text;
    request.body = ParseJson(request.bodyText);
    const FakeReply reply = impl->ChooseReply(request);
    if (reply.delayMs > 0) {
        impl->AnswerLater(invocation, reply);
    } else {
        impl->Answer(invocation, reply);
    }
}

FakeTermsService::FakeTermsService(std::string busName) : m_Impl(std::make_unique<Impl>()) {
    m_Impl->busName = std::move(busName);
    m_Impl->objectPath = ObjectPathOf(m_Impl->busName);
}

FakeTermsService::~FakeTermsService() { Stop(); }

void FakeTermsService::Start() {
    if (m_Impl->thread.joinable()) return;
    m_Impl->ready = false;
    m_Impl->startError.reset();
    m_Impl->context = g_main_context_new();
    m_Impl->loop = g_main_loop_new(m_Impl->context, FALSE);
    m_Impl->thread = std::thread([impl = m_Impl.get()] { impl->Run(); });
    std::unique_lock<std::mutex> lock(m_Impl->mutex);
    m_Impl->started.wait(lock, [this] { return m_Impl->ready; });
    if (m_Impl->startError) {
        const std::string error = *m_Impl->startError;
        lock.unlock();
        Stop();
        throw std::runtime_error("fake terms service: " + error);
    }
}

void FakeTermsService::Stop() {
    if (!m_Impl->thread.joinable()) return;
    g_main_context_invoke(
        m_Impl->context,
        [](gpointer loop) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return G_SOURCE_REMOVE;
        },
        m_Impl->loop);
    m_Impl->thread.join();
    g_main_loop_unref(m_Impl->loop);
    g_main_context_unref(m_Impl->context);
    m_Impl->loop = nullptr;
    m_Impl->context = nullptr;
}

void FakeTermsService::SetReply(const std::string& name, FakeReply reply) {
    std::lock_guard<std::mutex> lock(m_Impl->mutex);
    m_Impl->replies[name] = std::move(reply);
}

void FakeTermsService::SetDefaultReply(FakeReply reply) {
    std::lock_guard<std::mutex> lock(m_Impl->mutex);
    m_Impl->defaultReply = std::move(reply);
}

void FakeTermsService::SetHandler(Handler handler) {
    std::lock_guard<std::mutex> lock(m_Impl->mutex);
    m_Impl->handler = std::move(handler);
}

std::vector<ReceivedRequest> FakeTermsService::Requests() const {
    std::lock_guard<std::mutex> lock(m_Impl->mutex);
    return m_Impl->requests;
}

std::vector<ReceivedRequest> FakeTermsService::RequestsNamed(const std::string& name) const {
    std::vector<ReceivedRequest> found;
    for (const ReceivedRequest& request : Requests()) {
        if (request.Name() == name) found.push_back(request);
    }
    return found;
}

std::vector<ReceivedRequest> FakeTermsService::RequestsBesidesAvailability() const {
    std::vector<ReceivedRequest> found;
    for (const ReceivedRequest& request : Requests()) {
        if (request.Name() != "is service available") found.push_back(request);
    }
    return found;
}

void FakeTermsService::ClearRequests() {
    std::lock_guard<std::mutex> lock(m_Impl->mutex);
    m_Impl->requests.clear();
}

}  // namespace testbed

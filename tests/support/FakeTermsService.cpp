#include "FakeTermsService.h"

#include <gio/gio.h>

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace testbed {
namespace {

std::string Introspection(const std::string& name) {
    return "<node><interface name='" + name + "'>" +
           "<method name='SendMessage'><arg type='s'/><arg type='u'/><arg type='s'/><arg type='s'/></method>"
           "<method name='SendMessageWithBuffer'>"
           "<arg type='s'/><arg type='u'/><arg type='s'/><arg type='s'/><arg type='a(y)'/></method>"
           "</interface></node>";
}

std::string ObjectPathOf(const std::string& name) {
    std::string path = "/" + name;
    std::replace(path.begin(), path.end(), '.', '/');
    return path;
}

GVariant* ReplyValue(const FakeReply& reply) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    const std::string text = reply.kind == FakeReply::Kind::Json ? Json::writeString(writer, reply.body) : reply.text;
    if (reply.shape == FakeReply::Shape::Plain) return g_variant_new("(suss)", "fake", 0u, "", text.c_str());
    if (reply.shape == FakeReply::Shape::Other) return g_variant_new("(s)", text.c_str());
    static const guchar placeholder = 0;
    GVariant* payload = g_variant_new_from_data(G_VARIANT_TYPE("a(y)"), &placeholder, 1, TRUE, nullptr, nullptr);
    return g_variant_new("(suss@a(y))", "fake", 0u, "", text.c_str(), payload);
}

std::string StringAt(GVariant* tuple, gsize index) {
    const gchar* text = nullptr;
    g_variant_get_child(tuple, index, "&s", &text);
    return text;
}

template <typename Predicate>
std::vector<ReceivedRequest> Matching(std::vector<ReceivedRequest> requests, Predicate matches) {
    requests.erase(std::remove_if(requests.begin(), requests.end(), std::not_fn(matches)), requests.end());
    return requests;
}

}  // namespace

std::string ReceivedRequest::Name() const {
    for (const char* key : {"method", "request_type"})
        if (body.isObject() && body[key].isString()) return body[key].asString();
    return std::string();
}

FakeReply FakeReply::Result(bool result) {
    Json::Value body(Json::objectValue);
    body["result"] = result;
    return WithBody(body);
}

// The bus side lives in `context`, which `thread` runs while the service is started.
struct FakeTermsService::Impl {
    std::string busName;
    mutable std::mutex mutex;
    std::vector<ReceivedRequest> requests;
    std::map<std::string, FakeReply> replies{{"", FakeReply::Result(true)}};  // "": the default
    Handler handler;

    GMainContext* context = nullptr;
    GMainLoop* loop = nullptr;
    std::thread thread;
    GDBusConnection* connection = nullptr;
    guint registrationId = 0;
    std::vector<GDBusMethodInvocation*> unanswered;

    // Connects, exports the object and owns the name; false when one of them fails.
    bool Connect() {
        const char* address = g_getenv("DBUS_SYSTEM_BUS_ADDRESS");
        connection = g_dbus_connection_new_for_address_sync(
            address ? address : "",
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        if (!connection) return false;
        g_dbus_connection_set_exit_on_close(connection, FALSE);
        static const GDBusInterfaceVTable vtable = {&OnMethodCall, nullptr, nullptr, {}};
        GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(Introspection(busName).c_str(), nullptr);
        registrationId = g_dbus_connection_register_object(connection, ObjectPathOf(busName).c_str(),
                                                           node->interfaces[0], &vtable, this, nullptr, nullptr);
        g_dbus_node_info_unref(node);
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
            g_variant_new("(su)", busName.c_str(), 4u /* do not queue */), G_VARIANT_TYPE("(u)"),
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        guint32 owner = 0;  // 1: the primary owner
        if (reply) g_variant_get(reply, "(u)", &owner);
        return registrationId != 0 && owner == 1;
    }

    // Drops pending calls unanswered and closes the connection, which releases the name.
    void Disconnect() {
        for (GDBusMethodInvocation* invocation : unanswered) g_object_unref(invocation);
        unanswered.clear();
        if (registrationId) g_dbus_connection_unregister_object(connection, std::exchange(registrationId, 0));
        if (connection) {
            g_dbus_connection_flush_sync(connection, nullptr, nullptr);
            g_dbus_connection_close_sync(connection, nullptr, nullptr);
        }
        g_clear_object(&connection);
        // Lets the pending callbacks of the closed connection run and release their references.
        while (g_main_context_iteration(context, FALSE)) continue;
    }

    FakeReply ChooseReply(const ReceivedRequest& request) {
        std::lock_guard<std::mutex> lock(mutex);
        requests.push_back(request);
        if (handler) return handler(request);
        return replies.count(request.Name()) ? replies[request.Name()] : replies[""];
    }

    void Answer(GDBusMethodInvocation* invocation, const FakeReply& reply) {
        if (reply.kind == FakeReply::Kind::None) {
            unanswered.push_back(invocation);
            return;
        }
        if (reply.kind == FakeReply::Kind::DbusError) {
            g_dbus_method_invocation_return_dbus_error(invocation, reply.errorName.c_str(), "fake failure");
            return;
        }
        // Built by hand so that replies of any shape can be sent.
        GDBusMessage* message = g_dbus_message_new_method_reply(g_dbus_method_invocation_get_message(invocation));
        g_dbus_message_set_body(message, ReplyValue(reply));
        g_dbus_connection_send_message(connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
        g_object_unref(message);
        g_object_unref(invocation);
    }

    void AnswerLater(GDBusMethodInvocation* invocation, const FakeReply& reply) {
        using Later = std::function<void()>;
        GSource* source = g_timeout_source_new(reply.delayMs);
        g_source_set_callback(
            source, [](gpointer later) { return (*static_cast<Later*>(later))(), G_SOURCE_REMOVE; },
            new Later([=] { Answer(invocation, reply); }), [](gpointer later) { delete static_cast<Later*>(later); });
        g_source_attach(source, context);
        g_source_unref(source);
    }

    static void OnMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* method,
                             GVariant* params, GDBusMethodInvocation* invocation, gpointer data) {
        auto* impl = static_cast<Impl*>(data);
        ReceivedRequest request{method, StringAt(params, 0), 0, StringAt(params, 2), StringAt(params, 3), {}};
        g_variant_get_child(params, 1, "u", &request.code);
        std::istringstream stream(request.bodyText);
        if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &request.body, nullptr)) request.body = {};
        const FakeReply reply = impl->ChooseReply(request);
        if (reply.delayMs > 0) {
            impl->AnswerLater(invocation, reply);
        } else {
            impl->Answer(invocation, reply);
        }
    }
};

FakeTermsService::FakeTermsService(std::string busName) : m_Impl(std::make_unique<Impl>()) {
    m_Impl->busName = std::move(busName);
}

FakeTermsService::~FakeTermsService() {
    Stop();
}

void FakeTermsService::Start() {
    Impl& impl = *m_Impl;
    if (impl.context) return;
    impl.context = g_main_context_new();
    // Calls are dispatched in the thread-default context of the registration.
    g_main_context_push_thread_default(impl.context);
    const bool connected = impl.Connect();
    g_main_context_pop_thread_default(impl.context);
    if (!connected) {
        Stop();
        throw std::runtime_error("fake terms service: cannot serve " + impl.busName);
    }
    impl.loop = g_main_loop_new(impl.context, FALSE);
    impl.thread = std::thread(g_main_loop_run, impl.loop);
}

void FakeTermsService::Stop() {
    Impl& impl = *m_Impl;
    if (!impl.context) return;
    if (impl.thread.joinable()) {
        g_main_context_invoke(
            impl.context,
            [](gpointer loop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(loop));
                return G_SOURCE_REMOVE;
            },
            impl.loop);
        impl.thread.join();
        g_main_loop_unref(impl.loop);
    }
    impl.Disconnect();
    g_main_context_unref(impl.context);
    impl.context = nullptr;
}

void FakeTermsService::SetReply(const std::string& name, FakeReply reply) {
    std::lock_guard<std::mutex> lock(m_Impl->mutex);
    m_Impl->replies[name] = std::move(reply);
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
    return Matching(Requests(), [&name](const ReceivedRequest& request) { return request.Name() == name; });
}

std::vector<ReceivedRequest> FakeTermsService::RequestsBesidesAvailability() const {
    return Matching(Requests(),
                    [](const ReceivedRequest& request) { return request.Name() != "is service available"; });
}

void FakeTermsService::ClearRequests() {
    std::lock_guard<std::mutex> lock(m_Impl->mutex);
    m_Impl->requests.clear();
}

}  // namespace testbed

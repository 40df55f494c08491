#include "TermsDbusServer.h"

#include <algorithm>
#include <memory>

#include "TermsDbusUtil.h"

#define LOG_TAG "dterms-dbus"
#include "TermsLog.h"

using namespace TermsDbusUtil;

// The exported interface; "%s" is the service name. "a*" accepts the "a(y)"
// payload the encodings send.
#define TERMS_DBUS_INTROSPECTION_TEMPLATE                                                                           \
    "<node>\t"                                                                                                      \
    " <interface name='%s'>\t"                                                                                      \
    "     <method name='SendMessage'>\t"                                                                            \
    "         <arg type='s' name='from' direction='in'/>            <arg type='u' name='code' direction='in'/>\t"   \
    "         <arg type='s' name='type' direction='in'/>\t"                                                         \
    "         <arg type='s' name='message' direction='in'/>\t"                                                      \
    "         <arg type='s' name='from' direction='out'/>\t"                                                        \
    "         <arg type='u' name='code' direction='out'/>\t"                                                        \
    "         <arg type='s' name='type' direction='out'/>\t"                                                        \
    "         <arg type='s' name='message' direction='out'/>\t"                                                     \
    "         <arg type='a*' name='buffer' direction='out'/>\t"                                                     \
    "     </method>\t"                                                                                              \
    "     <method name='SendMessageWithBuffer'>\t"                                                                  \
    "         <arg type='s' name='from' direction='in'/>            <arg type='u' name='code' direction='in'/>\t"   \
    "         <arg type='s' name='type' direction='in'/>\t"                                                         \
    "         <arg type='s' name='message' direction='in'/>\t"                                                      \
    "         <arg type='a*' name='buffer' direction='in'/>\t"                                                      \
    "         <arg type='s' name='from' direction='out'/>            <arg type='u' name='code' direction='out'/>\t" \
    "         <arg type='s' name='type' direction='out'/>\t"                                                        \
    "         <arg type='s' name='message' direction='out'/>\t"                                                     \
    "         <arg type='a*' name='buffer' direction='out'/>\t"                                                     \
    "     </method>\t"                                                                                              \
    " </interface></node>"

namespace {

// Request the name even when another process owns it, and let a later one take it.
const GBusNameOwnerFlags kOwnerFlags =
    static_cast<GBusNameOwnerFlags>(G_BUS_NAME_OWNER_FLAGS_ALLOW_REPLACEMENT | G_BUS_NAME_OWNER_FLAGS_REPLACE);

// Runs the owner's callback for a change of the bus name, if it registered
// one; the lines name `function`, the bus's handler.
void RunNameCallback(TermsDbusNameCallback callback, void* data, const char* function) {
    TLOG_INFO_TRACE_FOR(function, "");
    if (!callback) return;
    TLOG_INFO_TRACE_FOR(function, "start to callback func");
    callback(data);
}

const char* TextOrEmpty(const char* text) {
    return text ? text : "";
}

// GDBus guards its calls against malformed names with criticals (which a
// process may have made fatal) instead of failing them, so names that come
// from outside are checked before they reach it.
bool IsAddressable(const std::string& path, const std::string& interfaceName, const char* member) {
    if (g_variant_is_object_path(path.c_str()) && g_dbus_is_interface_name(interfaceName.c_str()) &&
        g_dbus_is_member_name(member)) {
        return true;
    }
    TLOG_ERROR("not a D-Bus object path, interface and member: [%s] [%s] [%s]", path.c_str(), interfaceName.c_str(),
               member);
    return false;
}

// Sends the reply, or the failure reply when it would not fit in one bus message.
void ReturnReply(GDBusMethodInvocation* invocation, GVariant* body) {
    g_variant_ref_sink(body);
    const char* caller = g_dbus_method_invocation_get_sender(invocation);
    const char* self = g_dbus_connection_get_unique_name(g_dbus_method_invocation_get_connection(invocation));
    if (!FitsInBusMessage(body, {caller, self})) {
        TLOG_ERROR("the reply does not fit in one bus message: sending the failure reply instead");
        g_variant_unref(body);
        body = g_variant_ref_sink(MakeFailResponseToParams());
    }
    g_dbus_method_invocation_return_value(invocation, body);
    g_variant_unref(body);
}

}  // namespace

const GDBusInterfaceVTable TermsDbusServer::m_gVTable = {TermsDbusServer::m_ObjectCallback, nullptr, nullptr, {}};

TermsDbusServer::TermsDbusServer(std::string name) : m_strOrginalName(std::move(name)) {}

TermsDbusServer::~TermsDbusServer() {
    TLOG_INFO_TRACE("");
}

bool TermsDbusServer::CreateDbusServer(std::string serviceName) {
    if (serviceName.empty()) {
        TLOG_ERROR("get serviceName is empty");
        return false;
    }
    if (m_IsCreated()) {
        TLOG_ERROR("dbus server is already created as %s, close it first", m_strServiceName.c_str());
        return false;
    }
    m_strServiceName = serviceName;
    TLOG_INFO_TRACE("get dbus name: %s", m_strServiceName.c_str());

    GError* error = nullptr;
    m_pConnection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (!m_pConnection) {
        TLOG_INFO_TRACE("get dbus connection fail!");
        if (error) {
            TLOG_ERROR("(%s %d)", error->message, error->code);
            g_error_free(error);
        }
        return false;
    }
    // The connection is the process's shared one: its end must not end the process.
    g_dbus_connection_set_exit_on_close(m_pConnection, FALSE);
    TLOG_INFO_TRACE("Get dbus connection success : %p", static_cast<void*>(m_pConnection));

    const bool isBusName = g_dbus_is_name(m_strServiceName.c_str());
    if (!isBusName) TLOG_ERROR("%s is not a bus name", m_strServiceName.c_str());
    m_nOwnerId = isBusName ? g_bus_own_name_on_connection(m_pConnection, m_strServiceName.c_str(), kOwnerFlags,
                                                          m_OnNameAcquired, m_OnNameLost, this, nullptr)
                           : 0;
    if (m_nOwnerId == 0) {
        TLOG_ERROR("Request bus name fail!");
        return false;
    }
    TLOG_INFO_TRACE("RequestName(%s) success : %u", m_strServiceName.c_str(), m_nOwnerId);

    m_pNodeInfo = m_GetInterfaceInfo(m_strServiceName);
    if (!m_pNodeInfo) {
        TLOG_ERROR("parse interface xml fail!");
        return false;
    }
    m_strObjectPath = GetObjectPath(m_strServiceName);
    TLOG_INFO_TRACE("Register Obj Path: %s", m_strObjectPath.c_str());

    m_nRegistrationId =
        IsAddressable(m_strObjectPath, m_strServiceName, "SendMessage")
            ? g_dbus_connection_register_object(m_pConnection, m_strObjectPath.c_str(), m_pNodeInfo->interfaces[0],
                                                &m_gVTable, this, nullptr, nullptr)
            : 0;
    TLOG_INFO_TRACE("Get register id : %u", m_nRegistrationId);
    if (m_nRegistrationId == 0) {
        TLOG_ERROR("Register Obj Path Fail!");
        return false;
    }
    return true;
}

bool TermsDbusServer::CloseDbusServer() {
    if (m_nOwnerId != 0) {
        g_bus_unown_name(m_nOwnerId);
        m_nOwnerId = 0;
    }
    if (m_pConnection && m_nRegistrationId != 0) {
        g_dbus_connection_unregister_object(m_pConnection, m_nRegistrationId);
        m_nRegistrationId = 0;
    }
    if (m_pNodeInfo) {
        g_dbus_node_info_unref(m_pNodeInfo);
        m_pNodeInfo = nullptr;
    }
    if (m_pConnection) {
        g_object_unref(m_pConnection);
        m_pConnection = nullptr;
    }
    return true;
}

void TermsDbusServer::RegisterCallabck(TermsDbusCallbackType type, void* callback, void* userData) {
    switch (type) {
        case TERMS_DBUS_CALLBACK_NAME_ACQUIRED:
            m_fnNameAcquired = reinterpret_cast<TermsDbusNameCallback>(callback);
            m_pNameAcquiredData = userData;
            break;
        case TERMS_DBUS_CALLBACK_NAME_LOST:
            m_fnNameLost = reinterpret_cast<TermsDbusNameCallback>(callback);
            m_pNameLostData = userData;
            break;
        case TERMS_DBUS_CALLBACK_MESSAGE:
            m_fnMessage = reinterpret_cast<TermsDbusMessageCallback>(callback);
            m_pMessageData = userData;
            break;
        default:
            break;
    }
}

bool TermsDbusServer::SendDbusSignal(std::string signalName, const TermsDbusMessage& msg) {
    if (!m_IsConnectionOpen()) {
        TLOG_ERROR("dbus connection is not open");
        return false;
    }
    GVariant* body = g_variant_ref_sink(MakeSignalDataToParams(msg));
    GError* error = nullptr;
    const bool emitted = IsAddressable(m_strObjectPath, m_strServiceName, signalName.c_str()) &&
                         FitsInBusMessage(body, {m_strObjectPath.c_str(), m_strServiceName.c_str(), signalName.c_str(),
                                                 g_dbus_connection_get_unique_name(m_pConnection)}) &&
                         g_dbus_connection_emit_signal(m_pConnection, nullptr, m_strObjectPath.c_str(),
                                                       m_strServiceName.c_str(), signalName.c_str(), body, &error);
    g_variant_unref(body);
    if (error) {
        TLOG_ERROR("faile to  invoking emit signal(%s %d)", error->message, error->code);
        g_error_free(error);
    }
    TLOG_INFO_TRACE("Send Signal [%s] : [%s].", signalName.c_str(), emitted ? "success" : "fail");
    return emitted;
}

bool TermsDbusServer::SendDbusSyncMessage(std::string destination, const TermsDbusMessage& request,
                                          TermsDbusMessage& reply, int timeout) {
    if (!m_IsConnectionOpen()) {
        TLOG_ERROR("dbus connection is not open");
        return false;
    }
    const std::string path = GetObjectPath(destination);
    std::string methodName;
    GVariant* arguments = g_variant_ref_sink(MakeMsgInputToParams(methodName, request));
    TLOG_INFO_TRACE("from[%s] to [%s] [%s]", TextOrEmpty(request.from), destination.c_str(),
                    TextOrEmpty(request.message));

    GVariant* result = nullptr;
    if (IsAddressable(path, destination, methodName.c_str()) &&
        FitsInBusMessage(arguments, {path.c_str(), destination.c_str(), methodName.c_str(), destination.c_str(),
                                     g_dbus_connection_get_unique_name(m_pConnection)})) {
        GError* error = nullptr;
        result = g_dbus_connection_call_sync(m_pConnection, destination.c_str(), path.c_str(), destination.c_str(),
                                             methodName.c_str(), arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, timeout,
                                             nullptr, &error);
        if (!result) {
            if (error) {
                TLOG_ERROR("Fail to invoking sync message call(%s %d)", error->message, error->code);
                g_error_free(error);
            }
            TLOG_ERROR("Fail of g_dbus_connection_call_sync");
        }
    }
    g_variant_unref(arguments);
    if (!result) return false;
    const bool decoded = MakeParamsToMessage(result, reply);
    g_variant_unref(result);
    GiveBackMemoryAfterPayload(std::max<uint64_t>(request.buffer_size, reply.buffer_size));
    if (!decoded) {
        TLOG_ERROR("Error, MakeParamsToMessage Fail ");
        return false;
    }
    TLOG_INFO_TRACE("g_dbus_connection_call_sync Success");
    return true;
}

GDBusNodeInfo* TermsDbusServer::m_GetInterfaceInfo(std::string name) {
    // Sized to the name, so no name is cut short.
    const std::unique_ptr<gchar, decltype(&g_free)> xml(
        g_strdup_printf(TERMS_DBUS_INTROSPECTION_TEMPLATE, name.c_str()), &g_free);
    GError* error = nullptr;
    GDBusNodeInfo* info = g_dbus_node_info_new_for_xml(xml.get(), &error);
    if (!info) {
        gchar* errorName = g_dbus_error_encode_gerror(error);
        TLOG_ERROR("g_dbus_node_info_new_for_xml fail, err return %s, detail[message:%s, code:%d] ", errorName,
                   error->message, error->code);
        g_free(errorName);
        g_error_free(error);
    }
    return info;
}

bool TermsDbusServer::m_IsCreated() const {
    return m_pConnection || m_nOwnerId != 0 || m_nRegistrationId != 0 || m_pNodeInfo;
}

bool TermsDbusServer::m_IsConnectionOpen() const {
    return m_pConnection && !g_dbus_connection_is_closed(m_pConnection);
}

void TermsDbusServer::m_OnNameAcquired(GDBusConnection*, const gchar*, gpointer userData) {
    const auto* server = static_cast<TermsDbusServer*>(userData);
    RunNameCallback(server->m_fnNameAcquired, server->m_pNameAcquiredData, __func__);
}

void TermsDbusServer::m_OnNameLost(GDBusConnection*, const gchar*, gpointer userData) {
    const auto* server = static_cast<TermsDbusServer*>(userData);
    RunNameCallback(server->m_fnNameLost, server->m_pNameLostData, __func__);
}

void TermsDbusServer::m_ObjectCallback(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                       const gchar* methodName, GVariant* parameters, GDBusMethodInvocation* invocation,
                                       gpointer userData) {
    TLOG_INFO_TRACE("get message");
    const auto* server = static_cast<TermsDbusServer*>(userData);
    if (!parameters || !server) {
        TLOG_ERROR("ERROR, parameters [%p] or dbusServer [%p] is NULL!", static_cast<void*>(parameters),
                   static_cast<const void*>(server));
        g_object_unref(invocation);
        return;
    }
    const TermsDbusMessageCallback callback = server->m_fnMessage;
    void* const callbackData = server->m_pMessageData;

    TermsDbusMessage request = {};
    if (!MakeParamsToMsgInput(methodName, parameters, request)) {
        TLOG_ERROR("Error, MakeParamsToMsgInput fail ");
        g_object_unref(invocation);
        return;
    }
    TermsDbusMessage reply = {};
    bool succeeded = true;
    if (callback) {
        TLOG_INFO_TRACE("start to callback func");
        succeeded = callback(methodName, &request, &reply, callbackData) != 0;
    }
    const uint64_t payloadSize = std::max<uint64_t>(request.buffer_size, succeeded ? reply.buffer_size : 0);
    ReturnReply(invocation, succeeded ? MakeOwnedResponseToParams(reply) : MakeFailResponseToParams());
    if (succeeded) TLOG_INFO_TRACE("dbus return response");
    ReleaseTermsDbusMessage(&request);
    ReleaseTermsDbusMessage(&reply);
    GiveBackMemoryAfterPayload(payloadSize);
}

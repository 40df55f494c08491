// A small message server on the system bus.
//
// One server owns one bus name (its service name) and exports one object at
// the path derived from it ("/" and the name with "." replaced by "/"), with
// one interface named like the bus name: methods SendMessage and
// SendMessageWithBuffer. Each incoming call is decoded into a
// TermsDbusMessage, handed to the registered message callback, and answered
// with the record the callback filled or with the fixed failure reply. The
// same server sends signals from its object and makes synchronous calls to
// another server's methods.
//
// Callbacks run on the thread-default main context of the thread that called
// CreateDbusServer; that thread must run a GLib main loop. No locks are taken.
#ifndef TERMS_DBUS_SERVER_H
#define TERMS_DBUS_SERVER_H

#include <gio/gio.h>

#include <string>

#include "TermsDbusAPI.h"
#include "VerantiExport.h"

class TermsDbusServer {
public:
    explicit TermsDbusServer(std::string name);
    // Closes nothing: close the server first.
    ~TermsDbusServer();
    TermsDbusServer(const TermsDbusServer&) = delete;
    TermsDbusServer& operator=(const TermsDbusServer&) = delete;

    // Requests the name and registers the object. A server that was already
    // created (even partly) refuses: one server owns one name, so close it
    // before creating it again.
    bool CreateDbusServer(std::string serviceName);
    // Releases whatever CreateDbusServer obtained; always true.
    bool CloseDbusServer();
    void RegisterCallabck(TermsDbusCallbackType type, void* callback, void* userData);
    bool SendDbusSignal(std::string signalName, const TermsDbusMessage& msg);
    bool SendDbusSyncMessage(std::string destination, const TermsDbusMessage& request, TermsDbusMessage& reply,
                             int timeout);

    std::string getDbusOrginalName() const { return m_strOrginalName; }
    std::string getDbusServiceName() const { return m_strServiceName; }

private:
    GDBusNodeInfo* m_GetInterfaceInfo(std::string name);
    bool m_IsCreated() const;
    bool m_IsConnectionOpen() const;

    static void m_OnNameAcquired(GDBusConnection* connection, const gchar* name, gpointer userData);
    static void m_OnNameLost(GDBusConnection* connection, const gchar* name, gpointer userData);
    static void m_ObjectCallback(GDBusConnection* connection, const gchar* sender, const gchar* objectPath,
                                 const gchar* interfaceName, const gchar* methodName, GVariant* parameters,
                                 GDBusMethodInvocation* invocation, gpointer userData);

    GDBusConnection* m_pConnection = nullptr;
    unsigned m_nOwnerId = 0;
    unsigned m_nRegistrationId = 0;
    GDBusNodeInfo* m_pNodeInfo = nullptr;
    std::string m_strOrginalName;
    std::string m_strServiceName;
    std::string m_strObjectPath;
    void* m_pNameAcquiredData = nullptr;
    TermsDbusNameCallback m_fnNameAcquired = nullptr;
    void* m_pNameLostData = nullptr;
    TermsDbusNameCallback m_fnNameLost = nullptr;
    void* m_pMessageData = nullptr;
    TermsDbusMessageCallback m_fnMessage = nullptr;

    static const GDBusInterfaceVTable m_gVTable;
};

// The process's one server (the C interface's registry); null when none.
extern VERANTI_EXPORT TermsDbusServer* g_DbusServer;

// The registered server when `name` is its bus name or its handle name; else null.
VERANTI_EXPORT TermsDbusServer* m_GetTermsDbusServerInstance(const std::string& name);
// Destroys the server (when not null) and empties the registry.
VERANTI_EXPORT void m_ReleaseTermsDbusServerInstance(TermsDbusServer* server);

#endif  // TERMS_DBUS_SERVER_H

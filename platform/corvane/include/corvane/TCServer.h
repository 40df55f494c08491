// Host stand-in for the bus-client framework: a client endpoint.
//
// SendMessage calls the method "SendMessage" on bus name `dest`, object path
// "/" + dest with '.' replaced by '/', interface `dest`, with the arguments
// (server name, 0, request protocol text, request body as compact JSON). A
// synchronous call expects a "(sussa(y))" or "(suss)" reply and parses the
// fourth member as JSON into the reply body.
//
// Bus: the system bus (DBUS_SYSTEM_BUS_ADDRESS chooses which). Connections
// are per thread and reused; a connection found closed is replaced on the
// next request; no connection ever ends the process.
#ifndef CORVANE_TCSERVER_H
#define CORVANE_TCSERVER_H

#include <string>

#include "corvane/TCMessage.h"

namespace Corvane {

class TCServer {
public:
    enum TCServerType {
        TC_SERVER_TYPE_0 = 0,
        TC_SERVER_TYPE_1 = 1,
        TC_SERVER_TYPE_2 = 2,
    };

    TCServer(std::string name, TCServerType type);
    virtual ~TCServer();

    TCServer(const TCServer&) = delete;
    TCServer& operator=(const TCServer&) = delete;

    // Obtains the calling thread's bus connection; true when there is one.
    // Calling it again is harmless.
    bool CreateDBusProxy();
    // timeout_ms: -1 (or any negative value) waits without a limit; 0 or more
    // is a limit in ms (0, the shortest, in effect does not wait).
    // sync: true when a reply arrived and its body parsed into reply->body
    // (reply may be null to ignore it); on failure reply->body is null and
    // one line is logged with tag "Corvane". Not sync: true when the call
    // was sent; no reply is asked for. Works without CreateDBusProxy too.
    bool SendMessage(const char* dest, const TCMessage* request, bool sync, TCMessage* reply, int timeout_ms);
    // Ends this object's use of the connection; harmless when not open. The
    // thread's connection itself stays for the thread's next request and is
    // closed when the thread ends.
    void CloseDBusProxy();

    const std::string& GetName() const { return m_strName; }
    TCServerType GetType() const { return m_eType; }

private:
    std::string m_strName;
    TCServerType m_eType;
    bool m_bProxyOpen = false;
};

}  // namespace Corvane

#endif  // CORVANE_TCSERVER_H

// Host stand-in for the bus-client framework: one message.
#ifndef CORVANE_TCMESSAGE_H
#define CORVANE_TCMESSAGE_H

#include <json/json.h>

#include <string>

namespace Corvane {

class TCMessage {
public:
    TCMessage();
    ~TCMessage();

    // The JSON body: serialised into the request, filled from the reply.
    Json::Value body;
    // The protocol text sent as the call's "type" argument.
    std::string protocol;
};

}  // namespace Corvane

#endif  // CORVANE_TCMESSAGE_H

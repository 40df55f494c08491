// Bus encodings of a TermsDbusMessage.
//
// A record travels in one of two shapes: "(suss)" (from, code, type, message)
// or "(sussa(y))" with a payload of raw bytes. Every reply carries the payload
// member; where a record has no payload, a one-byte placeholder (a single 0)
// stands in, and a reader takes 0 bytes or that one zero byte as no payload.
//
// Outgoing payloads are wrapped in place, not copied: the record's buffer must
// stay valid until the built value has been sent. Incoming texts and payloads
// are copied once into blocks that ReleaseTermsDbusMessage gives back.
//
// Texts GVariant does not accept for "s" are sent repaired: a null text as "",
// invalid UTF-8 with each bad sequence replaced by U+FFFD. So a reply that a
// callback filled badly still goes out as exactly one well-formed reply.
#ifndef TERMS_DBUS_UTIL_H
#define TERMS_DBUS_UTIL_H

#include <gio/gio.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "TermsDbusAPI.h"

namespace TermsDbusUtil {

// The largest message the reference bus daemon accepts by default (its
// max_message_size, 32 MiB, header included). A daemon drops a connection that
// sends a larger one, so nothing larger is ever sent. An "a(y)" payload costs
// 8 wire bytes per byte (each one-byte struct is aligned to 8), which puts the
// payload ceiling a little under 4 MiB.
constexpr uint64_t kMaxBusMessageSize = uint64_t{32} * 1024 * 1024;

// Received tuple to record. False only for a null params; a tuple of another
// shape fills nothing and still yields true.
bool MakeParamsToMessage(GVariant* params, TermsDbusMessage& msg);
// Checks the method name of an incoming call, then MakeParamsToMessage.
bool MakeParamsToMsgInput(std::string methodName, GVariant* params, TermsDbusMessage& msg);

// Builders: new floating values for the GDBus call that sends them.
GVariant* MakeMsgInputToParams(std::string& methodName, const TermsDbusMessage& msg);
GVariant* MakeMsgOutputResponseToParams(const TermsDbusMessage& msg);
// A reply that takes the record's payload over: the value releases it (array
// delete) when GDBus lets the reply go, and the record's buffer is nulled.
// GDBus may still read a reply's body after the call that returns it.
GVariant* MakeOwnedResponseToParams(TermsDbusMessage& msg);
GVariant* MakeFailResponseToParams();
GVariant* MakeSignalDataToParams(const TermsDbusMessage& msg);

// Payloads from this size on make the toolkit give freed memory back to the
// system once the message is done. GDBus turns a received "a(y)" into one
// value per byte (about 270 bytes of heap each); freed, that memory stays
// with the process unless it is handed back.
constexpr uint64_t kLargePayloadSize = uint64_t{1024} * 1024;
// Returns the heap's free pages to the system (malloc_trim) when
// `payloadSize` is at least kLargePayloadSize: at once, or, when called from
// a main loop's callback, once that loop is idle, after GDBus has released
// the message being handled.
void GiveBackMemoryAfterPayload(uint64_t payloadSize);

// "/" followed by the name with every "." replaced by "/".
std::string GetObjectPath(std::string name);

// Size on the wire of a message with this body whose header carries the given
// texts (path, interface, member, destination, sender: whichever it has), a
// reply serial and the body's signature.
uint64_t GetWireSize(GVariant* body, std::initializer_list<const char*> headerTexts);
// GetWireSize within kMaxBusMessageSize; logs the refusal otherwise.
bool FitsInBusMessage(GVariant* body, std::initializer_list<const char*> headerTexts);

}  // namespace TermsDbusUtil

#endif  // TERMS_DBUS_UTIL_H

// Fuzzes the decoding of a received bus tuple into a bus message record:
// the first input byte chooses a type (the two wire shapes, and others a
// peer might send), the rest is the value's serialised bytes, not trusted.
// The record is then encoded again as a reply and decoded once more: the
// second decoding must give back the same record.
#include <glib.h>

#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "TermsDbusAPI.h"
#include "TermsDbusUtil.h"

namespace {

const char* const kTypes[] = {
    "(suss)", "(sussa(y))", "(sussay)", "(s)",          "(sussa(y)s)", "(ssss)",
    "(susv)", "a(y)",       "(uuss)",   "((suss)a(y))", "(sussav)",    "()",
};
constexpr size_t kTypeCount = sizeof kTypes / sizeof kTypes[0];

bool SameText(const char* a, const char* b) {
    return (a == nullptr && b == nullptr) || (a != nullptr && b != nullptr && std::strcmp(a, b) == 0);
}

bool SamePayload(const TermsDbusMessage& a, const TermsDbusMessage& b) {
    return a.buffer_size == b.buffer_size &&
           (a.buffer_size == 0 || std::memcmp(a.buffer, b.buffer, a.buffer_size) == 0);
}

// Encodes the record as a reply and decodes that reply.
void CheckRoundTrip(const TermsDbusMessage& decoded) {
    GVariant* reply = g_variant_ref_sink(TermsDbusUtil::MakeMsgOutputResponseToParams(decoded));
    TermsDbusUtil::GetWireSize(reply, {"/a/b", "a.b", ":1.1"});
    TermsDbusMessage again = {};
    if (!TermsDbusUtil::MakeParamsToMessage(reply, again)) fuzzsupport::Fail("own reply not decoded");
    if (!SameText(decoded.from, again.from) || decoded.code != again.code || !SameText(decoded.type, again.type) ||
        !SameText(decoded.message, again.message) || !SamePayload(decoded, again)) {
        fuzzsupport::Fail("record changed on the way through a reply");
    }
    ReleaseTermsDbusMessage(&again);
    g_variant_unref(reply);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const char* typeString = kTypes[data[0] % kTypeCount];
    // A copy of its own, so the value's data is aligned as GVariant wants it.
    GBytes* bytes = g_bytes_new(data + 1, size - 1);
    GVariant* params = g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE(typeString), bytes, FALSE));
    g_bytes_unref(bytes);

    TermsDbusMessage msg = {};
    if (!TermsDbusUtil::MakeParamsToMsgInput("SendMessageWithBuffer", params, msg)) fuzzsupport::Fail("not decoded");
    const bool isShape = std::strcmp(typeString, "(suss)") == 0 || std::strcmp(typeString, "(sussa(y))") == 0;
    if (isShape != (msg.from != nullptr && msg.type != nullptr && msg.message != nullptr)) {
        fuzzsupport::Fail("texts filled for another shape, or missing for a wire shape");
    }
    if ((msg.buffer == nullptr) != (msg.buffer_size == 0)) fuzzsupport::Fail("payload and its size disagree");
    if (isShape) CheckRoundTrip(msg);
    TermsDbusUtil::GetWireSize(params, {"/a/b", "a.b", "SendMessage", ":1.1"});
    ReleaseTermsDbusMessage(&msg);
    g_variant_unref(params);
    return 0;
}

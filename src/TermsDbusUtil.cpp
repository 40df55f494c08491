#include "TermsDbusUtil.h"

#include <malloc.h>

#include <cstdint>
#include <cstring>
#include <new>

#define LOG_TAG "dterms-dbus"
#include "TermsLog.h"

namespace TermsDbusUtil {
namespace {

const char kPlainShape[] = "(suss)";
const char kPayloadShape[] = "(sussa(y))";
const char kPayloadType[] = "a(y)";
const char kFailMessage[] = "{\"dbus_result\":\"fail\",\"errmsg\":\"error handling\"}";
// The placeholder payload: the terminating NUL of this empty string.
const char kPlaceholder[] = "";

// A text as GVariant accepts it for "s": null becomes "", and invalid UTF-8
// gets each bad sequence replaced by U+FFFD. Valid texts are used in place.
class WireText {
public:
    explicit WireText(const char* text)
        : m_pText(text ? text : ""),
          m_pRepaired(g_utf8_validate(m_pText, -1, nullptr) ? nullptr : g_utf8_make_valid(m_pText, -1)) {}
    ~WireText() { g_free(m_pRepaired); }
    WireText(const WireText&) = delete;
    WireText& operator=(const WireText&) = delete;
    const char* c_str() const { return m_pRepaired ? m_pRepaired : m_pText; }

private:
    const char* m_pText;
    gchar* m_pRepaired;
};

bool HasPayload(const TermsDbusMessage& msg) {
    return msg.buffer_size != 0 && msg.buffer != nullptr;
}

// An "a(y)" over the bytes in place: its serialised form is the bytes
// themselves. `release` runs on `data` once GLib lets the value go.
GVariant* WrapBytes(const void* data, size_t size, GDestroyNotify release = nullptr) {
    return g_variant_new_from_data(G_VARIANT_TYPE(kPayloadType), data, size, TRUE, release, const_cast<void*>(data));
}

GVariant* WrapPayload(const TermsDbusMessage& msg) {
    return WrapBytes(msg.buffer, msg.buffer_size);
}

void ReleaseBuffer(gpointer buffer) {
    delete[] static_cast<unsigned char*>(buffer);
}

GVariant* MakePlaceholder() {
    return WrapBytes(kPlaceholder, sizeof(kPlaceholder));
}

// The four texts and the code, plus the payload when one is given.
GVariant* MakeTuple(const TermsDbusMessage& msg, GVariant* payload) {
    const WireText from(msg.from), type(msg.type), message(msg.message);
    if (!payload) return g_variant_new(kPlainShape, from.c_str(), msg.code, type.c_str(), message.c_str());
    return g_variant_new("(suss@a*)", from.c_str(), msg.code, type.c_str(), message.c_str(), payload);
}

void CopyTexts(const char* from, guint32 code, const char* type, const char* message, TermsDbusMessage& msg) {
    msg.from = CopyTermsDbusString(from);
    msg.code = code;
    msg.type = CopyTermsDbusString(type);
    msg.message = CopyTermsDbusString(message);
}

// Copies a received payload unless it is empty or the placeholder. The block
// is not zeroed first: the copy is the one pass over the bytes.
void CopyPayload(GVariant* payload, TermsDbusMessage& msg) {
    const gsize size = g_variant_get_size(payload);
    const auto* data = static_cast<const unsigned char*>(g_variant_get_data(payload));
    if (size == 0 || (size == 1 && data[0] == 0)) return;
    msg.buffer = new (std::nothrow) unsigned char[size];
    if (!msg.buffer) {
        TLOG_ERROR("no memory for a payload of %zu bytes, dropped", static_cast<size_t>(size));
        return;
    }
    std::memcpy(msg.buffer, data, size);
    msg.buffer_size = static_cast<uint32_t>(size);
}

void ReadPlain(GVariant* params, TermsDbusMessage& msg) {
    const char *from = nullptr, *type = nullptr, *message = nullptr;
    guint32 code = 0;
    g_variant_get(params, "(&su&s&s)", &from, &code, &type, &message);
    CopyTexts(from, code, type, message, msg);
}

void ReadWithPayload(GVariant* params, const char* typeString, TermsDbusMessage& msg) {
    const char *from = nullptr, *type = nullptr, *message = nullptr;
    guint32 code = 0;
    GVariant* payload = nullptr;
    g_variant_get(params, "(&su&s&s@a*)", &from, &code, &type, &message, &payload);
    TLOG_INFO_TRACE("get data of %s", typeString);
    CopyTexts(from, code, type, message, msg);
    CopyPayload(payload, msg);
    g_variant_unref(payload);
}

// Wire layout (D-Bus marshalling): every value is aligned to its type's
// alignment; a struct or dict entry to 8, an array's length to 4 and its
// first element to the element's alignment. Sizes are counted in 64 bits, so
// a payload of up to 4 GiB (8 wire bytes a byte) cannot wrap on any target.
uint64_t AlignUp(uint64_t offset, uint64_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

uint64_t WireAlignment(char typeCode) {
    switch (typeCode) {
        case 'y':
        case 'g':
        case 'v':
            return 1;
        case 'n':
        case 'q':
            return 2;
        case 'b':
        case 'i':
        case 'u':
        case 'h':
        case 's':
        case 'o':
        case 'a':
            return 4;
        default:
            return 8;
    }
}

// Elements of these types all have one size, wherever they start.
bool HasFixedWireSize(const GVariantType* type) {
    const std::string typeString(g_variant_type_peek_string(type), g_variant_type_get_string_length(type));
    return typeString.find_first_of("sogav") == std::string::npos;
}

uint64_t WireEnd(GVariant* value, uint64_t offset);

uint64_t ChildrenWireEnd(GVariant* value, uint64_t offset) {
    const gsize count = g_variant_n_children(value);
    for (gsize i = 0; i < count; ++i) {
        GVariant* child = g_variant_get_child_value(value, i);
        offset = WireEnd(child, offset);
        g_variant_unref(child);
    }
    return offset;
}

uint64_t ArrayWireEnd(GVariant* value, uint64_t offset) {
    const GVariantType* elementType = g_variant_type_element(g_variant_get_type(value));
    offset = AlignUp(AlignUp(offset, 4) + 4, WireAlignment(*g_variant_type_peek_string(elementType)));
    const gsize count = g_variant_n_children(value);
    if (count == 0 || !HasFixedWireSize(elementType)) return ChildrenWireEnd(value, offset);
    GVariant* first = g_variant_get_child_value(value, 0);
    const uint64_t elementSize = WireEnd(first, 0);
    g_variant_unref(first);
    const uint64_t stride = AlignUp(elementSize, WireAlignment(*g_variant_type_peek_string(elementType)));
    return offset + (count - 1) * stride + elementSize;
}

// The offset just after `value` when it is marshalled at `offset`.
uint64_t WireEnd(GVariant* value, uint64_t offset) {
    const char typeCode = *g_variant_get_type_string(value);
    gsize length = 0;
    switch (typeCode) {
        case 's':
        case 'o':
            g_variant_get_string(value, &length);
            return AlignUp(offset, 4) + 4 + length + 1;
        case 'g':
            g_variant_get_string(value, &length);
            return offset + 1 + length + 1;
        case 'v': {
            GVariant* inner = g_variant_get_variant(value);
            const uint64_t end = WireEnd(inner, offset + 1 + std::strlen(g_variant_get_type_string(inner)) + 1);
            g_variant_unref(inner);
            return end;
        }
        case 'a':
            return ArrayWireEnd(value, offset);
        case '(':
        case '{':
            return ChildrenWireEnd(value, AlignUp(offset, 8));
        default:  // a fixed-size basic type, as large as its alignment
            return AlignUp(offset, WireAlignment(typeCode)) + WireAlignment(typeCode);
    }
}

// Fixed header (16 bytes) and its fields, each aligned to 8: a text field
// takes 4 bytes of code and signature, then a string; the reply serial 8;
// the body signature 4 bytes, then a signature.
uint64_t HeaderWireSize(GVariant* body, std::initializer_list<const char*> headerTexts) {
    uint64_t size = 16 + 8;
    for (const char* text : headerTexts) size += AlignUp(4 + 4 + std::strlen(text ? text : "") + 1, 8);
    const uint64_t signatureLength = std::strlen(g_variant_get_type_string(body)) - 2;  // without "(" and ")"
    return size + AlignUp(4 + 1 + signatureLength + 1, 8);
}

gboolean TrimHeap(gpointer) {
    malloc_trim(0);
    return G_SOURCE_REMOVE;
}

}  // namespace

void GiveBackMemoryAfterPayload(uint64_t payloadSize) {
    if (payloadSize < kLargePayloadSize) return;
    GSource* current = g_main_current_source();
    GMainContext* context = current ? g_source_get_context(current) : nullptr;
    if (!context) {
        malloc_trim(0);
        return;
    }
    // Below the priority of GDBus's own sources, so the call's invocation and
    // message are gone by then.
    GSource* idle = g_idle_source_new();
    g_source_set_priority(idle, G_PRIORITY_LOW);
    g_source_set_callback(idle, TrimHeap, nullptr, nullptr);
    g_source_attach(idle, context);
    g_source_unref(idle);
}

bool MakeParamsToMessage(GVariant* params, TermsDbusMessage& msg) {
    if (!params) {
        TLOG_ERROR("Error: parameters is NULL");
        return false;
    }
    const char* typeString = g_variant_get_type_string(params);
    TLOG_INFO_TRACE("%s", typeString);
    if (std::strcmp(typeString, kPlainShape) == 0) {
        ReadPlain(params, msg);
    } else if (std::strcmp(typeString, kPayloadShape) == 0) {
        ReadWithPayload(params, typeString, msg);
    }
    return true;
}

bool MakeParamsToMsgInput(std::string methodName, GVariant* params, TermsDbusMessage& msg) {
    if (methodName == "SendMessage") {
        TLOG_INFO_TRACE("methodName: SendMessage");
    } else if (methodName == "SendMessageWithBuffer") {
        TLOG_INFO_TRACE("methodName: SendMessageWithBuffer");
    } else {
        TLOG_ERROR("error method name : %s", methodName.c_str());
        return false;
    }
    MakeParamsToMessage(params, msg);
    return true;
}

GVariant* MakeMsgInputToParams(std::string& methodName, const TermsDbusMessage& msg) {
    methodName = HasPayload(msg) ? "SendMessageWithBuffer" : "SendMessage";
    return MakeSignalDataToParams(msg);
}

GVariant* MakeMsgOutputResponseToParams(const TermsDbusMessage& msg) {
    return MakeTuple(msg, HasPayload(msg) ? WrapPayload(msg) : MakePlaceholder());
}

GVariant* MakeOwnedResponseToParams(TermsDbusMessage& msg) {
    if (!HasPayload(msg)) return MakeTuple(msg, MakePlaceholder());
    GVariant* payload = WrapBytes(msg.buffer, msg.buffer_size, ReleaseBuffer);
    msg.buffer = nullptr;
    return MakeTuple(msg, payload);
}

GVariant* MakeFailResponseToParams() {
    TermsDbusMessage fail = {};
    fail.message = const_cast<char*>(kFailMessage);
    return MakeMsgOutputResponseToParams(fail);
}

GVariant* MakeSignalDataToParams(const TermsDbusMessage& msg) {
    return MakeTuple(msg, HasPayload(msg) ? WrapPayload(msg) : nullptr);
}

std::string GetObjectPath(std::string name) {
    std::string path = "." + name;
    for (size_t dot = path.find('.'); dot != std::string::npos; dot = path.find('.', dot + 1)) path[dot] = '/';
    return path;
}

uint64_t GetWireSize(GVariant* body, std::initializer_list<const char*> headerTexts) {
    return HeaderWireSize(body, headerTexts) + WireEnd(body, 0);
}

bool FitsInBusMessage(GVariant* body, std::initializer_list<const char*> headerTexts) {
    const uint64_t size = GetWireSize(body, headerTexts);
    if (size <= kMaxBusMessageSize) return true;
    TLOG_ERROR("message of %llu bytes exceeds the bus limit of %llu bytes, not sent",
               static_cast<unsigned long long>(size), static_cast<unsigned long long>(kMaxBusMessageSize));
    return false;
}

}  // namespace TermsDbusUtil

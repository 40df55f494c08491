// The bus encodings of a message record, without a bus.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "TermsDbusUtil.h"
#include "ToolkitSupport.h"

using namespace TermsDbusUtil;
using toolkit_test::FilledRecord;
using toolkit_test::MakeRequest;

namespace {

const char kFailJson[] = "{\"dbus_result\":\"fail\",\"errmsg\":\"error handling\"}";

// Takes over a floating value built by the encodings.
struct Built {
    explicit Built(GVariant* value) : v(g_variant_ref_sink(value)) {}
    ~Built() { g_variant_unref(v); }
    std::string Type() const { return g_variant_get_type_string(v); }
    std::vector<unsigned char> Payload() const {
        GVariant* child = g_variant_get_child_value(v, 4);
        const auto* data = static_cast<const unsigned char*>(g_variant_get_data(child));
        std::vector<unsigned char> bytes(data, data + g_variant_get_size(child));
        g_variant_unref(child);
        return bytes;
    }
    const void* PayloadData() const {
        GVariant* child = g_variant_get_child_value(v, 4);
        const void* data = g_variant_get_data(child);
        g_variant_unref(child);
        return data;
    }
    GVariant* v;
};

GVariant* Received(const char* text) { return g_variant_parse(nullptr, text, nullptr, nullptr, nullptr); }

}  // namespace

struct PayloadPresenceCase {
    const char* name;
    bool hasBuffer;
    uint32_t size;
    bool sentAsPayload;
};

void PrintTo(const PayloadPresenceCase& c, std::ostream* os) { *os << c.name; }

class TheEncodings : public testing::TestWithParam<PayloadPresenceCase> {};

TEST_P(TheEncodings, ChooseTheShapeByPayloadPresence) {
    const PayloadPresenceCase& c = GetParam();
    unsigned char byte = 0x01;
    TermsDbusMessage msg = MakeRequest("f", 7, "t", "m");
    msg.buffer = c.hasBuffer ? &byte : nullptr;
    msg.buffer_size = c.size;

    std::string method;
    Built call(MakeMsgInputToParams(method, msg));
    Built signal(MakeSignalDataToParams(msg));
    Built reply(MakeMsgOutputResponseToParams(msg));

    EXPECT_EQ(method, c.sentAsPayload ? "SendMessageWithBuffer" : "SendMessage");
    EXPECT_EQ(call.Type(), c.sentAsPayload ? "(sussa(y))" : "(suss)");
    EXPECT_EQ(signal.Type(), call.Type());
    EXPECT_EQ(reply.Type(), "(sussa(y))");
    EXPECT_EQ(reply.Payload(), std::vector<unsigned char>{static_cast<unsigned char>(c.sentAsPayload ? 0x01 : 0x00)});
}

INSTANTIATE_TEST_SUITE_P(Payloads, TheEncodings,
                         testing::Values(PayloadPresenceCase{"None", false, 0, false},
                                         PayloadPresenceCase{"BufferWithoutSize", true, 0, false},
                                         PayloadPresenceCase{"SizeWithoutBuffer", false, 1, false},
                                         PayloadPresenceCase{"OneByte", true, 1, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(TheEncodings, WrapAnOutgoingPayloadInPlace) {
    std::vector<unsigned char> payload(64, 0xAB);
    const TermsDbusMessage msg = MakeRequest("f", 1, "t", "m", &payload);
    Built reply(MakeMsgOutputResponseToParams(msg));
    Built signal(MakeSignalDataToParams(msg));
    EXPECT_EQ(reply.PayloadData(), payload.data());
    EXPECT_EQ(signal.PayloadData(), payload.data());
}

TEST(TheEncodings, SendNullTextsAsEmptyAndRepairInvalidUtf8) {
    const TermsDbusMessage msg = MakeRequest(nullptr, 3, "ok\xc3", "\xff");
    Built reply(MakeMsgOutputResponseToParams(msg));
    const char *from, *type, *message;
    guint32 code;
    GVariant* payload;
    g_variant_get(reply.v, "(&su&s&s@a*)", &from, &code, &type, &message, &payload);
    g_variant_unref(payload);
    EXPECT_STREQ(from, "");
    EXPECT_STREQ(type, "ok\xef\xbf\xbd");
    EXPECT_STREQ(message, "\xef\xbf\xbd");
}

TEST(TheEncodings, BuildTheFixedFailureReply) {
    Built fail(MakeFailResponseToParams());
    FilledRecord decoded;
    ASSERT_TRUE(MakeParamsToMessage(fail.v, decoded.msg));
    EXPECT_STREQ(decoded.msg.from, "");
    EXPECT_EQ(decoded.msg.code, 0u);
    EXPECT_STREQ(decoded.msg.type, "");
    EXPECT_STREQ(decoded.msg.message, kFailJson);
    EXPECT_EQ(decoded.msg.buffer, nullptr);
    EXPECT_EQ(decoded.msg.buffer_size, 0u);
}

struct ReceivedCase {
    const char* name;
    const char* tuple;
    std::vector<unsigned char> payload;
};

void PrintTo(const ReceivedCase& c, std::ostream* os) { *os << c.name; }

class AReceivedTuple : public testing::TestWithParam<ReceivedCase> {};

TEST_P(AReceivedTuple, FillsAnEmptyRecordWithCopies) {
    testbed::LogCapture log;
    GVariant* params = g_variant_ref_sink(Received(GetParam().tuple));
    FilledRecord record;
    ASSERT_TRUE(MakeParamsToMessage(params, record.msg));
    EXPECT_TRUE(log.Has(g_variant_get_type_string(params)));
    g_variant_unref(params);
    EXPECT_STREQ(record.msg.from, "f");
    EXPECT_EQ(record.msg.code, 7u);
    EXPECT_STREQ(record.msg.type, "t");
    EXPECT_STREQ(record.msg.message, "m");
    EXPECT_EQ(record.Payload(), GetParam().payload);
    EXPECT_EQ(record.msg.buffer == nullptr, GetParam().payload.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, AReceivedTuple,
    testing::Values(ReceivedCase{"Plain", "('f', uint32 7, 't', 'm')", {}},
                    ReceivedCase{"EmptyPayload", "('f', uint32 7, 't', 'm', @a(y) [])", {}},
                    ReceivedCase{"Placeholder", "('f', uint32 7, 't', 'm', [(byte 0x00,)])", {}},
                    ReceivedCase{"OneByte01", "('f', uint32 7, 't', 'm', [(byte 0x01,)])", {0x01}},
                    ReceivedCase{"TwoZeroBytes", "('f', uint32 7, 't', 'm', [(byte 0x00,), (byte 0x00,)])", {0, 0}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(AReceivedTuple, OfAnotherShapeLeavesTheRecordUnchanged) {
    GVariant* params = g_variant_ref_sink(Received("('f', uint32 7, 't', 'm', [byte 0x01])"));
    ASSERT_STREQ(g_variant_get_type_string(params), "(sussay)");
    TermsDbusMessage record{};
    EXPECT_TRUE(MakeParamsToMessage(params, record));
    g_variant_unref(params);
    EXPECT_EQ(record.from, nullptr);
    EXPECT_EQ(record.message, nullptr);
    EXPECT_EQ(record.code, 0u);
}

TEST(AReceivedTuple, ThatIsNullIsRefusedWithAnError) {
    testbed::LogCapture log;
    TermsDbusMessage record{};
    EXPECT_FALSE(MakeParamsToMessage(nullptr, record));
    const auto lines = log.WithMessage("Error: parameters is NULL");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].prio, 6);
    EXPECT_EQ(lines[0].tag, "dterms-dbus");
    EXPECT_EQ(lines[0].colour, "\033[31m");
}

TEST(AnIncomingCall, IsDecodedOnlyUnderTheTwoExactMethodNames) {
    GVariant* params = g_variant_ref_sink(Received("('f', uint32 7, 't', 'm')"));
    for (const char* accepted : {"SendMessage", "SendMessageWithBuffer"}) {
        FilledRecord record;
        EXPECT_TRUE(MakeParamsToMsgInput(accepted, params, record.msg)) << accepted;
        EXPECT_STREQ(record.msg.message, "m");
    }
    for (const char* refused : {"SendMessageX", "sendmessage", ""}) {
        testbed::LogCapture log;
        TermsDbusMessage record{};
        EXPECT_FALSE(MakeParamsToMsgInput(refused, params, record)) << refused;
        EXPECT_EQ(record.from, nullptr);
        EXPECT_TRUE(log.Has(std::string("error method name : ") + refused));
    }
    g_variant_unref(params);
}

TEST(AnObjectPath, ReplacesEveryDotOfTheBusName) {
    const std::pair<const char*, const char*> cases[] = {
        {"x", "/x"}, {"a.b.c", "/a/b/c"}, {"a..b", "/a//b"}, {"a.b.", "/a/b/"}, {"", "/"}, {"a-b_c.1", "/a-b_c/1"}};
    for (const auto& [name, path] : cases) EXPECT_EQ(GetObjectPath(name), path) << name;
}

// What GDBus itself serialises must never exceed the size the toolkit checks.
TEST(TheWireSize, CoversWhatGdbusSendsWithLittleToSpare) {
    for (uint32_t size : {0u, 1u, 2u, 1000u, 100000u}) {
        std::vector<unsigned char> payload(size, 0x5A);
        const TermsDbusMessage msg = MakeRequest("from", 7, "type", "a message", &payload);
        std::string method;
        Built body(MakeMsgInputToParams(method, msg));
        GDBusMessage* call = g_dbus_message_new_method_call("test.dest", "/test/dest", "test.dest", method.c_str());
        g_dbus_message_set_body(call, body.v);
        gsize blobSize = 0;
        guchar* blob = g_dbus_message_to_blob(call, &blobSize, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
        const size_t checked = GetWireSize(body.v, {"/test/dest", "test.dest", method.c_str(), "test.dest", ":1.1"});
        EXPECT_GE(checked, blobSize) << size;
        EXPECT_LE(checked, blobSize + 32) << size;
        g_free(blob);
        g_object_unref(call);
    }
}

TEST(TheWireSize, RefusesWhatExceedsTheDaemonsMessageLimit) {
    testbed::LogCapture log;
    std::vector<unsigned char> payload(kMaxBusMessageSize / 8, 1);
    const TermsDbusMessage msg = MakeRequest("f", 1, "t", "m", &payload);
    Built body(MakeSignalDataToParams(msg));
    EXPECT_FALSE(FitsInBusMessage(body.v, {"/p", "i", "m"}));
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_NE(log.Lines()[0].message.find("exceeds the bus limit"), std::string::npos);
}

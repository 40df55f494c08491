// The bus encodings of a message record, without a bus.
#include <tuple>

#include "TermsDbusUtil.h"
#include "ToolkitSupport.h"

using namespace TermsDbusUtil;
using namespace toolkit_test;

namespace {

// Owns a value built by the encodings (floating) or parsed (not floating).
struct Owned {
    explicit Owned(GVariant* value) : v(g_variant_take_ref(value)) {}
    ~Owned() { g_variant_unref(v); }
    static Owned Parsed(const char* text) { return Owned(g_variant_parse(nullptr, text, nullptr, nullptr, nullptr)); }
    std::string Type() const { return g_variant_get_type_string(v); }
    GVariant* v;
};

// Where the payload member's bytes lie ("(y)" structs are plain bytes) and how many there are.
std::pair<const unsigned char*, gsize> PayloadOf(const Owned& value) {
    GVariant* child = g_variant_get_child_value(value.v, 4);
    const auto* data = static_cast<const unsigned char*>(g_variant_get_data(child));
    const gsize size = g_variant_get_size(child);
    g_variant_unref(child);
    return {data, size};
}

}  // namespace

TEST(TheEncodings, ChooseTheShapeByPayloadPresenceAndWrapAPayloadWithoutCopying) {
    unsigned char byte = 0x01;
    const std::tuple<unsigned char*, uint32_t, bool> cases[] = {
        {nullptr, 0, false}, {&byte, 0, false}, {nullptr, 1, false}, {&byte, 1, true}};
    for (const auto& [buffer, bufferSize, sent] : cases) {
        TermsDbusMessage msg = MakeRequest("t");
        msg.buffer = buffer;
        msg.buffer_size = bufferSize;
        std::string method;
        Owned call(MakeMsgInputToParams(method, msg)), signal(MakeSignalDataToParams(msg)),
            reply(MakeMsgOutputResponseToParams(msg));
        EXPECT_EQ(method, sent ? "SendMessageWithBuffer" : "SendMessage");
        EXPECT_EQ(call.Type(), sent ? "(sussa(y))" : "(suss)");
        EXPECT_EQ(signal.Type(), call.Type());
        ASSERT_EQ(reply.Type(), "(sussa(y))");
        const auto [data, size] = PayloadOf(reply);
        ASSERT_EQ(size, 1u);
        EXPECT_EQ(data[0], sent ? 0x01 : 0x00) << "the placeholder stands in for no payload";
        EXPECT_EQ(data == &byte, sent);
        EXPECT_EQ(sent && PayloadOf(call).first == &byte, sent) << "the call wraps the payload too";
    }
}

TEST(AReceivedTuple, FillsARecordWithEveryMemberAndNoPayloadForThePlaceholder) {
    const std::pair<const char*, std::vector<unsigned char>> cases[] = {
        {"('f', uint32 7, 't', 'm')", {}},
        {"('f', uint32 7, 't', 'm', @a(y) [])", {}},
        {"('f', uint32 7, 't', 'm', [(byte 0x00,)])", {}},
        {"('f', uint32 7, 't', 'm', [(byte 0x01,)])", {0x01}},
        {"('f', uint32 7, 't', 'm', [(byte 0x00,), (byte 0x00,)])", {0x00, 0x00}}};
    for (const auto& [text, payload] : cases) {
        FilledRecord record;
        ASSERT_TRUE(MakeParamsToMessage(Owned::Parsed(text).v, record.msg)) << text;
        EXPECT_STREQ(record.msg.from, "f");
        EXPECT_EQ(record.msg.code, 7u);
        EXPECT_STREQ(record.msg.type, "t");
        EXPECT_STREQ(record.msg.message, "m");
        EXPECT_EQ(record.Payload(), payload) << text;
        EXPECT_EQ(record.msg.buffer == nullptr, payload.empty()) << text;
    }
}

TEST(AReceivedTuple, OfAnotherShapeLeavesTheRecordEmptyAndANullOneIsRefused) {
    TermsDbusMessage record{};
    EXPECT_TRUE(MakeParamsToMessage(Owned::Parsed("('f', uint32 7, 't', 'm', [byte 0x01])").v, record));
    EXPECT_EQ(record.from, nullptr);
    EXPECT_FALSE(MakeParamsToMessage(nullptr, record));
}

TEST(AnObjectPath, ReplacesEveryDotOfTheBusName) {
    const std::pair<const char*, const char*> cases[] = {
        {"x", "/x"}, {"a.b.c", "/a/b/c"}, {"a..b", "/a//b"}, {"a.b.", "/a/b/"}, {"", "/"}, {"a-b_c.1", "/a-b_c/1"}};
    for (const auto& [name, path] : cases) EXPECT_EQ(GetObjectPath(name), path) << name;
}

// The error descriptor and its JSON text.
#include "ClientTestBed.h"

namespace clienttest {
namespace {

using Descriptor = CVerantiAPI::CErrorDescriptor;

class AnErrorDescriptor : public ::testing::Test {
protected:
    testbed::LogCapture logs;
};

TEST_F(AnErrorDescriptor, IsZeroByDefault) {
    const Descriptor descriptor;
    EXPECT_EQ(descriptor.m_ErrorCode, 0);
    EXPECT_EQ(descriptor.m_ErrorReason, 0);
}

TEST_F(AnErrorDescriptor, WritesCompactJsonInKeyOrder) {
    EXPECT_EQ(Descriptor(3, 12).ToString(), R"({"error_code":3,"error_reason":12})");
    EXPECT_EQ(Descriptor(-1, 2).ToString(), R"({"error_code":-1,"error_reason":2})");
}

TEST_F(AnErrorDescriptor, ReadsBackWhatItWrote) {
    const Descriptor back = Descriptor::FromString(Descriptor(-1, 2).ToString());
    EXPECT_EQ(back.m_ErrorCode, -1);
    EXPECT_EQ(back.m_ErrorReason, 2);
    EXPECT_TRUE(logs.Lines().empty());
}

TEST_F(AnErrorDescriptor, ReadsMissingMembersAsZero) {
    const struct {
        const char* text;
        int code;
        int reason;
    } cases[] = {
        {"{}", 0, 0},
        {R"({"error_code":5})", 5, 0},
        {R"({"error_reason":9,"error_code":-4,"other":"x"})", -4, 9},
        {"null", 0, 0},
    };
    for (const auto& c : cases) {
        const Descriptor descriptor = Descriptor::FromString(c.text);
        EXPECT_EQ(descriptor.m_ErrorCode, c.code) << c.text;
        EXPECT_EQ(descriptor.m_ErrorReason, c.reason) << c.text;
    }
    EXPECT_TRUE(logs.Lines().empty());
}

TEST_F(AnErrorDescriptor, FromTextThatIsNotJsonIsZeroWithAWarning) {
    for (const char* text : {"", "error 5", "{\"error_code\":"}) {
        logs.Clear();
        const Descriptor descriptor = Descriptor::FromString(text);
        EXPECT_EQ(descriptor.m_ErrorCode, 0) << text;
        EXPECT_EQ(descriptor.m_ErrorReason, 0) << text;
        EXPECT_TRUE(Logged(logs, "<<WARN: NOT JSON TYPE MESSAGE>>", kWarn, kRed)) << text;
    }
}

TEST_F(AnErrorDescriptor, LetsTheJsonErrorOfMembersOfTheWrongKindPass) {
    for (const char* text : {R"({"error_code":"x"})", R"({"error_reason":[1]})", "[1]", "7"})
        EXPECT_THROW(Descriptor::FromString(text), Json::Exception) << text;
}

}  // namespace
}  // namespace clienttest

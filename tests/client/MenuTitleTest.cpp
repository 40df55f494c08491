// Titles of the terms menu, read from the configuration store.
#include <optional>

#include "ClientTestBed.h"
#include "TermsJsonParser.h"

namespace clienttest {
namespace {

struct TitleCase {
    const char* label;
    std::optional<std::string> stored;  // nothing: the key is not set
    int index;
    int result;
    std::string title;                  // the title when found
    std::string line;                   // the line that tells what happened
    int prio;
};

void PrintTo(const TitleCase& c, std::ostream* out) { *out << c.label; }

const char kTwoTitles[] = R"([{"title":"A"},{"title":"B"}])";

const TitleCase kTitleCases[] = {
    {"SecondOfTwo", kTwoTitles, 1, 0, "B", "array size 2", kDebug},
    {"PastTheEnd", kTwoTitles, 2, -1, "", "order is over length ", kWarn},
    {"NegativeIndex", kTwoTitles, -1, -1, "", "parameter  Error : [db/veranti/terms_title][-1]", kWarn},
    {"EmptyArray", "[]", 0, -1, "", "Parsing Error : [[]]", kWarn},
    {"EmptyObject", "{}", 0, -1, "", "Parsing Error : [{}]", kWarn},
    {"Unparsable", "[{title:", 0, -1, "", "Parsing Error : [[{title:]", kWarn},
    {"EmptyValue", "", 0, -1, "", "Parsing Error : []", kWarn},
    {"KeyNotSet", std::nullopt, 0, -1, "", "vconf get str failed", kWarn},
    {"ElementWithoutTitle", R"([{"name":"A"}])", 0, -1, "", "Title is = ", kDebug},
    {"ElementThatIsText", R"(["A"])", 0, -1, "", "Title is = ", kDebug},
    {"NumberTitle", R"([{"title":5}])", 0, 0, "5", "Title is = 5", kDebug},
    {"BooleanTitle", R"([{"title":true}])", 0, 0, "true", "Title is = true", kDebug},
    {"NullTitle", R"([{"title":null}])", 0, -1, "", "Title is = ", kDebug},
    {"EmptyTitle", R"([{"title":""}])", 0, -1, "", "Title is = ", kDebug},
    {"ArrayTitle", R"([{"title":[1]}])", 0, -1, "", "", kWarn},
    {"ObjectWithEnoughMembers", R"({"a":1,"b":2})", 1, -1, "", "Title is = ", kDebug},
    {"ArrayWithComments", "// menu\n[{\"title\":\"A\"} /* first */]", 0, 0, "A", "Title is = A", kDebug},
};

class AMenuTitle : public ClientTestBed, public ::testing::WithParamInterface<TitleCase> {
protected:
    void SetUp() override {
        ClientTestBed::SetUp();
        if (GetParam().stored) store.Set(kTitlesKey, *GetParam().stored);
    }
};

TEST_P(AMenuTitle, IsFoundOnlyWhenTheStoredArrayHasANonEmptyTitleThere) {
    const TitleCase& c = GetParam();
    std::string title = "unchanged";

    EXPECT_EQ(api->GetDisclaimerTitle(title, c.index), c.result);

    EXPECT_EQ(title, c.result == 0 ? c.title : "unchanged");
    EXPECT_TRUE(Logged(logs, "GetDisclaimerTitle called for index: " + std::to_string(c.index), kInfo, kGreen));
    if (c.line.empty()) {
        const auto errors = LinesStartingWith(logs, "Json Error e = ");
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_TRUE(Logged(logs, errors[0].message, kWarn, kRed));
    } else {
        EXPECT_TRUE(Logged(logs, c.line, c.prio, c.prio == kDebug ? kWhite : kRed));
    }
    // The reader and the client each log a title they found.
    EXPECT_EQ(logs.Count("Title is = " + c.title), c.result == 0 ? 2u : (c.line == "Title is = " ? 1u : 0u));
}

INSTANTIATE_TEST_SUITE_P(EveryStoredCase, AMenuTitle, ::testing::ValuesIn(kTitleCases),
                         [](const auto& info) { return std::string(info.param.label); });

class TheMenuTitleReader : public ClientTestBed {};

TEST_F(TheMenuTitleReader, RefusesAnEmptyKey) {
    EXPECT_EQ(CTermsJsonParser::GetMenuTitleFromVconf("", 0), "");
    EXPECT_TRUE(Logged(logs, "parameter  Error : [][0]", kWarn, kRed));
}

TEST_F(TheMenuTitleReader, ReadsTheStoreAgainOnEveryCall) {
    store.Set("db/test/titles", R"([{"title":"old"}])");
    EXPECT_EQ(CTermsJsonParser::GetMenuTitleFromVconf("db/test/titles", 0), "old");
    store.Set("db/test/titles", R"([{"title":"new"}])");
    EXPECT_EQ(CTermsJsonParser::GetMenuTitleFromVconf("db/test/titles", 0), "new");
}

class TheOsdLanguage : public ClientTestBed {};

TEST_F(TheOsdLanguage, IsAlwaysKoreanWithoutReadingOrLoggingAnything) {
    std::string language = "en";
    EXPECT_EQ(api->GetDisclaimerOsdLanguage(language), 0);
    EXPECT_EQ(language, "ko");
    EXPECT_TRUE(logs.Lines().empty());
    EXPECT_TRUE(service.Requests().empty());
}

}  // namespace
}  // namespace clienttest

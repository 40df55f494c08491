// The simulated service's parts: catalogue checking, clone-data paths,
// failure modes and the command line.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Catalogue.h"
#include "CloneDirs.h"
#include "FailurePlan.h"
#include "SimOptions.h"
#include "SimTestCatalogue.h"

using namespace termssim;
namespace fs = std::filesystem;

namespace {

// The test catalogue with `from` replaced by `to` (once).
std::string Edited(const std::string& from, const std::string& to) {
    std::string text = simtest::kTestCatalogue;
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

TEST(ACatalogue, NamesThePlaceOfEachMistake) {
    const std::pair<std::string, std::string> kMistakes[] = {
        {"{", "not valid JSON"},
        {Edited(R"("default_country": "AA")", R"("default_country": "ZZ")"), "default_country"},
        {Edited(R"("title": "Child")", R"("titel": "Child")"), "disclaimers.child.titel: unknown member"},
        {Edited(R"("agree_dependency": "base")", R"("agree_dependency": "nope")"),
         "disclaimers.child.agree_dependency"},
        {Edited(R"("agree_dependency": "base")", R"("agree_dependency": "note")"), "is a notice"},
        {Edited(R"("revised": ["child"])", R"("revised": ["bb_only"])"), "countries.AA.revised"},
        {Edited(R"("0": ["base", "child"])", R"("0": ["base", 5])"), "countries.AA.requesters.0[1]"},
        {Edited(R"("9", "10"])", R"("9", "10", "11"])"), "disclaimers.extra.buttons: at most 10"},
        {Edited(R"("bb_only": {)", R"("data": {)"), "\"data\" cannot be an id"},
        {Edited(R"("only_notice": true)", R"("only_notice": "yes")"), "disclaimers.note.only_notice"},
        {Edited(R"("by_country": {"BB")", R"("by_country": {"CC")"), "disclaimers.base.by_country.CC"},
        {Edited(R"({"title": "S1", "data": "D1"})", R"({"title": "S1", "text": "D1"})"), "details[0].text"},
    };
    for (const auto& [text, place] : kMistakes) {
        try {
            Catalogue::FromText(text);
            ADD_FAILURE() << "accepted a catalogue that should name " << place;
        } catch (const CatalogueError& error) {
            EXPECT_NE(std::string(error.what()).find(place), std::string::npos) << error.what();
        }
    }
}

TEST(ACatalogue, ResolvesCountryOverridesAndFallsBackToTopLevelHeaders) {
    const Catalogue catalogue = Catalogue::FromText(simtest::kTestCatalogue);
    const Country& bb = *catalogue.FindCountry("BB");
    EXPECT_EQ(bb.Find("base")->title, "Grundlage – 기본");
    EXPECT_EQ(bb.Find("base")->intro, "Read me");
    EXPECT_EQ(catalogue.FindCountry("AA")->Find("base")->title, "Base terms");
    EXPECT_EQ(bb.webViewHeader["w"], "top");
    EXPECT_EQ(bb.requesters[3], (std::vector<std::string>{"bb_only", "base"}));
}

TEST(TheSampleCatalogue, HasSeveralCountriesANoticeADependencyARevisionAndNonAsciiTexts) {
    const Catalogue catalogue = Catalogue::Load(SAMPLE_CATALOGUE);
    EXPECT_GE(catalogue.CountryCodes().size(), 3u);
    bool notice = false, dependency = false, revised = false, nonAscii = false, sixItems = false;
    for (const std::string& code : catalogue.CountryCodes()) {
        const Country& country = *catalogue.FindCountry(code);
        sixItems = sixItems || country.disclaimers.size() >= 6;
        revised = revised || !country.revised.empty();
        for (const Disclaimer& item : country.disclaimers) {
            notice = notice || item.onlyNotice;
            dependency = dependency || !item.agreeDependency.empty();
            nonAscii = nonAscii || std::any_of(item.title.begin(), item.title.end(), [](char c) { return c & 0x80; });
        }
        EXPECT_FALSE(country.menuTitles.empty()) << code;
    }
    EXPECT_TRUE(notice && dependency && revised && nonAscii && sixItems);
}

class CloneDirsTest : public testing::Test {
protected:
    CloneDirsTest() {
        for (const char* side : {"set", "usb", "outside"}) fs::create_directories(m_Root / side);
        Write(m_Root / "set" / "tv.dat", "set data");
        Write(m_Root / "outside" / "secret", "secret");
        fs::create_symlink(m_Root / "outside" / "secret", m_Root / "set" / "link-out");
        fs::create_directory_symlink(m_Root / "outside", m_Root / "usb" / "dir-out");
        fs::create_symlink("tv.dat", m_Root / "set" / "link-in");
    }
    ~CloneDirsTest() override { fs::remove_all(m_Root); }

    static void Write(const fs::path& path, const std::string& text) { std::ofstream(path) << text; }
    static std::string Read(const fs::path& path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    static fs::path MakeRoot() {
        char dir[] = "/tmp/sim-clone-XXXXXX";
        return mkdtemp(dir);
    }

    const fs::path m_Root = MakeRoot();
    const CloneDirs m_Dirs{m_Root / "set", m_Root / "usb"};
};

TEST_F(CloneDirsTest, CopiesBetweenTheSidesMakingMissingDirectories) {
    std::string error;
    ASSERT_TRUE(m_Dirs.Copy(CloneDirection::SetToUsb, "tv.dat", "clone/copy.dat", error)) << error;
    EXPECT_EQ(Read(m_Root / "usb" / "clone" / "copy.dat"), "set data");
    ASSERT_TRUE(m_Dirs.Copy(CloneDirection::UsbToSet, "clone/copy.dat", "back.dat", error)) << error;
    EXPECT_EQ(Read(m_Root / "set" / "back.dat"), "set data");
    ASSERT_TRUE(m_Dirs.Copy(CloneDirection::SetToUsb, "link-in", "via-link.dat", error)) << error;
}

TEST_F(CloneDirsTest, RefusesPathsThatLeaveTheirSideAndNeverWritesOutside) {
    const std::pair<const char*, const char*> kRefused[] = {
        {"/etc/passwd", "x"},
        {"tv.dat", "/tmp/x"},
        {"../outside/secret", "x"},
        {"tv.dat", "../x"},
        {"tv.dat", "a/../../x"},
        {"link-out", "x"},
        {"tv.dat", "dir-out/x"},
        {"", "x"},
        {"missing", "x"},
        {".", "x"},
        {"tv.dat", "."},
    };
    for (const auto& [src, dest] : kRefused) {
        std::string error;
        EXPECT_FALSE(m_Dirs.Copy(CloneDirection::SetToUsb, src, dest, error)) << src << " -> " << dest;
        EXPECT_FALSE(error.empty());
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(m_Root / "outside"), fs::directory_iterator()), 1);
    EXPECT_FALSE(fs::exists(m_Root / "x"));
    std::string error;
    EXPECT_FALSE(CloneDirs().Copy(CloneDirection::SetToUsb, "tv.dat", "x", error));
}

TEST(AFailurePlan, ReadsModesPerMethodWithAStarForTheRest) {
    FailurePlan plan;
    std::string error;
    ASSERT_TRUE(plan.Add("set one agreement=refuse", error)) << error;
    ASSERT_TRUE(plan.Add("get disclaimer number=delay:250", error)) << error;
    ASSERT_TRUE(plan.Add("*=silent", error)) << error;
    EXPECT_EQ(plan.For("set one agreement").kind, FailureMode::Kind::Refuse);
    EXPECT_EQ(plan.For("get disclaimer number").kind, FailureMode::Kind::Delay);
    EXPECT_EQ(plan.For("get disclaimer number").delayMs, 250u);
    EXPECT_EQ(plan.For("is service available").kind, FailureMode::Kind::Silent);
    EXPECT_EQ(FailurePlan().For("is service available").kind, FailureMode::Kind::None);
    for (const char* bad : {"refuse", "no such method=refuse", "set one agreement=explode",
                            "set one agreement=delay:", "set one agreement=delay:-5", "set one agreement=delay:9x"}) {
        EXPECT_FALSE(plan.Add(bad, error)) << bad;
    }
}

TEST(TheSimulatorCommandLine, ReadsEveryOptionInBothSpellings) {
    SimOptions options;
    std::string error;
    ASSERT_EQ(ParseOptions({"--catalogue", "c.json", "--store-root=/s", "--set-dir", "/a", "--usb-dir=/b", "--bus-name",
                            "x.y", "--fail", "request reset nimbra=silent"},
                           options, error),
              ParseOutcome::Run)
        << error;
    EXPECT_EQ(options.cataloguePath, "c.json");
    EXPECT_EQ(options.storeRoot, "/s");
    EXPECT_EQ(options.setDir + options.usbDir, "/a/b");
    EXPECT_EQ(options.busName, "x.y");
    EXPECT_EQ(options.failures.For("request reset nimbra").kind, FailureMode::Kind::Silent);
}

TEST(TheSimulatorCommandLine, RefusesBadUsageWithAReason) {
    const std::vector<std::vector<std::string>> kBad = {{"--nope"},          {"--catalogue"},        {"--catalogue="},
                                                        {"--set-dir", "/a"}, {"--fail", "x=refuse"}, {"extra"}};
    for (const auto& args : kBad) {
        SimOptions options;
        std::string error;
        EXPECT_EQ(ParseOptions(args, options, error), ParseOutcome::BadUsage) << args[0];
        EXPECT_FALSE(error.empty());
    }
    SimOptions options;
    std::string error;
    EXPECT_EQ(ParseOptions({"--bus-name", "x.y", "--help"}, options, error), ParseOutcome::Help);
}

}  // namespace

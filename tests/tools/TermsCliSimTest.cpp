// terms-cli against the simulated terms-client service with the sample
// catalogue: the whole path from the command line to the store and back.
#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

#include "CliProcess.h"
#include "SimProcess.h"
#include "TempStore.h"

namespace {

using clitest::CliRun;
using Args = std::vector<std::string>;

CliRun Cli(const Args& args) {
    return clitest::RunProgram(TERMS_CLI_PATH, args);
}

Json::Value JsonOf(const CliRun& run) {
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    EXPECT_TRUE(reader->parse(run.out.data(), run.out.data() + run.out.size(), &value, &errors)) << run.out;
    return value;
}

class TheTermsCliWithTheSimulatedService : public testing::Test {
protected:
    void StartSimulator(Args extra = {}) {
        Args args = {"--catalogue", SAMPLE_CATALOGUE, "--store-root", store.Root()};
        args.insert(args.end(), extra.begin(), extra.end());
        sim = std::make_unique<simtest::SimProcess>(args);
        ASSERT_TRUE(sim->Start());
    }

    testbed::TempStore store;
    std::unique_ptr<simtest::SimProcess> sim;
};

TEST_F(TheTermsCliWithTheSimulatedService, WalksThroughTheMainFlowAndLeavesTheAgreementsInTheStore) {
    StartSimulator();
    EXPECT_EQ(Cli({"status"}).status, 0);

    const Json::Value list = JsonOf(Cli({"--json", "list"}));
    ASSERT_GE(list["disclaimers"].size(), 2u);
    EXPECT_EQ(list["disclaimers"][1]["id"], "privacy");

    const CliRun shown = Cli({"show", "privacy"});
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_NE(shown.out.find("  sections:\n    "), std::string::npos) << shown.out;

    EXPECT_EQ(Cli({"agree", "terms", "privacy"}).status, 0);
    EXPECT_TRUE(JsonOf(Cli({"--json", "agreement", "privacy"}))["agreed"].asBool());
    EXPECT_FALSE(JsonOf(Cli({"--json", "agreement", "ads"}))["agreed"].asBool());
    Json::Value cache;
    Json::Reader().parse(store.Get("db/veranti/disclaimeragrees").value_or(""), cache);
    EXPECT_EQ(cache["terms"], "true");
    EXPECT_EQ(cache["privacy"], "true");

    const Json::Value revised = JsonOf(Cli({"--json", "revised"}));
    ASSERT_GE(revised["disclaimers"].size(), 1u);
    EXPECT_TRUE(revised["disclaimers"][0]["is_agreed"].asBool());

    const Json::Value before = JsonOf(Cli({"--json", "titles"}))["titles"];
    EXPECT_EQ(Cli({"country", "set", "FR"}).status, 0);
    const Json::Value after = JsonOf(Cli({"--json", "titles"}))["titles"];
    EXPECT_FALSE(after.empty());
    EXPECT_NE(before, after);
}

TEST_F(TheTermsCliWithTheSimulatedService, ExitsWithOneWhenTheServiceRefusesOnPurpose) {
    StartSimulator({"--fail", "set one agreement=refuse"});
    const CliRun run = Cli({"agree", "terms"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.ErrLines().size(), 1u) << run.err;
    EXPECT_FALSE(JsonOf(Cli({"--json", "agreement", "terms"}))["agreed"].asBool());
}

TEST_F(TheTermsCliWithTheSimulatedService, ExitsWithThreeOnceTheServiceHasStopped) {
    StartSimulator();
    sim->Stop();
    EXPECT_EQ(Cli({"list"}).status, 3);
}

}  // namespace

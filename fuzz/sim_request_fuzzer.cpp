// Fuzzes the simulated service's request handling: the input's first line is
// the protocol text, the rest the request body as it arrives over the bus.
// Handle must answer every input with a JSON object carrying a boolean
// "result" and must never throw. Agreements and country live in a temporary
// store; clone data goes between two scratch directories, which go back to
// their first state (one file on the set's side) after each input, so what
// the requests copy never piles up.
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "Catalogue.h"
#include "CloneDirs.h"
#include "FuzzSupport.h"
#include "SimState.h"
#include "TermsServiceSim.h"

namespace {

const char kCloneFile[] = "clone.dat";

// Removes every entry of `directory` but the one named `kept`.
void EmptyDirectory(const std::string& directory, const char* kept = "") {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(directory, ignored))
        if (entry.path().filename() != kept) std::filesystem::remove_all(entry.path(), ignored);
}

struct Service {
    const std::string setDir = fuzzsupport::MakeScratchDirectory("set");
    const std::string usbDir = fuzzsupport::MakeScratchDirectory("usb");
    termssim::Catalogue catalogue = termssim::Catalogue::Load(SAMPLE_CATALOGUE);
    termssim::SimState state{catalogue};
    termssim::TermsServiceSim sim{catalogue, state, MakeCloneDirs()};

    termssim::CloneDirs MakeCloneDirs() const {
        std::ofstream(setDir + "/" + kCloneFile) << "clone data";
        return termssim::CloneDirs(setDir, usbDir);
    }

    void ResetCloneDirs() const {
        EmptyDirectory(setDir, kCloneFile);
        EmptyDirectory(usbDir);
    }
};

Service& TheService() {
    fuzzsupport::UseTemporaryStore();
    static Service service;
    return service;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Service& service = TheService();
    const std::string input = fuzzsupport::TextUpToNul(data, size);
    const size_t lineEnd = input.find('\n');
    const std::string protocol = lineEnd == std::string::npos ? std::string() : input.substr(0, lineEnd);
    const std::string body = lineEnd == std::string::npos ? input : input.substr(lineEnd + 1);
    const Json::Value reply = service.sim.Handle(protocol, body);
    if (!reply.isObject() || !reply["result"].isBool()) fuzzsupport::Fail("a reply without a boolean result");
    termssim::WriteCompactJson(reply);
    service.ResetCloneDirs();
    return 0;
}

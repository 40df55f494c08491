// Fuzzes the simulated service's request handling: the input's first line is
// the protocol text, the rest the request body as it arrives over the bus.
// Handle must answer every input with a JSON object carrying a boolean
// "result" and must never throw. Agreements and country live in a temporary
// store; clone data goes between two scratch directories.
#include <fstream>
#include <memory>
#include <string>

#include "Catalogue.h"
#include "CloneDirs.h"
#include "FuzzSupport.h"
#include "SimState.h"
#include "TermsServiceSim.h"

namespace {

struct Service {
    termssim::Catalogue catalogue = termssim::Catalogue::Load(SAMPLE_CATALOGUE);
    termssim::SimState state{catalogue};
    termssim::TermsServiceSim sim{catalogue, state, MakeCloneDirs()};

    static termssim::CloneDirs MakeCloneDirs() {
        const std::string setDir = fuzzsupport::MakeScratchDirectory("set");
        const std::string usbDir = fuzzsupport::MakeScratchDirectory("usb");
        std::ofstream(setDir + "/clone.dat") << "clone data";
        return termssim::CloneDirs(setDir, usbDir);
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
    return 0;
}

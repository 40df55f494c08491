// Helpers of the reliability tests, with the headers they all use.
#ifndef RELIABILITY_SUPPORT_H
#define RELIABILITY_SUPPORT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <thread>

#include "ChildProcess.h"
#include "TermsAPI.h"
#include "TermsDbusAPI.h"

namespace reliability {

// Only ever a bound on a wait: a call still running after it is taken as hanging.
constexpr std::chrono::seconds kHangBound{60};

inline bool Eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kHangBound;
    for (; !condition(); std::this_thread::sleep_for(std::chrono::milliseconds(5)))
        if (std::chrono::steady_clock::now() > end) return false;
    return true;
}

// Plain JSON string content, marked every 64 bytes so that a lost or moved chunk shows.
inline std::string Filler(size_t size) {
    std::string text(size, 'x');
    for (size_t i = 0; i < size; i += 64) text[i] = static_cast<char>('a' + i / 64 % 26);
    return text;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Sends the texts to the terms-client service, and a signal with them, from a toolkit server made for the
// call; the reply's message, or "<failed>".
inline std::string CallThroughToolkit(std::string message, std::string from = "reliability", std::string type = "") {
    std::string answer = "<failed>";
    TermsDbusMessage request = {}, reply = {};
    InitiateTermsDbusMessage(&request, from.data(), 0, type.data(), message.data(), nullptr, 0);
    if (InitiateTermsDbusServer("reliability") && CreateTermsDbusServer("com.velmora.tv.reliability") &&
        SendTermsDbusSyncMessage("reliability", "com.velmora.tv.termsclient", &request, &reply, 60000) == 1 &&
        SendTermsDbusSignal("reliability", "Changed", &request))
        answer = reply.message;
    ReleaseTermsDbusMessage(&reply);
    CloseTermsDbusServer("reliability");
    return answer;
}

#ifdef TERMS_SERVICE_SIM_PATH
// The built terms-service-sim as a child process on the private bus, logging to <store>/sim.log.
class SimService {
public:
    explicit SimService(const std::string& store, std::vector<std::string> extra = {})
        : m_Log(store + "/sim.log"), m_Args{"env",
                                            "DLOG_OUTPUT=file:" + m_Log,
                                            TERMS_SERVICE_SIM_PATH,
                                            "--catalogue",
                                            SAMPLE_CATALOGUE,
                                            "--store-root",
                                            store} {
        m_Args.insert(m_Args.end(), extra.begin(), extra.end());
    }
    ~SimService() { Kill(SIGKILL); }
    // Starts it and waits until it serves its bus name.
    bool Start() {
        unlink(m_Log.c_str());
        return m_Process.emplace(m_Args).AwaitOutput("serving com.velmora");
    }
    // Sends the signal and waits for the process to end.
    void Kill(int signal) {
        if (m_Process) {
            m_Process->Signal(signal);
            m_Process->Wait();
        }
        m_Process.reset();
    }
    std::string Log() const { return ReadFile(m_Log); }

private:
    std::string m_Log;
    std::vector<std::string> m_Args;
    std::optional<testbed::ChildProcess> m_Process;
};
#endif

}  // namespace reliability

#endif

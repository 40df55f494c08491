// Helpers of the toolkit tests; in AToolkitPeer a ToolkitPeer process answers this one.
#ifndef TOOLKIT_SUPPORT_H
#define TOOLKIT_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "TermsDbusAPI.h"

namespace toolkit_test {

const char kHandle[] = "handle";
const char kPeer[] = "test.toolkit.peer";
const char kPeerPath[] = "/test/toolkit/peer";

// A request from "caller", code 41, message "hello", over bytes that outlive it.
inline TermsDbusMessage MakeRequest(const char* type, std::vector<unsigned char>* payload = nullptr) {
    return {const_cast<char*>("caller"),
            41,
            const_cast<char*>(type),
            const_cast<char*>("hello"),
            payload ? payload->data() : nullptr,
            payload ? static_cast<uint32_t>(payload->size()) : 0u};
}

// A record the toolkit fills; released on destruction.
struct FilledRecord {
    TermsDbusMessage msg{};
    ~FilledRecord() { ReleaseTermsDbusMessage(&msg); }
    std::vector<unsigned char> Payload() const { return {msg.buffer, msg.buffer + msg.buffer_size}; }
};

// A program in the background with its standard output on a pipe; killed on destruction.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& argv);
    ~ChildProcess();
    // Reads output lines until one equals `line`; false after 10 s of silence or at the end.
    bool WaitForLine(const std::string& line);

private:
    pid_t m_Pid = -1;
    int m_Output = -1;
    std::string m_Pending;
};

// The standard output of a command run to its end.
std::string OutputOf(const std::vector<std::string>& argv);

// The largest payload that a call of `type` from this process to kPeer carries.
uint32_t LargestPayloadThatFits(const char* type);

// The process's toolkit server under kHandle; closed on destruction.
struct InProcessServer {
    explicit InProcessServer(const char* busName)
        : up(InitiateTermsDbusServer(kHandle) && CreateTermsDbusServer(busName)) {}
    ~InProcessServer() { CloseTermsDbusServer(kHandle); }
    const bool up;
};

class AToolkitPeer : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_Caller.up && m_Peer.WaitForLine("acquired")); }
    int Call(const char* type, std::vector<unsigned char>* payload, FilledRecord& reply, const char* to = kPeer,
             int timeLimitMs = 20000) {
        TermsDbusMessage request = MakeRequest(type, payload);
        return SendTermsDbusSyncMessage(kHandle, to, &request, &reply.msg, timeLimitMs);
    }
    // Calls "echo" and expects the answer of the peer labelled `from`.
    void ExpectEcho(const char* from = "peer", std::vector<unsigned char> sent = {},
                    const std::vector<unsigned char>& echoed = {}) {
        FilledRecord reply;
        ASSERT_EQ(Call("echo", sent.empty() ? nullptr : &sent, reply), 1);
        EXPECT_STREQ(reply.msg.from, from);
        EXPECT_EQ(reply.msg.code, 42u);
        EXPECT_STREQ(reply.msg.type, "echo");
        EXPECT_STREQ(reply.msg.message, "hello");
        EXPECT_EQ(reply.Payload(), echoed) << sent.size() << " bytes sent";
    }

    InProcessServer m_Caller{"test.toolkit.caller"};
    ChildProcess m_Peer{{TOOLKIT_PEER, kPeer, "peer"}};
};

}  // namespace toolkit_test

#endif

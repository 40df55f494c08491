// An in-process bus-client framework for the fuzz targets: a Corvane::TCServer
// whose SendMessage answers every request at once from replies set here,
// without a bus. The reply text is read exactly as the host framework reads
// the fourth member of a bus reply (a strict JSON reader: no comments, no
// trailing text); a text that does not parse is a failed send.
//
// Linking this file instead of the framework library lets a target drive the
// client's public request methods with any reply, many thousand times a second.
#ifndef FUZZ_LOOPBACK_FRAMEWORK_H
#define FUZZ_LOOPBACK_FRAMEWORK_H

#include <string>

namespace loopback {

// The reply text for every request without one of its own.
void SetDefaultReply(std::string text);
// The reply text for requests named `name` ("method", or "request_type" of
// the common protocol); replaces an earlier one.
void SetReply(const std::string& name, std::string text);
void ClearReplies();
// Requests sent since the last ClearReplies.
unsigned RequestCount();

}  // namespace loopback

#endif

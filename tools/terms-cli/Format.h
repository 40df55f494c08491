// terms-cli: human-readable and JSON forms of results.
#ifndef TERMS_CLI_FORMAT_H
#define TERMS_CLI_FORMAT_H

#include <VerantiAPI.h>
#include <json/json.h>

#include <string>
#include <vector>

#include "Cli.h"

namespace termscli {

using Row = std::vector<std::string>;

// A table with a header line; columns are as wide as their widest cell
// (counted in characters, not bytes). The last column is not padded.
std::string Table(const Row& header, const std::vector<Row>& rows);

// Every line of `text` with `spaces` blanks in front; ends with a newline.
std::string Indent(const std::string& text, int spaces);

const char* YesNo(bool value);

// One disclaimer: its members as JSON, with the sections as
// [{"title": ..., "text": ...}] and the buttons as a list.
Json::Value ItemToJson(const STHomeDisclaimerContentItem& item);
// Which members of a record the request filled: all of them, or those of
// the revised-disclaimers request (no order, version or notice flag).
enum class Filled { All, Revised };

// One disclaimer in full, sections indented under their titles.
std::string ItemToText(const STHomeDisclaimerContentItem& item, Filled filled);

// JSON text indented by two blanks, non-ASCII characters as they are.
std::string JsonText(const Json::Value& value);

// An object's members one a line ("name: value"); any other value as JSON text.
std::string JsonToText(const Json::Value& value);

// Writes the outcome: JSON or text on stdout, the error sentence on stderr.
void PrintOutcome(const Outcome& outcome, bool json);

// Flushes standard output and remembers the reason of its first failure.
void FlushOutput();

// 0 when everything written to standard output got out, else the reason of
// the first failure (an errno value).
int OutputFailure();

// The one-sentence error line on stderr.
void PrintError(const std::string& sentence);

}  // namespace termscli

#endif  // TERMS_CLI_FORMAT_H

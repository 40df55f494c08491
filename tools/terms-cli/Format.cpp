#include "Format.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <sstream>

namespace termscli {
namespace {

// Characters in UTF-8 text: every byte that does not continue a sequence.
size_t DisplayWidth(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string Padded(const std::string& cell, size_t width) {
    return cell + std::string(width - DisplayWidth(cell), ' ');
}

std::string TableLine(const Row& cells, const std::vector<size_t>& widths) {
    std::string line;
    for (size_t column = 0; column < cells.size(); ++column) {
        const bool last = column + 1 == cells.size();
        line += last ? cells[column] : Padded(cells[column], widths[column]) + "  ";
    }
    return line + "\n";
}

const std::string& Button(const STHomeDisclaimerContentItem& item, size_t i) {
    const std::string* buttons[] = {&item.strButton1, &item.strButton2, &item.strButton3, &item.strButton4,
                                    &item.strButton5, &item.strButton6, &item.strButton7, &item.strButton8,
                                    &item.strButton9, &item.strButton10};
    return *buttons[i];
}

// The button labels up to the last one that is not empty.
std::vector<std::string> Buttons(const STHomeDisclaimerContentItem& item) {
    std::vector<std::string> labels;
    for (size_t i = 0; i < 10; ++i) labels.push_back(Button(item, i));
    while (!labels.empty() && labels.back().empty()) labels.pop_back();
    return labels;
}

std::string OrDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

std::string ButtonsText(const STHomeDisclaimerContentItem& item) {
    std::string text;
    for (const std::string& label : Buttons(item)) text += (text.empty() ? "" : " | ") + OrDash(label);
    return OrDash(text);
}

std::string SectionsText(const STHomeDisclaimerContentItem& item) {
    std::string text;
    const std::vector<std::string>& sections = item.vecDetailData;
    for (size_t i = 0; i + 1 < sections.size(); i += 2) {
        text += Indent(OrDash(sections[i]), 4) + Indent(sections[i + 1], 6);
    }
    return text;
}

}  // namespace

std::string JsonText(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, value) + "\n";
}

std::string JsonToText(const Json::Value& value) {
    if (!value.isObject()) return JsonText(value);
    std::string text;
    for (const std::string& name : value.getMemberNames()) {
        const Json::Value& member = value[name];
        const bool plain = member.isString() || member.isNumeric() || member.isBool();
        text += name + ": " + (plain ? member.asString() + "\n" : JsonText(member));
    }
    return text;
}

std::string Table(const Row& header, const std::vector<Row>& rows) {
    std::vector<size_t> widths(header.size(), 0);
    auto measure = [&widths](const Row& row) {
        for (size_t column = 0; column < row.size() && column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], DisplayWidth(row[column]));
        }
    };
    measure(header);
    std::for_each(rows.begin(), rows.end(), measure);
    std::string text = TableLine(header, widths);
    for (const Row& row : rows) text += TableLine(row, widths);
    return text;
}

std::string Indent(const std::string& text, int spaces) {
    std::istringstream lines(text);
    std::string line;
    std::string indented;
    while (std::getline(lines, line)) indented += std::string(static_cast<size_t>(spaces), ' ') + line + "\n";
    return indented.empty() ? std::string(static_cast<size_t>(spaces), ' ') + "\n" : indented;
}

const char* YesNo(bool value) {
    return value ? "yes" : "no";
}

Json::Value ItemToJson(const STHomeDisclaimerContentItem& item) {
    Json::Value json(Json::objectValue);
    json["id"] = item.strItemId;
    json["order"] = item.nOrder;
    json["version"] = item.strVersion;
    json["title"] = item.strTitle;
    json["intro"] = item.strIntro;
    json["details"] = item.strDetails;
    json["buttons"] = Json::Value(Json::arrayValue);
    for (const std::string& label : Buttons(item)) json["buttons"].append(label);
    json["is_agreed"] = item.bIsAgreed;
    json["only_notice"] = item.bOnlyNotice;
    json["agree_dependency"] = item.strAgreeDependency;
    json["ppused"] = item.bPPUsed;
    json["reverse"] = item.bReverse;
    json["sections"] = Json::Value(Json::arrayValue);
    for (size_t i = 0; i + 1 < item.vecDetailData.size(); i += 2) {
        Json::Value section(Json::objectValue);
        section["title"] = item.vecDetailData[i];
        section["text"] = item.vecDetailData[i + 1];
        json["sections"].append(section);
    }
    return json;
}

std::string ItemToText(const STHomeDisclaimerContentItem& item, Filled filled) {
    std::ostringstream text;
    text << OrDash(item.strTitle) << "\n  id: " << OrDash(item.strItemId);
    if (filled == Filled::All) {
        text << "   order: " << item.nOrder << "   version: " << OrDash(item.strVersion);
    }
    text << "\n  agreed: " << YesNo(item.bIsAgreed);
    if (filled == Filled::All) text << "   notice only: " << YesNo(item.bOnlyNotice);
    text << "   agree dependency: " << OrDash(item.strAgreeDependency) << "   ppused: " << YesNo(item.bPPUsed)
         << "   reverse: " << YesNo(item.bReverse) << "\n";
    if (!item.strIntro.empty()) text << "  intro:\n" << Indent(item.strIntro, 4);
    if (!item.vecDetailData.empty()) {
        text << "  sections:\n" << SectionsText(item);
    } else if (!item.strDetails.empty()) {
        text << "  details:\n" << Indent(item.strDetails, 4);
    }
    text << "  buttons: " << ButtonsText(item) << "\n";
    return text.str();
}

namespace {
int g_OutputFailure = 0;
}  // namespace

void FlushOutput() {
    errno = 0;
    std::cout.flush();
    const int reason = errno;
    if ((!std::cout || std::ferror(stdout)) && g_OutputFailure == 0) g_OutputFailure = reason != 0 ? reason : EIO;
}

int OutputFailure() {
    FlushOutput();
    return g_OutputFailure;
}

void PrintError(const std::string& sentence) {
    std::cerr << "terms-cli: " << sentence << ".\n";
}

void PrintOutcome(const Outcome& outcome, bool json) {
    if (json) {
        Json::Value document = outcome.data;
        document["ok"] = outcome.status == kExitDone;
        if (!outcome.error.empty()) document["error"] = outcome.error;
        std::cout << JsonText(document);
    } else {
        std::cout << outcome.text;
    }
    FlushOutput();
    if (!outcome.error.empty()) PrintError(outcome.error);
}

}  // namespace termscli

// The C record of a disclaimer: conversion from the client's record, release
// of what it holds, and the requester mapping.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ClientTestBed.h"
#include "TermsAPIInternal.h"

namespace {

using clienttest::Item;
using clienttest::kGreen;
using clienttest::kInfo;
using clienttest::kRed;
using clienttest::kWarn;
using clienttest::Logged;

// Every text field of the C record, in field order.
const std::vector<char* TermsContentItem::*>& TextFields() {
    static const std::vector<char* TermsContentItem::*> fields = {
        &TermsContentItem::strItemId,   &TermsContentItem::strVersion, &TermsContentItem::strTitle,
        &TermsContentItem::strIntro,    &TermsContentItem::strDetails, &TermsContentItem::strButton1,
        &TermsContentItem::strButton2,  &TermsContentItem::strButton3, &TermsContentItem::strButton4,
        &TermsContentItem::strButton5,  &TermsContentItem::strButton6, &TermsContentItem::strButton7,
        &TermsContentItem::strButton8,  &TermsContentItem::strButton9, &TermsContentItem::strButton10,
        &TermsContentItem::strAgreeDependency};
    return fields;
}

Item FullItem() {
    Item item;
    item.strItemId = "id";
    item.nOrder = 3;
    item.strVersion = "version";
    item.strTitle = "title";
    item.strIntro = "intro";
    item.strDetails = "details";
    std::string* buttons[] = {&item.strButton1, &item.strButton2, &item.strButton3, &item.strButton4,
                              &item.strButton5, &item.strButton6, &item.strButton7, &item.strButton8,
                              &item.strButton9, &item.strButton10};
    for (int i = 0; i < 10; ++i) *buttons[i] = "button" + std::to_string(i + 1);
    item.bIsAgreed = true;
    item.bOnlyNotice = false;
    item.strAgreeDependency = "dependency";
    item.bPPUsed = false;
    item.bReverse = true;
    item.vecDetailData = {"title 0", "", "title 1", "text 1"};
    return item;
}

std::string TextOrNull(const char* text) { return text ? text : "(null)"; }

class ATermsItemConversion : public ::testing::Test {
protected:
    void SetUp() override { InitailizeTermsContentItem(&record); }
    void TearDown() override { DestroyTermItem(&record); }

    TermsContentItem record;
    testbed::LogCapture logs;
};

TEST_F(ATermsItemConversion, CopiesATextWithItsTerminator) {
    const std::string text("terms \xe2\x9c\x93");
    char* copy = ConvertChar(text);

    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::strlen(copy), text.size());
    EXPECT_EQ(std::string(copy), text);
    EXPECT_TRUE(Logged(logs, "[" + text + "]", kInfo, kGreen));
    delete[] copy;
}

TEST_F(ATermsItemConversion, TurnsAnEmptyTextIntoNullWithAWarning) {
    EXPECT_EQ(ConvertChar(""), nullptr);
    EXPECT_TRUE(Logged(logs, "empty", kWarn, kRed));
}

TEST_F(ATermsItemConversion, StartsFromAllZeroFields) {
    std::memset(&record, 0xa5, sizeof record);
    InitailizeTermsContentItem(&record);

    for (auto field : TextFields()) EXPECT_EQ(record.*field, nullptr);
    EXPECT_EQ(record.nOrder, 0);
    EXPECT_EQ(record.bIsAgreed | record.bOnlyNotice | record.bPPUsed | record.bReverse, 0);
    EXPECT_EQ(record.ppDetailData, nullptr);
    EXPECT_EQ(record.nDetailDataCount, 0);
}

TEST_F(ATermsItemConversion, FillsEveryFieldInOrder) {
    Item item = FullItem();
    ConvertTermItem(&record, &item);

    const char* expected[] = {"id",      "version", "title",   "intro",   "details", "button1",
                              "button2", "button3", "button4", "button5", "button6", "button7",
                              "button8", "button9", "button10", "dependency"};
    for (size_t i = 0; i < TextFields().size(); ++i) EXPECT_EQ(TextOrNull(record.*TextFields()[i]), expected[i]);
    EXPECT_EQ(record.nOrder, 3);
    EXPECT_EQ(record.bIsAgreed, 1);
    EXPECT_EQ(record.bOnlyNotice, 0);
    EXPECT_EQ(record.bPPUsed, 0);
    EXPECT_EQ(record.bReverse, 1);
    ASSERT_EQ(record.nDetailDataCount, 4);
    EXPECT_EQ(TextOrNull(record.ppDetailData[0]), "title 0");
    EXPECT_EQ(record.ppDetailData[1], nullptr);
    EXPECT_EQ(TextOrNull(record.ppDetailData[2]), "title 1");
    EXPECT_EQ(TextOrNull(record.ppDetailData[3]), "text 1");
    EXPECT_TRUE(Logged(logs, "4", kInfo, kGreen));
}

TEST_F(ATermsItemConversion, TurnsEveryEmptyTextIntoNull) {
    Item item;
    ConvertTermItem(&record, &item);

    for (auto field : TextFields()) EXPECT_EQ(record.*field, nullptr);
    EXPECT_EQ(logs.Count("empty"), TextFields().size());
    EXPECT_EQ(record.ppDetailData, nullptr);
    EXPECT_EQ(record.nDetailDataCount, 0);
}

TEST_F(ATermsItemConversion, LeavesNothingBehindWhenDestroyedTwice) {
    Item item = FullItem();
    ConvertTermItem(&record, &item);

    DestroyTermItem(&record);
    DestroyTermItem(&record);

    for (auto field : TextFields()) EXPECT_EQ(record.*field, nullptr);
    EXPECT_EQ(record.ppDetailData, nullptr);
    EXPECT_EQ(record.nDetailDataCount, 0);
    EXPECT_EQ(record.nOrder, 3);
    EXPECT_EQ(record.bReverse, 1);
}

TEST_F(ATermsItemConversion, LeavesADetailArrayWithoutEntriesUntouched) {
    char* entries[1] = {nullptr};
    record.ppDetailData = entries;
    record.nDetailDataCount = 0;

    DestroyTermItem(&record);

    EXPECT_EQ(record.ppDetailData, entries);
    EXPECT_EQ(record.nDetailDataCount, 0);
    record.ppDetailData = nullptr;
}

TEST(ARequesterMapping, KeepsZeroToThreeAndSendsEveryOtherValueAsFour) {
    const struct {
        int given;
        EHomeDisclaimerRequester mapped;
    } cases[] = {{0, E_DISCLAIMER_REQUESTER_0},     {1, E_DISCLAIMER_REQUESTER_1},
                 {2, E_DISCLAIMER_REQUESTER_2},     {3, E_DISCLAIMER_REQUESTER_3},
                 {4, E_DISCLAIMER_REQUESTER_OTHER}, {5, E_DISCLAIMER_REQUESTER_OTHER},
                 {100, E_DISCLAIMER_REQUESTER_OTHER}, {-1, E_DISCLAIMER_REQUESTER_OTHER}};
    testbed::LogCapture logs;
    for (const auto& c : cases) {
        EXPECT_EQ(GetRequesterType(static_cast<TermsRequester>(c.given)), c.mapped) << c.given;
        EXPECT_TRUE(Logged(logs, std::to_string(c.given), kInfo, kGreen)) << c.given;
    }
}

}  // namespace

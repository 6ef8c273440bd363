#pragma once

#include <initializer_list>

#include <gtest/gtest.h>

#include "TSString.h"

// What an operation gave for one case of a rule, and what it should give.
struct TextRow {
    const char* name;
    TSString result;
    const char* expected;
};

inline void ExpectTexts(std::initializer_list<TextRow> rows)
{
    for (const TextRow& row : rows)
        EXPECT_STREQ(row.result.c_str(), row.expected) << row.name;
}

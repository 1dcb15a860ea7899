// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "format/Classes.h"
#include "model/DB_Hardware.h"
#include "schema/FieldTexts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace kx::tool
{

using ::testing::IsEmpty;

namespace
{

/// The tables of all classes, bases among them.
std::set<const ClassInfo*> AllTables()
{
    std::set<const ClassInfo*> tables;
    for (const ClassInfo* const info : format::AllClasses()) {
        tables.insert(info);
        if (info->base != nullptr) {
            tables.insert(info->base);
        }
    }
    return tables;
}

TEST(FieldTexts, TellEveryClassOnce)
{
    std::vector<std::string> without;
    for (const ClassInfo* const info : format::AllClasses()) {
        if (TextOf(*info) == nullptr) {
            without.emplace_back(info->type);
        }
    }

    EXPECT_THAT(without, IsEmpty());
    EXPECT_EQ(ClassTexts().size(), format::AllClasses().size());
}

TEST(FieldTexts, TellEveryFieldOnce)
{
    std::vector<std::string> without;
    std::size_t fields = 0;
    for (const ClassInfo* const table : AllTables()) {
        fields += table->fields.size;
        for (const FieldInfo& field : table->fields) {
            if (TextOf(*table, field) == nullptr) {
                without.emplace_back(field.key);
            }
        }
    }

    EXPECT_THAT(without, IsEmpty());
    EXPECT_EQ(FieldTexts().size(), fields);
}

TEST(FieldTexts, AreTitlesAndSentences)
{
    for (const FieldText& text : FieldTexts()) {
        EXPECT_NE(std::string(text.title), "");
        EXPECT_EQ(std::string(text.description).back(), '.') << text.description;
    }
    for (const ClassText& text : ClassTexts()) {
        EXPECT_NE(std::string(text.title), "");
        EXPECT_EQ(std::string(text.description).back(), '.') << text.description;
    }
}

TEST(FieldTexts, AreFoundByClassAndMember)
{
    const ClassInfo& item = DB_HardwareItem::kInfo;

    EXPECT_EQ(TextOf(item, item.fields.data[1])->title, std::string("Value"));
    EXPECT_EQ(TextOf(DB_HardwareItems::kInfo, item.fields.data[1]), nullptr);
    EXPECT_EQ(TextOf(ClassInfo{}), nullptr);
}

} // namespace

} // namespace kx::tool

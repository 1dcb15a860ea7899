// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/Unread.h"
#include "reading/Fields.h"

#include <gtest/gtest.h>

namespace kx::guard
{

TEST(Fields, ComeOutAsTheyWentIn)
{
    FieldsWriter fields;
    fields.Number(0).Number(UINT64_MAX).Text("").Text(std::string("a\0b", 3)).Number(258);

    FieldsReader reader(fields.Bytes());

    EXPECT_EQ(fields.Bytes().substr(fields.Bytes().size() - 8), std::string("\2\1\0\0\0\0\0\0", 8));
    EXPECT_EQ(reader.Number(), 0U);
    EXPECT_EQ(reader.Number(), UINT64_MAX);
    EXPECT_EQ(reader.Text(0), "");
    EXPECT_EQ(reader.Text(3), std::string_view("a\0b", 3));
    EXPECT_THROW(reader.End(), Unread);
    EXPECT_EQ(reader.Number(258), 258U);
    EXPECT_NO_THROW(reader.End());
}

TEST(Fields, AreRefusedWhenTheyAreCutOrTooLarge)
{
    FieldsWriter fields;
    fields.Text("abc");
    const std::string& bytes = fields.Bytes();

    for (std::size_t size = 0; size < bytes.size(); ++size) {
        FieldsReader reader(std::string_view(bytes).substr(0, size));
        EXPECT_THROW(static_cast<void>(reader.Text(3)), Unread);
    }
    EXPECT_THROW(static_cast<void>(FieldsReader(bytes).Text(2)), Unread);
    EXPECT_THROW(static_cast<void>(FieldsReader(bytes).Number(2)), Unread);
}

} // namespace kx::guard

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "common/Output.h"

#include <gtest/gtest.h>

#include <sstream>

namespace kx::tool
{

TEST(WriteError, KeepsJsonReadableWhateverThePlaceIsCalled)
{
    std::ostringstream out;
    std::ostringstream err;

    WriteError({out, err, true, false, false},
               io::Error(io::ExitCode::kProblems, "a\xff", "is wrong", "mend it"));

    EXPECT_EQ(out.str(), "{\n"
                         "  \"error\": {\n"
                         "    \"code\": 1,\n"
                         "    \"message\": \"is wrong\",\n"
                         "    \"place\": \"a\\\\xff\",\n"
                         "    \"remedy\": \"mend it\"\n"
                         "  }\n"
                         "}\n");
    EXPECT_EQ(err.str(), "");
}

} // namespace kx::tool

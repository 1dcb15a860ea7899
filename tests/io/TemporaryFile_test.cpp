// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"
#include "support/Environment.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TemporaryFiles : public ::testing::TestWithParam<bool>
{
protected:
    TempDir m_dir;
    Environment m_folder{"TMPDIR", m_dir.Path().c_str()};
    /// The parameter says that the file system knows no files without names.
    Faults m_faults{Call::kOpenNameless, GetParam() ? EOPNOTSUPP : 0};
};

INSTANTIATE_TEST_SUITE_P(FileSystems, TemporaryFiles, ::testing::Bool(), [](const auto& param) {
    return param.param ? "WithNamesOnly" : "WithFilesWithoutNames";
});

TEST_P(TemporaryFiles, HaveNoNameAndAreReadAndWritten)
{
    const Descriptor file = MakeTemporaryFile();
    WriteAll(file.Number(), "bytes", "it");

    EXPECT_THAT(m_dir.Tree(), IsEmpty());
    std::string bytes(5, ' ');
    EXPECT_EQ(ReadAt(file.Number(), bytes.data(), bytes.size(), 0, "it"), 5U);
    EXPECT_EQ(bytes, "bytes");
}

TEST_P(TemporaryFiles, AreNobodyElses)
{
    const mode_t before = umask(0);
    const Descriptor file = MakeTemporaryFile();
    umask(before);

    struct stat info {
    };
    ASSERT_EQ(fstat(file.Number(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
}

TEST_P(TemporaryFiles, TellAFolderThatIsNotThere)
{
    const std::string folder = m_dir / "none";
    const Environment named("TMPDIR", folder.c_str());

    EXPECT_EQ(Thrown([] { MakeTemporaryFile().Close(); }),
              "3: " + folder + ": cannot make a temporary file: No such file or directory");
}

TEST(MakeTemporaryFile, GoesToTmpWithoutAVariableOrWithAnEmptyOne)
{
    for (const char* const value : {"", static_cast<const char*>(nullptr)}) {
        const Environment named("TMPDIR", value);
        const Faults faults(Call::kOpenNameless, {{ENOSPC}});

        EXPECT_EQ(Thrown([] { MakeTemporaryFile().Close(); }),
                  "3: /tmp: cannot make a temporary file: No space left on device");
    }
}

TEST(MakeFileIn, TakesTheFirstFreeNameWhereFilesNeedOne)
{
    const TempDir dir;
    const std::string start = ".x." + std::to_string(getpid()) + "-";
    dir.Write(start + "0", "somebody's");
    const Faults faults(Call::kOpenNameless, EOPNOTSUPP);

    NewFile made = MakeFileIn(dir.Path(), "x", 0644);

    EXPECT_EQ(made.error, 0);
    EXPECT_EQ(made.path, dir / (start + "1"));
    EXPECT_EQ(NameFileIn(dir.Path(), "x", made), 0);
    EXPECT_EQ(made.path, dir / (start + "1"));
    EXPECT_THAT(dir.Tree(), ElementsAre(start + "0 f 644 somebody's", start + "1 f 644 "));
}

TEST(MakeFileIn, GivesUpWhenAllNamesAreTaken)
{
    const TempDir dir;
    const Faults nameless(Call::kOpenNameless, EOPNOTSUPP);
    const Faults taken(Call::kOpen, EEXIST);

    const NewFile made = MakeFileIn(dir.Path(), "x", 0644);

    EXPECT_FALSE(made.file.IsOpen());
    EXPECT_EQ(made.error, EEXIST);
}

} // namespace kx::io

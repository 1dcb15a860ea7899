// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/AtomicFile.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kx::io
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace
{

/// While true, the file system knows no files without names.
bool namesOnly = false;

void Write(const AtomicFile& file, const std::string& text)
{
    ASSERT_EQ(write(file.Descriptor(), text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for a wrapped call
extern "C" int __real_open64(const char* path, int flags, ...);
extern "C" int __wrap_open64(const char* path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    if (namesOnly && (flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return __real_open64(path, flags, mode);
}
// NOLINTEND(bugprone-reserved-identifier)

class AtomicFiles : public ::testing::TestWithParam<bool>
{
protected:
    AtomicFiles() { namesOnly = GetParam(); }
    ~AtomicFiles() override { namesOnly = false; }

    TempDir m_dir;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, AtomicFiles, ::testing::Bool(), [](const auto& param) {
    return param.param ? "WithNamesOnly" : "WithFilesWithoutNames";
});

TEST_P(AtomicFiles, AreThereWholeAfterCommit)
{
    const mode_t before = umask(027);
    {
        AtomicFile file(m_dir / "x");
        Write(file, "new");
        file.Commit();
        EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 640 new"));
    }
    umask(before);

    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 640 new"));
}

TEST_P(AtomicFiles, ReplaceAnOlderFileOnlyAtCommit)
{
    m_dir.Write("x", "older");
    AtomicFile file(m_dir / "x");
    Write(file, "new");
    EXPECT_EQ(ReadFile(m_dir / "x"), "older");

    file.Commit();

    EXPECT_THAT(m_dir.Tree(), ElementsAre("x f 644 new"));
}

TEST_P(AtomicFiles, LeaveNothingWithoutCommit)
{
    {
        const AtomicFile file(m_dir / "x");
        Write(file, "new");
        EXPECT_EQ(m_dir.Tree().size(), GetParam() ? 1U : 0U);
    }

    EXPECT_THAT(m_dir.Tree(), IsEmpty());
}

TEST_P(AtomicFiles, TakeAnotherNameThanOneThatIsTaken)
{
    const std::string taken = ".x." + std::to_string(getpid()) + "-0";
    m_dir.Write(taken, "somebody's");

    AtomicFile file(m_dir / "x");
    Write(file, "new");
    file.Commit();

    EXPECT_THAT(m_dir.Tree(), ElementsAre(taken + " f 644 somebody's", "x f 644 new"));
}

TEST_P(AtomicFiles, RefuseAFolderThatIsNotThere)
{
    EXPECT_EQ(Thrown([&] { const AtomicFile file(m_dir / "none/x"); }),
              "3: " + (m_dir / "none/x") + ": cannot write: No such file or directory");
}

TEST_P(AtomicFiles, RefuseToReplaceWhatIsNoFile)
{
    m_dir.MakeDir("x");

    EXPECT_EQ(Thrown([&] { const AtomicFile file(m_dir / "x"); }),
              "3: " + (m_dir / "x") + ": is there already, and is not a file; choose another name");
}

TEST_P(AtomicFiles, GoToStandardOutputAtCommit)
{
    testing::internal::CaptureStdout();
    {
        AtomicFile file(AtomicFile::kStandardOutput);
        Write(file, "new");
        file.Commit();
    }

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "new");
}

} // namespace kx::io

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"
#include "io/StandardInput.h"
#include "io/Transfer.h"
#include "support/Environment.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace kx::io
{

using ::testing::IsEmpty;

namespace
{

/// Puts something in the place of standard input for its life.
class InputIs
{
public:
    explicit InputIs(int descriptor) : m_before(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        EXPECT_EQ(dup2(descriptor, STDIN_FILENO), STDIN_FILENO);
    }
    InputIs(const InputIs&) = delete;
    InputIs& operator=(const InputIs&) = delete;
    ~InputIs() { EXPECT_EQ(dup2(m_before.Number(), STDIN_FILENO), STDIN_FILENO); }

private:
    Descriptor m_before;
};

/// Eight bytes as standard input.
class StandardInputs : public ::testing::Test
{
protected:
    TempDir m_dir;
    Descriptor m_source = OpenFile(m_dir.Write("source", "12345678"));
    InputIs m_input{m_source.Number()};
};

} // namespace

TEST_F(StandardInputs, AreKeptInAFileThatLeavesNoTrace)
{
    const TempDir temporary;
    const Environment folder("TMPDIR", temporary.Path().c_str());
    std::string path;
    {
        const StandardInput input;
        path = input.Path();

        EXPECT_EQ(ReadFile(path), "12345678");
        EXPECT_EQ(ReadFile(path), "12345678");
        EXPECT_THAT(temporary.Tree(), IsEmpty());
    }

    EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST_F(StandardInputs, SurviveTransfersByHalves)
{
    const Faults reads(Call::kRead, {{EINTR}, {0, 3}, {EINTR}});
    const Faults writes(Call::kWrite, {{0, 1}, {EINTR}});

    const StandardInput input;

    std::string bytes(20, ' ');
    bytes.resize(ReadAt(OpenFile(input.Path()).Number(), bytes.data(), bytes.size(), 0, "it"));
    EXPECT_EQ(bytes, "12345678");
}

TEST_F(StandardInputs, TellThatTheyCannotBeRead)
{
    const Faults faults(Call::kRead, {{EIO}});

    EXPECT_EQ(Thrown([] { const StandardInput input; }),
              "3: standard input: cannot read: Input/output error");
}

TEST_F(StandardInputs, TellThatThereIsNoRoom)
{
    const Faults faults(Call::kWrite, {{ENOSPC}});

    EXPECT_EQ(Thrown([] { const StandardInput input; }),
              "3: a temporary file: cannot write: No space left on device");
}

TEST_F(StandardInputs, AreCopiedUpToALimit)
{
    const Descriptor copy = CreateFile(m_dir / "copy", 0600);

    EXPECT_EQ(CopyStandardInput(copy, "the copy", 8), 8U);
    EXPECT_EQ(ReadFile(m_dir / "copy"), "12345678");

    ASSERT_EQ(lseek(m_source.Number(), 0, SEEK_SET), 0);
    EXPECT_EQ(Thrown([&] { CopyStandardInput(copy, "the copy", 7, "see --disk"); }),
              "3: standard input: is larger than 7 bytes; see --disk");
}

TEST(StandardInput, IsNoTerminal)
{
    const Descriptor terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_TRUE(terminal.IsOpen());
    const InputIs replaced(terminal.Number());

    EXPECT_EQ(Thrown([] { const StandardInput input; }),
              "2: -: standard input is a terminal; name a package, or pipe one in");
}

} // namespace kx::io

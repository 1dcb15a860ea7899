// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Descriptor.h"
#include "io/Faults.h"
#include "io/Interruption.h"
#include "io/Transfer.h"
#include "support/Deadline.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace kx::io
{

namespace
{

/// A file of eight bytes to read, and one to write.
class Transfers : public ::testing::Test
{
protected:
    static constexpr Fault kSignal{EINTR};
    static constexpr Fault kThree{0, 3};
    static constexpr Fault kEnd{0, 0};

    [[nodiscard]] std::string Written() const { return ReadFile(m_target); }

    Deadline m_deadline;
    TempDir m_dir;
    std::string m_target = m_dir / "target";
    Descriptor m_source = OpenFile(m_dir.Write("source", "12345678"));
    Descriptor m_sink = CreateFile(m_target, 0600);
};

/// Lets a signal ask the program to end, and outlive it.
class Asked
{
public:
    Asked()
    {
        struct sigaction ignoring {
        };
        ignoring.sa_handler = [](int) {};
        sigaction(SIGTERM, &ignoring, &m_before);
        m_interruption = new Interruption;
        static_cast<void>(std::raise(SIGTERM));
    }
    Asked(const Asked&) = delete;
    Asked& operator=(const Asked&) = delete;
    ~Asked()
    {
        delete m_interruption;
        const Interruption forgets; // the mark of the signal
        sigaction(SIGTERM, &m_before, nullptr);
    }

private:
    struct sigaction m_before {
    };
    Interruption* m_interruption = nullptr;
};

/// Two ends of a pipe that does not wait.
std::pair<Descriptor, Descriptor> Pipe()
{
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

} // namespace

/// One way to read, as a text.
struct Reading {
    const char* name;
    Call call;
    std::function<std::string(int)> read;
};

class Readings : public Transfers, public ::testing::WithParamInterface<Reading>
{
protected:
    std::string Read() { return GetParam().read(m_source.Number()); }
    Call m_call = GetParam().call;
};

INSTANTIATE_TEST_SUITE_P(
    Ways, Readings,
    ::testing::Values(Reading{"UpToBytes", Call::kRead,
                              [](int file) {
                                  std::array<char, 20> bytes{};
                                  const std::size_t count =
                                      ReadUpTo(file, bytes.data(), bytes.size(), "it");
                                  return std::string(bytes.data(), count);
                              }},
                      Reading{"UpToText", Call::kRead,
                              [](int file) { return ReadUpTo(file, 20, "it"); }},
                      Reading{"All", Call::kRead, [](int file) { return ReadAll(file, 20, "it"); }},
                      Reading{"At", Call::kReadAt,
                              [](int file) {
                                  std::string bytes(20, ' ');
                                  bytes.resize(ReadAt(file, bytes.data(), bytes.size(), 0, "it"));
                                  return bytes;
                              }},
                      Reading{"Copied", Call::kRead,
                              [](int file) {
                                  const TempDir dir;
                                  const Descriptor copy = CreateFile(dir / "copy", 0600);
                                  EXPECT_EQ(CopyAll(file, "it", copy.Number(), "the copy", 20), 8U);
                                  return ReadFile(dir / "copy");
                              }}),
    [](const auto& param) { return param.param.name; });

TEST_P(Readings, GoOnAfterShortCountsAndSignals)
{
    const Faults faults(m_call, {kSignal, kThree, kSignal, kSignal, kThree, {0, 1}, {}});

    EXPECT_EQ(Read(), "12345678");
}

TEST_P(Readings, TellTheErrorOfTheCallThatFailed)
{
    const Faults faults(m_call, {kThree, {EIO}});

    EXPECT_EQ(Thrown([&] { static_cast<void>(Read()); }), "3: it: cannot read: Input/output error");
}

TEST_P(Readings, EndWhenTheProgramIsAskedToEnd)
{
    const Asked asked;
    const Faults faults(m_call, {kThree, kSignal});

    EXPECT_EQ(Thrown([&] { static_cast<void>(Read()); }),
              "3: it: cannot read: Interrupted system call");
}

TEST_F(Transfers, ReadNoMoreThanIsWantedAndGoOnThere)
{
    std::array<char, 3> bytes{};

    EXPECT_EQ(ReadUpTo(m_source.Number(), bytes.data(), bytes.size(), "it"), 3U);
    EXPECT_EQ(ReadUpTo(m_source.Number(), 0, "it"), "");
    EXPECT_EQ(ReadUpTo(m_source.Number(), 2, "it"), "45");
    EXPECT_EQ(ReadUpTo(m_source.Number(), 20, "it"), "678");
    EXPECT_EQ(ReadUpTo(m_source.Number(), 20, "it"), "");
}

TEST_F(Transfers, ReadAFileOfManyPiecesWhole)
{
    std::string content;
    while (content.size() < 300000) {
        content += std::to_string(content.size()) + " ";
    }
    const std::string path = m_dir.Write("large", content);

    EXPECT_EQ(ReadAll(OpenFile(path).Number(), UINT64_MAX, path), content);
    EXPECT_EQ(ReadAll(OpenFile(path).Number(), content.size(), path), content);
    EXPECT_EQ(CopyAll(OpenFile(path).Number(), path, m_sink.Number(), m_target, content.size()),
              content.size());
    EXPECT_EQ(Written(), content);
}

TEST_F(Transfers, ReadAllUpToTheirLimitAndNoMore)
{
    EXPECT_EQ(Thrown([&] { static_cast<void>(ReadAll(m_source.Number(), 7, "it")); }),
              "3: it: is larger than 7 bytes");

    EXPECT_EQ(ReadAll(OpenFile(m_dir / "source").Number(), 8, "it"), "12345678");
}

TEST_F(Transfers, ReadAtAPlaceWithoutMovingOn)
{
    std::array<char, 4> bytes{};

    EXPECT_EQ(ReadAt(m_source.Number(), bytes.data(), 4, 2, "it"), 4U);
    EXPECT_EQ(std::string(bytes.data(), 4), "3456");
    EXPECT_EQ(ReadAt(m_source.Number(), bytes.data(), 4, 6, "it"), 2U);
    EXPECT_EQ(ReadAt(m_source.Number(), bytes.data(), 4, 8, "it"), 0U);
    EXPECT_EQ(ReadAll(m_source.Number(), 8, "it"), "12345678");
}

TEST_F(Transfers, WriteAllAfterShortCountsAndSignals)
{
    const Faults faults(Call::kWrite, {kSignal, kThree, kSignal, kThree, {0, 1}, {}});

    WriteAll(m_sink.Number(), "12345678", "it");

    EXPECT_EQ(Written(), "12345678");
}

TEST_F(Transfers, TellTheErrorOfTheWriteThatFailed)
{
    // A short count leaves errno as it was: the reason is that of the next call.
    const Faults faults(Call::kWrite, {kThree, {ENOSPC}});
    errno = ENOENT;

    EXPECT_EQ(Thrown([&] { WriteAll(m_sink.Number(), "12345678", "it"); }),
              "3: it: cannot write: No space left on device");

    EXPECT_EQ(Written(), "123");
}

TEST_F(Transfers, TakeAWriteOfNothingForAFailure)
{
    const Faults faults(Call::kWrite, {kThree, kEnd});

    EXPECT_EQ(Thrown([&] { WriteAll(m_sink.Number(), "12345678", "it"); }),
              "3: it: cannot write: Input/output error");
}

TEST_F(Transfers, StopWritingWhenTheProgramIsAskedToEnd)
{
    const Asked asked;
    const Faults faults(Call::kWrite, {kThree, kSignal});

    EXPECT_EQ(Thrown([&] { WriteAll(m_sink.Number(), "12345678", "it"); }),
              "3: it: cannot write: Interrupted system call");
}

TEST_F(Transfers, WriteNothingWithoutACall)
{
    const Faults faults(Call::kWrite, EIO);

    WriteAll(m_sink.Number(), "", "it");

    EXPECT_EQ(Written(), "");
}

TEST_F(Transfers, KeepWhatWasWrittenAndTheErrorForCallersWithOwnWords)
{
    const Faults faults(Call::kWrite, {kThree, {EPIPE}});

    const Transferred all = TryWriteAll(m_sink.Number(), "12345678");

    EXPECT_EQ(all.count, 3U);
    EXPECT_EQ(all.error, EPIPE);
}

TEST_F(Transfers, CopyNoMoreThanTheLimit)
{
    EXPECT_EQ(Thrown([&] {
                  CopyAll(m_source.Number(), "it", m_sink.Number(), "the copy", 7, "see --disk");
              }),
              "3: it: is larger than 7 bytes; see --disk");
}

TEST_F(Transfers, EndACopyBetweenPiecesWhenTheProgramIsAskedToEnd)
{
    const Asked asked;

    EXPECT_EQ(Thrown([&] { CopyAll(m_source.Number(), "it", m_sink.Number(), "the copy", 20); }),
              "3: it: cannot read: Interrupted system call");
    EXPECT_EQ(Written(), "");
}

TEST_F(Transfers, NameTheSideOfACopyThatFails)
{
    const Faults faults(Call::kWrite, {{ENOSPC}});

    EXPECT_EQ(Thrown([&] { CopyAll(m_source.Number(), "it", m_sink.Number(), "the copy", 20); }),
              "3: the copy: cannot write: No space left on device");
}

TEST(ReadSome, TellsWhatIsThereNowAndTheEnd)
{
    const Deadline deadline;
    auto [reading, writing] = Pipe();
    std::array<char, 20> bytes{};

    EXPECT_EQ(ReadSome(reading.Number(), bytes.data(), bytes.size()).error, EAGAIN);
    WriteAll(writing.Number(), "now", "the pipe");
    EXPECT_EQ(ReadSome(reading.Number(), bytes.data(), bytes.size()).count, 3U);
    writing.Close();
    const Transferred end = ReadSome(reading.Number(), bytes.data(), bytes.size());
    EXPECT_EQ(end.count, 0U);
    EXPECT_EQ(end.error, 0);
}

TEST(WriteSome, WritesWhatThereIsRoomFor)
{
    const Deadline deadline;
    const auto [reading, writing] = Pipe();
    const std::string much(1 << 20, 'x');

    const Transferred some = WriteSome(writing.Number(), much);

    EXPECT_GT(some.count, 0U);
    EXPECT_LT(some.count, much.size());
    EXPECT_EQ(some.error, 0);
    EXPECT_EQ(WriteSome(writing.Number(), much).error, EAGAIN);
}

} // namespace kx::io

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "confined/Frames.h"
#include "io/Descriptor.h"
#include "io/TemporaryFile.h"
#include "io/Transfer.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace kx::guard
{

namespace
{

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Messages = std::vector<std::pair<int, std::string>>;

constexpr FrameLimits kMany{1000, 1000000};
constexpr const char* kRefusedText = "1: what reads the package said what it must not say";

/// Returns what a FrameWriter writes.
template <class Call>
std::string Written(Call call)
{
    const io::Descriptor file = io::MakeTemporaryFile();
    FrameWriter writer(file.Number());
    call(writer);
    EXPECT_EQ(lseek(file.Number(), 0, SEEK_SET), 0);
    return io::ReadAll(file.Number(), 1U << 20U, "file");
}

std::string Frame(std::uint8_t kind, const std::string& bytes)
{
    const std::size_t size = bytes.size();
    return std::string{static_cast<char>(kind), static_cast<char>(size),
                       static_cast<char>(size >> 8U), static_cast<char>(size >> 16U),
                       static_cast<char>(size >> 24U)} +
           bytes;
}

/// What comes of bytes that arrive in pieces of a size.
struct Heard {
    Messages messages;
    bool isDone = false;
    std::string thrown;
};

Heard Hear(const std::string& bytes, std::size_t piece, const FrameLimits& limits = kMany)
{
    Heard heard;
    FrameReader reader(limits);
    const auto take = [&heard](const Message& message) {
        heard.messages.emplace_back(message.kind, std::string(message.bytes));
    };
    heard.thrown = Thrown([&] {
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            heard.isDone = reader.Feed(bytes.substr(at, piece), take);
        }
    });
    return heard;
}

TEST(Frames, MessagesArriveWholeWhateverThePiecesTheyComeIn)
{
    const std::string large(kLargestMessage, 'x');
    const std::string bytes = Written([&large](FrameWriter& writer) {
        writer.Send(1, "one");
        writer.Send(2, "");
        writer.Send(0xef, large);
        writer.TellDone();
    });

    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, bytes.size()}) {
        const Heard heard = Hear(bytes, piece);

        EXPECT_TRUE(heard.isDone);
        EXPECT_EQ(heard.thrown, "nothing thrown");
        EXPECT_THAT(heard.messages,
                    ElementsAre(std::pair(1, std::string("one")), std::pair(2, std::string()),
                                std::pair(0xef, large)));
    }
}

TEST(Frames, NothingIsDoneBeforeTheWorkSaysSo)
{
    EXPECT_FALSE(Hear(Frame(1, "one"), 1).isDone);
    EXPECT_THAT(Hear(Frame(1, "one").substr(0, 7), 1).messages, IsEmpty());
}

TEST(Frames, AnErrorArrivesWithAllItsParts)
{
    const std::string bytes = Written([](FrameWriter& writer) {
        writer.Send(1, "one");
        writer.TellError(io::Error(io::ExitCode::kNoAccess, "file", "is away", "bring it"));
    });

    const Heard heard = Hear(bytes, 3);

    EXPECT_EQ(heard.thrown, "3: file: is away; bring it");
    EXPECT_EQ(heard.messages.size(), 1U);
}

TEST(Frames, AnErrorsTextsAreBoundedAndPrintable)
{
    const std::string longText(5000, 'x');
    const std::string bytes = Written([&longText](FrameWriter& writer) {
        writer.TellError(io::Error(io::ExitCode::kProblems, "a\033[2J", longText));
    });

    EXPECT_EQ(Hear(bytes, bytes.size()).thrown, R"(1: a\x1b[2J: )" + longText.substr(0, 2000));
}

TEST(Frames, WantOfMemoryIsToldInAFrameOfItsOwn)
{
    const std::string bytes = Written([](FrameWriter& writer) { writer.TellNoMemory(); });

    EXPECT_EQ(Hear(bytes, 5).thrown,
              "1: what reads the package needs more memory than it may have");
}

TEST(Frames, AWorkCannotSendWhatIsNoMessage)
{
    static_cast<void>(Written([](FrameWriter& writer) {
        EXPECT_THROW(writer.Send(kFirstOwnKind, ""), std::invalid_argument);
        EXPECT_THROW(writer.Send(1, std::string(kLargestMessage + 1, 'x')), std::length_error);
    }));
}

TEST(Frames, ANotListenedToMessageIsAnError)
{
    FrameWriter writer(-1);

    EXPECT_EQ(Thrown([&writer] { writer.Send(1, ""); }),
              "3: cannot tell what was read: Bad file descriptor");
}

TEST(Frames, NoMoreIsTakenThanTheLimitsAllow)
{
    const std::string three = Frame(1, "12345") + Frame(1, "12345") + Frame(1, "12345");

    EXPECT_EQ(Hear(three, 1, {3, 15}).thrown, "nothing thrown");
    EXPECT_EQ(Hear(three, 1, {2, 15}).thrown, kRefusedText);
    EXPECT_EQ(Hear(three, 1, {2, 15}).messages.size(), 2U);
    EXPECT_EQ(Hear(three, 1, {3, 14}).thrown, kRefusedText);
    EXPECT_EQ(Hear(Frame(1, "") + Frame(1, ""), 1, {1, 0}).thrown, kRefusedText);
}

class BadFrames : public ::testing::TestWithParam<std::pair<const char*, std::string>>
{
};

TEST_P(BadFrames, AreRefused)
{
    EXPECT_EQ(Hear(GetParam().second, 1).thrown, kRefusedText);
    EXPECT_EQ(Hear(GetParam().second, 1U << 20U).thrown, kRefusedText);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, BadFrames,
    ::testing::Values(std::pair("TooLarge", Frame(1, "").substr(0, 1) + std::string("\1\0\1\0", 4)),
                      std::pair("AsLargeAsCanBe", std::string("\1\xff\xff\xff\xff")),
                      std::pair("AnUnknownOwnKind", Frame(0xf0, "")),
                      std::pair("DoneWithBytes", Frame(0xff, "x")),
                      std::pair("NoMemoryWithBytes", Frame(0xfd, "x")),
                      std::pair("MoreBehindTheEnd", Frame(0xff, "") + "x"),
                      std::pair("TwoEnds", Frame(0xff, "") + Frame(0xff, "")),
                      std::pair("AnErrorWithoutCode", Frame(0xfe, "")),
                      std::pair("AnErrorThatIsFine", Frame(0xfe, std::string("\0\0\0\0", 4))),
                      std::pair("AnErrorOfWrongUse", Frame(0xfe, std::string("\2\0\0\0", 4))),
                      std::pair("AnErrorOfAnUnknownCode", Frame(0xfe, std::string("\5\0\0\0", 4))),
                      std::pair("AnErrorOfTwoTexts", Frame(0xfe, std::string("\1a\0b\0", 5))),
                      std::pair("AnErrorOfFourTexts", Frame(0xfe, std::string("\1\0\0\0\0", 5))),
                      std::pair("AnErrorWithoutEnd", Frame(0xfe, std::string("\1a\0b\0c", 6))),
                      std::pair("AnErrorWithALongText",
                                Frame(0xfe, "\1" + std::string(2001, 'x') + std::string(3, '\0')))),
    [](const auto& row) { return std::string(row.param.first); });

} // namespace

} // namespace kx::guard

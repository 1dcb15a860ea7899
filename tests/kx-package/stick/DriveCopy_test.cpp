// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Interruption.h"
#include "stick/DriveCopy.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace kx::tool
{

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A drive of which a test decides how it behaves, call by call.
class FaultyDrive : public DriveCalls
{
public:
    explicit FaultyDrive(const io::Descriptor& folder) : DriveCalls(folder) {}

    std::map<std::string, int> errors;                   ///< of calls: errno
    std::map<std::string, int> passing;                  ///< so many calls pass before
    std::function<void(const std::string& call)> onCall; ///< told before each call
    bool knowsNameless = true;
    bool hidesNames = false;
    int pastMemory = 0;                     ///< errno of opening past the memory
    int readPastMemory = 0;                 ///< errno of reading there
    std::size_t mostRead = SIZE_MAX;        ///< bytes of one call
    std::uint64_t changedByte = UINT64_MAX; ///< offset of a byte that is read back as another
    std::vector<std::string> calls;

    int List(std::vector<std::string>& names) const override
    {
        const int error = DriveCalls::List(names);
        if (hidesNames) {
            for (std::string& name : names) {
                std::transform(name.begin(), name.end(), name.begin(),
                               [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
            }
        }
        return error;
    }

    io::NewFile Make(const std::string& stem) override
    {
        if (const int error = Asked("make"); error != 0) {
            return {io::Descriptor(), "", error};
        }
        io::NewFile file = DriveCalls::Make(stem);
        if (!knowsNameless) {
            EXPECT_EQ(DriveCalls::GiveName(stem, file), 0);
        }
        return file;
    }

    int GiveName(const std::string& stem, io::NewFile& file) override
    {
        const int error = Asked("name");
        return error != 0 ? error : DriveCalls::GiveName(stem, file);
    }

    io::Transferred Write(const io::Descriptor& file, std::string_view bytes) override
    {
        const int error = Asked("write");
        if (error == 0) {
            return DriveCalls::Write(file, bytes);
        }
        const io::Transferred half = DriveCalls::Write(file, bytes.substr(0, bytes.size() / 2));
        return {half.count, error};
    }

    int Sync(const io::Descriptor& file) override
    {
        const int error = Asked("sync file");
        return error != 0 ? error : DriveCalls::Sync(file);
    }

    int SyncNames() override
    {
        const int error = Asked("sync names");
        return error != 0 ? error : DriveCalls::SyncNames();
    }

    int SyncAll() override
    {
        const int error = Asked("sync all");
        return error != 0 ? error : DriveCalls::SyncAll();
    }

    io::Descriptor OpenAgain(const io::Descriptor& file, bool isPastMemory) const override
    {
        if (isPastMemory && pastMemory != 0) {
            errno = pastMemory;
            return {};
        }
        m_isPastMemory = isPastMemory;
        // Not every machine's folder for temporary files can be read past the memory.
        return DriveCalls::OpenAgain(file, false);
    }

    io::Transferred ReadAt(const io::Descriptor& file, char* bytes, std::size_t size,
                           std::uint64_t offset) const override
    {
        const int error = const_cast<FaultyDrive*>(this)->Asked("read");
        if (error != 0) {
            return {0, error};
        }
        if (m_isPastMemory && readPastMemory != 0) {
            return {0, readPastMemory};
        }
        if (m_isPastMemory) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % kAlignment, 0U);
            EXPECT_EQ(size % kAlignment, 0U);
            EXPECT_EQ(offset % kAlignment, 0U);
        }
        const io::Transferred some =
            DriveCalls::ReadAt(file, bytes, std::min(size, mostRead), offset);
        if (changedByte >= offset && changedByte - offset < some.count) {
            bytes[changedByte - offset] ^= 1;
        }
        return some;
    }

    int Rename(const std::string& path, const std::string& name) override
    {
        const int error = Asked("rename");
        return error != 0 ? error : DriveCalls::Rename(path, name);
    }

    int Remove(const std::string& path) override
    {
        const int error = Asked("remove");
        return error != 0 ? error : DriveCalls::Remove(path);
    }

private:
    int Asked(const std::string& call)
    {
        calls.push_back(call);
        if (onCall) {
            onCall(call);
        }
        const auto error = errors.find(call);
        return error == errors.end() || passing[call]-- > 0 ? 0 : error->second;
    }

    mutable bool m_isPastMemory = false;
};

constexpr std::size_t kMiB = std::size_t{1} << 20;

/// Bytes of which no piece is like another.
std::string Bytes(std::size_t size)
{
    std::string bytes(size, '\0');
    unsigned state = 1;
    std::generate(bytes.begin(), bytes.end(), [&state] {
        state = state * 1103515245U + 12345U;
        return static_cast<char>(state >> 16U);
    });
    return bytes;
}

class DriveCopyTest : public testing::Test
{
protected:
    explicit DriveCopyTest(std::size_t size = 5000)
        : m_bytes(Bytes(size)), m_source(m_disk.Write("a.kx-update", m_bytes)),
          m_folder(open(m_drive.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
          m_calls(m_folder)
    {
    }

    [[nodiscard]] CopyTarget Target() { return {m_calls, "a.kx-update", "usb/a.kx-update", true}; }

    [[nodiscard]] ReadBack Copy() { return CopyToDrive(Target(), m_source, {}); }

    [[nodiscard]] std::string Failure()
    {
        return Thrown([this] { static_cast<void>(Copy()); });
    }

    /// What the drive has, by name.
    [[nodiscard]] std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        EXPECT_EQ(DriveCalls(m_folder).List(names), 0);
        return names;
    }

    void ExpectCopied() const
    {
        EXPECT_THAT(Names(), ElementsAre("a.kx-update"));
        EXPECT_EQ(ReadFile(m_drive / "a.kx-update"), m_bytes);
    }

    TempDir m_disk;
    TempDir m_drive;
    std::string m_bytes;
    SourceFile m_source;
    io::Descriptor m_folder;
    FaultyDrive m_calls;
};

class BigDriveCopyTest : public DriveCopyTest
{
protected:
    BigDriveCopyTest() : DriveCopyTest(9 * kMiB + 4097) {}
};

TEST_F(DriveCopyTest, WaitsForTheDriveBeforeItReadsBackAndAgainWhenTheFileHasItsName)
{
    EXPECT_EQ(Copy(), ReadBack::kFromDrive);

    ExpectCopied();
    EXPECT_THAT(m_calls.calls, ElementsAre("make", "write", "sync file", "sync names", "read",
                                           "name", "rename", "sync names", "sync all"));
}

TEST_F(DriveCopyTest, WaitsForTheDriveWhenWhatCannotBeWrittenIsRemoved)
{
    m_calls.knowsNameless = false;
    m_calls.errors["sync file"] = EIO;

    EXPECT_THAT(Failure(), HasSubstr("cannot write"));

    EXPECT_THAT(Names(), IsEmpty());
    EXPECT_THAT(m_calls.calls, ElementsAre("make", "write", "sync file", "remove", "sync names"));
}

TEST_F(DriveCopyTest, AnOlderFileIsReplaced)
{
    m_drive.Write("a.kx-update", std::string(9000, 'o'));

    EXPECT_EQ(CompareWithDrive(Target(), m_source, {}), std::nullopt);
    EXPECT_EQ(Copy(), ReadBack::kFromDrive);

    ExpectCopied();
}

TEST_F(DriveCopyTest, ALinkOfThatNameIsReplacedAndNotFollowed)
{
    m_disk.Write("other", m_bytes);
    ASSERT_EQ(symlink((m_disk / "other").c_str(), (m_drive / "a.kx-update").c_str()), 0);

    EXPECT_EQ(CompareWithDrive(Target(), m_source, {}), std::nullopt);
    m_disk.Write("other", "kept");
    EXPECT_EQ(Copy(), ReadBack::kFromDrive);

    ExpectCopied();
    EXPECT_EQ(ReadFile(m_disk / "other"), "kept");
}

TEST_F(DriveCopyTest, ItGoesTheSameWayWhereFilesMustHaveNames)
{
    m_calls.knowsNameless = false;
    std::vector<std::string> names;
    m_calls.onCall = [&](const std::string& call) {
        names = call == "sync file" ? Names() : names;
    };

    EXPECT_EQ(Copy(), ReadBack::kFromDrive);

    // No panel takes it for a package.
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(names[0].rfind(".a.kx-update." + std::to_string(getpid()), 0), 0U) << names[0];
    ExpectCopied();
}

TEST_F(BigDriveCopyTest, TheDriveIsWaitedForAgainAndAgainAndProgressIsTold)
{
    std::vector<double> written;
    std::vector<double> read;
    const CopyProgress progress{[&](double done) { written.push_back(done); },
                                [&](double done) { read.push_back(done); }};

    EXPECT_EQ(CopyToDrive(Target(), m_source, progress), ReadBack::kFromDrive);

    ExpectCopied();
    EXPECT_EQ(std::count(m_calls.calls.begin(), m_calls.calls.end(), "sync file"), 2);
    EXPECT_EQ(written.size(), 10U);
    EXPECT_EQ(read.size(), 10U);
    EXPECT_TRUE(std::is_sorted(written.begin(), written.end()));
    EXPECT_EQ(written.back(), 1.0);
    EXPECT_EQ(read.back(), 1.0);
}

TEST_F(BigDriveCopyTest, ReadsThatFallShortAreGoneOnWith)
{
    m_calls.mostRead = 3 * DriveCalls::kAlignment;
    EXPECT_EQ(Copy(), ReadBack::kFromDrive);
    ExpectCopied();

    m_calls.pastMemory = EINVAL;
    m_calls.mostRead = 100001;
    EXPECT_EQ(CompareWithDrive(Target(), m_source, {}), ReadBack::kFromMemory);
}

TEST_F(DriveCopyTest, WhatCannotBeReadPastTheMemoryIsSaidToComeFromThere)
{
    m_calls.pastMemory = EINVAL;
    EXPECT_EQ(Copy(), ReadBack::kFromMemory);

    m_calls.pastMemory = 0;
    m_calls.readPastMemory = EINVAL;
    EXPECT_EQ(Copy(), ReadBack::kFromMemory);
    ExpectCopied();

    CopyTarget target = Target();
    target.isPastMemory = false;
    m_calls.readPastMemory = 0;
    EXPECT_EQ(CopyToDrive(target, m_source, {}), ReadBack::kFromMemory);
}

TEST_F(DriveCopyTest, TheSameFileIsReadBackAndNotWritten)
{
    m_drive.Write("a.kx-update", m_bytes);

    EXPECT_EQ(CompareWithDrive(Target(), m_source, {}), ReadBack::kFromDrive);

    EXPECT_THAT(m_calls.calls, ElementsAre("sync file", "read", "sync names", "sync all"));
    m_calls.changedByte = 4999;
    EXPECT_EQ(CompareWithDrive(Target(), m_source, {}), std::nullopt);
    m_drive.Write("a.kx-update", m_bytes.substr(1) + "x");
    EXPECT_EQ(CompareWithDrive(Target(), m_source, {}), std::nullopt);
    m_drive.Write("a.kx-update", m_bytes + "x");
    EXPECT_EQ(CompareWithDrive(Target(), m_source, {}), std::nullopt);
}

TEST_F(DriveCopyTest, AByteThatIsReadBackAsAnotherIsFoundAndNothingStays)
{
    for (const std::uint64_t byte : {std::uint64_t{0}, std::uint64_t{4999}}) {
        m_calls.changedByte = byte;
        EXPECT_EQ(Failure(), "3: usb/a.kx-update: what was read back differs from what was "
                             "written, from byte " +
                                 std::to_string(byte) +
                                 " on; the drive is not to be trusted; take another one");
        EXPECT_THAT(Names(), IsEmpty());
    }
}

TEST_F(BigDriveCopyTest, AByteFarBehindIsFound)
{
    m_calls.changedByte = 9 * kMiB + 4096;

    EXPECT_THAT(Failure(), HasSubstr("from byte 9441280 on"));
}

TEST_F(BigDriveCopyTest, AFileThatComesBackShortOrLongIsNotTheSame)
{
    m_calls.knowsNameless = false;
    const auto change = [this](off_t size) {
        m_calls.onCall = [this, size](const std::string& call) {
            // Once it was removed, there is nothing to change any more.
            if (call == "sync names" && !Names().empty()) {
                EXPECT_EQ(truncate((m_drive / Names().at(0)).c_str(), size), 0);
            }
        };
    };

    change(9 * kMiB);
    EXPECT_THAT(Failure(), HasSubstr("from byte 9437184 on"));
    change(9 * kMiB + 5000);
    EXPECT_THAT(Failure(), HasSubstr("from byte 9441281 on"));
}

struct Fall {
    const char* name;
    const char* call;
    int error;
    int passing;
    const char* message;
};

class FailingDriveCopyTest : public BigDriveCopyTest, public testing::WithParamInterface<Fall>
{
};

INSTANTIATE_TEST_SUITE_P(
    Calls, FailingDriveCopyTest,
    testing::Values(
        Fall{"Make", "make", EROFS, 0,
             "cannot write: Read-only file system; the drive is write-protected, or was found "
             "damaged; look after it"},
        Fall{"FirstWrite", "write", ENOSPC, 0,
             "cannot write: No space left on device; remove what else is on the drive"},
        Fall{"LaterWrite", "write", EFBIG, 7,
             "cannot write: File too large; its file system takes no file of that size"},
        Fall{"FirstSync", "sync file", EIO, 0,
             "cannot write: Input/output error; is the drive still plugged in? If it is, take "
             "another one"},
        Fall{"LastSync", "sync file", ENOSPC, 1,
             "cannot write: No space left on device; remove what else is on the drive"},
        Fall{"NamesBefore", "sync names", ENODEV, 0,
             "cannot write: No such device; is the drive still plugged in? If it is, take another "
             "one"},
        Fall{"Read", "read", EIO, 7,
             "cannot read back: Input/output error; is the drive still plugged in? If it is, take "
             "another one"},
        Fall{"Name", "name", EPERM, 0, "cannot write: Operation not permitted"},
        Fall{"Rename", "rename", EISDIR, 0, "cannot write: Is a directory"}),
    [](const auto& param) { return param.param.name; });

TEST_P(FailingDriveCopyTest, NothingOfItStaysAndAnOlderFileDoes)
{
    m_drive.Write("a.kx-update", "older");
    for (const bool isNameless : {true, false}) {
        m_calls.knowsNameless = isNameless;
        m_calls.errors = {{GetParam().call, GetParam().error}};
        m_calls.passing = {{GetParam().call, GetParam().passing}};

        EXPECT_EQ(Failure(), std::string("3: usb/a.kx-update: ") + GetParam().message);

        EXPECT_THAT(Names(), ElementsAre("a.kx-update"));
        EXPECT_EQ(ReadFile(m_drive / "a.kx-update"), "older");
    }
}

TEST_F(DriveCopyTest, WhatFailsBehindTheNameIsTold)
{
    m_calls.errors = {{"sync names", EIO}};
    m_calls.passing = {{"sync names", 1}};
    EXPECT_THAT(Failure(), HasSubstr("usb/a.kx-update: cannot write: Input/output error"));

    m_calls.errors = {{"sync all", EIO}};
    EXPECT_THAT(Failure(), HasSubstr("usb/a.kx-update: cannot write: Input/output error"));
}

TEST_F(DriveCopyTest, AFileThatGetsAnotherNameIsNotReady)
{
    m_calls.hidesNames = true;

    EXPECT_EQ(Failure(),
              "3: usb/a.kx-update: has another name on the drive: its file system changes names; "
              "remove it, and give the drive FAT32 or exFAT");
}

TEST_F(DriveCopyTest, ASourceThatChangesMeanwhileIsNoticed)
{
    m_calls.onCall = [this](const std::string& call) {
        if (call == "read") {
            m_disk.Write("a.kx-update", m_bytes + "more");
        }
    };

    EXPECT_EQ(Failure(), "3: " + m_source.Path() +
                             ": was changed while it was copied; copy it "
                             "when nothing writes to it");
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(BigDriveCopyTest, ASourceThatIsCutMeanwhileIsNoticed)
{
    m_calls.onCall = [this](const std::string& call) {
        if (call == "write") {
            EXPECT_EQ(truncate(m_source.Path().c_str(), 100), 0);
        }
    };

    EXPECT_THAT(Failure(), HasSubstr("was changed while it was copied"));
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(BigDriveCopyTest, ASignalLeavesNothingBeforeTheFileHasItsName)
{
    // At its end the object raises the signal again.
    auto* const before = std::signal(SIGTERM, [](int) {});
    for (const bool isNameless : {true, false}) {
        m_calls.knowsNameless = isNameless;
        for (const std::string step :
             {"make", "write", "sync file", "sync names", "read", "name"}) {
            const io::Interruption interruption;
            m_calls.onCall = [&step](const std::string& call) {
                if (call == step) {
                    EXPECT_EQ(std::raise(SIGTERM), 0);
                }
            };

            EXPECT_EQ(Failure(), "3: usb/a.kx-update: cannot write: Interrupted system call")
                << step;

            EXPECT_THAT(Names(), IsEmpty()) << step;
        }
    }
    const io::Interruption forgotten; // tests behind this one are asked nothing
    EXPECT_NE(std::signal(SIGTERM, before), SIG_ERR);
}

TEST_F(DriveCopyTest, APipeOfThatNameIsNotWaitedFor)
{
    ASSERT_EQ(mkfifo((m_drive / "a.kx-update").c_str(), 0600), 0);

    EXPECT_EQ(CompareWithDrive(Target(), m_source, {}), std::nullopt);
}

TEST(SourceFileOf, WhatIsNoFileIsRefused)
{
    const TempDir disk;
    const auto refusal = [](const std::string& path) {
        return Thrown([&path] { const SourceFile source(path); });
    };

    EXPECT_EQ(refusal(disk.Path()),
              "2: " + disk.Path() + ": is no package file; kx-package build makes one");
    EXPECT_EQ(refusal("-"), "2: -: is no package file; kx-package build makes one");
    EXPECT_EQ(refusal(disk / "none"),
              "1: " + (disk / "none") + ": cannot open: No such file or directory");
    EXPECT_EQ(refusal("/dev/null"), "2: /dev/null: is no package file; kx-package build makes one");
}

} // namespace

} // namespace kx::tool

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kx::io
{

/// System calls that a test can let go wrong.
enum class Call {
    kOpen,         ///< open, but for what kOpenNameless is
    kOpenNameless, ///< open of a file without a name
    kOpenAt,       ///< openat
    kRead,
    kReadAt, ///< pread
    kWrite,
    kLink,       ///< linkat
    kOpenInRoot, ///< openat2
    kSync,       ///< fsync
    kSyncAll,    ///< syncfs
    kRename,     ///< rename and renameat
    kList,       ///< readdir; the last one
};

/// How one call goes.
struct Fault {
    int error = 0;               ///< errno; 0 makes the call
    std::size_t most = SIZE_MAX; ///< bytes that it transfers at most
    void (*before)() = nullptr;  ///< what happens elsewhere right before it
};

/// Faults of the calls of this test, in their order; afterwards the calls are as ever. All of them
/// must have happened when the object ends, or the test fails.
class Faults
{
public:
    Faults(Call call, const std::vector<Fault>& faults);
    /// Lets every such call fail, any number of times.
    Faults(Call call, int error);
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;
    ~Faults();

private:
    Call m_call;
};

/// Takes what is to happen with the present call.
/// @param size  bytes that it is to transfer; made less where the fault says so
/// @return false when it fails; errno says why
[[nodiscard]] bool TakeFault(Call call, std::size_t& size);
[[nodiscard]] bool TakeFault(Call call);

/// What brings files to the disk and to their places while the object lives, in its order: "sync"
/// with the path of what is synced and how many bytes a file has by then, "sync all of" with the
/// path that says which file system, and "name" with the path that a file is given.
class Placing
{
public:
    Placing();
    Placing(const Placing&) = delete;
    Placing& operator=(const Placing&) = delete;
    ~Placing();

    [[nodiscard]] const std::vector<std::string>& Calls() const { return m_calls; }

    /// Adds a call to the object that lives, if one does.
    /// @param descriptor  what it is about, or the folder that the name is in; AT_FDCWD shows
    ///                    the name as it stands
    static void Note(const std::string& call, int descriptor, const std::string& name = "");

private:
    std::vector<std::string> m_calls;
};

} // namespace kx::io

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
    kRename,
    kList, ///< readdir
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

/// What brings a file to the disk and to its place while the object lives, in its order: "sync"
/// with the path of what is synced, and "name" with the name that a file is given.
class Placing
{
public:
    Placing();
    Placing(const Placing&) = delete;
    Placing& operator=(const Placing&) = delete;
    ~Placing();

    [[nodiscard]] const std::vector<std::string>& Calls() const { return m_calls; }

    /// Adds a call to the object that lives, if one does.
    static void Note(const std::string& call);

private:
    std::vector<std::string> m_calls;
};

} // namespace kx::io

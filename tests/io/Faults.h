// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
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
};

/// How one call goes.
struct Fault {
    int error = 0;               ///< errno; 0 makes the call
    std::size_t most = SIZE_MAX; ///< bytes that it transfers at most
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

} // namespace kx::io

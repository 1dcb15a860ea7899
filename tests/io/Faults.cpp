// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace kx::io
{

namespace
{

/// What is to go wrong with one of the calls.
struct Plan {
    std::deque<Fault> next;
    int always = 0; ///< errno
};

Plan& PlanOf(Call call)
{
    constexpr auto kCalls = static_cast<std::size_t>(Call::kList) + 1;
    static std::array<Plan, kCalls> plans;
    return plans.at(static_cast<std::size_t>(call));
}

} // namespace

bool TakeFault(Call call, std::size_t& size)
{
    Plan& plan = PlanOf(call);
    Fault fault{plan.always};
    if (!plan.next.empty()) {
        fault = plan.next.front();
        plan.next.pop_front();
    }
    if (fault.before != nullptr) {
        fault.before();
    }
    size = std::min(size, fault.most);
    errno = fault.error != 0 ? fault.error : errno;
    return fault.error == 0;
}

bool TakeFault(Call call)
{
    std::size_t none = 0;
    return TakeFault(call, none);
}

Faults::Faults(Call call, const std::vector<Fault>& faults) : m_call(call)
{
    PlanOf(call).next.assign(faults.begin(), faults.end());
}

Faults::Faults(Call call, int error) : m_call(call)
{
    PlanOf(call).always = error;
}

Faults::~Faults()
{
    EXPECT_EQ(PlanOf(m_call).next.size(), 0U) << "faults that did not happen";
    PlanOf(m_call) = {};
}

namespace
{

Placing* g_placing = nullptr;

} // namespace

Placing::Placing()
{
    g_placing = this;
}

Placing::~Placing()
{
    g_placing = nullptr;
}

void Placing::Note(const std::string& call, int descriptor, const std::string& name)
{
    if (g_placing == nullptr) {
        return;
    }
    std::string path = name;
    if (descriptor >= 0) {
        std::error_code error;
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
        path =
            std::filesystem::read_symlink(link, error).string() + (name.empty() ? "" : "/" + name);
    }
    struct stat info {
    };
    const bool isFile = fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
    g_placing->m_calls.push_back(call + " " + path +
                                 (isFile ? ", " + std::to_string(info.st_size) + " bytes" : ""));
}

} // namespace kx::io

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Interruption.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>

namespace kx::io
{

namespace
{

/// Sets what a signal does for the life of the object.
class Disposition
{
public:
    Disposition(int signal, void (*handler)(int)) : m_signal(signal)
    {
        struct sigaction action {
        };
        action.sa_handler = handler;
        EXPECT_EQ(sigaction(signal, &action, &m_before), 0);
    }
    Disposition(const Disposition&) = delete;
    Disposition& operator=(const Disposition&) = delete;
    ~Disposition() { EXPECT_EQ(sigaction(m_signal, &m_before, nullptr), 0); }

private:
    int m_signal;
    struct sigaction m_before {
    };
};

// Set by a signal handler.
volatile std::sig_atomic_t g_handled = 0;

void Handle(int number)
{
    g_handled = number;
}

class Signals : public ::testing::TestWithParam<int>
{
protected:
    Signals() { g_handled = 0; }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Interruption, Signals, ::testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& param) { return std::string(sigabbrev_np(param.param)); });

TEST_P(Signals, OnlySetAMarkWhileTheObjectLives)
{
    const Disposition own(GetParam(), Handle);
    {
        const Interruption interruption;
        EXPECT_FALSE(Interruption::IsAsked());

        ASSERT_EQ(std::raise(GetParam()), 0);

        EXPECT_TRUE(Interruption::IsAsked());
        EXPECT_EQ(g_handled, 0);
    }

    EXPECT_EQ(g_handled, GetParam());
}

TEST_P(Signals, EndTheProgramAtTheObjectsEnd)
{
    const auto interrupted = [] {
        const Disposition usual(GetParam(), SIG_DFL);
        const Interruption interruption;
        static_cast<void>(std::raise(GetParam()));
        std::fputs("left cleanly", stderr);
    };

    EXPECT_EXIT(interrupted(), ::testing::KilledBySignal(GetParam()), "left cleanly");
}

TEST_P(Signals, StayIgnoredWhereWhoeverStartedTheProgramWantsThat)
{
    const Disposition ignored(GetParam(), SIG_IGN);
    const Interruption interruption;

    ASSERT_EQ(std::raise(GetParam()), 0);

    EXPECT_FALSE(Interruption::IsAsked());
}

TEST_P(Signals, DoAfterwardsWhatTheyDidBefore)
{
    const Disposition own(GetParam(), Handle);
    {
        const Interruption interruption;
    }
    EXPECT_EQ(g_handled, 0);

    ASSERT_EQ(std::raise(GetParam()), 0);

    EXPECT_EQ(g_handled, GetParam());
}

TEST_P(Signals, StayAskedForInsideAnotherObjectsLife)
{
    const Disposition own(GetParam(), Handle);
    {
        const Interruption outer;
        ASSERT_EQ(std::raise(GetParam()), 0);
        {
            const Interruption inner;

            EXPECT_TRUE(Interruption::IsAsked());
        }
        EXPECT_TRUE(Interruption::IsAsked());
        EXPECT_EQ(g_handled, 0);
    }

    EXPECT_EQ(g_handled, GetParam());
}

TEST_P(Signals, ThatComeInsideAnotherObjectsLifeDoTheirWorkAtTheOutersEnd)
{
    const Disposition own(GetParam(), Handle);
    {
        const Interruption outer;
        {
            const Interruption inner;
            ASSERT_EQ(std::raise(GetParam()), 0);
        }
        EXPECT_TRUE(Interruption::IsAsked());
        EXPECT_EQ(g_handled, 0);
    }

    EXPECT_EQ(g_handled, GetParam());
}

TEST_P(Signals, AreForgottenByTheNextObject)
{
    const Disposition own(GetParam(), Handle);
    {
        const Interruption interruption;
        ASSERT_EQ(std::raise(GetParam()), 0);
    }
    g_handled = 0;
    {
        const Interruption next;

        EXPECT_FALSE(Interruption::IsAsked());
    }

    EXPECT_EQ(g_handled, 0);
}

TEST_P(Signals, AreNotRaisedAgainWhereTheyWereAnswered)
{
    const Disposition own(GetParam(), Handle);
    {
        const Interruption interruption;
        ASSERT_EQ(std::raise(GetParam()), 0);
        Interruption::Answer();
        EXPECT_FALSE(Interruption::IsAsked());
    }
    EXPECT_EQ(g_handled, 0);
}

} // namespace kx::io

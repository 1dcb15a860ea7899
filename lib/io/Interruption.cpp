// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Interruption.h"

namespace kx::io
{

namespace
{

// Set by a signal handler, so it cannot belong to an object.
volatile std::sig_atomic_t g_signal = 0;

// How many objects live: what has come for an outer one stays.
int g_living = 0;

extern "C" void NoteSignal(int number)
{
    g_signal = number;
}

} // namespace

Interruption::Interruption()
{
    if (g_living++ == 0) {
        g_signal = 0;
    }
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        struct sigaction action {
        };
        static_cast<void>(sigaction(kSignals[i], nullptr, &m_before[i]));
        action.sa_handler = NoteSignal;
        // Whoever started the program may want it to outlive the terminal.
        if (m_before[i].sa_handler != SIG_IGN) {
            static_cast<void>(sigaction(kSignals[i], &action, nullptr));
        }
    }
}

Interruption::~Interruption()
{
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        static_cast<void>(sigaction(kSignals[i], &m_before[i], nullptr));
    }
    if (--g_living == 0 && g_signal != 0) {
        static_cast<void>(std::raise(g_signal));
    }
}

bool Interruption::IsAsked()
{
    return g_signal != 0;
}

void Interruption::Answer()
{
    g_signal = 0;
}

} // namespace kx::io

// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "app/ProcessSetUp.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace
{

void DropSignal(int /*signal*/) {}

void SetDefaultChildAction()
{
    struct sigaction action {
    };
    action.sa_handler = SIG_DFL;
    static_cast<void>(sigaction(SIGCHLD, &action, nullptr));
}

/// A caught signal, unlike an ignored one, is not passed on to the commands.
void DropBrokenPipes()
{
    struct sigaction given {
    };
    if (sigaction(SIGPIPE, nullptr, &given) != 0 || given.sa_handler != SIG_DFL) {
        return;
    }
    struct sigaction action {
    };
    action.sa_handler = DropSignal;
    action.sa_flags = SA_RESTART;
    static_cast<void>(sigaction(SIGPIPE, &action, nullptr));
}

void OpenStandardStreams()
{
    int fd = -1;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= STDIN_FILENO && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) {
        static_cast<void>(close(fd));
    }
}

} // namespace

void SetUpProcess()
{
    OpenStandardStreams();
    SetDefaultChildAction();
    DropBrokenPipes();
}

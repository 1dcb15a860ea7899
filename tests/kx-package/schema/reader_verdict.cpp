// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Reads the description files whose paths come on standard input, one a line, with the updater's
// reader. Answers each by a line: "yes", or "no" with the first reason. Nothing is run or written.
#include "engine/ILogger.h"
#include "engine/UserPackageInstaller.h"
#include "engine/q_UpdaterEngine.h"
#include "osa/OSA.h"

#include <cstdarg>
#include <exception>
#include <iostream>
#include <string>

namespace
{

class FirstLine final : public ILogger
{
public:
    [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override
    {
        va_list args;
        va_start(args, format);
        Keep(OSA_Format(format, args));
        va_end(args);
    }

    void OutMsg(const char* text) override { Keep(text); }

    /// Returns the first line of what was logged since the last call.
    std::string Take()
    {
        std::string line = m_text.substr(0, m_text.find('\n'));
        m_text.clear();
        return line;
    }

private:
    void Keep(const std::string& text)
    {
        if (m_text.empty()) {
            m_text = text;
        }
    }

    std::string m_text;
};

} // namespace

int main()
{
    FirstLine logger;
    q_UpdaterEngine::InitSystem(&logger);
    std::string path;
    while (std::getline(std::cin, path)) {
        UserPackageInstaller package;
        package.projectFile = path;
        try {
            const bool isRead = package.ReadKxProjectFile() == 0;
            const std::string reason = logger.Take();
            std::cout << (isRead ? "yes" : "no " + reason) << '\n';
        } catch (const std::exception& error) {
            static_cast<void>(logger.Take());
            std::cout << "no " << error.what() << '\n';
        }
    }
    return 0;
}

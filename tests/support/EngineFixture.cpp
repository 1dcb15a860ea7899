// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/EngineFixture.h"

#include "engine/q_UpdaterEngine.h"
#include "model/PicoJFactory.h"
#include "osa/OSA.h"
#include "osa/PathList.h"

namespace
{

void ResetEngine(ILogger* logger)
{
    if (q_UpdaterEngine::PicoJTbl->Prototypes().count == 0) {
        q_UpdaterEngine::InitSystem(logger);
    }
    q_UpdaterEngine::SysLogger = logger;
    q_UpdaterEngine::CopyFileList->clear();
    q_UpdaterEngine::CopyFolderList->clear();
    q_UpdaterEngine::CurrentPackage = nullptr;
    q_UpdaterEngine::ChildlenMode = 0;
}

} // namespace

void LineLogger::OutLine(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    m_lines.push_back(OSA_Format(format, args));
    va_end(args);
}

void LineLogger::OutMsg(const char* text)
{
    m_lines.emplace_back(text);
}

EngineFixture::EngineFixture()
{
    ResetEngine(&m_logger);
}

EngineFixture::~EngineFixture()
{
    ResetEngine(nullptr);
}

std::vector<std::string> EngineFixture::Files()
{
    return {q_UpdaterEngine::CopyFileList->begin(), q_UpdaterEngine::CopyFileList->end()};
}

std::vector<std::string> EngineFixture::Folders()
{
    return {q_UpdaterEngine::CopyFolderList->begin(), q_UpdaterEngine::CopyFolderList->end()};
}

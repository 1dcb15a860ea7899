// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Reads the input as a package description, once whole and once the root only.
#include "Input.h"
#include "engine/q_UpdaterEngine.h"
#include "model/IPicoJ.h"
#include "model/UserPackageProjectReader.h"

#include <memory>
#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static SilentLogger logger;
    if (q_UpdaterEngine::SysLogger == nullptr) {
        q_UpdaterEngine::InitSystem(&logger);
    }
    if (!IsShallow(data, size)) {
        return 0;
    }
    const MemoryFile file(data, size);
    for (const int mode : {0, 1}) {
        q_UpdaterEngine::ChildlenMode = mode;
        try {
            const std::unique_ptr<IPicoJ> root(
                UserPackageProjectReader::Imp_Read(file.Path().c_str()));
        } catch (const std::runtime_error&) {
            // A root value that is no object ends the updater by this exception.
            continue;
        }
    }
    return 0;
}

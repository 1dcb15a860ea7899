// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

struct dirent;

// The OS abstraction layer: free functions over `const char*` paths. They hold no state, print
// nothing themselves and report failure by an int (0 is success). `/`, `\` and `:` all end a
// folder part when a file name is looked for; the only mark that is ever added is `/`.

/// The layer's error number. No function of the layer sets or reads it.
extern int OSA_errno;

/// A whole file in memory, filled by OSA_ReadTextFile. The owner frees @c data with `free`.
struct SefetyTextBuffer {
    std::uint32_t size = 0; ///< bytes allocated: the file's size plus one for the terminating zero
    char* data = nullptr;   ///< block from `malloc`: the file's bytes, then one zero byte
};

// ---- file tests; all follow symbolic links ----

/// Tells whether @p path names anything that can be examined: a file, a folder, a device.
[[nodiscard]] bool OSA_IsFileExist(const char* path);

/// Tells whether @p path names a folder.
[[nodiscard]] bool OSA_IsDir(const char* path);

/// Returns the size of a regular file in bytes; -1 for anything else, for a path that cannot be
/// examined, and for a file of 2 GiB or more, whose size an int cannot tell.
[[nodiscard]] int OSA_FileSize(const char* path);

// ---- path strings ----

/// Returns the file name with its extension: a pointer into @p path behind the last separator.
[[nodiscard]] const char* OSA_GetFilenameExt(const char* path);

/// Returns the extension with its dot: a pointer into @p path, or to an empty constant. A dot in
/// the path's first place starts no extension.
[[nodiscard]] const char* OSA_GetExt(const char* path);

/// Returns @p path without its extension (the same rule as OSA_GetExt).
[[nodiscard]] std::string OSA_TrimExt(const char* path);

/// Returns the file name without folder and extension.
[[nodiscard]] std::string OSA_GetFilename(const char* path);

/// Returns @p path without one trailing `/` or `\`; only one mark is removed.
[[nodiscard]] std::string OSA_TrimDirMark(const char* path);

/// Returns @p path with a trailing `/`, unless it ends in `/` or `\` or is empty.
[[nodiscard]] std::string OSA_AddDirMark(const char* path);

// ---- whole files ----

/// Reads the whole file at @p path into @p buf; nothing is converted.
///
/// An earlier block in @p buf is not freed. On failure @p buf may hold a block without a
/// terminating zero, which is the owner's to free all the same.
/// @return 0, or kReadError
[[nodiscard]] int OSA_ReadTextFile(const char* path, SefetyTextBuffer& buf);

/// Creates or replaces the file at @p path with the bytes of @p text; an empty text leaves an
/// empty file.
/// @return 0, or kWriteError when the file cannot be opened or not all bytes were written
[[nodiscard]] int OSA_WriteStringToFile(std::string& text, const char* path);

// ---- strings ----

/// Returns @p str with every @p from replaced by @p to; inserted text is not searched again. An
/// empty @p from is found before every character and at the end.
[[nodiscard]] std::string ReplaceStringAll(std::string str, std::string from, std::string to);

/// Returns @p str with every CR LF pair replaced by a line feed; a lone CR stays.
[[nodiscard]] std::string Replace_CRLF_to_LF(std::string str);

/// Returns the printf-style text of any length, formatted with @p args; the empty string when
/// the C library refuses the format.
[[nodiscard, gnu::format(printf, 1, 0)]] std::string OSA_Format(const char* fmt, va_list args);

// ---- shell commands ----
// Paths stand between double quotes and are not escaped, so the shell still interprets `"`, `$`,
// backquote and backslash in them. Results are the raw status words of `system`: 0 when the
// command ended well, its exit status times 256 when it did not, -1 when no shell was started.

/// Formats a command line of any length, hands it to the shell, waits for its end and flushes the
/// standard streams, so that the program's lines and the command's stay in order for a reader.
/// @return the raw status of `system`; -1 also when the command cannot be formatted
[[gnu::format(printf, 1, 2)]] int OSA_Shell(const char* fmt, ...);

/// Removes a file or a whole tree: `rm -r "dir"`.
int OSA_rmdir(const char* dir);

/// Creates a folder with its parents: `mkdir -p "dir"`; an existing folder is a success.
int OSA_mkdir(const char* dir);

/// Unpacks @p zip into @p dir and overwrites without asking: `unzip -o "zip" -d "dir" `.
[[nodiscard]] int OSA_Unzip(const char* zip, const char* dir);

/// Changes the mode of @p path: `chmod perm "path" `. A null or empty @p perm means 777.
[[nodiscard]] int OSA_Attr(const char* path, const char* perm);

/// Copies a tree: `cp -f -r "src" "dst" `. Nothing is recorded.
[[nodiscard]] int OSA_CopyDir(const char* src, const char* dst);

/// Makes the file at @p path executable and runs it. The second command runs only when the first
/// ended well.
/// @return the raw status of the command that failed, or of the script
[[nodiscard]] int OSA_RunScript(const char* path);

/// Copies one file, creating the target folder first when it is missing.
///
/// @param src     existing source file
/// @param dst     target file, or target folder when it ends in `/`
/// @param record  true appends what was created to q_UpdaterEngine's recording lists: the folder
///                (with its trailing `/`) only when it did not exist before, the file under its
///                full name; equal texts are recorded once
/// @param perm    chmod mode; null leaves modes alone, "" means 777. The mode is given to @p dst
///                itself, so a target folder changes its own mode, not the copied file's.
/// @return 0, or the raw status of the `cp` or `chmod` that failed. A folder created before the
///         failure stays created and recorded.
[[nodiscard]] int OSA_CopyFile(const char* src, const char* dst, bool record, const char* perm);

/// Copies the contents of the folder @p src into the folder @p dst, depth first, every folder in
/// the collation order of the process's locale, one `cp` a file.
///
/// Links are followed: a link to a folder is descended into. A missing or unreadable source is an
/// empty one. File modes are left to `cp`.
/// @param dst     target folder, created when missing; "/" is never created or recorded
/// @param record  true appends each created folder (as given, without a mark) and each file to
///                q_UpdaterEngine's recording lists; equal texts are recorded once
/// @return 0, or the raw status of the first `cp` that failed, which ends the copy
[[nodiscard]] int OSA_CopyDirIn(const char* src, const char* dst, bool record);

/// Flushes standard output, then standard error.
/// @return the result of the second flush
int OSA_stdfflash();

/// Sleeps @p ms milliseconds; every value below 2, negative ones included, means 100 microseconds.
void OSA_Sleep(int ms);

/// Reads lines from a FIFO.
class OSA_PipeInStream
{
public:
    /// Creates the FIFO at @p path (an existing file is used as it is) and opens it for reading,
    /// which waits until a writer opens it.
    explicit OSA_PipeInStream(const char* path);
    OSA_PipeInStream(const OSA_PipeInStream&) = delete;
    OSA_PipeInStream& operator=(const OSA_PipeInStream&) = delete;
    /// Closes the stream; the FIFO itself stays.
    virtual ~OSA_PipeInStream();

    /// Returns the next line with its line feed, valid until the next call; a line of more than
    /// 998 characters comes in pieces. Null at the end, on an error and when opening failed.
    const char* gets();

private:
    std::FILE* stream = nullptr;
    std::array<char, 1001> line{};
};

/// Lists the entries of one folder, hidden ones included, "." and ".." left out, in the collation
/// order of the process's locale.
///
/// Names are bare entry names. They point into the listing and stay valid until the next
/// FindFirst on the same object or its end.
class OSA_FindFile
{
public:
    /// The search behind the handle.
    class IOSA_FindFile_imp
    {
    public:
        IOSA_FindFile_imp() = default;
        IOSA_FindFile_imp(const IOSA_FindFile_imp&) = delete;
        IOSA_FindFile_imp& operator=(const IOSA_FindFile_imp&) = delete;
        virtual ~IOSA_FindFile_imp() = default;
        virtual const char* FindFirst(const char* dir) = 0;
        virtual const char* Next() = 0;
        [[nodiscard]] virtual bool MayBeDir() const = 0;
    };

    OSA_FindFile();

    /// Lists @p dir anew and returns its first name; null when it is empty or cannot be listed.
    [[nodiscard]] const char* FindFirst(const char* dir) { return imp->FindFirst(dir); }

    /// Returns the next name, or null at the end.
    [[nodiscard]] const char* Next() { return imp->Next(); }

    /// Tells whether the entry whose name was returned last may be a folder or lead to one. The
    /// listing knows of most entries that they are something else; of the rest OSA_IsDir does.
    [[nodiscard]] bool MayBeDir() const { return imp->MayBeDir(); }

private:
    std::unique_ptr<IOSA_FindFile_imp> imp;
};

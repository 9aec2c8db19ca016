// Line-based text files: the open, read-a-line, write-a-line calls every reader and writer uses.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/format.h"

namespace tervo {

// Write replaces a file whole: what is written goes into a temporary file in the same folder, which
// CloseFile renames into place once all of it is on the disk.  So a run that is killed, or a disk
// that fills up, leaves the previous file or the complete new one, never a part of it.
enum class FileMode { Read, Write, Append };

// The temporary file behind a file opened for writing, removed unless CloseFile put it in place.
struct PendingFile {
    std::string path;
    PendingFile() = default;
    PendingFile(PendingFile&& other) noexcept : path(std::exchange(other.path, {})) {}
    PendingFile& operator=(PendingFile&& other) noexcept;
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    ~PendingFile();
};

// An open text file.  Movable, not copyable; closes itself at the end of its life (a file opened
// for writing that was not closed with CloseFile leaves the previous file in place).
struct TextFile {
    struct Closer {
        void operator()(std::FILE* f) const {
            if (f) std::fclose(f);
        }
    };
    std::unique_ptr<std::FILE, Closer> fp;
    std::string path;
    int lastError = 0; // errno of the first failure, 0 if none
    PendingFile pending;

    bool IsOpen() const { return fp != nullptr; }
};

// Opens `path`; the result is not open on failure (IsOpen() false, lastError set).
TextFile OpenFile(const std::string& path, FileMode mode);

// Closes the file.  A file opened for writing replaces `path` only when every write succeeded;
// otherwise its temporary file is removed.  0, or -1 with lastError set.
int CloseFile(TextFile& file);

// Writes a whole file: `fill` writes into a file opened for writing, which then replaces `path`.  A
// failure of the system (a folder that may not be written, a full disk) is reported under `title`
// with the file and the reason, once; a `fill` that fails on its own has said why.  The result of
// `fill` (0 when it succeeded), or -1.
int WriteWholeFile(const std::string& path, const std::string& title,
                   const std::function<int(TextFile&)>& fill);

// Reads one line without its line end (a "\r\n" end counts as one).  At most `limit` characters are
// kept; the rest of a longer line is read and dropped.  Result: the length kept, -2 at the end of the
// file, -1 on an error or for a file that is not open.
int ReadLine(TextFile& file, std::string& buffer, int limit);

// Writes `text` (its first `length` characters, or all for -1) and a line end.  0, or -1 on error.
int WriteLine(TextFile& file, std::string_view text, int length = -1);

// Writes `text` as it is.  0, or -1 on error.
int WriteText(TextFile& file, std::string_view text);

// Adds `text` to the end of a file opened for appending in one piece: when the system cannot take
// all of it (a full disk), the file is cut back to its length before.  0, or -1 on error.
int AppendWhole(TextFile& file, std::string_view text);

// Composes with the format notation and writes the result as it is (no line end is added).
template <typename... Args>
int FmtFile(TextFile& file, std::string_view format, const Args&... args) {
    return WriteText(file, FmtStr(format, args...));
}

// The text of an errno value, for messages.
std::string IoErrorText(int error);

} // namespace tervo

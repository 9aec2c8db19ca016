// Line-based text files: the open, read-a-line, write-a-line calls every reader and writer uses.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "platform/format.h"

namespace tervo {

enum class FileMode { Read, Write, Append };

// An open text file.  Movable, not copyable; closes itself at the end of its life.
struct TextFile {
    struct Closer {
        void operator()(std::FILE* f) const {
            if (f) std::fclose(f);
        }
    };
    std::unique_ptr<std::FILE, Closer> fp;
    std::string path;
    int lastError = 0; // errno of the last failure, 0 if none

    bool IsOpen() const { return fp != nullptr; }
};

// Opens `path`; the result is not open on failure (IsOpen() false, lastError set).
TextFile OpenFile(const std::string& path, FileMode mode);
void CloseFile(TextFile& file);

// Reads one line without its line end (a "\r\n" end counts as one).  At most `limit` characters are
// kept; the rest of a longer line is read and dropped.  Result: the length kept, -2 at the end of the
// file, -1 on an error or for a file that is not open.
int ReadLine(TextFile& file, std::string& buffer, int limit);

// Writes `text` (its first `length` characters, or all for -1) and a line end.  0, or -1 on error.
int WriteLine(TextFile& file, std::string_view text, int length = -1);

// Writes `text` as it is.  0, or -1 on error.
int WriteText(TextFile& file, std::string_view text);

// Composes with the format notation and writes the result as it is (no line end is added).
template <typename... Args>
int FmtFile(TextFile& file, std::string_view format, const Args&... args) {
    return WriteText(file, FmtStr(format, args...));
}

// The text of an errno value, for messages.
std::string IoErrorText(int error);

} // namespace tervo

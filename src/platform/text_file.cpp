// Line-based text files.  Files are opened in binary mode so that the bytes written are exactly the
// program's own on every system; line ends are handled here instead: "\n" ends a line, and a "\r"
// directly in front of it (a file written elsewhere) belongs to the line end.
#include "platform/text_file.h"

#include <cerrno>
#include <system_error>

namespace tervo {

TextFile OpenFile(const std::string& path, FileMode mode) {
    TextFile file;
    file.path = path;
    const char* how = mode == FileMode::Read ? "rb" : (mode == FileMode::Write ? "wb" : "ab");
    errno = 0;
    file.fp.reset(std::fopen(path.c_str(), how));
    if (!file.fp) file.lastError = errno != 0 ? errno : EIO;
    return file;
}

void CloseFile(TextFile& file) {
    if (file.fp && std::fclose(file.fp.release()) != 0) file.lastError = errno;
}

int ReadLine(TextFile& file, std::string& buffer, int limit) {
    buffer.clear();
    if (!file.IsOpen()) return -1;
    std::FILE* f = file.fp.get();
    const std::size_t keep = limit < 0 ? std::string::npos : static_cast<std::size_t>(limit);
    bool readAny = false;
    while (true) {
        const int c = std::fgetc(f);
        if (c == EOF) {
            if (std::ferror(f)) {
                file.lastError = errno != 0 ? errno : EIO;
                return -1;
            }
            // A last line without a line end is still a line; only a read that finds nothing at
            // all is the end of the file.
            if (!readAny) return -2;
            break;
        }
        readAny = true;
        if (c == '\n') break;
        if (c == '\r') {
            const int next = std::fgetc(f);
            if (next == '\n' || next == EOF) break;
            std::ungetc(next, f); // a lone carriage return inside a line is kept as a character
        }
        if (buffer.size() < keep) buffer.push_back(static_cast<char>(c));
    }
    return static_cast<int>(buffer.size());
}

int WriteText(TextFile& file, std::string_view text) {
    if (!file.IsOpen()) return -1;
    if (!text.empty() && std::fwrite(text.data(), 1, text.size(), file.fp.get()) != text.size()) {
        file.lastError = errno != 0 ? errno : EIO;
        return -1;
    }
    return 0;
}

int WriteLine(TextFile& file, std::string_view text, int length) {
    if (length >= 0 && static_cast<std::size_t>(length) < text.size()) {
        text = text.substr(0, static_cast<std::size_t>(length));
    }
    if (WriteText(file, text) != 0) return -1;
    return WriteText(file, "\n");
}

std::string IoErrorText(int error) {
    return std::generic_category().message(error);
}

} // namespace tervo

// Line-based text files.  Files are opened in binary mode so that the bytes written are exactly the
// program's own on every system; line ends are handled here instead: "\n" ends a line, and a "\r"
// directly in front of it (a file written elsewhere) belongs to the line end.
//
// A file opened for writing is a temporary file beside its destination ("." + name + a random
// suffix, so that it is hidden and never taken for a result); CloseFile flushes it to the disk and
// renames it over the destination, which the system does in one step.
#include "platform/text_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/files.h"
#include "platform/format.h"
#include "platform/messages.h"

namespace tervo {

PendingFile& PendingFile::operator=(PendingFile&& other) noexcept {
    if (this != &other) {
        if (!path.empty()) std::remove(path.c_str());
        path = std::exchange(other.path, {});
    }
    return *this;
}

PendingFile::~PendingFile() {
    if (!path.empty()) std::remove(path.c_str());
}

namespace {

// The first failure of a file is the one its messages name.
void Fail(TextFile& file, int error) {
    if (file.lastError == 0) file.lastError = error != 0 ? error : EIO;
}

// The permissions the new file gets: those of the file it replaces, else those of a new file.
mode_t NewFileMode(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) return status.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

void OpenForReplacing(TextFile& file) {
    const std::string& path = file.path;
    // A file that may not be written is not replaced either.
    if (access(path.c_str(), F_OK) == 0 && access(path.c_str(), W_OK) != 0) {
        Fail(file, errno);
        return;
    }
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string temporary = folder + "." + name.substr(0, 200) + ".XXXXXX";
    const int fd = mkstemp(temporary.data());
    if (fd < 0) {
        Fail(file, errno);
        return;
    }
    file.pending.path = temporary;
    if (fchmod(fd, NewFileMode(path)) != 0) {
        Fail(file, errno);
        close(fd);
        return;
    }
    file.fp.reset(fdopen(fd, "wb"));
    if (!file.fp) {
        Fail(file, errno);
        close(fd);
    }
}

} // namespace

TextFile OpenFile(const std::string& path, FileMode mode) {
    TextFile file;
    file.path = path;
    errno = 0;
    if (mode == FileMode::Write) {
        OpenForReplacing(file);
    } else {
        file.fp.reset(std::fopen(path.c_str(), mode == FileMode::Read ? "rb" : "ab"));
        if (!file.fp) Fail(file, errno);
    }
    return file;
}

int CloseFile(TextFile& file) {
    if (file.fp) {
        std::FILE* f = file.fp.release();
        const bool replacing = !file.pending.path.empty();
        if (replacing && (std::fflush(f) != 0 || fsync(fileno(f)) != 0)) Fail(file, errno);
        if (std::fclose(f) != 0) Fail(file, errno);
        if (replacing && file.lastError == 0) {
            if (std::rename(file.pending.path.c_str(), file.path.c_str()) == 0)
                file.pending.path.clear();
            else
                Fail(file, errno);
        }
    }
    file.pending = PendingFile{}; // a temporary file not put in place is removed
    return file.lastError == 0 ? 0 : -1;
}

int WriteWholeFile(const std::string& path, const std::string& title,
                   const std::function<int(TextFile&)>& fill) {
    const bool existed = FileExists(path);
    TextFile file = OpenFile(path, FileMode::Write);
    int result = file.IsOpen() ? fill(file) : -1;
    // A fill that failed leaves the previous file: the temporary one is dropped with `file`.
    if (result == 0 && CloseFile(file) != 0) result = -1;
    if (result != 0 && file.lastError != 0) {
        TERVOErrorMessage(title,
                          FmtStr("%s<The file %s[q] could not be written: %s.\n%s", path,
                                 IoErrorText(file.lastError),
                                 existed ? "The previous file is left as it was." : "No file was made."));
    }
    return result;
}

int ReadLine(TextFile& file, std::string& buffer, int limit) {
    buffer.clear();
    if (!file.IsOpen()) return -1;
    std::FILE* f = file.fp.get();
    const std::size_t keep = limit < 0 ? std::string::npos : static_cast<std::size_t>(limit);
    bool readAny = false;
    // Character by character from the stream's buffer without taking its lock for each one: the
    // program reads its files from one thread, and a spectrum of 2000 lines is some 40 000 characters.
    while (true) {
        const int c = getc_unlocked(f);
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
            const int next = getc_unlocked(f);
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
        Fail(file, errno);
        return -1;
    }
    return 0;
}

int AppendWhole(TextFile& file, std::string_view text) {
    if (!file.IsOpen()) return -1;
    std::FILE* f = file.fp.get();
    if (std::fflush(f) != 0) {
        Fail(file, errno);
        return -1;
    }
    const int fd = fileno(f);
    const off_t before = lseek(fd, 0, SEEK_END);
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            Fail(file, n < 0 ? errno : ENOSPC);
            // The part that was written goes again; if even that fails, the first error is told.
            if (before >= 0 && ftruncate(fd, before) != 0) Fail(file, errno);
            return -1;
        }
        done += static_cast<size_t>(n);
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

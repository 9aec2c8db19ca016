// Paths, file sizes and dates, and the clock.
#pragma once

#include <string>

namespace tervo {

struct DateTime {
    int day = 0, month = 0, year = 0;
    int hours = 0, minutes = 0, seconds = 0;
};

// Why the size of a file could not be had.
enum FileSizeStatus : int {
    FILESIZE_OK = 0,
    FILESIZE_NOT_FOUND = -1,     // no such file, or a folder of the path missing
    FILESIZE_IO_ERROR = -2,      // the system could not read what it found
    FILESIZE_NO_MEMORY = -3,     // the system ran out of memory on the way
    FILESIZE_INVALID_PATH = -4,  // a path no file can have: a folder, an empty or overlong name
    FILESIZE_ACCESS_DENIED = -5, // the file or a folder of the path may not be read
};

// FILESIZE_OK and the size in bytes when the file exists, else one of the statuses above (size 0).
int GetFileSize(const std::string& path, long long& size);
bool FileExists(const std::string& path);

// Date and time of the last change of a file, local time.  0, or -1 when the file does not exist.
int GetFileDateTime(const std::string& path, DateTime& stamp);

// The present local date and time.
DateTime GetSystemDateTime();

// Splits a path into drive (empty on this system), folder (with its trailing separator) and file.
void SplitPath(const std::string& path, std::string& drive, std::string& folder, std::string& file);

// Joins a folder and a file name with one separator.
std::string MakePathname(const std::string& folder, const std::string& file);

// The home folder of the program (set once at start-up).  GetProjectDir returns it.
void SetProjectDir(const std::string& folder);
std::string GetProjectDir();

// Creates a folder and its parents; true if it exists afterwards.
bool MakeDirectories(const std::string& folder);

} // namespace tervo

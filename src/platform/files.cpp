// Paths, file sizes and dates, and the clock.
#include "platform/files.h"

#include <chrono>
#include <ctime>
#include <filesystem>
#include <system_error>

namespace tervo {

namespace fs = std::filesystem;

namespace {

std::string& ProjectDir() {
    static std::string folder;
    return folder;
}

DateTime FromTimeT(std::time_t t) {
    DateTime stamp;
    // The process has one thread, so the shared buffer of localtime is safe here.
    if (const std::tm* local = std::localtime(&t)) {
        stamp.day = local->tm_mday;
        stamp.month = local->tm_mon + 1;
        stamp.year = local->tm_year + 1900;
        stamp.hours = local->tm_hour;
        stamp.minutes = local->tm_min;
        stamp.seconds = local->tm_sec;
    }
    return stamp;
}

} // namespace

namespace {

int FileSizeStatusOf(const std::error_code& ec) {
    if (ec == std::errc::no_such_file_or_directory || ec == std::errc::not_a_directory)
        return FILESIZE_NOT_FOUND;
    if (ec == std::errc::permission_denied || ec == std::errc::operation_not_permitted)
        return FILESIZE_ACCESS_DENIED;
    if (ec == std::errc::not_enough_memory) return FILESIZE_NO_MEMORY;
    if (ec == std::errc::filename_too_long || ec == std::errc::invalid_argument ||
        ec == std::errc::is_a_directory)
        return FILESIZE_INVALID_PATH;
    return FILESIZE_IO_ERROR;
}

} // namespace

int GetFileSize(const std::string& path, long long& size) {
    size = 0;
    if (path.empty()) return FILESIZE_INVALID_PATH;
    std::error_code ec;
    const fs::file_status status = fs::status(path, ec);
    if (ec) return FileSizeStatusOf(ec);
    if (!fs::exists(status)) return FILESIZE_NOT_FOUND;
    if (!fs::is_regular_file(status)) return FILESIZE_INVALID_PATH;
    const auto bytes = fs::file_size(path, ec);
    if (ec) return FileSizeStatusOf(ec);
    size = static_cast<long long>(bytes);
    return FILESIZE_OK;
}

bool FileExists(const std::string& path) {
    std::error_code ec;
    return fs::is_regular_file(path, ec);
}

int GetFileDateTime(const std::string& path, DateTime& stamp) {
    std::error_code ec;
    const auto written = fs::last_write_time(path, ec);
    if (ec) return -1;
    const auto system = std::chrono::file_clock::to_sys(written);
    stamp = FromTimeT(std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(system)));
    return 0;
}

DateTime GetSystemDateTime() {
    return FromTimeT(std::time(nullptr));
}

void SplitPath(const std::string& path, std::string& drive, std::string& folder, std::string& file) {
    drive.clear();
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
        folder.clear();
        file = path;
    } else {
        folder = path.substr(0, slash + 1);
        file = path.substr(slash + 1);
    }
}

std::string MakePathname(const std::string& folder, const std::string& file) {
    if (folder.empty()) return file;
    std::string joined = folder;
    if (joined.back() != '/') joined += '/';
    std::size_t skip = 0;
    while (skip < file.size() && file[skip] == '/') ++skip;
    return joined + file.substr(skip);
}

void SetProjectDir(const std::string& folder) {
    ProjectDir() = folder;
}

std::string GetProjectDir() {
    return ProjectDir();
}

bool MakeDirectories(const std::string& folder) {
    std::error_code ec;
    fs::create_directories(folder, ec);
    return fs::is_directory(folder, ec);
}

} // namespace tervo

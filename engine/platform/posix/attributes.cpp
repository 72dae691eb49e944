#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/platform/files.h"
#include "engine/platform/posix/file_time.h"
#include "engine/platform/posix/names.h"
#include "engine/platform/same_file.h"

namespace platform {
namespace {

bool stat_at(const PathAt& path, struct stat& status) {
    const auto ask = [&](int directory, const char* text) { return ::fstatat(directory, text, &status, 0); };
    return call_at(path, ask) == 0 || fail_os(errno);
}

}  // namespace

bool leads_to(const char* path, const File& file) {
    struct stat there;
    struct stat open;
    return stat_at(PathAt{.full = path}, there) && ::fstat(static_cast<int>(file.native()), &open) == 0 &&
           there.st_dev == open.st_dev && there.st_ino == open.st_ino;
}

std::optional<Attributes> get_attributes(const PathAt& path) {
    struct stat status;
    if (!check_path(path.full) || meets_fault(FaultPoint::STAT) || !stat_at(path, status)) return std::nullopt;
    const bool is_directory = S_ISDIR(status.st_mode);
    if (!is_directory && !S_ISREG(status.st_mode)) {
        fail(Failure::NOT_REGULAR);
        return std::nullopt;
    }
    return Attributes{.is_directory = is_directory,
                      .is_read_only = (status.st_mode & S_IWUSR) == 0,
                      .size = is_directory ? 0 : static_cast<std::uint64_t>(status.st_size),
                      .write_time = to_file_time(status.st_mtim),
                      .access_time = to_file_time(status.st_atim)};
}

bool set_read_only(const char* path, bool on) {
    if (!check_path(path) || meets_fault(FaultPoint::CHANGE)) return false;
    const PathAt at{.full = path};
    struct stat status;
    if (!stat_at(at, status)) return false;
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return fail(Failure::NOT_REGULAR);
    constexpr mode_t all_write = S_IWUSR | S_IWGRP | S_IWOTH;
    const mode_t old = status.st_mode & 07777;
    const mode_t changed = on ? old & ~all_write : old | S_IWUSR;
    if (changed == old) return true;
    const auto change = [&](int directory, const char* text) { return ::fchmodat(directory, text, changed, 0); };
    return call_at(at, change) == 0 || fail_os(errno);
}

bool File::set_times(std::int64_t time, bool all) {
    const timespec value = from_file_time(time);
    const timespec times[2] = {all ? value : timespec{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, value};
    return ::futimens(static_cast<int>(state_.handle), times) == 0 || fail_os(errno);
}

}  // namespace platform

#include "engine/platform/posix/system.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace platform {
namespace {

constexpr std::int64_t seconds_from_1601_to_1970 = 11'644'473'600;

using enum Failure;
/// A failure, and the codes that mean it.
struct Meaning {
    Failure failure;
    std::initializer_list<int> codes;
};

/// The first code of each stands for it. EBADF: the descriptor is open, but not for this. ENXIO: a socket, or a
/// pipe that nobody reads. ESTALE: of a network's file system.
constexpr Meaning meanings[] = {
    {NOT_FOUND, {ENOENT, ENOTDIR, ELOOP}},
    {ACCESS_DENIED, {EACCES, EPERM, EBADF}},
    {IN_USE, {EBUSY, ETXTBSY, EWOULDBLOCK}},
    {ALREADY_EXISTS, {EEXIST}},
    {NOT_EMPTY, {ENOTEMPTY}},
    {DISK_FULL, {ENOSPC, EDQUOT, EFBIG}},
    {PATH_TOO_LONG, {ENAMETOOLONG}},
    {NOT_REGULAR, {EISDIR, ENXIO, ENODEV}},
    {READ_ONLY, {EROFS}},
    {OUT_OF_MEMORY, {ENOMEM, ENOBUFS}},
    {TOO_MANY_FILES, {EMFILE, ENFILE}},
    {IO, {EIO, ESTALE}},
};

}  // namespace

Failure failure_of(int os_code) {
    for (const auto& [failure, codes] : meanings)
        if (std::ranges::find(codes, os_code) != codes.end()) return failure;
    return OTHER;
}

int os_code_of(Failure failure) {
    const auto* const found = std::ranges::find(meanings, failure, &Meaning::failure);
    return found != std::end(meanings) ? *found->codes.begin() : EIO;
}

bool fail_os(int os_code) { return fail(failure_of(os_code), os_code); }

std::int64_t to_file_time(const timespec& time) {
    return (time.tv_sec + seconds_from_1601_to_1970) * ticks_per_second + time.tv_nsec / 100;
}

timespec from_file_time(std::int64_t time) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(Ticks(time));
    return {.tv_sec = static_cast<time_t>(whole.count() - seconds_from_1601_to_1970),
            .tv_nsec = static_cast<long>((Ticks(time) - whole).count() * 100)};
}

}  // namespace platform

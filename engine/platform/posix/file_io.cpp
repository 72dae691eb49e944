#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "engine/platform/faults.h"
#include "engine/platform/files.h"
#include "engine/platform/posix/system_error.h"

/// Reads here complete at once, so the record only carries the outcome to wait_overlapped.
struct SNativeOverlapped {
    std::uint64_t offset = 0;
    std::uint32_t transferred = 0;
    int status = 1;
};

namespace platform {
namespace {

constexpr std::uint64_t all_ones = ~std::uint64_t{0};
constexpr std::uint64_t largest_position = 0x7FFFFFFFFFFFFFFF;
constexpr std::uint64_t largest_step = 0x40000000;  // the kernel moves at most 2 GiB less a page in one call

int number_of(std::intptr_t handle) { return static_cast<int>(handle); }

std::uint64_t no_handle() {
    fail(Failure::INVALID_HANDLE);
    return all_ones;
}

/// Moves `size` bytes in as many calls as it takes. `step(done, count)` makes one system call. Ends early at the end of
/// the file (0 bytes), at a failure, and after a piece that is no multiple of `alignment`, since only the end of a file
/// gives one of those.
template <class Step>
std::uint64_t move_all(std::uint64_t size, std::uint32_t alignment, Step step) {
    std::uint64_t done = 0;
    while (done < size) {
        const std::size_t count = std::min(size - done, largest_step);
        const auto moved = retry_interrupted([&] { return step(done, count); });
        if (moved < 0) {
            fail_os(errno);
            return done > 0 ? done : all_ones;
        }
        done += static_cast<std::uint64_t>(moved);
        if (moved == 0 || done % alignment != 0) break;
    }
    return done;
}

/// Applies an ordered fault: false when the call has to fail, or `size` is halved.
bool pass_fault(FaultPoint point, std::uint64_t& size) {
    const auto fault = fault_at(point);
    if (!fault) return true;
    if (*fault != Failure::NONE) return fail(*fault);
    size /= 2;
    return true;
}

std::uint64_t read_positioned(int descriptor, std::uint32_t alignment, void* buffer, std::uint64_t size,
                              std::uint64_t offset) {
    if (!pass_fault(FaultPoint::READ, size)) return all_ones;
    return move_all(size, alignment, [&](std::uint64_t done, std::size_t count) {
        return ::pread(descriptor, static_cast<char*>(buffer) + done, count, static_cast<off_t>(offset + done));
    });
}

}  // namespace

std::uint64_t File::read(void* buffer, std::uint64_t size) {
    if (!valid()) return no_handle();
    const std::uint64_t moved = read_positioned(number_of(handle_), alignment_, buffer, size, position_);
    if (moved != all_ones) position_ += moved;
    return moved;
}

std::uint64_t File::write(const void* buffer, std::uint64_t size) {
    if (!valid()) return no_handle();
    if (!pass_fault(FaultPoint::WRITE, size)) return all_ones;
    const std::uint64_t moved = move_all(size, 1, [&](std::uint64_t done, std::size_t count) {
        const char* const from = static_cast<const char*>(buffer) + done;
        return ::pwrite(number_of(handle_), from, count, static_cast<off_t>(position_ + done));
    });
    if (moved != all_ones) position_ += moved;
    return moved;
}

std::uint64_t File::read_at(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    if (!valid()) return no_handle();
    return read_positioned(number_of(handle_), alignment_, buffer, size, offset);
}

// The position is ours: seeking costs no call of the kernel, and reading behind a seek costs one.
bool File::seek(std::int64_t offset, Origin origin) {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    std::uint64_t base = 0;
    if (origin == Origin::CURRENT) base = position_;
    if (origin == Origin::END && (base = length()) == all_ones) return false;
    const std::uint64_t target = base + static_cast<std::uint64_t>(offset);  // wraps where it cannot be a position
    if (target > largest_position) return fail_os(EINVAL);
    position_ = target;
    return true;
}

std::uint64_t File::tell() const { return valid() ? position_ : no_handle(); }

std::uint64_t File::length() const {
    if (!valid()) return no_handle();
    struct stat status;
    if (::fstat(number_of(handle_), &status) == 0) return static_cast<std::uint64_t>(status.st_size);
    fail_os(errno);
    return all_ones;
}

bool File::set_end() {
    if (const auto fault = fault_at(FaultPoint::SET_END)) return fail(*fault);
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    const int result =
        retry_interrupted([&] { return ::ftruncate(number_of(handle_), static_cast<off_t>(position_)); });
    if (result == 0) return true;
    // What ftruncate calls invalid is a descriptor that was not opened for writing.
    return errno == EINVAL ? fail(Failure::ACCESS_DENIED, EINVAL) : fail_os(errno);
}

bool File::sync() {
    if (!valid()) return fail(Failure::INVALID_HANDLE);
    return retry_interrupted([&] { return ::fsync(number_of(handle_)); }) == 0 || fail_os(errno);
}

int File::read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred, SNativeOverlapped* overlapped) {
    constexpr int done = 1;
    constexpr int failed = 2;
    overlapped->transferred = 0;
    overlapped->status = failed;
    const std::uint64_t moved = read_at(buffer, size, overlapped->offset);
    // A read that begins at the end of the file is a failure, as it is elsewhere.
    if (moved == 0 && size > 0) fail(Failure::OTHER);
    if (moved != all_ones && (moved > 0 || size == 0)) {
        overlapped->transferred = static_cast<std::uint32_t>(moved);
        overlapped->status = done;
    }
    if (transferred != nullptr) *transferred = overlapped->transferred;
    return overlapped->status;
}

bool File::cancel() { return valid() || fail(Failure::INVALID_HANDLE); }

int File::duplicate_descriptor(bool /*for_writing*/) const {
    if (!valid()) {
        fail(Failure::INVALID_HANDLE);
        return -1;
    }
    const int copy = ::fcntl(number_of(handle_), F_DUPFD_CLOEXEC, 0);
    if (copy < 0) fail_os(errno);
    if (copy >= 0) ::lseek(copy, static_cast<off_t>(position_), SEEK_SET);
    return copy;
}

void close_descriptor(int descriptor) { ::close(descriptor); }

SNativeOverlapped* create_overlapped() { return new (std::nothrow) SNativeOverlapped; }

void destroy_overlapped(SNativeOverlapped* overlapped) { delete overlapped; }

void set_overlapped_offset(SNativeOverlapped* overlapped, std::uint64_t offset) { overlapped->offset = offset; }

int wait_overlapped(const File& /*file*/, SNativeOverlapped* overlapped, std::uint32_t* transferred) {
    if (transferred != nullptr) *transferred = overlapped->transferred;
    return overlapped->status;
}

}  // namespace platform

#include <new>

#include "engine/platform/fail.h"
#include "engine/platform/files.h"

/// Reads here complete at once, so the record only carries the outcome to wait_overlapped.
struct SNativeOverlapped {
    std::uint64_t offset = 0;
    std::uint32_t transferred = 0;
    int status = 1;
};

namespace platform {

int File::read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred, SNativeOverlapped* overlapped) {
    constexpr int done = 1;
    constexpr int failed = 2;
    constexpr int aborted = 3;
    overlapped->transferred = 0;
    const std::uint64_t moved = read_at(buffer, size, overlapped->offset);
    if (moved == ~std::uint64_t{0}) {
        overlapped->status = last_error().failure == Failure::ABORTED ? aborted : failed;
    } else if (moved == 0 && size > 0) {
        fail(Failure::OTHER);  // a read that begins at the end of the file is a failure, as it is elsewhere
        overlapped->status = failed;
    } else {
        overlapped->transferred = static_cast<std::uint32_t>(moved);
        overlapped->status = done;
    }
    if (transferred != nullptr) *transferred = overlapped->transferred;
    return overlapped->status;
}

bool File::cancel() { return valid() || fail(Failure::INVALID_HANDLE); }

SNativeOverlapped* create_overlapped() { return new (std::nothrow) SNativeOverlapped; }

void destroy_overlapped(SNativeOverlapped* overlapped) { delete overlapped; }

void set_overlapped_offset(SNativeOverlapped* overlapped, std::uint64_t offset) { overlapped->offset = offset; }

int wait_overlapped(const File& /*file*/, SNativeOverlapped* overlapped, std::uint32_t* transferred) {
    if (transferred != nullptr) *transferred = overlapped->transferred;
    return overlapped->status;
}

}  // namespace platform

#include "engine/platform/mapping.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "engine/platform/fail.h"
#include "engine/platform/files.h"
#include "engine/platform/posix/system_error.h"

namespace platform {

Mapping::Mapping(const File& file, std::uint64_t offset, std::uint64_t size) {
    if (meets_fault(FaultPoint::READ)) return;
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    skip_ = static_cast<std::size_t>(offset % page);
    length_ = static_cast<std::size_t>(size) + skip_;
    void* const start = ::mmap(nullptr, length_, PROT_READ, MAP_SHARED, static_cast<int>(file.native()),
                               static_cast<off_t>(offset - skip_));
    if (start == MAP_FAILED)
        fail_os(errno);
    else
        start_ = start;
}

bool Mapping::Populate() const {
#ifdef MADV_POPULATE_READ
    if (::madvise(start_, length_, MADV_POPULATE_READ) == 0) return true;
    return fail(errno == EINVAL ? Failure::OTHER : Failure::IO, errno);
#else
    return fail(Failure::OTHER);
#endif
}

void Mapping::Unmap() {
    if (start_ != nullptr) ::munmap(start_, length_);
    start_ = nullptr;
}

}  // namespace platform

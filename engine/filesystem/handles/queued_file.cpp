#include "engine/filesystem/handles/queued_file.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "engine/filesystem/contract/failure.h"

namespace {

constexpr std::uint64_t largest_bounce = 1u << 20;

constexpr std::uint64_t round_up(std::uint64_t size, std::uint64_t alignment) {
    return (size + alignment - 1) / alignment * alignment;
}

struct AlignedFree {
    std::align_val_t alignment;
    void operator()(char* memory) const { ::operator delete(memory, alignment); }
};

/// One piece by way of an aligned buffer; answers as File::read_at.
std::uint64_t read_bounced(const platform::File& file, char* bounce, void* buffer, std::uint64_t size,
                           std::uint64_t offset) {
    const std::uint64_t skip = offset % file.alignment();
    const std::uint64_t wanted = std::min(size, largest_bounce);
    const std::uint64_t got = file.read_at(bounce, round_up(skip + wanted, file.alignment()), offset - skip);
    if (got == fs::failed_size || got <= skip) return got == fs::failed_size ? fs::failed_size : 0;
    const std::uint64_t piece = std::min(got - skip, wanted);
    std::memcpy(buffer, bounce + skip, static_cast<std::size_t>(piece));
    return piece;
}

}  // namespace

/// An unbuffered file takes only reads that are aligned as the system wants it; others go by way of a buffer that is.
QueuedFile::Status QueuedFile::Read(void* buffer, std::uint64_t offset, std::uint64_t size) const {
    if (buffer == nullptr) return Status::FAILED;
    const std::uint64_t unaligned = reinterpret_cast<std::uintptr_t>(buffer) | offset | size;
    const bool is_bounced = (unaligned & (file.alignment() - 1)) != 0;
    // A piece may begin inside a block of the disk and end in another.
    const std::uint64_t room = round_up(std::min(size, largest_bounce), file.alignment()) + file.alignment();
    const std::align_val_t alignment{file.alignment()};
    void* const memory = is_bounced ? ::operator new(room, alignment, std::nothrow) : nullptr;
    const std::unique_ptr<char, AlignedFree> bounce(static_cast<char*>(memory), AlignedFree{alignment});
    if (is_bounced && bounce == nullptr) return Status::FAILED;
    for (std::uint64_t done = 0; done < size;) {
        char* const to = static_cast<char*>(buffer) + done;
        const std::uint64_t got = is_bounced ? read_bounced(file, bounce.get(), to, size - done, offset + done)
                                             : file.read_at(to, size - done, offset + done);
        if (got == fs::failed_size || got == 0) {
            if (done != 0 && offset + done >= length) break;
            const bool is_aborted = got != 0 && platform::last_error().failure == platform::Failure::ABORTED;
            return is_aborted ? Status::ABORTED : Status::FAILED;
        }
        done += got;
    }
    return Status::DONE;
}

#include "engine/filesystem/handles/queued_file.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "engine/filesystem/contract/error.h"

namespace {

constexpr std::uint64_t largest_bounce = 1u << 20;

constexpr std::uint64_t round_up(std::uint64_t size, std::uint64_t alignment) {
    return (size + alignment - 1) / alignment * alignment;
}

struct AlignedFree {
    std::align_val_t alignment;
    void operator()(void* memory) const { ::operator delete(memory, alignment); }
};

}  // namespace

/// Whether an unbuffered file cannot take this read as it is, because it is not aligned as the system wants it.
bool QueuedFile::NeedsBounce(const void* buffer, std::uint64_t offset, std::uint64_t size) const {
    const std::uint64_t mask = file.alignment() - 1;
    return ((reinterpret_cast<std::uintptr_t>(buffer) | offset | size) & mask) != 0;
}

QueuedFile::Status QueuedFile::Read(void* buffer, std::uint64_t offset, std::uint64_t size) const {
    if (buffer == nullptr) return Status::FAILED;
    if (!NeedsBounce(buffer, offset, size)) return ReadPieces(buffer, offset, size, nullptr);
    // A piece may begin inside a block of the disk and end in another.
    const std::align_val_t alignment{file.alignment()};
    const std::uint64_t room = round_up(std::min(size, largest_bounce), file.alignment()) + file.alignment();
    const std::unique_ptr<char, AlignedFree> bounce(static_cast<char*>(::operator new(room, alignment, std::nothrow)),
                                                    AlignedFree{alignment});
    return bounce == nullptr ? Status::FAILED : ReadPieces(buffer, offset, size, bounce.get());
}

QueuedFile::Status QueuedFile::ReadPieces(void* buffer, std::uint64_t offset, std::uint64_t size, char* bounce) const {
    std::uint64_t done = 0;
    while (done < size) {
        char* const to = static_cast<char*>(buffer) + done;
        const std::uint64_t got = bounce != nullptr ? ReadBounced(bounce, to, offset + done, size - done)
                                                    : file.read_at(to, size - done, offset + done);
        if (got != fs::failed_size && got != 0) {
            done += got;
            continue;
        }
        if (done != 0 && offset + done >= length) break;
        const bool aborted = got == fs::failed_size && platform::last_error().failure == platform::Failure::ABORTED;
        return aborted ? Status::ABORTED : Status::FAILED;
    }
    return Status::DONE;
}

/// One piece by way of the aligned buffer; answers as File::read_at.
std::uint64_t QueuedFile::ReadBounced(char* bounce, void* buffer, std::uint64_t offset, std::uint64_t size) const {
    const std::uint64_t skip = offset % file.alignment();
    const std::uint64_t wanted = std::min(size, largest_bounce);
    const std::uint64_t got = file.read_at(bounce, round_up(skip + wanted, file.alignment()), offset - skip);
    if (got == fs::failed_size || got <= skip) return got == fs::failed_size ? fs::failed_size : 0;
    const std::uint64_t piece = std::min(got - skip, wanted);
    std::memcpy(buffer, bounce + skip, static_cast<std::size_t>(piece));
    return piece;
}

#pragma once

#include <cstdint>
#include <string>

#include "engine/platform/files.h"

/// The native file behind an asynchronous handle, as the read queue sees it. Reads change nothing in it, so that any number
/// of threads may read at once.
struct QueuedFile {
    enum class Status : std::uint8_t { DONE, FAILED, ABORTED };

    /// Reads at `offset`. A file that ends early ends the read; one that ends before the offset fails it.
    Status Read(void* buffer, std::uint64_t offset, std::uint64_t size) const;

    platform::File file{};
    std::uint64_t length = 0;  // asked for once, at opening
    std::string native_path;

private:
    bool NeedsBounce(const void* buffer, std::uint64_t offset, std::uint64_t size) const;
    Status ReadPieces(void* buffer, std::uint64_t offset, std::uint64_t size, char* bounce) const;
    std::uint64_t ReadBounced(char* bounce, void* buffer, std::uint64_t offset, std::uint64_t size) const;
};

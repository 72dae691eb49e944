#pragma once

#include <cstdint>
#include <string>

#include "engine/platform/files.h"

/// The native file behind an asynchronous handle, as the read queue sees it. Reads change nothing in it, so that any number
/// of threads may read at once.
struct QueuedFile {
    enum class Status : std::uint8_t { DONE, FAILED, ABORTED };

    /// Reads at once. A file that ends early ends the read; one that ends before the offset fails it.
    Status Read(void* buffer, std::uint64_t offset, std::uint64_t size) const;
    const char* Path() const { return native_path.c_str(); }

    std::string native_path;
    platform::File file{};
    std::uint64_t length = 0;  // asked for once, at opening
};

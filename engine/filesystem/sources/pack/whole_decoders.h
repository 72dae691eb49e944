#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/platform/threads.h"

namespace fs {

class PackStore;
struct PackedData;

/// Decodes whole entries in one call, straight from the packed bytes into the caller's buffer, the fastest way there is.
/// Decoders and their buffers are kept for the next entry.
/// Threads  any number at once.
class WholeDecoders {
public:
    WholeDecoders();  // may throw std::bad_alloc
    ~WholeDecoders();
    WholeDecoders(const WholeDecoders&) = delete;
    WholeDecoders& operator=(const WholeDecoders&) = delete;

    /// Decodes a compressed entry. False when it is damaged, not of its recorded size, or too large for this: the caller
    /// then goes by blocks. May throw std::bad_alloc.
    bool decode(const PackStore& store, const PackedData& data, std::uint8_t* buffer);

private:
    struct Worker;

    std::unique_ptr<Worker> take();
    void give_back(std::unique_ptr<Worker> worker);

    platform::Mutex lock_;
    std::vector<std::unique_ptr<Worker>> idle_ ENGINE_GUARDED_BY(lock_);
};

}  // namespace fs

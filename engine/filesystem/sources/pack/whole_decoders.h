#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace fs {

class PackArchive;
struct PackedData;

/// Inflates whole entries in one call, straight from the packed bytes into the caller's buffer, several times faster
/// than by blocks. Decoders and their buffers are kept for the next entry.
/// Threads  any number at once.
class WholeDecoders {
public:
    WholeDecoders();
    ~WholeDecoders();
    WholeDecoders(const WholeDecoders&) = delete;
    WholeDecoders& operator=(const WholeDecoders&) = delete;

    /// Decodes a deflated entry. False when it is damaged, not of its recorded size, or too large for this, and where
    /// the library was built without the means: the caller then goes by blocks.
    bool decode(const PackArchive& archive, const PackedData& data, std::uint8_t* buffer);

private:
    struct Decoder;

    std::unique_ptr<Decoder> take();
    void give_back(std::unique_ptr<Decoder> decoder);

    std::mutex lock_;  // guards idle_
    std::vector<std::unique_ptr<Decoder>> idle_;
};

}  // namespace fs

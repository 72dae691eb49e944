#include "engine/kernel/checksum.h"

#if ENGINE_HAS_LIBDEFLATE
#include <libdeflate.h>
#else
#include <zlib.h>
#endif

namespace kernel {

std::uint32_t crc32(std::uint32_t crc, const void* data, std::size_t size) {
    if (size == 0) return crc;
#if ENGINE_HAS_LIBDEFLATE
    return libdeflate_crc32(crc, data, size);
#else
    return static_cast<std::uint32_t>(crc32_z(crc, static_cast<const unsigned char*>(data), size));
#endif
}

}  // namespace kernel

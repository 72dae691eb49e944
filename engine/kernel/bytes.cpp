// CRC-32 by the fastest library that there is: ISA-L's is four times as fast as libdeflate's where the processor has wide
// vectors.
#include "engine/kernel/bytes.h"

#if ENGINE_HAS_ISAL
#include <crc.h>
#elif ENGINE_HAS_LIBDEFLATE
#include <libdeflate.h>
#else
#include <zlib.h>
#endif

namespace kernel {

std::uint32_t crc32(std::uint32_t crc, const void* data, std::size_t size) {
    if (size == 0) return crc;
#if ENGINE_HAS_ISAL
    return crc32_gzip_refl(crc, static_cast<const unsigned char*>(data), size);
#elif ENGINE_HAS_LIBDEFLATE
    return libdeflate_crc32(crc, data, size);
#else
    return static_cast<std::uint32_t>(crc32_z(crc, static_cast<const unsigned char*>(data), size));
#endif
}

}  // namespace kernel

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <engine/filesystem/containers/pack_writer.h>
#include <engine/filesystem/contract/error.h>

#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/zstd.h"

namespace fs {

/// What an entry's bytes become: the one place that chooses between methods.
class EntryPacker {
public:
    /// The method that was chosen, and in `packed` the bytes; these are left empty when the entry is stored as it is.
    /// Throws StoredFailure, told of `name`, for what cannot be packed so.
    EFSPackMethod::TYPE pack(const char* name, const void* data, std::uint64_t size, const SFsPacking& how,
                             std::vector<std::uint8_t>& packed);

private:
    const std::unique_ptr<Compressor> deflate_ = make_deflater();
    const std::unique_ptr<Compressor> zstd_ = make_zstd_compressor();  // null where the library was built without it
};

/// Stores the failure of what writes packs, and answers false.
bool fail_to_pack(EFSError::TYPE code, const char* name, const std::string& what);

}  // namespace fs

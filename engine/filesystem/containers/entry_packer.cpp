#include "engine/filesystem/containers/entry_packer.h"

#include <algorithm>
#include <utility>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/formats/zip.h"
#include "engine/kernel/bytes.h"

namespace fs {

namespace {

constexpr std::uint64_t most_stored = 32768;  // a pack source keeps two blocks of this; a longer entry is sought in

/// "" when an entry of this size may be packed so.
std::string why_not(const void* data, std::uint64_t size, const SFsPacking& how, EFSError::TYPE& code) {
    const bool is_zstd = how.method == EFSPackMethod::ZSTD;
    const int most = is_zstd ? 22 : 12;
    code = EFSError::INVALID_ARGUMENT;
    if (!data && size != 0) return "was given no data";
    if (how.method != EFSPackMethod::STORE && how.method != EFSPackMethod::DEFLATE && !is_zstd)
        return "knows no such method";
    if (how.level < 0 || (how.level > most && how.method != EFSPackMethod::STORE))
        return "takes levels from 0 to " + std::to_string(most) + " by this method";
    if (how.worth < 0 || how.worth > 100) return "takes from 0 to 100 percent that packing must save";
    code = EFSError::TOO_LARGE;
    if (size > zip::most_bytes) return "takes no entry of 4 GiB or more";
    code = EFSError::UNSUPPORTED;
    return is_zstd && !has_zstd() ? "was built without zstd" : "";
}

}  // namespace

bool fail_to_pack(EFSError::TYPE code, const char* name, const std::string& what) {
    set_error(code, name, "The pack writer " + what + ".");
    return false;
}

EFSPackMethod::TYPE EntryPacker::pack(const char* name, const void* data, std::uint64_t size, const SFsPacking& how,
                                      std::vector<std::uint8_t>& packed) {
    EFSError::TYPE code{};
    if (const std::string reason = why_not(data, size, how, code); !reason.empty()) {
        fail_to_pack(code, name, reason);
        throw StoredFailure();
    }
    packed.clear();
    if (how.method == EFSPackMethod::STORE || how.level == 0 || size == 0) return EFSPackMethod::STORE;
    const std::uint64_t most = std::min(size * static_cast<std::uint64_t>(100 - how.worth) / 100, size - 1);
    Compressor& compressor = how.method == EFSPackMethod::ZSTD ? *zstd_ : *deflate_;
    const auto bytes = static_cast<std::size_t>(size);
    packed = compressor.compress(data, bytes, how.level, static_cast<std::size_t>(most));
    if (!packed.empty()) return how.method;
    if (size <= most_stored || size_deflated_by_copying(size) > zip::most_bytes) return EFSPackMethod::STORE;
    packed = deflate_by_copying(data, bytes);
    return EFSPackMethod::DEFLATE;
}

entry_packer::entry_packer() = default;
entry_packer::~entry_packer() = default;

bool entry_packer::pack(const void* data, std::uint64_t size, const SFsPacking& how, SFsPackedEntry& out) {
    return guarded("", false, [&] {
        if (!state_) state_ = std::make_unique<EntryPacker>();
        SFsPackedEntry entry{.bytes = {}, .size = size};
        entry.method = state_->pack("", data, size, how, entry.bytes);
        entry.crc = kernel::crc32(0, data, static_cast<std::size_t>(size));
        const auto* plain = static_cast<const std::uint8_t*>(data);
        if (entry.method == EFSPackMethod::STORE) entry.bytes.assign(plain, plain + size);
        out = std::move(entry);
        return true;
    });
}

}  // namespace fs

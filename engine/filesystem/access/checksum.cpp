#include <algorithm>

#include <engine/filesystem/access/manage.h>

#include "engine/filesystem/access/parts.h"
#include "engine/kernel/bytes.h"

namespace fs {

namespace {

constexpr std::uint32_t default_buffer_size = 256 * 1024;

bool may_go_on(const CrcCalcArgs& args, std::uint64_t done, std::uint64_t total) {
    if (args.progress == nullptr || args.progress(done, total, args.user)) return true;
    return refuse(EFSError::CANCELLED, args.path, "The caller stopped the checksum.");
}

bool add_content(SFsFile& file, std::uint64_t length, CrcCalcArgs& args) {
    const std::uint32_t wanted = args.buffer_size != 0 ? args.buffer_size : default_buffer_size;
    const std::uint64_t piece = std::min<std::uint64_t>(wanted, length);
    const PieceBuffer buffer(piece);
    const ErrorScope scope;  // an entry of a pack gives all its bytes and is damaged all the same
    while (args.size < length) {
        const std::uint64_t size = std::min(piece, length - args.size);
        if (!read_checked(file, args.path, buffer.data(), size) || scope.has_error()) return false;
        args.crc = kernel::crc32(args.crc, buffer.data(), static_cast<std::size_t>(size));
        args.size += size;
        if (!may_go_on(args, args.size, length)) return false;
    }
    return true;
}

}  // namespace

bool calc_file_crc(CrcCalcArgs& args) {
    args.crc = 0;
    args.size = 0;
    const auto use = [&](SFsFile& file, std::uint64_t length) { return add_content(file, length, args); };
    const bool whole = with_content(args.path, false, use, args.flags);
    if (whole) return true;
    args.crc = 0;
    args.size = 0;
    return false;
}

bool calc_file_crc(const char* path, std::uint32_t& crc) {
    CrcCalcArgs args;
    args.path = path;
    const bool whole = calc_file_crc(args);
    crc = args.crc;
    return whole;
}

}  // namespace fs

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/access/whole_file.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/c_interface/call.h"

namespace {

using namespace fs::c;
using Block = std::unique_ptr<void, fs::FreeBlock>;

constexpr std::uint64_t first_piece = std::uint64_t{64} * 1024;  // of a file that does not tell its length

/// For this many bytes and the zero behind them.
void resize(Block& block, std::uint64_t size) {
    void* const larger = size < SIZE_MAX ? std::realloc(block.get(), static_cast<std::size_t>(size) + 1) : nullptr;
    if (larger == nullptr) throw std::bad_alloc();
    static_cast<void>(block.release());
    block.reset(larger);
}

/// All that the file gives. Null, with the failure stored, unless that is the whole of it as it should be.
Block read_whole(SFsFile& file, const char* path, std::uint64_t& size) {
    const fs::ErrorScope scope;
    const std::uint64_t length = file.length();
    const bool is_known = length != fs::no_length;
    std::uint64_t room = is_known ? length : first_piece;
    Block block;
    for (size = 0;; room *= 2) {
        resize(block, room);
        const std::uint64_t got = file.read(static_cast<char*>(block.get()) + size, room - size);
        if (scope.has_error() || got > room - size) return nullptr;
        size += got;
        if (is_known || size < room) break;
    }
    if (is_known && size != length) {
        fs::set_error(EFSError::IO, path, "The file gave fewer bytes than its length promised.");
        return nullptr;
    }
    static_cast<char*>(block.get())[size] = '\0';
    return block;
}

}  // namespace

void* enginefs_load(const char* path, uint32_t flags, uint64_t* size) {
    if (size != nullptr) *size = 0;
    return fs::guarded<void*>(path, nullptr, [&]() -> void* {
        if (!is_name(path, flags)) return nullptr;
        const fs::FilePtr file(fs::open(path, EFSMode::READ, as_open_flags(flags)));
        if (!file) return nullptr;
        std::uint64_t length = 0;
        Block block = read_whole(*file, path, length);
        if (block && size != nullptr) *size = length;
        return block.release();
    });
}

int enginefs_save(const char* path, const void* data, uint64_t size, uint32_t flags) {
    return status(path, [&] {
        return is_name(path, flags) && is_new_name(path) && is_block(data, size) &&
               fs::save_binary_file(data, size, path, as_open_flags(flags));
    });
}

int enginefs_crc(const char* path, uint32_t flags, uint32_t* out) {
    return status(path, [&] {
        fs::CrcCalcArgs args;
        args.path = path;
        args.flags = as_open_flags(flags);
        if (!is_name(path, flags) || !are_given({out}) || !fs::calc_file_crc(args)) return false;
        *out = args.crc;
        return true;
    });
}

#include "engine/filesystem/sources/pack/archive.h"

#include <atomic>
#include <new>
#include <string>
#include <utility>

#include <engine/filesystem/contract/names.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/formats/zip.h"
#include "engine/filesystem/formats/zstd.h"
#include "engine/filesystem/sources/pack/directory.h"

namespace fs {

namespace {

std::uint32_t state_of(PackEntry& entry) {
    return std::atomic_ref<std::uint32_t>(entry.state).load(std::memory_order_relaxed);
}

bool is_zip64(const PackEntry& entry) {
    return entry.size == zip::in_zip64_field || entry.packed_size == zip::in_zip64_field ||
           entry.header_offset == zip::in_zip64_field;
}

std::uint32_t method_bits(std::uint16_t method) {
    if (method == EFSPackMethod::STORE) return PackEntry::stored;
    return method == EFSPackMethod::ZSTD ? PackEntry::zstd : 0;
}

}  // namespace

std::shared_ptr<PackArchive> PackArchive::mount(const char* native_path, bool in_memory) {
    auto archive = std::make_shared<PackArchive>();
    PackDirectory directory;
    if (!archive->store_.open(native_path, in_memory)) return nullptr;
    if (!read_pack_directory(archive->store_, directory)) return nullptr;
    archive->table_.build(std::move(directory));
    return archive;
}

void PackArchive::fill_tree(dir& tree) const {
    std::string path;
    for (const std::string_view directory : table_.directories()) {
        path.assign(directory.substr(0, directory.size() - 1));
        if (!tree.add_path(path.c_str())) throw std::bad_alloc();
    }
}

bool PackArchive::locate(std::uint32_t index) {
    PackEntry& entry = table_.entry(index);
    if ((state_of(entry) & PackEntry::located) != 0) return true;
    const auto refuse_entry = [&](EFSError::TYPE code, const char* reason) {
        return refuse(code, full_name(index).c_str(), reason);
    };
    if (is_zip64(entry)) return refuse_entry(EFSError::UNSUPPORTED, "The entry of the pack is in zip64 form.");
    std::uint8_t bytes[zip::local_header_size];
    const std::uint64_t got = store_.read(entry.header_offset, bytes, sizeof bytes);
    if (got == PackStore::failed) return false;
    if (got != sizeof bytes)
        return refuse_entry(EFSError::BAD_FORMAT, "The pack ends before the local header of the entry.");
    const zip::LocalHeader header = zip::read_local_header(bytes);
    if (header.method == EFSPackMethod::ZSTD && !has_zstd())
        return refuse_entry(EFSError::UNSUPPORTED,
                            "The entry is packed by zstd, which this library was built without.");
    // Two threads may both come here; they read the same header and set the same bits.
    std::atomic_ref<std::uint32_t>(entry.state)
        .fetch_or(PackEntry::located | method_bits(header.method) | header.texts_size, std::memory_order_relaxed);
    return true;
}

PackedData PackArchive::data_of(std::uint32_t index) {
    PackEntry& entry = table_.entry(index);
    const std::uint32_t state = state_of(entry);
    PackedData data{
        .offset = std::uint64_t{entry.header_offset} + zip::local_header_size + (state & PackEntry::texts_mask),
        .packed_size = entry.packed_size,
        .size = entry.size};
    if ((state & PackEntry::stored) != 0) data.method = EFSPackMethod::STORE;
    if ((state & PackEntry::zstd) != 0) data.method = EFSPackMethod::ZSTD;
    return data;
}

}  // namespace fs

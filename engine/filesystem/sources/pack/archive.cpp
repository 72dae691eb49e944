#include "engine/filesystem/sources/pack/archive.h"

#include <atomic>
#include <new>
#include <string>
#include <utility>

#include <engine/filesystem/contract/names.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/pack/bytes.h"
#include "engine/filesystem/sources/pack/directory.h"

namespace fs {

namespace {

constexpr std::uint32_t local_header_size = 30;

std::uint32_t state_of(PackEntry& entry) {
    return std::atomic_ref<std::uint32_t>(entry.state).load(std::memory_order_relaxed);
}

}  // namespace

std::shared_ptr<PackArchive> PackArchive::mount(const char* native_path, bool in_memory) {
    try {
        auto archive = std::make_shared<PackArchive>();
        if (!archive->store_.open(native_path, in_memory)) return nullptr;
        if (!archive->read_directory(native_path)) return nullptr;
        return archive;
    } catch (const std::bad_alloc&) {
        set_error(EFSError::OUT_OF_MEMORY, native_path, "The pack source has no memory for the pack's directory.");
        return nullptr;
    }
}

bool PackArchive::read_directory(const char* native_path) {
    PackDirectory directory;
    if (!read_pack_directory(store_, native_path, directory)) return false;
    table_.build(std::move(directory));
    return true;
}

bool PackArchive::fill_tree(dir& tree) const {
    try {
        std::string path;
        for (const std::string_view directory : table_.directories()) {
            path.assign(directory.substr(0, directory.size() - 1));
            if (!tree.add_path(path.c_str())) return false;
        }
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool PackArchive::locate(std::uint32_t index) {
    PackEntry& entry = table_.entry(index);
    if ((state_of(entry) & PackEntry::located) != 0) return true;
    std::uint8_t header[local_header_size];
    if (store_.read(entry.header_offset, header, local_header_size) != local_header_size) {
        const std::string name = std::string(table_.dir(index)).append(table_.name(index));
        set_error(EFSError::BAD_FORMAT, name.c_str(), "The pack source cannot read the local header of the entry.");
        return false;
    }
    const std::uint32_t texts = std::uint32_t{get_u16(header + 26)} + get_u16(header + 28);
    const std::uint32_t method = get_u16(header + 8) == 0 ? PackEntry::stored : 0;
    // Two threads may both come here; they read the same header and set the same bits.
    std::atomic_ref<std::uint32_t>(entry.state)
        .fetch_or(PackEntry::located | method | texts, std::memory_order_relaxed);
    return true;
}

PackedData PackArchive::data_of(std::uint32_t index) {
    PackEntry& entry = table_.entry(index);
    const std::uint32_t state = state_of(entry);
    return {.offset = std::uint64_t{entry.header_offset} + local_header_size + (state & PackEntry::texts_mask),
            .packed_size = entry.packed_size,
            .size = entry.size,
            .stored = (state & PackEntry::stored) != 0};
}

}  // namespace fs

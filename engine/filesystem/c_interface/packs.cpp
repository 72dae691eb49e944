#include <engine/filesystem/containers/pack_writer.h>

#include "engine/filesystem/c_interface/lists.h"

namespace {

using namespace fs::c;

bool is_method(int method) {
    return method == ENGINEFS_METHOD_STORE || method == ENGINEFS_METHOD_DEFLATE || method == ENGINEFS_METHOD_ZSTD ||
           refuse_argument("There is no such method.");
}

}  // namespace

enginefs_pack* enginefs_pack_create(const char* native_path) {
    return fs::guarded<enginefs_pack*>(native_path, nullptr, [&]() -> enginefs_pack* {
        if (!is_new_name(native_path)) return nullptr;
        auto pack = std::make_unique<fs::pack_writer>();
        return pack->open(native_path) ? give<enginefs_pack>(std::move(pack)) : nullptr;
    });
}

int enginefs_pack_add(enginefs_pack* pack, const char* name, const void* data, uint64_t size, int method, int level,
                      int64_t time) {
    return status_of(pack, [&](fs::pack_writer& writer) {
        return is_new_name(name) && is_block(data, size) && is_method(method) &&
               writer.add(name, data, size, level, time, static_cast<EFSPackMethod::TYPE>(method));
    });
}

int enginefs_pack_add_deflated(enginefs_pack* pack, const char* name, const void* packed, uint64_t packed_size,
                               uint64_t size, uint32_t crc, int64_t time) {
    return status_of(pack, [&](fs::pack_writer& writer) {
        return is_new_name(name) && is_block(packed, packed_size) &&
               writer.add_deflated(name, packed, packed_size, size, crc, time);
    });
}

int enginefs_pack_finish(enginefs_pack* pack) {
    return status_of_end(pack, [](fs::pack_writer& writer) { return writer.finish(); });
}

int enginefs_pack_cancel(enginefs_pack* pack) {
    return status_of_end(pack, [](fs::pack_writer& writer) { return writer.cancel(), true; });
}

enginefs_list* enginefs_pack_list(const char* native_path) {
    return make_list(native_path, [&](List& list) {
        if (!are_given({native_path}) || !fs::list_pack(native_path, list.entries)) return false;
        for (const SFsPackEntry& entry : list.entries) list.add(entry.name);
        return true;
    });
}

int enginefs_pack_entry_at(const enginefs_list* list, uint64_t index, enginefs_pack_entry* out) {
    return put_item(list, &List::entries, index, out, [](const SFsPackEntry& entry) {
        return enginefs_pack_entry{.struct_size = 0,
                                   .method = entry.method,
                                   .size = entry.size,
                                   .packed_size = entry.packed_size,
                                   .time = entry.time,
                                   .crc = entry.crc,
                                   .reserved = 0};
    });
}

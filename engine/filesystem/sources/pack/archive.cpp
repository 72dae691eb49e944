#include "engine/filesystem/sources/pack/archive.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <engine/filesystem/contract/names.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/formats/zip.h"
#include "engine/filesystem/formats/zstd.h"
#include "engine/platform/threads.h"

namespace fs {

namespace {

// An entry's state: the length of the local header's two texts, which takes 17 bits, the method that it tells, cut to 14
// bits by what no method is, and whether the header was read at all.
constexpr std::uint32_t texts_mask = 0x1FFFF;
constexpr std::uint32_t method_shift = 17;
constexpr std::uint32_t most_method = 0x3FFF;
constexpr std::uint32_t located = 1u << 31;

std::uint32_t state_of(PackEntry& entry) {
    return std::atomic_ref<std::uint32_t>(entry.state).load(std::memory_order_relaxed);
}

bool is_zip64(const PackEntry& entry) {
    return entry.size == zip::in_zip64_field || entry.packed_size == zip::in_zip64_field ||
           entry.header_offset == zip::in_zip64_field;
}

/// The packs that are in use: nobody can open their files once more, to list them say. Never destroyed, so that late
/// callers find it.
struct PacksInUse {
    platform::Mutex lock;                                                         // guards the packs
    std::vector<std::pair<std::string, std::weak_ptr<const PackArchive>>> packs;  // by their paths in normal form

    static PacksInUse& get() {
        static platform::NeverDestroyed<PacksInUse> instance;
        return instance.value;
    }
};

}  // namespace

std::shared_ptr<PackArchive> PackArchive::mount(PackStore store) {
    auto archive = std::make_shared<PackArchive>();
    archive->store_ = std::move(store);
    archive->table_ = read_table(archive->store_);
    PacksInUse& used = PacksInUse::get();
    const std::lock_guard guard(used.lock);
    std::erase_if(used.packs, [](const auto& pack) { return pack.second.expired(); });
    used.packs.emplace_back(NormalText(archive->store_.path().c_str(), false).c_str(), archive);
    return archive;
}

std::shared_ptr<const PackArchive> PackArchive::mounted_from(const char* path) {
    const NormalText wanted(path, false);
    PacksInUse& used = PacksInUse::get();
    const std::lock_guard guard(used.lock);
    for (auto pack = used.packs.rbegin(); pack != used.packs.rend(); ++pack) {
        if (pack->first == wanted.c_str() && !pack->second.expired()) return pack->second.lock();
    }
    return nullptr;
}

void PackArchive::fill_tree(dir& tree) const {
    const NameTable& names = table_.names;
    std::set<std::string_view> directories;
    for (std::uint32_t file = names.first(); file != NameTable::none; file = names.next(file)) {
        if (!names.dir(file).empty()) directories.insert(names.dir(file));
    }
    for (const std::string_view directory : directories) {
        if (!tree.add_path(std::string(directory.substr(0, directory.size() - 1)).c_str())) throw std::bad_alloc();
    }
}

bool PackArchive::open(std::uint32_t file) {
    if (is_zip64(table_.entry(file)))
        return refuse(EFSError::UNSUPPORTED, full_name(file).c_str(), "The entry of the pack is in zip64 form.");
    return store_.is_remote() || locate(file);
}

bool PackArchive::locate(std::uint32_t file) {
    PackEntry& entry = table_.entry(file);
    if ((state_of(entry) & located) != 0) return true;
    const auto refuse_entry = [&](EFSError::TYPE code, const char* reason) {
        return refuse(code, full_name(file).c_str(), reason);
    };
    std::uint8_t bytes[zip::local_header_size];
    store_.prefetch(entry.header_offset, sizeof bytes + std::uint64_t{entry.packed_size});
    const std::uint64_t got = store_.read(entry.header_offset, bytes, sizeof bytes);
    if (got == PackStore::failed) return false;
    if (got != sizeof bytes)
        return refuse_entry(EFSError::BAD_FORMAT, "The pack ends before the local header of the entry.");
    const zip::LocalHeader header = zip::read_local_header(bytes);
    if (header.method == EFSPackMethod::ZSTD && !has_zstd())
        return refuse_entry(EFSError::UNSUPPORTED,
                            "The entry is packed by zstd, which this library was built without.");
    // Two threads may both come here; they read the same header and set the same bits.
    const std::uint32_t method = std::min<std::uint32_t>(header.method, most_method);
    std::atomic_ref<std::uint32_t>(entry.state)
        .fetch_or(located | method << method_shift | header.texts_size, std::memory_order_relaxed);
    return true;
}

PackedData PackArchive::data_of(std::uint32_t file) {
    PackEntry& entry = table_.entry(file);
    const std::uint32_t state = state_of(entry);
    PackedData data{.offset = std::uint64_t{entry.header_offset} + zip::local_header_size + (state & texts_mask),
                    .packed_size = entry.packed_size,
                    .size = entry.size};
    const std::uint32_t method = (state ^ located) >> method_shift;
    if (method == EFSPackMethod::STORE) data.method = EFSPackMethod::STORE;
    if (method == EFSPackMethod::ZSTD) data.method = EFSPackMethod::ZSTD;
    return data;
}

}  // namespace fs

#include "engine/filesystem/sources/pack/archive.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <set>
#include <utility>

#include <engine/filesystem/contract/names.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/zip.h"
#include "engine/filesystem/formats/zstd.h"
#include "engine/platform/threads.h"

namespace fs {

namespace {

// An entry's state: the length of the local header's two texts, which takes 17 bits, its EFSPackMethod, and whether the
// header was read at all.
constexpr std::uint32_t texts_mask = 0x1FFFF;
constexpr std::uint32_t method_shift = 17;
constexpr std::uint32_t located = 1u << 31;

constexpr std::size_t most_idle = 2;  // decoders of whole entries

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

    static PacksInUse& get() { return platform::never_destroyed<PacksInUse>(); }
};

}  // namespace

std::shared_ptr<EntryCheckpoints> PackCheckpoints::of(std::uint32_t entry, std::uint32_t size) {
    const std::uint32_t blocks = size / EntryReader::block_size;
    if (blocks <= base_interval) return nullptr;
    const platform::LockGuard guard(lock_);
    const auto found = std::ranges::find(sets_, entry, &EntryCheckpoints::entry);
    if (found != sets_.end()) {
        std::rotate(found, found + 1, sets_.end());
        return sets_.back();
    }
    make_room();
    const std::uint32_t interval = std::max(base_interval, blocks / most_kept + 1);
    sets_.push_back(std::make_shared<EntryCheckpoints>(
        EntryCheckpoints{entry, interval, std::vector<EntryCheckpoint>(blocks / interval + 1)}));
    return sets_.back();
}

/// When most of the memory is taken, gives up the sets that no open file uses, the longest unused first.
void PackCheckpoints::make_room() {
    for (auto set = sets_.begin(); set != sets_.end() && held_ > most_bytes / 2;) {
        if (set->use_count() != 1) {
            ++set;
            continue;
        }
        for (const EntryCheckpoint& kept : (*set)->kept) held_ -= kept.state ? kept.state->bytes() : 0;
        set = sets_.erase(set);
    }
}

bool PackCheckpoints::wants(const EntryCheckpoints& set, std::uint32_t number) {
    if (number == 0 || number % set.interval != 0 || number / set.interval >= set.kept.size()) return false;
    const platform::LockGuard guard(lock_);
    return !set.kept[number / set.interval].state;
}

void PackCheckpoints::add(EntryCheckpoints& set, EntryCheckpoint checkpoint) {
    const std::uint64_t bytes = checkpoint.state->bytes();
    const platform::LockGuard guard(lock_);
    EntryCheckpoint& place = set.kept[checkpoint.block / set.interval];
    if (place.state || held_ + bytes > most_bytes) return;
    held_ += bytes;
    place = std::move(checkpoint);
}

EntryCheckpoint PackCheckpoints::find(const EntryCheckpoints& set, std::uint64_t number, std::uint64_t after) {
    const platform::LockGuard guard(lock_);
    std::uint64_t i = std::min<std::uint64_t>(number / set.interval, set.kept.size() - 1);
    while (i > 0 && !set.kept[static_cast<std::size_t>(i)].state) --i;
    return i * set.interval > after ? set.kept[static_cast<std::size_t>(i)] : EntryCheckpoint{};
}

struct WholeDecoders::Worker {
    /// The packed bytes of an entry; null when the pack does not give them all.
    const std::uint8_t* load(const PackStore& store, const PackedData& data) {
        if (const std::uint8_t* bytes = store.view(data.offset, data.packed_size)) return bytes;
        if (data.offset > store.length() || data.packed_size > store.length() - data.offset) return nullptr;
        if (data.packed_size > capacity) {
            packed.reset();
            capacity = std::size_t{data.packed_size | 0xFFFF} + 1;
            packed.reset(new std::uint8_t[capacity]);  // what throws ends this worker
        }
        ErrorScope scope;
        const bool is_whole = store.read(data.offset, packed.get(), data.packed_size) == data.packed_size;
        scope.forget();  // whether the blocks fail too is what counts
        return is_whole ? packed.get() : nullptr;
    }

    bool decode(const PackedData& data, const std::uint8_t* bytes, std::uint8_t* out) {
        const bool is_zstd = data.method == EFSPackMethod::ZSTD;
        std::unique_ptr<BufferDecoder>& decoder = is_zstd ? zstd : inflater;
        if (!decoder) decoder = is_zstd ? make_buffer_zstd_decoder() : make_buffer_inflater();
        return decoder->decode(bytes, data.packed_size, out, data.size);
    }

    std::unique_ptr<BufferDecoder> inflater;
    std::unique_ptr<BufferDecoder> zstd;
    std::unique_ptr<std::uint8_t[]> packed;
    std::size_t capacity = 0;
};

WholeDecoders::WholeDecoders() { idle_.reserve(most_idle); }
WholeDecoders::~WholeDecoders() = default;

bool WholeDecoders::decode(const PackStore& store, const PackedData& data, std::uint8_t* buffer) {
    constexpr std::uint32_t most_packed = 256 * 1024 * 1024;
    constexpr std::size_t kept_capacity = 4 * 1024 * 1024;  // what has a larger buffer is not kept
    if (data.packed_size == 0 || data.packed_size > most_packed) return false;
    std::unique_ptr<Worker> worker;
    {
        const platform::LockGuard guard(lock_);
        if (!idle_.empty()) {
            worker = std::move(idle_.back());
            idle_.pop_back();
        }
    }
    if (!worker) worker = std::make_unique<Worker>();
    const std::uint8_t* bytes = worker->load(store, data);
    const bool is_good = bytes && worker->decode(data, bytes, buffer);
    const platform::LockGuard guard(lock_);
    if (worker->capacity <= kept_capacity && idle_.size() < most_idle) idle_.push_back(std::move(worker));
    return is_good;
}

std::shared_ptr<PackArchive> PackArchive::mount(PackStore opened) {
    auto archive = std::make_shared<PackArchive>();
    archive->store = std::move(opened);
    archive->table = read_table(archive->store);
    PacksInUse& used = PacksInUse::get();
    const std::lock_guard guard(used.lock);
    std::erase_if(used.packs, [](const auto& pack) { return pack.second.expired(); });
    used.packs.emplace_back(NormalText(archive->store.path().c_str(), false).c_str(), archive);
    return archive;
}

std::shared_ptr<const PackArchive> PackArchive::mounted_from(const char* path) {
    const NormalText wanted(path, false);
    PacksInUse& used = PacksInUse::get();
    const std::lock_guard guard(used.lock);
    for (auto pack = used.packs.rbegin(); pack != used.packs.rend(); ++pack) {
        if (pack->first != wanted.view()) continue;
        if (auto archive = pack->second.lock()) return archive;
    }
    return nullptr;
}

void PackArchive::fill_tree(dir& tree) const {
    const NameTable& names = table.names;
    std::set<std::string_view> directories;  // without the "/" at their ends, which would change their order
    for (std::uint32_t file = names.first(); file != NameTable::none; file = names.next(file)) {
        const std::string_view directory = names.dir(file);
        directories.insert(directory.substr(0, directory.size() - 1));
    }
    for (const std::string_view directory : directories) {
        if (!tree.add_path(std::string(directory).c_str())) throw std::bad_alloc();
    }
}

bool PackArchive::open(std::uint32_t file) {
    if (is_zip64(table.entry(file)))
        return refuse(EFSError::UNSUPPORTED, table.names.path(file).c_str(), "The entry of the pack is in zip64 form.");
    return store.is_remote() || locate(file);
}

bool PackArchive::locate(std::uint32_t file) {
    PackEntry& entry = table.entry(file);
    if ((state_of(entry) & located) != 0) return true;
    const auto refuse_entry = [&](EFSError::TYPE code, const char* reason) {
        return refuse(code, table.names.path(file).c_str(), reason);
    };
    std::uint8_t bytes[zip::local_header_size];
    store.prefetch(entry.header_offset, sizeof bytes + std::uint64_t{entry.packed_size});
    const std::uint64_t got = store.read(entry.header_offset, bytes, sizeof bytes);
    if (got == PackStore::failed) return false;
    if (got != sizeof bytes)
        return refuse_entry(EFSError::BAD_FORMAT, "The pack ends before the local header of the entry.");
    const zip::LocalHeader header = zip::read_local_header(bytes);
    if (header.method == EFSPackMethod::ZSTD && !has_zstd())
        return refuse_entry(EFSError::UNSUPPORTED,
                            "The entry is packed by zstd, which this library was built without.");
    std::uint32_t method = EFSPackMethod::DEFLATE;  // for which every other one is taken
    if (header.method == EFSPackMethod::STORE || header.method == EFSPackMethod::ZSTD) method = header.method;
    // Two threads may both come here; they read the same header and store the same state.
    std::atomic_ref<std::uint32_t>(entry.state)
        .store(located | method << method_shift | header.texts_size, std::memory_order_relaxed);
    return true;
}

PackedData PackArchive::data_of(std::uint32_t file) {
    PackEntry& entry = table.entry(file);
    const std::uint32_t state = state_of(entry);
    return {.offset = std::uint64_t{entry.header_offset} + zip::local_header_size + (state & texts_mask),
            .packed_size = entry.packed_size,
            .size = entry.size,
            .method = static_cast<EFSPackMethod::TYPE>((state & ~located) >> method_shift)};
}

}  // namespace fs

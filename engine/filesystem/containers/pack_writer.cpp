// Packs are written forward only: each entry's header is complete before its bytes, and the central directory is
// gathered in memory until the end. What is being written lies beside the target, so that an interrupted run leaves the
// target as it was.

#include <engine/filesystem/containers/pack_writer.h>

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>

#include "engine/filesystem/containers/zip_output.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/zip.h"
#include "engine/filesystem/formats/zstd.h"
#include "engine/kernel/bytes.h"
#include "engine/platform/files.h"

namespace fs {

namespace {

constexpr const char* beside = ".part";
constexpr std::uint64_t most_stored = 32768;  // a pack source keeps two blocks of this; a longer entry is sought in

/// Stores a failure, and answers false.
bool fail_to_pack(EFSError::TYPE code, const char* name, const std::string& what) {
    set_error(code, name, "The pack writer " + what + ".");
    return false;
}

/// Whether an entry of this size may be packed so.
bool check_packing(const char* name, const void* data, std::uint64_t size, const SFsPacking& how) {
    const auto fail = [name](EFSError::TYPE code, const std::string& what) { return fail_to_pack(code, name, what); };
    const bool is_zstd = how.method == EFSPackMethod::ZSTD;
    const int most = is_zstd ? 22 : 12;
    if (!data && size != 0) return fail(EFSError::INVALID_ARGUMENT, "was given no data");
    if (how.method != EFSPackMethod::STORE && how.method != EFSPackMethod::DEFLATE && !is_zstd)
        return fail(EFSError::INVALID_ARGUMENT, "knows no such method");
    if (how.level < 0 || (how.level > most && how.method != EFSPackMethod::STORE))
        return fail(EFSError::INVALID_ARGUMENT, "takes levels from 0 to " + std::to_string(most) + " by this method");
    if (how.worth < 0 || how.worth > 100)
        return fail(EFSError::INVALID_ARGUMENT, "takes from 0 to 100 percent that packing must save");
    if (size > zip::most_bytes) return fail(EFSError::TOO_LARGE, "takes no entry of 4 GiB or more");
    return !is_zstd || has_zstd() || fail(EFSError::UNSUPPORTED, "was built without zstd");
}

/// Why no pack source could show a file of this name; null when it could. The text goes on behind "the name".
const char* refuse_entry_name(std::string_view name) {
    if (name.empty()) return "is empty";
    if (name.size() >= path_capacity) return "is longer than 259 bytes";
    if (name.find('\0') != std::string_view::npos) return "holds a zero byte";
    if (name.back() == '/' || name.back() == '\\') return "is that of a directory";
    char normal[path_capacity];
    name.copy(normal, name.size());
    normal[name.size()] = '\0';
    if (is_full_path(normal)) return "is a full path";
    const Normalized normalized = normalize(normal, normal, true);
    if (std::string_view(normal, normalized.length) != name) return "is not in normal form";
    if (name == ".." || name.starts_with("../")) return "climbs above the pack";
    if (name.find("/#") != std::string_view::npos) return "would be hidden: it has a component that begins with \"#\"";
    return nullptr;
}

bool check_entry_name(const char* name) {
    const char* const reason = refuse_entry_name(name);
    return reason == nullptr ||
           fail_to_pack(EFSError::INVALID_NAME, name, std::string("refuses the entry: the name ") + reason);
}

/// Calls `add` with the state of an open writer, and with a name that is no null.
template <typename State, typename Add>
bool when_open(State* state, const char* name, const Add& add) {
    return guarded(name, false, [&] {
        const char* const path = name ? name : "";
        return state ? add(*state, path) : fail_to_pack(EFSError::INVALID_ARGUMENT, path, "is not open");
    });
}

}  // namespace

/// What an entry's bytes become: the one place that chooses between methods.
class EntryPacker {
public:
    /// The bytes are left out when the entry is stored as it is. Throws StoredFailure, told of `name`, for what cannot be
    /// packed so.
    SFsPackedEntry pack(const char* name, const void* data, std::uint64_t size, const SFsPacking& how);

private:
    const std::unique_ptr<Compressor> deflate_ = make_deflater();
    const std::unique_ptr<Compressor> zstd_ = make_zstd_compressor();  // null where the library was built without it
};

SFsPackedEntry EntryPacker::pack(const char* name, const void* data, std::uint64_t size, const SFsPacking& how) {
    if (!check_packing(name, data, size, how)) throw StoredFailure();
    const auto length = static_cast<std::size_t>(size);
    SFsPackedEntry entry{.bytes = {}, .size = size, .crc = kernel::crc32(0, data, length)};
    if (how.method == EFSPackMethod::STORE || how.level == 0 || size == 0) return entry;
    const std::uint64_t most = std::min(size * static_cast<std::uint64_t>(100 - how.worth) / 100, size - 1);
    Compressor& compressor = how.method == EFSPackMethod::ZSTD ? *zstd_ : *deflate_;
    entry.bytes = compressor.compress(data, length, how.level, static_cast<std::size_t>(most));
    if (!entry.bytes.empty()) {
        entry.method = how.method;
    } else if (size > most_stored && size_deflated_by_copying(size) <= zip::most_bytes) {
        entry.bytes = deflate_by_copying(data, length);
        entry.method = EFSPackMethod::DEFLATE;
    }
    return entry;
}

entry_packer::entry_packer() = default;
entry_packer::~entry_packer() = default;

bool entry_packer::pack(const void* data, std::uint64_t size, const SFsPacking& how, SFsPackedEntry& out) {
    return guarded("", false, [&] {
        if (!state_) state_ = std::make_unique<EntryPacker>();
        SFsPackedEntry entry = state_->pack("", data, size, how);
        const auto* plain = static_cast<const std::uint8_t*>(data);
        if (entry.method == EFSPackMethod::STORE) entry.bytes.assign(plain, plain + size);
        out = std::move(entry);
        return true;
    });
}

struct pack_writer::State {
    std::string target;
    std::string partial;  // what is being written; "" when nothing is
    ZipOutput output;
    EntryPacker packer;
    std::uint64_t offset = 0;               // end of what was written
    std::string directory;                  // central headers so far
    std::unordered_set<std::string> names;  // in lower case
    bool is_complete = false;

    ~State();
    bool begin(const char* native_path);
    bool check_target() const;
    bool add(const char* name, const void* packed, std::uint64_t packed_size, const SFsPackedEntry& told,
             std::int64_t time);
    bool check(const zip::NewEntry& entry) const;
    bool complete();
    bool finish();
};

/// What is not finished is dropped.
pack_writer::State::~State() {
    if (partial.empty()) return;
    output.close();
    platform::remove_file(partial.c_str());
}

bool pack_writer::State::check_target() const {
    if (target.empty()) return fail_to_pack(EFSError::INVALID_NAME, target.c_str(), "needs a path to write to");
    if (target.size() + std::string_view(beside).size() >= path_capacity)
        return fail_to_pack(EFSError::INVALID_NAME, target.c_str(), "takes no path of more than 254 bytes");
    const auto attributes = platform::get_attributes(target.c_str());
    if (attributes && attributes->is_directory)
        return fail_to_pack(EFSError::INVALID_NAME, target.c_str(), "cannot replace a directory");
    if (attributes && attributes->is_read_only)
        return fail_to_pack(EFSError::READ_ONLY, target.c_str(), "cannot replace a read-only file");
    return true;
}

bool pack_writer::State::begin(const char* native_path) {
    target = native_path ? native_path : "";
    if (!check_target()) return false;
    std::string path = target + beside;
    if (!output.open(path.c_str())) return false;
    partial = std::move(path);
    return true;
}

/// Whether the format and a pack source can hold one more entry, this one.
bool pack_writer::State::check(const zip::NewEntry& entry) const {
    const std::string name(entry.name);
    if (!check_entry_name(name.c_str())) return false;
    if (names.contains(lower_text(name)))
        return fail_to_pack(EFSError::ALREADY_EXISTS, name.c_str(), "has an entry of that name");
    if (names.size() >= zip::most_entries)
        return fail_to_pack(EFSError::TOO_LARGE, target.c_str(), "refuses the entry: a pack holds at most 65535");
    const std::uint64_t entry_bytes = zip::local_header_size + name.size() + entry.packed_size;
    const std::uint64_t end_bytes = directory.size() + zip::central_header_size + name.size() + zip::end_record_size;
    if (offset + entry_bytes + end_bytes > zip::most_bytes)
        return fail_to_pack(EFSError::TOO_LARGE, target.c_str(),
                            "refuses the entry: a pack holds at most 4 GiB in all");
    return true;
}

/// Everything that can fail comes before the first line that changes what finish() writes.
bool pack_writer::State::add(const char* name, const void* packed, std::uint64_t packed_size,
                             const SFsPackedEntry& told, std::int64_t time) {
    if (packed_size > zip::most_bytes || told.size > zip::most_bytes)
        return fail_to_pack(EFSError::TOO_LARGE, name, "takes no entry of 4 GiB or more");
    zip::NewEntry entry{.name = name,
                        .crc = told.crc,
                        .packed_size = static_cast<std::uint32_t>(packed_size),
                        .size = static_cast<std::uint32_t>(told.size),
                        .header_offset = static_cast<std::uint32_t>(offset),
                        .method = told.method};
    if (is_complete) return fail_to_pack(EFSError::INVALID_ARGUMENT, name, "is complete already");
    if (!check(entry)) return false;
    zip::to_dos_time(time, entry.dos_date, entry.dos_time);
    std::string local;
    std::string central;
    zip::append_local_header(local, entry);
    zip::append_central_header(central, entry);
    if (directory.capacity() - directory.size() < central.size())
        directory.reserve(directory.size() * 2 + central.size());
    const auto place = names.insert(lower_text(entry.name)).first;
    if (!output.write_at(offset, local.data(), local.size()) ||
        !output.write_at(offset + local.size(), packed, entry.packed_size)) {
        names.erase(place);
        return false;
    }
    directory += central;
    offset += local.size() + entry.packed_size;
    return true;
}

bool pack_writer::State::complete() {
    if (is_complete) return true;
    std::string end = directory;
    zip::append_end_record(end, static_cast<std::uint32_t>(names.size()), static_cast<std::uint32_t>(offset),
                           static_cast<std::uint32_t>(directory.size()));
    if (!output.write_at(offset, end.data(), end.size()) || !output.finish(offset + end.size())) return false;
    output.close();
    is_complete = true;
    return true;
}

bool pack_writer::State::finish() {
    if (!complete()) return false;
    if (!platform::replace_file(partial.c_str(), target.c_str()))
        return refuse_by_disk(partial.c_str(), "cannot take the place of the pack's target");
    partial.clear();
    return true;
}

pack_writer::pack_writer() = default;
pack_writer::~pack_writer() = default;

bool pack_writer::open(const char* native_path) {
    cancel();
    return guarded(native_path, false, [&] {
        auto state = std::make_unique<State>();
        if (!state->begin(native_path)) return false;
        state_ = std::move(state);
        return true;
    });
}

bool pack_writer::add(const char* name, const void* data, std::uint64_t size, int level, std::int64_t time,
                      EFSPackMethod::TYPE method) {
    return when_open(state_.get(), name, [&](State& state, const char* path) {
        const SFsPackedEntry entry = state.packer.pack(path, data, size, {.method = method, .level = level});
        const bool stored = entry.method == EFSPackMethod::STORE;
        return state.add(path, stored ? data : entry.bytes.data(), stored ? size : entry.bytes.size(), entry, time);
    });
}

bool pack_writer::add_packed(const char* name, const SFsPackedEntry& entry, std::int64_t time) {
    return when_open(state_.get(), name, [&](State& state, const char* path) {
        return state.add(path, entry.bytes.data(), entry.bytes.size(), entry, time);
    });
}

bool pack_writer::add_deflated(const char* name, const void* packed, std::uint64_t packed_size, std::uint64_t size,
                               std::uint32_t crc, std::int64_t time) {
    return when_open(state_.get(), name, [&](State& state, const char* path) {
        if (!packed || packed_size == 0) return fail_to_pack(EFSError::INVALID_ARGUMENT, path, "was given no data");
        return state.add(path, packed, packed_size,
                         {.bytes = {}, .size = size, .crc = crc, .method = EFSPackMethod::DEFLATE}, time);
    });
}

bool pack_writer::complete() {
    return when_open(state_.get(), "", [](State& state, const char*) { return state.complete(); });
}

bool pack_writer::finish() {
    const bool done = when_open(state_.get(), "", [](State& state, const char*) { return state.finish(); });
    cancel();
    return done;
}

bool pack_writer::check_name(const char* name) {
    return guarded(name, false, [&] { return check_entry_name(name ? name : ""); });
}

void pack_writer::cancel() { state_.reset(); }

}  // namespace fs

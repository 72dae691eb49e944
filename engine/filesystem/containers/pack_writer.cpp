// Packs are written forward only: each entry's header is complete before its bytes, and the central directory is
// gathered in memory until the end. What is being written lies beside the target, so that an interrupted run leaves the
// target as it was.

#include <engine/filesystem/containers/pack_writer.h>

#include <limits>
#include <memory>
#include <new>
#include <string>
#include <unordered_set>

#include <engine/filesystem/contract/path.h>

#include "engine/filesystem/containers/pack_writer_deflate.h"
#include "engine/filesystem/containers/pack_writer_format.h"
#include "engine/filesystem/containers/zip_output.h"
#include "engine/filesystem/contract/set_error.h"

namespace fs {

namespace {

constexpr std::uint32_t most_entries = 0xFFFF;
constexpr std::uint64_t most_bytes = 0xFFFFFFFE;  // all bits set would announce a zip64 file
constexpr const char* beside = ".part";

bool fail(EFSError::TYPE code, const std::string& path, std::string text) {
    set_error(code, path.c_str(), std::move(text));
    return false;
}

}  // namespace

struct pack_writer::State {
    std::string target;
    std::string partial;  // what is being written; "" when nothing is
    ZipOutput output;
    Deflater deflater;
    std::uint64_t offset = 0;  // end of what was written
    std::string directory;     // central headers so far
    std::string header;        // of the entry in hand
    std::unordered_set<std::string> names;

    bool begin(const char* native_path);
    bool add(PackedEntry entry, const void* data, std::int64_t time);
    bool check(const PackedEntry& entry) const;
    bool write(const PackedEntry& entry, const void* data);
    bool write_end();
    bool fail_on_disk(const char* action) const;
    void drop();
};

bool pack_writer::State::fail_on_disk(const char* action) const {
    set_error_from_platform(partial.c_str(), action, platform::last_error());
    return false;
}

bool pack_writer::State::begin(const char* native_path) {
    target = native_path ? native_path : "";
    if (target.empty()) return fail(EFSError::INVALID_NAME, target, "The pack writer needs a path to write to.");
    partial = target + beside;
    const auto attributes = platform::get_attributes(target.c_str());
    std::string refusal;
    if (partial.size() >= path_capacity) refusal = "The pack writer refuses a path of more than 254 bytes.";
    if (attributes && attributes->is_directory) refusal = "The pack writer cannot replace a directory.";
    if (attributes && attributes->is_read_only) refusal = "The pack writer cannot replace a read-only file.";
    const bool opened = refusal.empty() && output.open(partial.c_str());
    if (opened) return true;
    if (refusal.empty()) {
        fail_on_disk("cannot be created by the pack writer");
    } else {
        const bool read_only = attributes && attributes->is_read_only && !attributes->is_directory;
        fail(read_only ? EFSError::READ_ONLY : EFSError::INVALID_NAME, target, refusal);
    }
    partial.clear();
    return false;
}

/// Whether the format and a pack source can hold one more entry, this one.
bool pack_writer::State::check(const PackedEntry& entry) const {
    const std::string name(entry.name);
    if (const char* reason = refuse_entry_name(entry.name)) {
        return fail(EFSError::INVALID_NAME, name,
                    std::string("The pack writer refuses the entry: the name ") + reason + ".");
    }
    if (names.contains(name)) return fail(EFSError::ALREADY_EXISTS, name, "The pack writer has an entry of that name.");
    if (names.size() >= most_entries) {
        return fail(EFSError::TOO_LARGE, target, "The pack writer refuses the entry: a pack holds at most 65535.");
    }
    const std::uint64_t entry_bytes = local_header_size + name.size() + entry.packed_size;
    const std::uint64_t end_bytes = directory.size() + central_header_size + name.size() + end_record_size;
    if (offset + entry_bytes + end_bytes > most_bytes) {
        return fail(EFSError::TOO_LARGE, target,
                    "The pack writer refuses the entry: a pack holds at most 4 GiB in all.");
    }
    return true;
}

bool pack_writer::State::write(const PackedEntry& entry, const void* data) {
    header.clear();
    append_local_header(header, entry);
    if (!output.write_at(offset, header.data(), header.size()) ||
        !output.write_at(offset + header.size(), data, entry.packed_size)) {
        return fail_on_disk("cannot be written by the pack writer");
    }
    offset += header.size() + entry.packed_size;
    return true;
}

bool pack_writer::State::add(PackedEntry entry, const void* data, std::int64_t time) {
    if (!check(entry)) return false;
    to_dos_time(time, entry.dos_date, entry.dos_time);
    entry.header_offset = static_cast<std::uint32_t>(offset);
    const std::size_t directory_size = directory.size();
    const auto place = names.emplace(entry.name).first;
    append_central_header(directory, entry);
    if (write(entry, data)) return true;
    names.erase(place);
    directory.resize(directory_size);
    return false;
}

bool pack_writer::State::write_end() {
    const auto directory_offset = static_cast<std::uint32_t>(offset);
    const auto directory_size = static_cast<std::uint32_t>(directory.size());
    append_end_record(directory, static_cast<std::uint32_t>(names.size()), directory_offset, directory_size);
    if (!output.write_at(offset, directory.data(), directory.size()) || !output.flush()) {
        return fail_on_disk("cannot be written by the pack writer");
    }
    output.close();
    if (platform::replace_file(partial.c_str(), target.c_str())) return true;
    return fail_on_disk("cannot take the place of the pack's target");
}

void pack_writer::State::drop() {
    if (partial.empty()) return;
    output.close();
    platform::remove_file(partial.c_str());
    partial.clear();
}

pack_writer::pack_writer() = default;
pack_writer::~pack_writer() { cancel(); }

bool pack_writer::open(const char* native_path) {
    cancel();
    try {
        state_ = std::make_unique<State>();
        if (state_->begin(native_path)) return true;
    } catch (const std::bad_alloc&) {
        fail(EFSError::OUT_OF_MEMORY, "", "The pack writer has no memory to start.");
    }
    state_.reset();
    return false;
}

bool pack_writer::add(const char* name, const void* data, std::uint64_t size, int level, std::int64_t time) {
    if (!state_) return fail(EFSError::INVALID_ARGUMENT, "", "The pack writer is not open.");
    if (!data && size != 0) return fail(EFSError::INVALID_ARGUMENT, "", "The pack writer was given no data.");
    try {
        PackedEntry entry{.name = name ? name : "", .size = static_cast<std::uint32_t>(size), .stored = true};
        if (size > most_bytes) {
            return fail(EFSError::TOO_LARGE, std::string(entry.name),
                        "The pack writer refuses an entry of 4 GiB or more.");
        }
        entry.crc = crc32_of(size != 0 ? data : "", static_cast<std::size_t>(size));
        entry.packed_size = entry.size;
        Deflater::Result result = Deflater::Result::NOT_SMALLER;
        if (level > 0) result = state_->deflater.deflate(data, static_cast<std::size_t>(size), level);
        if (result == Deflater::Result::NO_MEMORY) throw std::bad_alloc();
        if (result == Deflater::Result::NOT_SMALLER) return state_->add(entry, data, time);
        entry.stored = false;
        entry.packed_size = static_cast<std::uint32_t>(state_->deflater.size());
        return state_->add(entry, state_->deflater.data(), time);
    } catch (const std::bad_alloc&) {
        return fail(EFSError::OUT_OF_MEMORY, name ? name : "", "The pack writer has no memory for the entry.");
    }
}

bool pack_writer::add_deflated(const char* name, const void* packed, std::uint64_t packed_size, std::uint64_t size,
                               std::uint32_t crc, std::int64_t time) {
    if (!state_) return fail(EFSError::INVALID_ARGUMENT, "", "The pack writer is not open.");
    if (!packed || packed_size == 0) return fail(EFSError::INVALID_ARGUMENT, "", "The pack writer was given no data.");
    try {
        PackedEntry entry{.name = name ? name : "", .crc = crc};
        if (size > most_bytes || packed_size > most_bytes) {
            return fail(EFSError::TOO_LARGE, std::string(entry.name),
                        "The pack writer refuses an entry of 4 GiB or more.");
        }
        entry.packed_size = static_cast<std::uint32_t>(packed_size);
        entry.size = static_cast<std::uint32_t>(size);
        return state_->add(entry, packed, time);
    } catch (const std::bad_alloc&) {
        return fail(EFSError::OUT_OF_MEMORY, name ? name : "", "The pack writer has no memory for the entry.");
    }
}

bool pack_writer::finish() {
    if (!state_) return fail(EFSError::INVALID_ARGUMENT, "", "The pack writer is not open.");
    bool done = false;
    try {
        done = state_->write_end();
    } catch (const std::bad_alloc&) {
        fail(EFSError::OUT_OF_MEMORY, state_->target, "The pack writer has no memory for the directory.");
    }
    if (done) state_->partial.clear();
    cancel();
    return done;
}

void pack_writer::cancel() {
    if (state_) state_->drop();
    state_.reset();
}

}  // namespace fs

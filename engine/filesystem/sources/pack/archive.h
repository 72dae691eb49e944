#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <engine/filesystem/formats/pack_method.h>
#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/formats/codec.h"
#include "engine/filesystem/sources/names/name_table.h"
#include "engine/filesystem/sources/pack/store.h"
#include "engine/platform/threads.h"

// What a mounted pack is made of. table.cpp reads its directory, archive.cpp keeps what its open files share, reader.cpp
// reads entries; the bytes come from store.h.

namespace fs {

/// One file of a pack; its name is in the table of names.
struct PackEntry {
    std::uint32_t header_offset = 0;
    std::uint32_t size = 0;
    std::uint32_t packed_size = 0;
    std::uint32_t crc = 0;    // of the plain bytes
    std::uint32_t state = 0;  // PackArchive's; changes once, when the entry is first opened
};

/// The files of a pack, known by their numbers in the table of names. That has them in the order of their names, and
/// between equal names of their directories, since a lookup takes the first that was added. Nothing but the entries'
/// states changes once it is built.
struct PackTable {
    NameTable names;  // in lower case; each file's value is its entry
    std::vector<PackEntry> entries;

    PackEntry& entry(std::uint32_t file) { return entries[names.value(file)]; }
};

/// Reads the directory of an open pack. May throw std::bad_alloc, or StoredFailure, whose reason says what the file is
/// instead of a pack; so the next.
PackTable read_table(const PackStore& store);
/// The files as the pack's directory tells them, in its order.
ztl::vector<SFsPackEntry> list_entries(const PackStore& store);

/// Where the bytes of one entry lie and what they are.
struct PackedData {
    std::uint64_t offset;
    std::uint32_t packed_size;
    std::uint32_t size;
    EFSPackMethod::TYPE method;
};

/// Where the decoding of an entry can go on.
struct EntryCheckpoint {
    std::shared_ptr<const Decoder::Checkpoint> state;  // null for none
    std::uint32_t consumed = 0;                        // packed bytes that the decoder had taken
    std::uint32_t block = 0;                           // that begins here
};

/// States of one entry's decoding at the beginnings of some of its blocks. They are taken as decoding passes and shared
/// by the open files of the entry.
struct EntryCheckpoints {
    std::uint32_t entry;
    std::uint32_t interval;             // in blocks
    std::vector<EntryCheckpoint> kept;  // by block number / interval
};

/// The checkpoints of all entries of a pack: at most 16 MiB.
/// Threads  any; what is in the sets is touched here alone, under the lock.
class PackCheckpoints {
public:
    static constexpr std::uint32_t base_interval = 40;  // in blocks: 1.25 MiB, of which a checkpoint is 3 %
    static constexpr std::uint32_t most_kept = 420;     // 16 MiB; an entry that would have more has them further apart
    static constexpr std::uint64_t most_bytes = 16 * 1024 * 1024;

    /// Those of one entry; null for an entry that is too small to need any. May throw std::bad_alloc.
    std::shared_ptr<EntryCheckpoints> of(std::uint32_t entry, std::uint32_t size);
    /// Whether block `number` is one whose beginning is kept and not known yet.
    bool wants(const EntryCheckpoints& set, std::uint32_t number);
    /// Keeps a checkpoint that is wanted, if there is room for it.
    void add(EntryCheckpoints& set, EntryCheckpoint checkpoint);
    /// The latest one after block `after` and at or before block `number`.
    EntryCheckpoint find(const EntryCheckpoints& set, std::uint64_t number, std::uint64_t after);

private:
    void make_room() ENGINE_REQUIRES(lock_);

    platform::Mutex lock_;
    std::vector<std::shared_ptr<EntryCheckpoints>> sets_ ENGINE_GUARDED_BY(lock_);  // the latest used last
    std::uint64_t held_ ENGINE_GUARDED_BY(lock_) = 0;                               // bytes
};

/// Decodes whole entries in one call, straight from the packed bytes into the caller's buffer, the fastest way there
/// is. Decoders and their buffers are kept for the next entry.
/// Threads  any number at once.
class WholeDecoders {
public:
    WholeDecoders();  // may throw std::bad_alloc
    ~WholeDecoders();
    WholeDecoders(const WholeDecoders&) = delete;
    WholeDecoders& operator=(const WholeDecoders&) = delete;

    /// Decodes a compressed entry. False when it is damaged, not of its recorded size, or too large for this: the
    /// caller then goes by blocks. May throw std::bad_alloc.
    bool decode(const PackStore& store, const PackedData& data, std::uint8_t* buffer);

private:
    struct Worker;

    platform::Mutex lock_;
    std::vector<std::unique_ptr<Worker>> idle_ ENGINE_GUARDED_BY(lock_);
};

/// A mounted pack: its bytes, its table, and what its open files share. The source and every open file hold it.
/// Threads  any number at once; what changes has its own lock or is atomic.
struct PackArchive {
    /// Reads the directory of an open pack. May throw std::bad_alloc, or StoredFailure when it is none.
    static std::shared_ptr<PackArchive> mount(PackStore opened);
    /// The latest one that was mounted from this path, in any case, and is still in use; null when there is none.
    static std::shared_ptr<const PackArchive> mounted_from(const char* path);
    /// Adds the pack's directories. May throw std::bad_alloc.
    void fill_tree(dir& tree) const;

    /// What is done when the file is opened: locates it, unless that may take long. False, with fs::last_error set,
    /// when that fails or the entry is of a kind that is not read.
    bool open(std::uint32_t file);
    /// Reads the file's local header unless that was done before; the first step of every use of an open file.
    bool locate(std::uint32_t file);
    /// Of a file that was located.
    PackedData data_of(std::uint32_t file);

    PackStore store;
    PackTable table;
    PackCheckpoints checkpoints;
    WholeDecoders whole_decoders;
};

/// Why an entry did not give what its directory promises.
enum class PackFault : std::uint8_t { NONE, DAMAGED, ENDS_EARLY, CHECKSUM, PACK_IS_SHORT, IO };

/// Reads one entry: what an open file of a pack has, once it is read from.
/// Threads  one at a time.
class EntryReader {
public:
    static constexpr std::uint32_t block_size = 32768;
    static constexpr std::uint32_t input_size = 16384;  // blocks are filled from pieces of the input of this size

    /// The reader that the method of a file that was located asks for. `exact_seeks`: a stored entry is read at the
    /// position asked for. May throw std::bad_alloc.
    static std::unique_ptr<EntryReader> create(PackArchive& archive, std::uint32_t file, bool exact_seeks);
    virtual ~EntryReader() = default;

    /// Reads `count` bytes, which the entry's size allows, at `position`. Bytes delivered.
    virtual std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) = 0;
    /// The caller moved to `position`.
    virtual void seek(std::uint64_t position) = 0;
    /// What went wrong in the last read.
    PackFault fault() const { return fault_; }

protected:
    PackFault fault_ = PackFault::NONE;
};

}  // namespace fs

#pragma once

#include <cstdint>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/filesystem/formats/pack_method.h>
#include <engine/kernel/ztl.h>

/// How an entry is packed. What does not become smaller by `worth` is stored, or, when it is longer than 32 KiB, written
/// as a deflate stream that only copies, so that it can be sought in.
struct SFsPacking {
    EFSPackMethod::TYPE method = EFSPackMethod::DEFLATE;
    int level = 6;  // 0 stores; 1 to 12 are deflate's, 1 to 22 zstd's, others fail
    int worth = 0;  // percent that packing must save
};

/// An entry as it will stand in a pack.
struct SFsPackedEntry {
    ztl::vector<std::uint8_t> bytes;
    std::uint64_t size = 0;  // of the plain bytes, as the next
    std::uint32_t crc = 0;
    EFSPackMethod::TYPE method = EFSPackMethod::STORE;  // how `bytes` are packed
};

namespace fs {

class EntryPacker;

/// Packs entries before they are added, so that one pack is made on as many threads as there are packers.
/// Threads  one at a time for each packer.
class ENGINE_FS_API entry_packer {
public:
    entry_packer();
    ~entry_packer();
    entry_packer(const entry_packer&) = delete;
    entry_packer& operator=(const entry_packer&) = delete;

    /// Fills `out`. False, with `out` as it was and the reason in fs::last_error, when there is no such method or level,
    /// no memory, or more data than an entry holds. ZSTD fails (UNSUPPORTED) where the library was built without it.
    bool pack(const void* data, std::uint64_t size, const SFsPacking& how, SFsPackedEntry& out);

private:
    std::unique_ptr<EntryPacker> state_;
};

/// Makes a pack: writes beside its target and takes the target's place in finish. The bytes depend on nothing but the
/// calls made.
///
/// Failure  false, with the reason in fs::last_error. A failed add leaves the pack as it was, open for the next one; a
///          failed finish leaves the target alone.
/// Limits   65,535 entries; 4 GiB in all and for each entry; names that a pack source can show (docs/packs.md), of which
///          no two differ in case alone.
/// Threads  one at a time.
class ENGINE_FS_API pack_writer {
public:
    pack_writer();
    ~pack_writer();  // cancels what was not finished
    pack_writer(const pack_writer&) = delete;
    pack_writer& operator=(const pack_writer&) = delete;

    /// Starts a pack that will be `native_path`; one under way is cancelled.
    bool open(const char* native_path);
    /// Packs an entry as SFsPacking says, and adds it. `size` may be 0. `time` counts 100 ns since 1601 and is written as
    /// it is, without regard to time zones. Zip tools of before 2021 cannot read ZSTD.
    bool add(const char* name, const void* data, std::uint64_t size, int level, std::int64_t time,
             EFSPackMethod::TYPE method = EFSPackMethod::DEFLATE);
    /// Adds an entry that was packed before.
    bool add_packed(const char* name, const SFsPackedEntry& entry, std::int64_t time);
    /// The same for one that the caller has deflated (raw, without header). `size` and `crc` are those of the plain bytes.
    bool add_deflated(const char* name, const void* packed, std::uint64_t packed_size, std::uint64_t size,
                      std::uint32_t crc, std::int64_t time);
    /// Writes the directory: the pack is whole beside its target, takes no more entries, and finish has only to put it
    /// in its place. For packs of which all or none shall appear; others call finish alone.
    bool complete();
    /// Completes the pack where that was not done, and puts it in the place of its target.
    bool finish();
    /// Drops what was written; the target stays as it was.
    void cancel();

    /// Whether a pack can hold and show an entry of this name. Any thread.
    static bool check_name(const char* name);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/disk_use.h>
#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/request.h>

// Loads: files, or parts of them, that workers of the library open, read and decode while the game goes on. Any name that
// fs::open finds can be loaded: of the disk, of packs, of memory archives, of the host's own sources.
//
// Order    URGENT loads first, then those whose deadline has passed, then by priority, then the earlier deadline, then the
//          earlier arrival. A long load is done in steps, and between them gives way to one that comes before it.
// Threads  every function and member here may be called from any thread, callbacks included, and none waits for a load
//          unless it says so. A thread that runs a callback for the library is a worker in what follows.

struct SFsLoad;
struct SFsLoadBatch;

/// Where a load stands among the others. Any number between and around these may be used.
struct EFSLoadPriority {
    enum TYPE : std::int32_t { BACKGROUND = -100, NORMAL = 0, HIGH = 100, URGENT = 1000 };
};

/// What is to be loaded, and to where. Zeros: the whole file, a block of the library's, NORMAL, no deadline.
struct SFsLoadWish {
    const char* path = nullptr;  // as fs::open takes it; copied
    std::uint64_t offset = 0;    // bytes from the start of the file
    std::uint64_t size = 0;      // bytes; 0 or all ones: to the end of the file
    void* buffer = nullptr;      // the caller's until the load has ended; null: a block of the library's
    std::uint64_t capacity = 0;  // bytes of `buffer`; a longer load FAILS with TOO_LARGE, nothing written
    std::int32_t priority = EFSLoadPriority::NORMAL;
    std::uint32_t deadline_ms = 0;  // from now; 0: none. It orders; a miss is counted and fails nothing
    void (*callback)(SFsLoad* load, void* user) = nullptr;  // may be null; see SFsLoad
    void* user = nullptr;
    FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE;  // as for fs::open; SEEKABLE is added
};

/// Where the time of a load went, in microseconds.
struct SFsLoadTimes {
    std::uint64_t waited;   // until a worker took it
    std::uint64_t opening;  // to find and open the file
    std::uint64_t reading;  // to read and decode
    std::uint64_t aside;    // for loads that come before, or for room among the library's blocks
};

/// One load on its way or ended.
///
/// State     EFSRequestState and EFSRequestResult as of an SFsRequest: QUEUED, IN_PROGRESS, FINISHED.
/// Callback  runs once, however the load ends, when it is FINISHED and its file is closed, and holds no lock: on a worker,
///           or in fs::poll_loads when fs::set_polled_callbacks asks for that. It may load, cancel, release and remove
///           sources. `user` belongs to the caller until it has run.
/// Owns      counted: whoever got the load from fs::load_async gives its reference back by Release; that cancels nothing.
///           A block of the library's ends with the last reference unless it was taken.
struct SFsLoad {
    ENGINE_FS_API void AddRef();
    ENGINE_FS_API void Release();

    /// Waits until the load has ended, its callback not included. False when `timeout_ms` passed first, and at once on a
    /// worker while the load has not ended: a worker that waits for a load may wait for itself.
    ENGINE_FS_API bool Wait(std::uint32_t timeout_ms = 0xFFFFFFFFu);
    ENGINE_FS_API EFSRequestState::TYPE State() const;
    ENGINE_FS_API EFSRequestResult::TYPE Result() const;  // meaningful once FINISHED
    /// Why it FAILED or was CANCELLED: what fs::last_error would have told. Lives as long as the load; NONE before its end.
    ENGINE_FS_API const SFsError& Error() const;
    /// What it waited and worked for; zeros before its end.
    ENGINE_FS_API void Times(SFsLoadTimes& out) const;

    /// The bytes of a load that ended well: the caller's buffer or the library's block. Null before, and once taken.
    ENGINE_FS_API const void* Data() const;
    ENGINE_FS_API std::uint64_t Size() const;  // bytes loaded; 0 unless it ended well
    /// Hands the library's block over to the caller, who frees it with free(). Null when there is none, or no more.
    ENGINE_FS_API void* Take();

    /// Ends the load as CANCELLED. When this returns the buffer is touched no more; the callback runs on a worker or in
    /// fs::poll_loads as ever. Waits for the step in hand: 256 KiB, a whole file of less than 8 MiB, or what a source does in
    /// one call. False when it had ended already.
    ENGINE_FS_API bool Cancel();
    /// Moves a load that has not ended to another place in the order. False when it has.
    ENGINE_FS_API bool Reprioritise(std::int32_t priority, std::uint32_t deadline_ms);

    SFsLoad(const SFsLoad&) = delete;
    SFsLoad& operator=(const SFsLoad&) = delete;

protected:
    SFsLoad() = default;   // only fs::load_async and fs::load_batch make one
    ~SFsLoad() = default;  // only Release destroys one
};

/// Loads that were asked for together. Counted as a load is.
struct SFsLoadBatch {
    ENGINE_FS_API void AddRef();
    ENGINE_FS_API void Release();

    /// As SFsLoad::Wait, for all of its loads.
    ENGINE_FS_API bool Wait(std::uint32_t timeout_ms = 0xFFFFFFFFu);
    ENGINE_FS_API std::size_t Count() const;
    /// The load of the wish of this index. It lives as long as the batch; AddRef makes it live longer.
    ENGINE_FS_API SFsLoad* At(std::size_t index) const;
    /// How many of its loads have not ended.
    ENGINE_FS_API std::size_t Left() const;
    /// Cancels every load that has not ended.
    ENGINE_FS_API void Cancel();

    SFsLoadBatch(const SFsLoadBatch&) = delete;
    SFsLoadBatch& operator=(const SFsLoadBatch&) = delete;

protected:
    SFsLoadBatch() = default;
    ~SFsLoadBatch() = default;
};

/// How loads are served. Zeros are the defaults.
struct SFsLoadSettings {
    std::uint32_t workers = 0;    // threads; 0: one less than the machine has processors, from 1 to 4. At most 64
    bool no_urgent_lane = false;  // without the one thread more that serves URGENT loads alone
    std::uint64_t block_bytes =
        0;  // how many bytes of the library's blocks may be filled and not yet taken or released,
            // before further loads wait; 0: 256 MiB. One load at a time goes on whatever this says
};

/// What the loads came to since the library was loaded. Times are in microseconds.
struct SFsLoadStatistics {
    std::uint64_t waiting[4];   // below NORMAL, below HIGH, below URGENT, URGENT
    std::uint64_t in_hand;      // with a worker now
    std::uint64_t block_bytes;  // of the library's blocks, filled or being filled, neither taken nor released
    std::uint64_t done, failed, cancelled;
    std::uint64_t bytes;                    // that done loads brought
    std::uint64_t missed_deadlines;         // of loads that ended
    std::uint64_t longest_wait, mean_wait;  // from the call until a worker took the load
};

/// Bits given to fs::map.
struct FFSMapFlags {
    enum ENUM : std::uint32_t {
        NONE = 0,
        NO_COPY = 0x1,   // fail with UNSUPPORTED instead of copying
        POPULATE = 0x2,  // every byte is in memory when fs::map returns
    };
};

constexpr FFSMapFlags::ENUM operator|(FFSMapFlags::ENUM a, FFSMapFlags::ENUM b) {
    return static_cast<FFSMapFlags::ENUM>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

/// The bytes of a whole file, to be looked at. Zeros: none.
struct SFsView {
    const void* data = nullptr;
    std::uint64_t size = 0;
    bool is_mapped = false;  // the file's own bytes, not a copy
    void* owner = nullptr;   // the library's
};

namespace fs {

/// Shows the bytes of the file that fs::open would open: files of the disk and stored entries of packs as they are, without
/// a copy; what is packed, and what a host's own source holds without fs::ViewableFile, in a block of its own.
///
/// Returns  false, with `out` empty and the reason in fs::last_error, when the file cannot be opened, read or, with NO_COPY,
///          mapped. `out` is not looked at before.
/// Lives    until fs::unmap, also when its source is removed before.
/// Disk     while a mapped view stands, this process opens its file for reading alone (IN_USE). When another process cuts
///          the file, touching what is lost ends the process with a signal on Linux; with POPULATE what is lost already
///          fails the call instead. On Windows such a file cannot be cut. The checksum of a mapped entry is not looked at.
/// Threads  any; a view is read by any number of threads.
ENGINE_FS_API bool map(const char* path, SFsView& out, FFSMapFlags::ENUM flags = FFSMapFlags::NONE);
/// Ends a view and empties it. Nothing happens to an empty one.
ENGINE_FS_API void unmap(SFsView& view);

/// Has a worker load what `wish` says. The workers start with the first load; when the system has no thread for even one,
/// loads run here, one at a time, and the log says so.
///
/// Returns  the load with one reference for the caller; null when it could not be begun: NOT_INITIALIZED before fs::init
///          and after fs::shutdown, INVALID_NAME for an empty path, OUT_OF_MEMORY. All that concerns the file, NOT_FOUND
///          too, is told by the load.
ENGINE_FS_API SFsLoad* load_async(const SFsLoadWish& wish);

/// Several loads at once, all or none. Among equals they are served by their place in their pack. `callback`, which may be
/// null, runs once after the last load's own, where that runs. Null as load_async, and for no wishes (INVALID_ARGUMENT).
ENGINE_FS_API SFsLoadBatch* load_batch(const SFsLoadWish* wishes, std::size_t count,
                                       void (*callback)(SFsLoadBatch* batch, void* user) = nullptr,
                                       void* user = nullptr);

/// From now on callbacks run in fs::poll_loads, or (off, as at first) on the workers.
ENGINE_FS_API void set_polled_callbacks(bool on);
/// Runs the callbacks of up to `most` loads that have ended, here; that of a batch comes with its last load. Returns of how
/// many loads it told.
ENGINE_FS_API std::uint32_t poll_loads(std::uint32_t most);

/// Waits for the steps in hand when the number of workers changes. False, with nothing changed, for more than 64 workers
/// and on a worker (INVALID_ARGUMENT).
ENGINE_FS_API bool set_load_settings(const SFsLoadSettings& settings);
ENGINE_FS_API void get_load_statistics(SFsLoadStatistics& out);

}  // namespace fs

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/access/open.h>
#include <engine/filesystem/access/whole_file.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/c_interface/call.h"

namespace {

using namespace fs::c;

bool may_open(const char* path, int mode, uint32_t flags) {
    if (mode < ENGINEFS_READ || mode > ENGINEFS_READ_WRITE) return refuse_argument("There is no such mode.");
    return is_name(path, flags) && (mode == ENGINEFS_READ || is_new_name(path));
}

bool may_write(const OpenFile& open) {
    return open.is_written ||
           fs::refuse(EFSError::INVALID_ARGUMENT, fs::file_name(open.file.get()), "The file was opened for reading.");
}

/// What `ask(file)` answers, a size or a position; -1, with the failure stored, when it fails, or tells of one beside its
/// answer, as handles of packs do of damage. This is on the way of every read: one scope, no lock.
template <typename Ask>
int64_t ask_file(enginefs_file* handle, EFSError::TYPE untold, const char* text, Ask ask) noexcept {
    OpenFile* const open = find(handle);
    if (open == nullptr) return -1;
    const fs::ErrorScope scope;
    const std::uint64_t answer = fs::guarded(nullptr, fs::failed_size, [&] { return ask(*open); });
    if (answer <= INT64_MAX && !scope.has_error()) return static_cast<int64_t>(answer);
    fs::fail_unless_told(scope, untold, fs::file_name(open->file.get()), text);
    return -1;
}

/// The same of what is done or not; what fails without a reason is not to be had of this kind of file.
template <typename Work>
int change_file(enginefs_file* handle, const char* text, Work work) noexcept {
    return status_of(handle, [&](const OpenFile& open) {
        const fs::ErrorScope scope;
        return work(*open.file) ||
               fs::fail_unless_told(scope, EFSError::UNSUPPORTED, fs::file_name(open.file.get()), text);
    });
}

/// From the beginning; sources differ in what they make of other origins, and of positions before it.
bool find_position(enginefs_file* file, int64_t offset, int origin, int64_t& position) {
    int64_t from = 0;
    if (origin == ENGINEFS_SEEK_CURRENT)
        from = enginefs_tell(file);
    else if (origin == ENGINEFS_SEEK_END)
        from = enginefs_length(file);
    else if (origin != ENGINEFS_SEEK_BEGIN)
        return refuse_argument("There is no such origin to seek from.");
    if (from < 0) return false;
    if (offset > INT64_MAX - from || offset < -from) return refuse_argument("A file has no such position.");
    position = from + offset;
    return true;
}

using Block = std::unique_ptr<char, fs::FreeBlock>;

constexpr std::uint64_t first_piece = std::uint64_t{64} * 1024;  // of a file that does not tell its length

/// For this many bytes and the zero behind them.
void resize(Block& block, std::uint64_t size) {
    void* const larger = size < SIZE_MAX ? std::realloc(block.get(), static_cast<std::size_t>(size) + 1) : nullptr;
    if (larger == nullptr) throw std::bad_alloc();
    static_cast<void>(block.release());
    block.reset(static_cast<char*>(larger));
}

/// All that the file gives. Null, with the failure stored, unless that is the whole of it as it should be.
Block read_whole(SFsFile& file, const char* path, std::uint64_t& size) {
    const fs::ErrorScope scope;
    const std::uint64_t length = file.length();
    const bool is_known = length != fs::failed_size;
    std::uint64_t room = is_known ? length : first_piece;
    Block block;
    for (size = 0;; room *= 2) {
        resize(block, room);
        const std::uint64_t got = file.read(block.get() + size, room - size);
        if (scope.has_error() || got > room - size)
            return fs::fail_unless_told(scope, EFSError::IO, path, "The file cannot be read."), nullptr;
        size += got;
        if (is_known || size < room) break;
    }
    if (is_known && size != length)
        return fs::refuse(EFSError::IO, path, "The file gave fewer bytes than its length promised."), nullptr;
    block.get()[size] = '\0';
    return block;
}

}  // namespace

enginefs_file* enginefs_open(const char* path, int mode, uint32_t flags) {
    return fs::guarded<enginefs_file*>(path, nullptr, [&]() -> enginefs_file* {
        if (!may_open(path, mode, flags)) return nullptr;
        // The handle comes first: a file that was opened for writing is emptied, and closing it would commit that.
        auto made = std::make_unique<OpenFile>();
        OpenFile& open = *made;
        NewHandle<enginefs_file> handle(give<enginefs_file>(std::move(made)));
        open.file.reset(fs::open(path, static_cast<EFSMode::TYPE>(mode), as_open_flags(flags)));
        open.is_written = mode != ENGINEFS_READ;
        return open.file ? handle.release() : nullptr;
    });
}

int enginefs_close(enginefs_file* file) { return enginefs_commit(file); }

int enginefs_commit(enginefs_file* file) {
    return status_of_end(file, [](OpenFile& open) { return fs::commit(open.file.release()); });
}

int enginefs_discard(enginefs_file* file) {
    return status_of_end(file, [](OpenFile& open) { return fs::discard(open.file.release()), true; });
}

int64_t enginefs_read(enginefs_file* file, void* buffer, uint64_t size) {
    return ask_file(file, EFSError::IO, "The file cannot be read.", [&](const OpenFile& open) {
        const std::uint64_t got = is_block(buffer, size) ? open.file->read(buffer, size) : fs::failed_size;
        return got <= size ? got : fs::failed_size;
    });
}

int64_t enginefs_write(enginefs_file* file, const void* data, uint64_t size) {
    // Nothing but a full disk takes less without a reason of its own.
    return ask_file(file, EFSError::DISK_FULL, "The disk is full.", [&](const OpenFile& open) {
        if (!is_block(data, size) || !may_write(open)) return fs::failed_size;
        return size == 0 || open.file->write(data, size) == size ? size : fs::failed_size;
    });
}

int enginefs_seek(enginefs_file* file, int64_t offset, int origin) {
    return change_file(file, "This kind of file cannot be moved to there.", [&](SFsFile& moved) {
        int64_t position = 0;
        return find_position(file, offset, origin, position) && moved.seek(position, EFSSeek::BEGIN);
    });
}

int64_t enginefs_tell(enginefs_file* file) {
    return ask_file(file, EFSError::IO, "The position is not known.",
                    [](const OpenFile& open) { return open.file->tell(); });
}

int64_t enginefs_length(enginefs_file* file) {
    return ask_file(file, EFSError::UNSUPPORTED, "The file does not tell its length.",
                    [](const OpenFile& open) { return open.file->length(); });
}

int enginefs_set_end(enginefs_file* file) {
    return change_file(file, "This kind of file cannot be cut or extended.",
                       [](SFsFile& cut) { return cut.set_eof(); });
}

void* enginefs_load(const char* path, uint32_t flags, uint64_t* size) {
    if (size != nullptr) *size = 0;
    return fs::guarded<void*>(path, nullptr, [&]() -> void* {
        if (!is_name(path, flags)) return nullptr;
        const fs::FilePtr file(fs::open(path, EFSMode::READ, as_open_flags(flags)));
        if (!file) return nullptr;
        std::uint64_t length = 0;
        Block block = read_whole(*file, path, length);
        if (block && size != nullptr) *size = length;
        return block.release();
    });
}

int enginefs_save(const char* path, const void* data, uint64_t size, uint32_t flags) {
    return status(path, [&] {
        return is_name(path, flags) && is_new_name(path) && is_block(data, size) &&
               fs::save_binary_file(data, size, path, as_open_flags(flags));
    });
}

int enginefs_crc(const char* path, uint32_t flags, uint32_t* out) {
    return status(path, [&] {
        fs::CrcCalcArgs args;
        args.path = path;
        args.flags = as_open_flags(flags);
        if (!is_name(path, flags) || !are_given({out}) || !fs::calc_file_crc(args)) return false;
        *out = args.crc;
        return true;
    });
}

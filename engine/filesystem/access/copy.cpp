#include <algorithm>
#include <array>
#include <string>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/access/search.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/log/message.h"
#include "engine/kernel/bytes.h"

// What goes through files in pieces: copies, backups, checksums.
//
// Backup generations: NAME.bak is the newest, then NAME.ba1, .ba2 and .ba3. Making a backup moves each one step back and
// the file itself into the newest. A move is a copy and then a removal, oldest first, so that whenever it stops, each
// generation's bytes stand whole under at least one name. The first copy that fails therefore ends the rotation: going
// on would write over what has not been moved. A removal that fails does not: what it leaves stands elsewhere too.

namespace fs {

namespace {

/// What pieces of files pass through begins at a page, since the system copies whole pages into and out of its cache
/// fastest that way.
struct alignas(4096) Page {
    char bytes[4096];
};

std::unique_ptr<Page[]> pages_for(std::uint64_t size) {
    return std::unique_ptr<Page[]>(new Page[static_cast<std::size_t>(size / sizeof(Page)) + 1]);
}

/// Reads all of it, or stores the failure and answers false. A damaged entry of a pack gives all its bytes and a failure.
bool read_checked(SFsFile& file, const char* path, void* buffer, std::uint64_t size) {
    const ErrorScope scope;
    if (size == 0 || (file.read(buffer, size) == size && !scope.has_error())) return true;
    return fail_unless_told(scope, EFSError::IO, path, "The file gave fewer bytes than its length promised.");
}

bool add_content(SFsFile& file, std::uint64_t length, CrcCalcArgs& args) {
    const std::uint32_t wanted = args.buffer_size != 0 ? args.buffer_size : 256 * 1024;
    const std::uint64_t piece = std::min<std::uint64_t>(wanted, length);
    const auto buffer = pages_for(piece);
    while (args.size < length) {
        const std::uint64_t size = std::min(piece, length - args.size);
        if (!read_checked(file, args.path, buffer.get(), size)) return false;
        args.crc = kernel::crc32(args.crc, buffer.get(), static_cast<std::size_t>(size));
        args.size += size;
        if (args.progress != nullptr && !args.progress(args.size, length, args.user))
            return refuse(EFSError::CANCELLED, args.path, "The caller stopped the checksum.");
    }
    return true;
}

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};

bool is_empty(const char* path) { return path == nullptr || path[0] == '\0'; }

bool refuse_empty(const char* path) { return refuse(EFSError::INVALID_NAME, path, "An empty path names no file."); }

/// Whether writing `to` would write the very file that `from` is read from: the same name, held by a writable source,
/// which a write would reach first.
bool is_itself(const char* from, const char* to) {
    const fs::path name = lookup_name(from);
    if (!(name == lookup_name(to))) return false;
    const SharedGuard guard;
    CFSSource* const holder = registry::first_holder(name, Match::WHOLE);
    return holder != nullptr && holder->writable();
}

SFsFile* open_destination(const char* from, const char* to) {
    if (is_itself(from, to)) {
        set_error(EFSError::IN_USE, to, "A file cannot be copied onto itself.");
    } else if (SFsFile* const file = open(to, EFSMode::WRITE, FFSOpenFlags::WHOLE_NAME)) {
        return file;
    }
    log_message(log_source, Log::ELevel::ERRR, __LINE__, "ERROR [fs::copy] failed to open destination file %s -> %s\n",
                from, to);
    return nullptr;
}

constexpr std::size_t generations = 4;
using Names = std::array<std::string, generations>;

bool is_held(const std::string& name) {
    const ErrorScope scope;
    const bool is_there = exists(name.c_str(), FFSOpenFlags::WHOLE_NAME);
    check_memory(scope);  // one that is taken for missing would be written over
    return is_there;
}

/// Whether the bytes of `from` stand under `to` now. `to` was moved or removed before; what a failed copy leaves of it
/// would be taken for a backup.
bool move_file(const std::string& from, const std::string& to) {
    if (copy(from.c_str(), to.c_str(), 0)) {
        rem_file(from.c_str());
        return true;
    }
    const ErrorKeeper why;
    if (is_held(to)) rem_file(to.c_str());
    return false;
}

bool rotate(const Names& names) {
    // The oldest is taken to exist when all others do.
    std::size_t count = 1;
    while (count < generations && is_held(names[count - 1])) ++count;
    if (count == generations && is_held(names.back())) rem_file(names.back().c_str());
    for (std::size_t to = count - 1; to != 0; --to) {
        if (!move_file(names[to - 1], names[to])) return false;
    }
    return true;
}

}  // namespace

std::uint64_t known_length(SFsFile& file, const char* path) {
    const ErrorScope scope;
    const std::uint64_t length = file.length();
    if (length == failed_size)
        fail_unless_told(scope, EFSError::UNSUPPORTED, path, "The file does not tell its length.");
    return length;
}

bool copy_content(SFsFile& from, std::uint32_t buffer_size, const char* path,
                  const std::function<SFsFile*()>& open_target) {
    const std::uint64_t length = known_length(from, path);
    if (length == failed_size) return false;
    const std::uint64_t piece = std::min<std::uint64_t>(buffer_size != 0 ? buffer_size : 32768, length);
    const auto buffer = pages_for(piece);
    FilePtr to;
    std::uint64_t left = length;
    do {
        const std::uint64_t size = std::min(piece, left);
        if (!read_checked(from, path, buffer.get(), size)) return false;
        if (!to) to.reset(open_target());
        if (!to || !write_all(*to, path, buffer.get(), size)) return false;
        left -= size;
    } while (left != 0);
    return commit(to.release());  // a file may keep bytes back until it is closed
}

bool copy(const char* from, const char* to, std::uint32_t buffer_size) {
    if (is_empty(from) || is_empty(to)) return refuse_empty(is_empty(from) ? from : to);
    return guarded(from, false, [&] {
        const FilePtr source(open(from, EFSMode::READ, FFSOpenFlags::WHOLE_NAME));
        if (source) return copy_content(*source, buffer_size, from, [&] { return open_destination(from, to); });
        log_message(log_source, Log::ELevel::ERRR, __LINE__, "ERROR [fs::copy] failed to open source file %s -> %s\n",
                    from, to);
        return false;
    });
}

bool copy_dir(const char* from, const char* to) {
    return guarded(from, false, [&] {
        NormalText source(from, false);
        NormalText target(to, true);
        source.drop_trailing_slash();
        target.drop_trailing_slash();
        if (source.names_nothing() || target.names_nothing()) return refuse_empty(source.names_nothing() ? from : to);
        ErrorScope scope;
        const NameList names(search(source.c_str(), nullptr, true, false));
        if (names == nullptr) {
            return fail_unless_told(scope, EFSError::NOT_FOUND, from, "No source holds a file below this directory.");
        }
        bool complete = true;
        for (const FS_NAME* name = names.get(); name != nullptr; name = name->next) {
            const fs::string destination = fs::string(target.view()) + (name->name + source.view().size());
            complete &= copy(name->name, destination.c_str(), 0);
        }
        return complete;
    });
}

void create_backup_copy(const char* path) {
    guarded(path, [&] {
        if (is_empty(path)) return;
        const fs::string file = full_name(lookup_name(path));
        const Names names = {file + ".bak", file + ".ba1", file + ".ba2", file + ".ba3"};
        if (!is_held(file)) {
            set_error(EFSError::NOT_FOUND, path, "No source holds a file of this name.");
        } else if (names[0].size() >= path_capacity) {
            set_error(EFSError::INVALID_NAME, path, "The name of a backup would be longer than 259 bytes.");
        } else if (rotate(names)) {
            move_file(file, names[0]);
        }
    });
}

bool calc_file_crc(CrcCalcArgs& args) {
    args.crc = 0;
    args.size = 0;
    const auto add = [&](SFsFile& file, std::uint64_t length) { return add_content(file, length, args); };
    if (with_content(args.path, false, add, args.flags)) return true;
    args.crc = 0;
    args.size = 0;
    return false;
}

bool calc_file_crc(const char* path, std::uint32_t& crc) {
    CrcCalcArgs args;
    args.path = path;
    const bool whole = calc_file_crc(args);
    crc = args.crc;
    return whole;
}

}  // namespace fs

#include "engine/platform/directories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <new>

#include "engine/platform/faults.h"
#include "engine/platform/posix/creation.h"
#include "engine/platform/posix/descriptor.h"
#include "engine/platform/posix/directory_reader.h"
#include "engine/platform/posix/entry.h"
#include "engine/platform/posix/file_time.h"

namespace platform {
namespace {

/// Adds what a record stands for, if callers are to see it. Only links, and file systems that do not tell kinds, cost a
/// look at the item itself.
void add_record(int directory, const DirectoryRecord& record, const char* name, DirectoryListing& out) {
    const std::size_t length = std::strlen(name);
    if (std::memchr(name, '\\', length) != nullptr) return;
    if (record.kind == DT_REG || record.kind == DT_DIR) {
        out.add(name, length, record.kind == DT_DIR, false, false);
        return;
    }
    if (record.kind != DT_LNK && record.kind != DT_UNKNOWN) return;
    struct stat status;
    bool is_link = record.kind == DT_LNK;
    if (!is_link) {
        if (::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
        is_link = S_ISLNK(status.st_mode);
    }
    if (is_link && ::fstatat(directory, name, &status, 0) != 0) return;
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return;
    out.add(name, length, S_ISDIR(status.st_mode), is_link, false);
}

bool stat_directory(const PathAt& path, struct stat& status) {
    if (!check_path(path.full)) return false;
    const auto ask = [&](int directory, const char* text) { return ::fstatat(directory, text, &status, 0); };
    if (call_at(path, ask) != 0) return fail_os(errno);
    return S_ISDIR(status.st_mode) || fail_os(ENOTDIR);
}

bool remove_directory_link(const Entry& entry) {
    struct stat target;
    if (::stat(entry.path, &target) == 0 && !S_ISDIR(target.st_mode)) return fail_os(ENOTDIR);
    return ::unlink(entry.path) == 0 || fail_os(errno);
}

}  // namespace

bool list_directory(const PathAt& path, DirectoryListing& out) try {
    out.clear();
    if (!check_path(path.full)) return false;
    if (const auto fault = fault_at(FaultPoint::LIST)) return fail(*fault);
    const Descriptor directory(call_at(path, [](int at, const char* text) {
        return ::openat(at, text, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    }));
    if (!directory.valid()) return fail_os(errno);
    const bool complete = read_directory(directory.number(), [&](const DirectoryRecord& record, const char* name) {
        add_record(directory.number(), record, name, out);
    });
    const int os_code = errno;
    out.sort();
    return complete || fail_os(os_code);
} catch (const std::bad_alloc&) {
    return fail(Failure::OTHER, ENOMEM);
}

bool get_directory_id(const char* path, DirectoryId& out) {
    struct stat status;
    if (!stat_directory(PathAt{.full = path}, status)) return false;
    out = DirectoryId{.device = status.st_dev, .inode = status.st_ino};
    return true;
}

bool get_directory_times(const PathAt& path, DirectoryTimes& out) {
    struct stat status;
    if (const auto fault = fault_at(FaultPoint::STAT)) return fail(*fault);
    if (!stat_directory(path, status)) return false;
    out = {.written = to_file_time(status.st_mtim), .changed = to_file_time(status.st_ctim)};
    return true;
}

bool create_directory(const char* path) {
    if (!check_path(path)) return false;
    if (const auto fault = fault_at(FaultPoint::CREATE_DIRECTORY)) return fail(*fault);
    struct stat status;
    if (::lstat(path, &status) == 0) return fail(Failure::ALREADY_EXISTS, EEXIST);
    const Creation creation(path);
    if (creation.spelling() == Spelling::EXISTS) return fail(Failure::ALREADY_EXISTS, EEXIST);
    if (creation.spelling() == Spelling::MISSING) return fail(Failure::NOT_FOUND, ENOENT);
    if (!creation.check_name()) return false;
    return ::mkdir(creation.path(), 0777) == 0 ? creation.done() : fail_os(errno);
}

bool remove_directory(const char* path) {
    if (const auto fault = fault_at(FaultPoint::REMOVE)) return fail(*fault);
    Entry entry;
    if (!find_entry(path, entry)) return false;
    if (entry.is_link()) return remove_directory_link(entry);
    if (::rmdir(entry.path) == 0) return true;
    return errno == EEXIST ? fail(Failure::NOT_EMPTY, EEXIST) : fail_os(errno);
}

bool is_link(const char* path) {
    Entry entry;
    return find_entry(path, entry) && entry.is_link();
}

bool resolve_case(const char* path, char* out) {
    char spelled[path_buffer_size];
    struct stat status;
    if (!copy_path(path, spelled)) return false;
    if (::lstat(spelled, &status) != 0) spell_path(spelled);
    const std::size_t length = std::strlen(spelled);
    std::memmove(out, path, std::strlen(path) + 1);  // trailing slashes stay
    std::memcpy(out, spelled, length);
    return true;
}

}  // namespace platform

// Directories and links: listing, making, removing, and where they lead.
#include "engine/platform/directories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "engine/platform/linux/disk.h"
#include "engine/platform/posix/names.h"

namespace platform {
namespace {

/// Looks at an item, which may be known to be a link already. 0, or the errno for which callers do not see it.
int look(int directory, const char* name, bool is_link, Links links, DirectoryItem& out) {
    struct stat status {};
    if (!is_link && ::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    is_link = is_link || S_ISLNK(status.st_mode);
    const bool is_broken = is_link && ::fstatat(directory, name, &status, 0) != 0;
    if (is_broken && !leads_nowhere(failure_of(errno))) return errno;
    out = {.is_directory = !is_broken && S_ISDIR(status.st_mode), .is_link = is_link};
    const bool is_file = !is_broken && S_ISREG(status.st_mode);
    return is_file || out.is_directory || (is_link && links == Links::ALL) ? 0 : ENOENT;
}

/// Adds what a record stands for, if callers are to see it. Only links, and file systems that do not tell kinds, cost a
/// look at the item itself. False with errno set when that look failed.
bool add_record(int directory, const DirectoryRecord& record, const char* name, Links links, DirectoryListing& out) {
    const std::size_t length = std::strlen(name);
    if (std::memchr(name, '\\', length) != nullptr) return true;
    DirectoryItem item{.is_directory = record.kind == DT_DIR};
    if (record.kind == DT_LNK || record.kind == DT_UNKNOWN)
        errno = look(directory, name, record.kind == DT_LNK, links, item);
    else
        errno = record.kind == DT_REG || record.kind == DT_DIR ? 0 : ENOENT;
    if (errno != 0) return leads_nowhere(failure_of(errno));
    out.add(name, length, item);
    return true;
}

bool stat_directory(const PathAt& path, struct stat& status) {
    if (!check_path(path.full)) return false;
    if (stat_at(path, status) != 0) return fail_os(errno);
    return S_ISDIR(status.st_mode) || fail_os(ENOTDIR);
}

bool remove_directory_link(const Entry& entry) {
    struct stat target;
    if (::stat(entry.path, &target) == 0 && !S_ISDIR(target.st_mode)) return fail_os(ENOTDIR);
    return ::unlink(entry.path) == 0 || fail_os(errno);
}

}  // namespace

bool read_items(const PathAt& path, Links links, DirectoryListing& out) {
    if (!check_path(path.full)) return false;
    const Descriptor directory(call_at(path, [](int at, const char* text) {
        return ::openat(at, text, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    }));
    if (!directory.valid()) return fail_os(errno);
    int item_code = 0;  // of the first item that could not be looked at
    const bool is_read = read_directory(directory.number(), [&](const DirectoryRecord& record, const char* name) {
        if (!add_record(directory.number(), record, name, links, out) && item_code == 0) item_code = errno;
    });
    if (!is_read) return fail_os(errno);
    return item_code == 0 || fail_os(item_code);
}

bool look_at(const char* path, DirectoryItem& out, char* name) {
    if (!check_path(path) || meets_fault(FaultPoint::STAT)) return false;
    if (const int code = look(AT_FDCWD, path, false, Links::FOLLOWED, out)) return fail_os(code);
    const char* const last = last_component(path);
    std::memcpy(name, last, std::strlen(last) + 1);
    return true;
}

bool get_directory_id(const char* path, FileId& out) {
    struct stat status;
    if (!stat_directory(PathAt{.full = path}, status)) return false;
    out = FileId{.device = status.st_dev, .inode = status.st_ino};
    return true;
}

bool get_directory_times(const PathAt& path, DirectoryTimes& out) {
    struct stat status;
    if (meets_fault(FaultPoint::STAT)) return false;
    if (!stat_directory(path, status)) return false;
    out = {.written = to_file_time(status.st_mtim), .changed = to_file_time(status.st_ctim)};
    return true;
}

bool create_directory(const char* path) {
    if (!check_path(path) || meets_fault(FaultPoint::CREATE_DIRECTORY)) return false;
    struct stat status;
    if (::lstat(path, &status) == 0) return fail(Failure::ALREADY_EXISTS, EEXIST);
    const Creation creation(path);
    if (!creation.check_new()) return false;
    return ::mkdir(creation.path(), 0777) == 0 ? creation.done() : fail_os(errno);
}

bool remove_directory(const char* path) {
    if (meets_fault(FaultPoint::REMOVE)) return false;
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

bool resolve_link(const char* path, char* out) {
    Entry entry;
    if (!find_entry(path, entry) || !entry.is_link()) return resolve_case(path, out);
    char* const target = ::realpath(entry.path, nullptr);
    if (target == nullptr) return fail_os(errno);
    const std::size_t length = std::strlen(target);
    if (length < path_buffer_size) std::memcpy(out, target, length + 1);
    std::free(target);
    return length < path_buffer_size || fail(Failure::PATH_TOO_LONG);
}

bool resolve_case(const char* path, char* out) {
    char spelled[path_buffer_size];
    struct stat status;
    if (!copy_path(path, spelled)) return false;
    if (::lstat(spelled, &status) != 0 && spell_path(spelled) == Spelling::UNKNOWN) return fail_os(errno);
    const std::size_t length = std::strlen(spelled);
    std::memmove(out, path, std::strlen(path) + 1);  // trailing slashes stay
    std::memcpy(out, spelled, length);
    return true;
}

bool expand_short_names(const char* path, char* out) {
    if (!check_path(path)) return false;
    std::memmove(out, path, std::strlen(path) + 1);
    return true;
}

}  // namespace platform

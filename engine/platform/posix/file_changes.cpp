#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "engine/platform/directories.h"
#include "engine/platform/faults.h"
#include "engine/platform/posix/creation.h"
#include "engine/platform/posix/descriptor.h"
#include "engine/platform/posix/entry.h"
#include "engine/platform/posix/sharing.h"

// Deleting and renaming. Whatever loses its name is held alone in the table of open files meanwhile, so that no open of
// this process comes in between, and is counted afterwards, so that an open which had found it looks again.

namespace platform {
namespace {

/// Directories change for good only when they are synced themselves; a crash may bring the old name back before.
bool sync_directory_of(const char* path) {
    const Descriptor opened(::open(DirectoryPath(path).text, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.valid()) return fail_os(errno);
    return retry_interrupted([&] { return ::fsync(opened.number()); }) == 0 || fail_os(errno);
}

bool sync_file(const char* path) {
    const Descriptor opened(retry_interrupted([&] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    if (!opened.valid()) return fail_os(errno);
    return retry_interrupted([&] { return ::fsync(opened.number()); }) == 0 || fail_os(errno);
}

bool same_object(const Entry& a, const Entry& b) { return key_of(a.status) == key_of(b.status); }

/// Whether two paths of the disk are one name: the same spelling in the same directory.
bool same_name(const Entry& a, const Entry& b) {
    if (!same_object(a, b) || std::strcmp(last_component(a.path), last_component(b.path)) != 0) return false;
    DirectoryId one;
    DirectoryId other;
    return get_directory_id(DirectoryPath(a.path).text, one) && get_directory_id(DirectoryPath(b.path).text, other) &&
           one == other;
}

/// Whether `target` may be replaced by `source`, which is another name.
bool check_replaceable(const Entry& source, const Entry& target, SoleHold& hold) {
    if (target.is_directory() || source.is_directory()) return fail(Failure::ALREADY_EXISTS);
    if (!target.is_regular() && !target.is_link()) return fail(Failure::NOT_REGULAR);
    if (target.is_read_only()) return fail(Failure::READ_ONLY);
    // Two names of one file: it is held already, on account of the source.
    return same_object(source, target) || hold.acquire(target.status) || fail(Failure::IN_USE);
}

bool rename_entry(const Entry& source, const char* to) {
    if (::rename(source.path, to) != 0) return fail_os(errno);
    count_removal();
    return true;
}

/// `name` is the source's own last name in another case, and so as long.
bool change_case(const Entry& source, const char* name) {
    char recased[path_buffer_size];
    const auto kept = static_cast<std::size_t>(last_component(source.path) - source.path);
    std::memcpy(recased, source.path, kept);
    std::memcpy(recased + kept, name, std::strlen(name) + 1);
    return rename_entry(source, recased);
}

/// Renaming one of two names of a file onto the other does nothing, says POSIX; callers expect the first to be gone.
bool merge_names(const Entry& source) { return ::unlink(source.path) == 0 || fail_os(errno); }

bool move_entry(const Entry& source, const char* to) {
    SoleHold hold_source;
    if (!hold_source.acquire(source.status)) return fail(Failure::IN_USE);
    const Creation creation(to);
    if (creation.spelling() == Spelling::MISSING) return fail(Failure::NOT_FOUND, ENOENT);
    if (creation.spelling() == Spelling::NEW) {
        return creation.check_name() && rename_entry(source, creation.path()) && creation.done();
    }

    Entry target;
    std::memcpy(target.path, creation.path(), path_buffer_size);
    if (!look_at_entry(target)) return false;
    if (same_name(source, target)) {
        char given[path_buffer_size];
        return copy_path(to, given) && change_case(source, last_component(given));
    }
    SoleHold hold_target;
    if (!check_replaceable(source, target, hold_target)) return false;
    return same_object(source, target) ? merge_names(source) : rename_entry(source, target.path);
}

bool start_rename(const char* from, const char* to, Entry& source) {
    if (!check_path(from) || !check_path(to)) return false;
    if (const auto fault = fault_at(FaultPoint::RENAME)) return fail(*fault);
    return find_entry(from, source);
}

}  // namespace

bool look_at_entry(Entry& entry) { return ::lstat(entry.path, &entry.status) == 0 || fail_os(errno); }

bool find_entry(const char* path, Entry& out) {
    if (!copy_path(path, out.path)) return false;
    if (::lstat(out.path, &out.status) == 0) return true;
    if (errno != ENOENT) return fail_os(errno);
    return spell_path(out.path) == Spelling::EXISTS ? look_at_entry(out) : fail_os(ENOENT);
}

bool remove_file(const char* path) {
    if (const auto fault = fault_at(FaultPoint::REMOVE)) return fail(*fault);
    Entry entry;
    if (!find_entry(path, entry)) return false;
    if (!entry.is_regular() && !entry.is_link()) return fail(Failure::NOT_REGULAR);
    if (entry.is_read_only()) return fail(Failure::READ_ONLY);
    SoleHold hold;
    if (!hold.acquire(entry.status)) return fail(Failure::IN_USE);
    if (::unlink(entry.path) != 0) return fail_os(errno);
    count_removal();
    return true;
}

bool rename_path(const char* from, const char* to) {
    Entry source;
    return start_rename(from, to, source) && move_entry(source, to);
}

bool replace_file(const char* from, const char* to) {
    Entry source;
    if (!start_rename(from, to, source)) return false;
    if (!source.is_regular()) return fail(Failure::NOT_REGULAR);
    // The content must be on the disk before the name is, or a crash leaves the new name with nothing behind it.
    if (!sync_file(source.path) || !move_entry(source, to)) return false;
    Entry replaced;
    return find_entry(to, replaced) && sync_directory_of(replaced.path);
}

}  // namespace platform

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "engine/platform/directories.h"
#include "engine/platform/posix/names.h"
#include "engine/platform/posix/sharing.h"

// Asking about files, and changing what is written about them: attributes, times, names. Whatever loses its name is held
// alone in the table of open files meanwhile, so that no open of this process comes in between, and is counted afterwards,
// so that an open which had found it looks again.

namespace platform {
namespace {

/// Has a file alone while it is deleted, renamed or replaced. Anything but a regular file is not in the table and always
/// free.
class SoleUse {
public:
    SoleUse() = default;
    SoleUse(const SoleUse&) = delete;
    SoleUse& operator=(const SoleUse&) = delete;
    ~SoleUse() {
        if (id_.inode != 0) release_share(id_, true);
    }
    /// False, with the failure recorded, when it is in use, or when another has taken its name since it was found.
    bool acquire(const Entry& entry) {
        if (!entry.is_regular()) return true;
        const FileId id = id_of(entry.status);
        if (!acquire_share(id, true)) return false;
        id_ = id;
        struct stat now;
        return ::lstat(entry.path, &now) != 0 || id_of(now) == id || fail(Failure::IN_USE);
    }

private:
    FileId id_;
};

bool sync(const char* path) {
    const Descriptor opened(retry_interrupted([&] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    if (!opened.valid()) return fail_os(errno);
    return retry_interrupted([&] { return ::fsync(opened.number()); }) == 0 || fail_os(errno);
}

bool same_object(const Entry& a, const Entry& b) { return id_of(a.status) == id_of(b.status); }

/// Whether two paths of the disk are one name: the same spelling in the same directory.
bool same_name(const Entry& a, const Entry& b) {
    if (!same_object(a, b) || std::strcmp(last_component(a.path), last_component(b.path)) != 0) return false;
    FileId one;
    FileId other;
    return get_directory_id(DirectoryPath(a.path).text, one) && get_directory_id(DirectoryPath(b.path).text, other) &&
           one == other;
}

/// Whether `target` may be replaced by `source`, which is another name.
bool check_replaceable(const Entry& source, const Entry& target, SoleUse& use) {
    if (target.is_directory() || source.is_directory()) return fail(Failure::ALREADY_EXISTS);
    if (!target.is_regular() && !target.is_link()) return fail(Failure::NOT_REGULAR);
    if (target.is_read_only()) return fail(Failure::READ_ONLY);
    // Two names of one file: it is held already, on account of the source.
    return same_object(source, target) || use.acquire(target);
}

bool unlink_entry(const Entry& entry) {
    if (::unlink(entry.path) != 0) return fail_os(errno);
    count_removal();
    return true;
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

/// The caller has the source alone, or open for writing.
bool move_entry(const Entry& source, const char* to) {
    const Creation creation(to);
    if (creation.spelling() != Spelling::EXISTS) {
        return creation.check_new() && rename_entry(source, creation.path()) && creation.done(source.path);
    }
    Entry target;
    if (!find_entry(creation.path(), target)) return false;
    if (same_name(source, target)) {
        char given[path_buffer_size];
        return copy_path(to, given) && change_case(source, last_component(given));
    }
    SoleUse target_use;
    if (!check_replaceable(source, target, target_use)) return false;
    // Renaming one of two names of a file onto the other does nothing, says POSIX; callers expect the first to be gone.
    return same_object(source, target) ? unlink_entry(source) : rename_entry(source, target.path);
}

/// Nobody may have it open meanwhile.
bool move_alone(const Entry& source, const char* to) {
    SoleUse use;
    return use.acquire(source) && move_entry(source, to);
}

bool start_rename(const char* from, const char* to, Entry& source) {
    return check_path(from) && check_path(to) && !meets_fault(FaultPoint::RENAME) && find_entry(from, source);
}

/// Finds the open file under the name that it was opened by.
bool find_open(const char* path, const FileId& id, Entry& out) {
    return find_entry(path, out) && (id_of(out.status) == id || fail(Failure::NOT_FOUND));
}

}  // namespace

bool leads_to(const char* path, const File& file) {
    struct stat there;
    struct stat open;
    return stat_at(PathAt{.full = path}, there) == 0 && ::fstat(static_cast<int>(file.native()), &open) == 0 &&
           id_of(there) == id_of(open);
}

std::optional<Attributes> get_attributes(const PathAt& path) {
    struct stat status;
    const bool is_asked = check_path(path.full) && !meets_fault(FaultPoint::STAT);
    if (!is_asked || (stat_at(path, status) != 0 && !fail_os(errno))) return std::nullopt;
    const bool is_directory = S_ISDIR(status.st_mode);
    if (!is_directory && !S_ISREG(status.st_mode) && !fail(Failure::NOT_REGULAR)) return std::nullopt;
    return Attributes{.is_directory = is_directory,
                      .is_read_only = (status.st_mode & S_IWUSR) == 0,
                      .size = is_directory ? 0 : static_cast<std::uint64_t>(status.st_size),
                      .write_time = to_file_time(status.st_mtim),
                      .access_time = to_file_time(status.st_atim)};
}

bool set_read_only(const char* path, bool on) {
    if (!check_path(path) || meets_fault(FaultPoint::CHANGE)) return false;
    const PathAt at{.full = path};
    struct stat status;
    if (stat_at(at, status) != 0) return fail_os(errno);
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return fail(Failure::NOT_REGULAR);
    constexpr mode_t all_write = S_IWUSR | S_IWGRP | S_IWOTH;
    const mode_t old = status.st_mode & 07777;
    const mode_t changed = on ? old & ~all_write : old | S_IWUSR;
    if (changed == old) return true;
    const auto change = [&](int directory, const char* text) { return ::fchmodat(directory, text, changed, 0); };
    return call_at(at, change) == 0 || fail_os(errno);
}

bool File::set_times(std::int64_t time, bool all) {
    const timespec value = from_file_time(time);
    const timespec times[2] = {all ? value : timespec{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, value};
    return ::futimens(static_cast<int>(state_.handle), times) == 0 || fail_os(errno);
}

bool File::rename_open(const char* from, const char* to) {
    Entry source;
    if (!check_path(to) || !find_open(from, state_.id, source)) return false;
    struct stat before;
    // Who may read it stays who may; where the owner does not allow that, the file keeps what it was made with.
    if (stat_at(PathAt{.full = to}, before) == 0)
        (void)::fchmod(static_cast<int>(state_.handle), before.st_mode & 07777);
    return move_entry(source, to);
}

bool File::remove_open(const char* from) {
    Entry entry;
    return find_open(from, state_.id, entry) && unlink_entry(entry);
}

bool remove_file(const char* path) {
    Entry entry;
    if (meets_fault(FaultPoint::REMOVE) || !find_entry(path, entry)) return false;
    if (!entry.is_regular() && !entry.is_link()) return fail(Failure::NOT_REGULAR);
    if (entry.is_read_only()) return fail(Failure::READ_ONLY);
    SoleUse use;
    return use.acquire(entry) && unlink_entry(entry);
}

bool rename_path(const char* from, const char* to) {
    Entry source;
    return start_rename(from, to, source) && move_alone(source, to);
}

bool replace_file(const char* from, const char* to) {
    Entry source;
    if (!start_rename(from, to, source)) return false;
    if (!source.is_regular()) return fail(Failure::NOT_REGULAR);
    // The content must be on the disk before the name is, or a crash leaves the new name with nothing behind it.
    if (meets_fault(FaultPoint::SYNC) || !sync(source.path) || !move_alone(source, to)) return false;
    // The directory is synced too, since a crash may bring back the old name until then. It is done all the same where
    // that fails: whoever asks finds the new file.
    Entry replaced;
    const Error before = last_error();
    if (!find_entry(to, replaced) || !sync(DirectoryPath(replaced.path).text)) fail(before.failure, before.os_code);
    return true;
}

}  // namespace platform

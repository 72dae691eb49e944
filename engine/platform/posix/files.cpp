#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "engine/platform/files.h"
#include "engine/platform/linux/disk.h"
#include "engine/platform/posix/names.h"
#include "engine/platform/posix/sharing.h"

// POSIX lets one open, truncate and share what Windows would not, so an open goes in steps: find the file under any
// spelling and open it without touching its content; see that it is a regular file and not read-only; enter it in the
// table of open files and lock it. A reader's open is one openat, one fstat and one flock.

namespace platform {
namespace {

// Creating and removing by others can make a step find what the step before it denied. Each attempt starts from
// nothing, and only a race that is lost this often in a row fails.
constexpr int attempts = 64;
constexpr std::uint32_t direct_alignment = 4096;  // a multiple of what any disk asks for

enum class Step : std::uint8_t { DONE, FAILED, AGAIN };

Step done_if(bool done) { return done ? Step::DONE : Step::FAILED; }

bool is_exclusive(const OpenOptions& options) { return options.writes() || options.sharing == Sharing::NONE; }

int open_flags(const OpenOptions& options) {
    // Non-blocking and without a controlling terminal: a pipe or a terminal is found out before it can do harm.
    int flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    if (options.access == Access::WRITE)
        flags |= O_WRONLY;
    else if (options.writes())
        flags |= O_RDWR;
    if (options.write_through) flags |= O_DSYNC;
    if (options.unbuffered) flags |= open_direct;
    return flags;
}

/// File systems that cannot bypass the cache refuse the flag; then the open is an ordinary one.
int open_or_buffered(int directory, const char* path, int& flags) {
    const int descriptor = ::openat(directory, path, flags, 0666);
    if (descriptor >= 0 || errno != EINVAL || (flags & open_direct) == 0) return descriptor;
    flags &= ~open_direct;
    return ::openat(directory, path, flags, 0666);
}

/// One attempt to open a file: what it has got so far.
class Opening {
public:
    Opening(const PathAt& path, const OpenOptions& options) : path_(path), options_(options) {}
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;
    /// A file that this attempt made goes again when the attempt comes to nothing.
    ~Opening() {
        if (descriptor_.valid() && is_created()) ::unlink(created_);
    }

    Step run() {
        const std::uint64_t removals = removal_count();
        const Step opened = open_or_create();
        return opened == Step::DONE ? admit(removals) : opened;
    }

    bool is_created() const { return created_[0] != '\0'; }
    bool is_direct() const { return (flags_ & open_direct) != 0; }
    FileId id() const { return id_of(status_); }
    int release() { return descriptor_.release(); }

private:
    Step open_or_create() {
        descriptor_.reset(call_at(path_, [&](int at, const char* text) { return open_or_buffered(at, text, flags_); }));
        if (descriptor_.valid()) return Step::DONE;
        return errno == ENOENT && options_.creates() ? create_new() : fail_open(errno);
    }

    Step create_new() {
        const Creation creation(path_.full);
        if (creation.spelling() == Spelling::EXISTS) return Step::AGAIN;
        if (!creation.check_new()) return Step::FAILED;
        flags_ |= O_CREAT | O_EXCL;
        descriptor_.reset(retry_interrupted([&] { return open_or_buffered(AT_FDCWD, creation.path(), flags_); }));
        if (!descriptor_.valid()) return errno == EEXIST ? Step::AGAIN : done_if(fail_os(errno));
        std::memcpy(created_, creation.path(), sizeof created_);
        creation.done();
        return Step::DONE;
    }

    /// Why a file did not open: its own read-only attribute is told from other refusals.
    Step fail_open(int os_code) {
        const bool ask = os_code == EACCES && options_.writes();
        const bool is_read_only = ask && stat_at(path_, status_) == 0 && S_ISREG(status_.st_mode) && lacks_write();
        return done_if(is_read_only ? fail(Failure::READ_ONLY, os_code) : fail_os(os_code));
    }

    /// Whether the file may be used as asked; if so it is in the table of open files, and locked.
    Step admit(std::uint64_t removals) {
        if (::fstat(descriptor_.number(), &status_) != 0) return done_if(fail_os(errno));
        if (!S_ISREG(status_.st_mode)) return done_if(fail(Failure::NOT_REGULAR));
        if (lacks_write() && options_.writes() && !is_created()) return done_if(fail(Failure::READ_ONLY));
        if (!acquire_share(id(), is_exclusive(options_))) return leave_if_held();
        const bool is_locked = lock_file(descriptor_.number(), options_.writes());
        if (is_locked && has_kept_name(removals)) return Step::DONE;
        if (is_locked) unlock_file(descriptor_.number(), true, fork_count());
        release_share(id(), is_exclusive(options_));
        if (!is_locked) return leave_if_held();
        created_[0] = '\0';
        return Step::AGAIN;
    }

    /// Somebody found a file in the moment in which it was made: it is theirs now. Or its number was that of a file which
    /// another thread is closing, and the next attempt succeeds.
    Step leave_if_held() {
        if (!is_created() || last_error().failure != Failure::IN_USE) return Step::FAILED;
        created_[0] = '\0';
        return Step::AGAIN;
    }

    bool lacks_write() const { return (status_.st_mode & S_IWUSR) == 0; }

    /// Whether the path leads to the file still, now that nobody of this process can take its name away any more. What
    /// other processes remove or replace is not counted here, and nothing may be written to it.
    bool has_kept_name(std::uint64_t removals) const {
        struct stat now;
        if (removal_count() != removals) return stat_at(path_, now) == 0 && id_of(now) == id();
        return !is_exclusive(options_) || (::fstat(descriptor_.number(), &now) == 0 && now.st_nlink > 0);
    }

    const PathAt& path_;
    const OpenOptions& options_;
    int flags_ = open_flags(options_);
    Descriptor descriptor_{-1};
    struct stat status_;
    char created_[path_buffer_size] = {'\0'};
};

int number_of(std::intptr_t handle) { return static_cast<int>(handle); }

std::uint64_t moved_or_fail(ssize_t moved) {
    if (moved >= 0) return static_cast<std::uint64_t>(moved);
    fail_os(errno);
    return all_ones;
}

}  // namespace

Root::~Root() {
    if (valid()) ::close(number_of(handle_));
}

Root Root::open(const char* path) {
    Root root;
    char text[path_buffer_size];
    if (!copy_path(path, text)) return root;
    root.handle_ = call_at(PathAt{.full = text},
                           [](int directory, const char* name) { return ::openat(directory, name, open_for_lookup); });
    if (!root.valid()) fail_os(errno);
    return root;
}

void File::open_unchanged(const PathAt& path, const OpenOptions& options, bool& created) {
    if (!check_path(path.full)) return;
    if (path.full[std::strlen(path.full) - 1] == '/') {
        fail(Failure::INVALID_NAME);
        return;
    }
    for (int attempt = 0; attempt < attempts; ++attempt) {
        Opening opening(path, options);
        const Step step = opening.run();
        if (step == Step::AGAIN) continue;
        if (step == Step::FAILED) return;
        created = opening.is_created();
        state_ = State{.handle = opening.release(),
                       .id = opening.id(),
                       .alignment = opening.is_direct() ? direct_alignment : 1,
                       .forks = fork_count(),
                       .exclusive = is_exclusive(options)};
        return;
    }
    fail(Failure::IN_USE);
}

bool File::close_handle() {
    // The lock goes first and the entry in the table last: in between nobody of this process asks for the lock.
    unlock_file(number_of(state_.handle), state_.exclusive, state_.forks);
    // The descriptor is gone whatever the answer is, also when a signal interrupts.
    const bool is_whole = ::close(number_of(state_.handle)) == 0 || errno == EINTR || fail_os(errno);
    release_share(state_.id, state_.exclusive);
    return is_whole;
}

std::uint64_t File::read_some(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    return moved_or_fail(
        retry_interrupted([&] { return ::pread(number_of(state_.handle), buffer, size, static_cast<off_t>(offset)); }));
}

std::uint64_t File::write_some(const void* buffer, std::uint64_t size, std::uint64_t offset) {
    const int number = number_of(state_.handle);
    return moved_or_fail(retry_interrupted([&] {
        return state_.append ? ::write(number, buffer, size)
                             : ::pwrite(number, buffer, size, static_cast<off_t>(offset));
    }));
}

bool File::append_only() {
    const int flags = ::fcntl(number_of(state_.handle), F_GETFL);
    if (flags < 0 || ::fcntl(number_of(state_.handle), F_SETFL, flags | O_APPEND) < 0) return fail_os(errno);
    state_.append = true;
    return true;
}

std::uint64_t File::ask_length() const {
    struct stat status;
    if (::fstat(number_of(state_.handle), &status) == 0) return static_cast<std::uint64_t>(status.st_size);
    fail_os(errno);
    return all_ones;
}

bool File::end_at(std::uint64_t position) {
    const auto truncate = [&] { return ::ftruncate(number_of(state_.handle), static_cast<off_t>(position)); };
    if (retry_interrupted(truncate) == 0) return true;
    // What ftruncate calls invalid is a descriptor that was not opened for writing.
    return errno == EINVAL ? fail(Failure::ACCESS_DENIED, EINVAL) : fail_os(errno);
}

bool File::flush() {
    return retry_interrupted([&] { return ::fsync(number_of(state_.handle)); }) == 0 || fail_os(errno);
}

int File::duplicate_descriptor(bool /*for_writing*/) const {
    if (!valid()) fail(Failure::INVALID_HANDLE);
    if (!valid() || meets_fault(FaultPoint::DUPLICATE)) return -1;
    const int copy = ::fcntl(number_of(state_.handle), F_DUPFD_CLOEXEC, 0);
    if (copy < 0) fail_os(errno);
    if (copy >= 0) ::lseek(copy, static_cast<off_t>(state_.position), SEEK_SET);
    return copy;
}

void close_descriptor(int descriptor) { ::close(descriptor); }

int File::read_overlapped(void*, std::uint32_t, std::uint32_t* transferred, SNativeOverlapped*) {
    constexpr int failed = 2;
    *transferred = 0;
    fail(Failure::OTHER);
    return failed;
}

bool File::cancel() { return valid() || fail(Failure::INVALID_HANDLE); }

Mapping::Mapping(const File& file, std::uint64_t offset, std::uint64_t size) {
    if (meets_fault(FaultPoint::READ)) return;
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    skip_ = static_cast<std::size_t>(offset % page);
    const std::size_t length = static_cast<std::size_t>(size) + skip_;
    void* const start =
        ::mmap(nullptr, length, PROT_READ, MAP_SHARED, number_of(file.native()), static_cast<off_t>(offset - skip_));
    if (start != MAP_FAILED)
        start_ = {start, Unmap{length}};
    else
        fail_os(errno);
}

bool Mapping::Populate() const {
    if (::madvise(start_.get(), start_.get_deleter().length, populate_read) == 0) return true;
    return fail(errno == EINVAL ? Failure::OTHER : Failure::IO, errno);
}

void Mapping::Unmap::operator()(void* start) const { ::munmap(start, length); }

}  // namespace platform

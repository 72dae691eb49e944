#include "engine/platform/files.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "engine/platform/faults.h"
#include "engine/platform/posix/creation.h"
#include "engine/platform/posix/descriptor.h"
#include "engine/platform/posix/sharing.h"
#include "engine/platform/posix/spelling/spelling.h"

// Opening. POSIX lets one open, truncate and share what Windows would not, so an open goes in steps: find the file under
// any spelling and open it without touching its content; see that it is a regular file and not read-only; enter it in
// the table of open files; only then truncate. A reader's open is exactly one openat and one fstat.

namespace platform {
namespace {

// Creating and removing by others can make a step find what the step before it denied. Each attempt starts from
// nothing, and only a race that is lost this often in a row fails.
constexpr int attempts = 64;
constexpr std::uint32_t direct_alignment = 4096;  // a multiple of what any disk asks for

bool truncates(Disposition disposition) {
    return disposition == Disposition::CREATE_ALWAYS || disposition == Disposition::TRUNCATE_EXISTING;
}
bool creates(Disposition disposition) {
    return disposition == Disposition::CREATE_ALWAYS || disposition == Disposition::OPEN_ALWAYS;
}
bool writes(const OpenOptions& options) { return options.access != Access::READ || truncates(options.disposition); }

bool is_exclusive(const OpenOptions& options) { return writes(options) || options.sharing == Sharing::NONE; }

int open_flags(const OpenOptions& options) {
    // Non-blocking and without a controlling terminal: a pipe or a terminal is found out before it can do harm.
    int flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    if (options.access == Access::READ_WRITE)
        flags |= O_RDWR;
    else if (options.access == Access::WRITE)
        flags |= O_WRONLY;
    else if (writes(options))
        flags |= O_RDWR;
    if (options.write_through) flags |= O_DSYNC;
    if (options.unbuffered) flags |= O_DIRECT;
    return flags;
}

/// File systems that cannot bypass the cache refuse the flag; then the open is an ordinary one.
int open_or_without_direct(int directory, const char* path, int& flags) {
    const int descriptor = ::openat(directory, path, flags, 0666);
    if (descriptor >= 0 || errno != EINVAL || (flags & O_DIRECT) == 0) return descriptor;
    flags &= ~O_DIRECT;
    return ::openat(directory, path, flags, 0666);
}

struct Opened {
    int descriptor = -1;
    int flags = 0;
    int os_code = 0;  // why there is no descriptor
    bool created = false;
    bool again = false;    // someone else created it meanwhile
    bool refused = false;  // the failure is recorded already
};

Opened open_existing(const PathAt& path, int flags) {
    Opened opened{.flags = flags};
    opened.descriptor = call_at(
        path, [&](int directory, const char* text) { return open_or_without_direct(directory, text, opened.flags); });
    if (opened.descriptor < 0) opened.os_code = errno;
    return opened;
}

Opened create_new(const PathAt& path, int flags) {
    Opened opened{.flags = flags | O_CREAT | O_EXCL, .os_code = ENOENT};
    const Creation creation(path.full);
    opened.again = creation.spelling() == Spelling::EXISTS;
    if (creation.spelling() != Spelling::NEW) return opened;
    opened.refused = !creation.check_name();
    if (opened.refused) return opened;
    opened.descriptor =
        retry_interrupted([&] { return open_or_without_direct(AT_FDCWD, creation.path(), opened.flags); });
    opened.created = opened.descriptor >= 0;
    if (opened.created) {
        creation.done();
        return opened;
    }
    opened.os_code = errno;
    opened.again = opened.os_code == EEXIST;
    return opened;
}

Opened open_or_create(const PathAt& path, const OpenOptions& options) {
    const Opened opened = open_existing(path, open_flags(options));
    if (opened.os_code != ENOENT || !creates(options.disposition)) return opened;
    return create_new(path, open_flags(options));
}

/// Why a file did not open: its own read-only attribute is told from other refusals.
bool fail_open(const PathAt& path, const OpenOptions& options, int os_code) {
    struct stat status;
    const bool ask = os_code == EACCES && options.access != Access::READ;
    if (ask && call_at(path, [&](int at, const char* text) { return ::fstatat(at, text, &status, 0); }) == 0) {
        if (S_ISREG(status.st_mode) && (status.st_mode & S_IWUSR) == 0) return fail(Failure::READ_ONLY, os_code);
    }
    return fail_os(os_code);
}

bool check_file_path(const PathAt& path) {
    if (!check_path(path.full)) return false;
    const std::size_t length = strlen(path.full);
    return path.full[length - 1] != '/' || fail(Failure::INVALID_NAME);
}

enum class Admission : std::uint8_t { YES, NO, AGAIN };

Admission refuse(Failure failure, int os_code = 0) {
    fail(failure, os_code);
    return Admission::NO;
}

/// Whether the file may be used as asked, and if so its entry in the table of open files.
Admission admit(const Opened& opened, const OpenOptions& options, std::uint64_t removals, struct stat& status) {
    if (::fstat(opened.descriptor, &status) != 0) return refuse(failure_of(errno), errno);
    if (!S_ISREG(status.st_mode)) return refuse(Failure::NOT_REGULAR);
    const bool read_only = (status.st_mode & S_IWUSR) == 0;
    if (read_only && writes(options) && !opened.created) return refuse(Failure::READ_ONLY);
    if (!acquire_share(key_of(status), is_exclusive(options))) return refuse(Failure::IN_USE);
    if (removal_count() == removals) return Admission::YES;
    if (::fstat(opened.descriptor, &status) == 0 && status.st_nlink > 0) return Admission::YES;
    release_share(key_of(status), is_exclusive(options));
    return Admission::AGAIN;
}

void empty_or_close(File& file) {
    if (retry_interrupted([&] { return ::ftruncate(static_cast<int>(file.native()), 0); }) == 0) return;
    const int os_code = errno;
    file.close();
    fail_os(os_code);
}

}  // namespace

Root::Root(Root&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}

Root& Root::operator=(Root&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
}

Root::~Root() {
    if (valid()) ::close(static_cast<int>(handle_));
}

Root Root::open(const char* path) {
    Root root;
    char text[path_buffer_size];
    if (!copy_path(path, text)) return root;
    root.handle_ = call_at(PathAt{.full = text}, [](int directory, const char* name) {
        return ::openat(directory, name, O_PATH | O_DIRECTORY | O_CLOEXEC);
    });
    if (!root.valid()) fail_os(errno);
    return root;
}

File::File(File&& other) noexcept
    : handle_(std::exchange(other.handle_, -1)),
      share_device_(other.share_device_),
      share_inode_(other.share_inode_),
      position_(other.position_),
      alignment_(other.alignment_),
      exclusive_(other.exclusive_) {}

File& File::operator=(File&& other) noexcept {
    if (this == &other) return *this;
    close();
    handle_ = std::exchange(other.handle_, -1);
    share_device_ = other.share_device_;
    share_inode_ = other.share_inode_;
    position_ = other.position_;
    alignment_ = other.alignment_;
    exclusive_ = other.exclusive_;
    return *this;
}

File::~File() { close(); }

void File::close() {
    if (!valid()) return;
    // In this order: once closed, a file without a name gives its inode number to the next new file, which must not
    // find itself held.
    release_share(FileKey{.device = share_device_, .inode = share_inode_}, exclusive_);
    ::close(static_cast<int>(std::exchange(handle_, -1)));
}

File File::open(const PathAt& path, const OpenOptions& options) {
    File file;
    if (!check_file_path(path)) return file;
    if (const auto fault = fault_at(FaultPoint::OPEN)) {
        fail(*fault);
        return file;
    }
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const std::uint64_t removals = removal_count();
        const Opened opened = open_or_create(path, options);
        if (opened.again) continue;
        if (opened.descriptor < 0) {
            if (!opened.refused) fail_open(path, options, opened.os_code);
            return file;
        }
        Descriptor descriptor(opened.descriptor);
        struct stat status;
        const Admission admission = admit(opened, options, removals, status);
        if (admission == Admission::AGAIN) continue;
        if (admission == Admission::NO) return file;
        file.handle_ = descriptor.release();
        file.share_device_ = status.st_dev;
        file.share_inode_ = status.st_ino;
        file.exclusive_ = is_exclusive(options);
        file.alignment_ = (opened.flags & O_DIRECT) != 0 ? direct_alignment : 1;
        if (!opened.created && truncates(options.disposition)) empty_or_close(file);
        return file;
    }
    fail(Failure::IN_USE);
    return file;
}

}  // namespace platform

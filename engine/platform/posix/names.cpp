#include "engine/platform/posix/names.h"

#include <string.h>  // strnlen

#include <cstring>
#include <new>
#include <string_view>

#include "engine/platform/text.h"

namespace platform {
namespace {

constinit Mutex creation_lock;  // held while a Creation lives; the lock of the kept listings is taken inside it

std::size_t start_of_last(const char* path, std::size_t length) {
    return std::string_view(path, length).rfind('/') + 1;
}

/// Where the component before the slashes that end at `end` begins.
std::size_t start_of_previous(const char* path, std::size_t end) {
    while (end > 0 && path[end - 1] == '/') --end;
    return start_of_last(path, end);
}

bool is_absence(int os_code) { return failure_of(os_code) == Failure::NOT_FOUND; }

/// How much of the path exists as given: all of [0, length) most of the time, which one look tells. `stamp` is that of
/// this directory.
bool find_existing(const char* path, std::size_t& length, DirectoryStamp& stamp) {
    while (length > 0 && !stamp_directory(DirectoryPath(path, length).text, stamp)) {
        if (!is_absence(errno)) return false;
        length = start_of_previous(path, length);
    }
    return true;
}

Spelling spell(char* path, DirectoryStamp* directory) {
    const std::size_t length = std::strlen(path);
    std::size_t begin = start_of_last(path, length);
    DirectoryStamp stamp;
    if (!find_existing(path, begin, stamp)) return Spelling::UNKNOWN;
    while (begin < length) {
        std::size_t end = begin;
        while (end < length && path[end] != '/') ++end;
        if (end > begin && !is_dots({path + begin, end - begin})) {
            const Held held = find_spelling(DirectoryPath(path, begin).text, stamp, path + begin, end - begin);
            const bool is_absent = held == Held::NO || (held == Held::UNKNOWN && is_absence(errno));
            if (held == Held::UNKNOWN && !is_absent) return Spelling::UNKNOWN;
            if (directory != nullptr) *directory = stamp;
            if (is_absent) return end == length && held == Held::NO ? Spelling::NEW : Spelling::MISSING;
        }
        stamp = DirectoryStamp{};
        begin = end + 1;
    }
    return Spelling::EXISTS;
}

}  // namespace

Spelling spell_path(char* path, DirectoryStamp* directory) try {
    return spell(path, directory);
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return Spelling::UNKNOWN;
}

bool find_other_spelling(const char* path, char (&out)[path_buffer_size]) {
    errno = ENAMETOOLONG;
    if (!copy_path(path, out)) return false;
    const Spelling spelling = spell_path(out);
    if (spelling == Spelling::EXISTS) return true;
    if (spelling != Spelling::UNKNOWN) errno = ENOENT;
    return false;
}

bool check_path(const char* path) {
    if (path == nullptr || *path == '\0') return fail(Failure::INVALID_NAME);
    if (strnlen(path, path_buffer_size) > max_path_bytes) return fail(Failure::PATH_TOO_LONG);
    return true;
}

bool copy_path(const char* path, char (&out)[path_buffer_size]) {
    if (!check_path(path)) return false;
    std::size_t length = std::strlen(path);
    while (length > 1 && path[length - 1] == '/') --length;
    std::memcpy(out, path, length);
    out[length] = '\0';
    return true;
}

const char* last_component(const char* path) { return path + start_of_last(path, std::strlen(path)); }

DirectoryPath::DirectoryPath(const char* path, std::size_t length) {
    if (length == 0) return;
    std::memcpy(text, path, length);
    text[length] = '\0';
}

DirectoryPath::DirectoryPath(const char* path) : DirectoryPath(path, start_of_last(path, std::strlen(path))) {}

bool find_entry(const char* path, Entry& out) {
    if (!copy_path(path, out.path)) return false;
    const auto look = [&] { return ::lstat(out.path, &out.status) == 0; };
    if (look()) return true;
    if (errno != ENOENT) return fail_os(errno);
    return (find_other_spelling(path, out.path) && look()) || fail_os(errno);
}

Creation::Creation(const char* path) : turn_(creation_lock) {
    if (look_up(path)) return;
    // A name that was renamed away by this process; what is kept of the directory still has it.
    forget_directory(directory_);
    look_up(path);
}

/// False when the name that was found is gone.
bool Creation::look_up(const char* path) {
    spelling_ = Spelling::UNKNOWN;
    os_code_ = ENAMETOOLONG;
    if (!copy_path(path, path_)) return true;
    spelling_ = spell_path(path_, &directory_);
    os_code_ = spelling_ == Spelling::UNKNOWN ? errno : 0;
    struct stat status;
    return spelling_ != Spelling::EXISTS || ::lstat(path_, &status) == 0 || errno != ENOENT;
}

bool Creation::check_new() const {
    if (spelling_ == Spelling::UNKNOWN) return fail_os(os_code_);
    if (spelling_ == Spelling::MISSING) return fail(Failure::NOT_FOUND, ENOENT);
    if (spelling_ == Spelling::EXISTS) return fail(Failure::ALREADY_EXISTS, EEXIST);
    const char* const name = last_component(path_);
    return is_valid_name(name, std::strlen(name)) || fail(Failure::INVALID_NAME);
}

bool Creation::done() const {
    note_created(DirectoryPath(path_).text, directory_, last_component(path_));
    return true;
}

}  // namespace platform

#include "engine/platform/posix/creation.h"

#include <sys/stat.h>

#include <cstring>
#include <mutex>

namespace platform {
namespace {
constinit std::mutex creation_lock;  // held while a Creation lives; the locks of the path caches are taken inside it
}  // namespace

Creation::Creation(const char* path) {
    creation_lock.lock();
    if (!copy_path(path, path_)) return;
    spelling_ = spell_path(path_, &directory_);
    if (spelling_ != Spelling::EXISTS || !is_gone()) return;
    // A name that was renamed away by this process; what is remembered of the directory still has it.
    forget_directory(directory_);
    copy_path(path, path_);
    spelling_ = spell_path(path_, &directory_);
}

Creation::~Creation() { creation_lock.unlock(); }

bool Creation::is_gone() const {
    struct stat status;
    return ::lstat(path_, &status) != 0 && errno == ENOENT;
}

bool Creation::done() const {
    note_created(DirectoryPath(path_).text, directory_, last_component(path_));
    return true;
}

bool Creation::check_name() const {
    const char* const name = last_component(path_);
    return is_valid_name(name, std::strlen(name)) || fail(Failure::INVALID_NAME);
}

}  // namespace platform

#include "engine/platform/posix/creation.h"

#include <cstring>
#include <mutex>

namespace platform {
namespace {
constinit std::mutex creation_lock;  // held while a Creation lives; the locks of the path caches are taken inside it
}  // namespace

Creation::Creation(const char* path) {
    creation_lock.lock();
    if (copy_path(path, path_)) spelling_ = spell_path(path_);
}

Creation::~Creation() { creation_lock.unlock(); }

bool Creation::check_name() const {
    const char* const name = last_component(path_);
    return is_valid_name(name, std::strlen(name)) || fail(Failure::INVALID_NAME);
}

}  // namespace platform

#include "engine/filesystem/sources/pack/follower.h"

#include "engine/filesystem/watch/watching.h"
#include "engine/kernel/text.h"

namespace fs {

PackFollower::PackFollower(const std::string& native_path)
    : directory_(native_path, 0, native_path.rfind('/') + 1), name_(native_path, native_path.rfind('/') + 1) {}

bool PackFollower::begin(Watches& watches) {
    watch_ = watches.add(directory_.c_str(), true, *this, directory_);
    return watch_ != nullptr;
}

void PackFollower::note(const std::string& /*dir*/, const platform::WatchEvent& event, std::int64_t now) noexcept {
    if (!event.name.empty() && !kernel::equal_folded(event.name, name_)) return;
    touches_ = {.first = is_touched_ ? touches_.first : now, .last = now};
    is_touched_ = true;
}

bool PackFollower::prepare(std::int64_t now, std::int64_t quiet) {
    is_due_ = is_touched_ && touches_.are_over(now, quiet);
    return true;
}

void PackFollower::apply(ChangeBatch& batch) {
    batch.add_lost();
    is_touched_ = is_due_ = false;
}

}  // namespace fs

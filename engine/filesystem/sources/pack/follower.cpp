#include "engine/filesystem/sources/pack/follower.h"

#include "engine/filesystem/watch/watches.h"
#include "engine/kernel/text.h"

namespace fs {

PackFollower::PackFollower(const std::string& native_path)
    : directory_(native_path, 0, native_path.rfind('/') + 1), name_(native_path, native_path.rfind('/') + 1) {}

PackFollower::~PackFollower() {
    if (watch_ >= 0) watches_->remove(watch_, *this, directory_);
}

bool PackFollower::begin(Watches& watches) {
    watches_ = &watches;
    watch_ = watches.add(directory_.c_str(), false, *this, directory_);
    return watch_ >= 0;
}

void PackFollower::note(const std::string& /*dir*/, const platform::WatchEvent& event, std::int64_t now) noexcept {
    if (!event.name.empty() && !kernel::equal_folded(event.name, name_)) return;
    if (!is_touched_) first_ = now;
    last_ = now;
    is_touched_ = true;
}

bool PackFollower::prepare(std::int64_t now, std::int64_t quiet) {
    is_due_ = is_touched_ && (now - last_ >= quiet || (now - first_) / 10 >= quiet);
    return true;
}

void PackFollower::apply(ChangeBatch& batch) {
    batch.add(SFsChange::LOST, "");
    is_touched_ = is_due_ = false;
}

}  // namespace fs

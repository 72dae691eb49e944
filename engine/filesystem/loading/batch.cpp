#include "engine/filesystem/loading/batch.h"

#include <memory>

namespace fs {

LoadBatch::~LoadBatch() {
    for (Load* load : loads_) load->Release();
}

void LoadBatch::Add(const SFsLoadWish& wish, LoadClock::time_point now) {
    loads_.push_back(std::make_unique<Load>(wish, now).release());
    loads_.back()->batch = this;
    left_.fetch_add(1, std::memory_order_relaxed);
    untold_.fetch_add(1, std::memory_order_relaxed);
}

void LoadBatch::DropReference() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void LoadBatch::CountTold() {
    if (untold_.fetch_sub(1, std::memory_order_acq_rel) == 1 && callback_ != nullptr) callback_(this, user_);
}

}  // namespace fs

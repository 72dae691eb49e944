#include "engine/filesystem/loading/batch.h"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include <engine/filesystem/contract/placed_source.h>

#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/registry/holders.h"

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

std::vector<Load*> LoadBatch::InOrderOfPlace() const {
    using Place = std::pair<std::size_t, std::uint64_t>;  // the source, in the order in which the loads name them
    std::map<const CFSSource*, std::size_t> sources;
    std::vector<std::pair<Place, Load*>> placed;
    placed.reserve(loads_.size());
    for (Load* const load : loads_) {
        const fs::path name = lookup_name(load->work.Path().c_str());
        const registry::SharedGuard guard;
        CFSSource* const holder = registry::first_holder(name, registry::match_of(load->work.Flags()));
        auto* const tells = dynamic_cast<PlacedSource*>(holder);
        const std::size_t source = sources.try_emplace(holder, sources.size()).first->second;
        placed.push_back({{source, tells != nullptr ? tells->place(name) : 0}, load});
    }
    std::ranges::stable_sort(placed, {}, &std::pair<Place, Load*>::first);
    std::vector<Load*> ordered;
    ordered.reserve(placed.size());
    for (const auto& [place, load] : placed) ordered.push_back(load);
    return ordered;
}

void LoadBatch::DropReference() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void LoadBatch::CountTold() {
    if (untold_.fetch_sub(1, std::memory_order_acq_rel) == 1 && callback_ != nullptr) callback_(this, user_);
}

}  // namespace fs

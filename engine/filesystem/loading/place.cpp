#include "engine/filesystem/loading/place.h"

#include <algorithm>
#include <map>
#include <utility>

#include <engine/filesystem/contract/placed_source.h>

#include "engine/filesystem/contract/lookup_name.h"
#include "engine/filesystem/registry/holders.h"

namespace fs {

namespace {

/// Its source, by a number in the order in which the loads name them, and its place there.
using Place = std::pair<std::size_t, std::uint64_t>;
using Placed = std::pair<Place, Load*>;

}  // namespace

std::vector<Load*> in_order_of_place(const std::vector<Load*>& loads) {
    std::map<const CFSSource*, std::size_t> sources;
    std::vector<Placed> placed;
    placed.reserve(loads.size());
    for (Load* const load : loads) {
        const fs::path name = lookup_name(load->work.Path().c_str());
        const registry::SharedGuard guard;
        CFSSource* const holder = registry::first_holder(name, registry::match_of(load->work.Flags()));
        auto* const tells = dynamic_cast<PlacedSource*>(holder);
        const std::size_t source = sources.try_emplace(holder, sources.size()).first->second;
        placed.push_back({{source, tells != nullptr ? tells->place(name) : 0}, load});
    }
    std::ranges::stable_sort(placed, {}, &Placed::first);
    std::vector<Load*> ordered;
    ordered.reserve(placed.size());
    for (const auto& [place, load] : placed) ordered.push_back(load);
    return ordered;
}

}  // namespace fs

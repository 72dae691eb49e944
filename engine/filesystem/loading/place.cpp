#include "engine/filesystem/loading/place.h"

#include <algorithm>
#include <map>
#include <tuple>

#include <engine/filesystem/contract/placed_source.h>

#include "engine/filesystem/contract/lookup_name.h"
#include "engine/filesystem/registry/holders.h"

namespace fs {

namespace {

struct Placed {
    std::size_t source;  // in the order in which the loads name them
    std::uint64_t place;
    Load* load;

    bool operator<(const Placed& other) const { return std::tie(source, place) < std::tie(other.source, other.place); }
};

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
        placed.push_back({source, tells != nullptr ? tells->place(name) : 0, load});
    }
    std::stable_sort(placed.begin(), placed.end());
    std::vector<Load*> ordered;
    ordered.reserve(placed.size());
    for (const Placed& each : placed) ordered.push_back(each.load);
    return ordered;
}

}  // namespace fs

#include "engine/filesystem/watch/change_batch.h"

#include <utility>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/registry/holders.h"
#include "engine/filesystem/registry/registry.h"

namespace fs {

ChangeBatch::ChangeBatch(CFSSource& source, ztl::vector<SFsChange>& out, bool& is_tree_new)
    : source_(source), out_(out), is_tree_new_(is_tree_new), path_(full_name(source.path())) {
    const auto* const prefixed = dynamic_cast<const registry::PrefixedNames*>(&source);
    if (prefixed != nullptr) prefix_ = prefixed->prefix();
}

void ChangeBatch::add(SFsChange::KIND kind, std::string_view name) {
    SFsChange change{.kind = kind, .name = std::string(prefix_).append(name), .source = path_};
    change.winner_changed = is_winner(change.name);
    out_.push_back(std::move(change));
}

void ChangeBatch::add_lost() {
    out_.push_back({.kind = SFsChange::LOST, .name = {}, .source = path_, .winner_changed = true});
}

/// Whether fs::open of this name answers what the source holds under it. Without memory to find out it may be so.
bool ChangeBatch::is_winner(const std::string& name) noexcept {
    return guarded(nullptr, true, [&] {
        const fs::path whole = lookup_name(name.c_str());
        if (registry::first_holder(whole, registry::Match::AS_SOURCE_DOES) != &source_) return false;
        fs::path held;
        source_.root_path(held, whole);
        return held == whole;
    });
}

}  // namespace fs

#include "engine/filesystem/registry/holders.h"

#include <engine/filesystem/contract/whole_names.h>

#include "engine/filesystem/contract/path_text.h"
#include "engine/kernel/text.h"

namespace fs::registry {

namespace {

/// Whether `dir` is `lead` or lies below it.
bool begins_with_directory(std::string_view dir, std::string_view lead) {
    if (lead.empty() || dir.size() < lead.size() || !kernel::equal_folded(dir.substr(0, lead.size()), lead))
        return false;
    return lead.back() == '/' || dir.size() == lead.size() || dir[lead.size()] == '/';
}

/// How much of the source's own path leads to its native root: less than all of it where the last directory leads every
/// name.
std::size_t root_length(CFSSource& source, std::string_view mounted) {
    const bool has_parent = (source.flags() & FFSAddSourceFlags::MOUNT_PARENT) != 0;
    const std::size_t parent = has_parent ? parent_directory(mounted).size() : 0;
    return parent != 0 ? parent : mounted.size();
}

}  // namespace

std::optional<std::string_view> below_root(CFSSource& source, std::string_view dir) {
    const std::string_view root = source.root_dir();
    if (root.empty()) return std::nullopt;
    // The directory as it was mounted, and the root as the source opens it, which may be spelled in another way.
    const std::string_view mounted = source.path().PathNameView();
    std::string_view lead;
    if (begins_with_directory(dir, mounted)) {
        lead = mounted.substr(0, root_length(source, mounted));
    } else if ((source.flags() & FFSAddSourceFlags::MOUNT_PARENT) == 0 && begins_with_directory(dir, root)) {
        lead = root;
    } else {
        return std::nullopt;
    }
    dir.remove_prefix(lead.size());
    if (dir.starts_with('/')) dir.remove_prefix(1);
    return dir;
}

Concerned::Concerned(const fs::path& name) : name_(name), is_full_(is_native_directory_name(name.PathNameView())) {
    if (!is_full_) return;
    const auto is_home = [&](CFSSource& source) { return below_root(source, name.PathNameView()).has_value(); };
    home_ = first_source(is_home);  // never the fallback, which stands nowhere
}

bool Concerned::operator()(CFSSource& source) const {
    if (!is_full_ || is_fallback(&source)) return true;
    if (home_ == nullptr) return false;
    return source.root_dir()[0] == '\0' || below_root(source, name_.PathNameView());
}

bool holds_whole(CFSSource& source, const fs::path& name) {
    if (auto* const whole = dynamic_cast<WholeNames*>(&source)) return whole->exists_whole(name);
    if (!source.exists(name)) return false;
    fs::path held;
    source.root_path(held, name);
    if (held == name) return true;
    const auto below = below_root(source, name.PathNameView());
    return below && held.FileNameView() == name.FileNameView() && held.PathNameView() == *below;
}

bool holds(CFSSource& source, const fs::path& name, Match match) {
    return match == Match::WHOLE ? holds_whole(source, name) : source.exists(name);
}

CFSSource* first_holder(const fs::path& name, Match match) {
    return first_concerned(name, [&](CFSSource& source) { return holds(source, name, match); });
}

}  // namespace fs::registry

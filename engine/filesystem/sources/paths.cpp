#include "engine/filesystem/sources/paths.h"

#include <algorithm>

#include "engine/filesystem/contract/set_error.h"
#include "engine/kernel/text.h"
#include "engine/platform/directories.h"

namespace fs {

namespace {

bool is_full(std::string_view dir) {
#if defined(_WIN32)
    if (dir.size() > 1 && dir[1] == ':') return true;
#endif
    return !dir.empty() && dir[0] == '/';
}

template <class Check>
bool all_components(std::string_view path, Check&& check) {
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        if (!check(component)) return false;
        path.remove_prefix(std::min(path.size(), component.size() + 1));
    }
    return true;
}

// Where the last component of a root begins; 0 when it has no parent.
std::size_t start_of_last_component(std::string_view root) {
    if (root.size() < 2) return 0;
    const std::size_t separator = root.rfind('/', root.size() - 2);
    return separator == std::string_view::npos ? 0 : separator + 1;
}

}  // namespace

bool open_native_root(std::string_view given, std::string_view spelling, bool parent, NativeRoot& root,
                      std::string& start) {
    const std::string wanted(kernel::equal_folded(spelling, given) ? spelling : given);
    char spelled[platform::path_buffer_size];
    if (wanted.size() > platform::max_path_bytes) {
        return refuse(EFSError::INVALID_NAME, wanted.c_str(), "The root of the source is too long.");
    }
    if (!platform::resolve_case(wanted.c_str(), spelled)) return refuse_by_disk(wanted.c_str(), "cannot be looked for");
    // Its length may be another one: short names of Windows are told in full.
    const std::string_view whole(spelled);
    const std::size_t split = parent ? start_of_last_component(whole) : 0;
    start = split == 0 ? "" : whole.substr(split);
    root.length = whole.copy(root.text, split == 0 ? whole.size() : split);
    root.text[root.length] = '\0';
    root.handle = std::make_shared<platform::Root>(platform::Root::open(root.text));
    return true;
}

Place place_of(const NativeRoot& root, std::string_view& dir) {
    if (root.length != 0 && dir.size() >= root.length &&
        kernel::equal_folded(dir.substr(0, root.length), root.view())) {
        dir.remove_prefix(root.length);
        return Place::INSIDE;
    }
    return is_full(dir) ? Place::OUTSIDE : Place::RELATIVE;
}

bool NativePath::append(std::string_view added) {
    if (added.size() > platform::max_path_bytes - length) return false;
    added.copy(text + length, added.size());
    cut(length + added.size());
    return true;
}

bool build_native_path(const NativeRoot& root, std::string_view dir, std::string_view name, NativePath& out) {
    out.cut(0);
    if (!out.append(root.view())) return false;
    out.root_length = out.length;
    return out.append(dir) && out.append(name);
}

std::size_t fixed_prefix_length(std::string_view path) {
    const std::size_t separator = path.find_first_of("/:");
    if (separator == std::string_view::npos) return 0;
    if (path[separator] == ':') return std::min(path.size(), separator + 2);
    if (separator != 0) return 0;
    if (path.size() < 2 || path[1] != '/') return 1;
    const std::size_t share = path.find('/', 2);
    return share == std::string_view::npos ? path.size() : share + 1;
}

bool climbs(std::string_view path) {
    return !all_components(path, [](std::string_view component) { return component != ".."; });
}

bool is_creatable(std::string_view path) {
    path.remove_prefix(fixed_prefix_length(path));
    return !path.empty() && all_components(path, [](std::string_view component) {
        return component != ".." && platform::is_valid_name(component.data(), component.size());
    });
}

bool create_directories(const char* path) {
    NativePath part;
    part.cut(0);
    if (!part.append(path)) return refuse(EFSError::INVALID_NAME, path, "The native path is too long.");
    for (std::size_t at = part.view().find('/', fixed_prefix_length(path)); at != std::string_view::npos;
         at = part.view().find('/', at + 1)) {
        part.text[at] = '\0';
        if (!platform::create_directory(part.text) &&
            platform::last_error().failure != platform::Failure::ALREADY_EXISTS) {
            return refuse_by_disk(part.text, "cannot be made");
        }
        part.text[at] = '/';
    }
    return true;
}

}  // namespace fs

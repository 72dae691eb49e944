#include "engine/filesystem/sources/directory/paths.h"

#include <algorithm>
#include <cstring>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/platform/directories.h"

namespace fs {

namespace {

#if defined(_WIN32)
bool stands_alone(std::string_view dir) { return dir.size() > 1 && dir[1] == ':'; }
#else
bool stands_alone(std::string_view dir) { return !dir.empty() && dir[0] == '/'; }
#endif

char* put(char* out, std::string_view text) { return out + text.copy(out, text.size()); }

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
    if (given.size() > platform::max_path_bytes) return false;
    char spelled[platform::path_buffer_size];
    const std::string wanted(equal_folded(spelling, given) ? spelling : given);
    if (!platform::resolve_case(wanted.c_str(), spelled)) return false;
    const std::size_t split = parent ? start_of_last_component(given) : 0;
    start = split == 0 ? "" : spelled + split;
    root.length = split == 0 ? given.size() : split;
    *put(root.text, {spelled, root.length}) = '\0';
    root.handle = platform::Root::open(root.text);
    return true;
}

bool equal_folded(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return fold(x) == fold(y); });
}

bool build_native_path(const NativeRoot& root, std::string_view dir, std::string_view name, NativePath& out) {
    std::string_view prefix = root.view();
    if (!prefix.empty() && dir.size() >= prefix.size() && equal_folded(dir.substr(0, prefix.size()), prefix)) {
        dir.remove_prefix(prefix.size());
    } else if (stands_alone(dir)) {
        prefix = {};
    }
    const std::size_t length = prefix.size() + dir.size() + name.size();
    if (length > platform::max_path_bytes) return false;
    *put(put(put(out.text, prefix), dir), name) = '\0';
    out.length = length;
    out.root_length = prefix.size();
    return true;
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
    const std::string_view whole = path;
    if (whole.size() > platform::max_path_bytes) return false;
    *put(part.text, whole) = '\0';
    for (std::size_t at = whole.find('/', fixed_prefix_length(whole)); at != std::string_view::npos;
         at = whole.find('/', at + 1)) {
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

#include "engine/filesystem/containers/pack_writer_names.h"

#include <engine/filesystem/contract/path.h>

#include "engine/filesystem/contract/normalize.h"

namespace fs {

const char* refuse_entry_name(std::string_view name) {
    if (name.empty()) return "is empty";
    if (name.size() >= path_capacity) return "is longer than 259 bytes";
    if (name.find('\0') != std::string_view::npos) return "holds a zero byte";
    if (name.back() == '/' || name.back() == '\\') return "is that of a directory";
    char normal[path_capacity];
    name.copy(normal, name.size());
    normal[name.size()] = '\0';
    if (is_full_path(normal)) return "is a full path";
    const Normalized normalized = normalize(normal, normal, true);
    if (std::string_view(normal, normalized.length) != name) return "is not in normal form";
    if (name == ".." || name.starts_with("../")) return "climbs above the pack";
    if (name.find("/#") != std::string_view::npos) return "would be hidden: it has a component that begins with \"#\"";
    return nullptr;
}

}  // namespace fs

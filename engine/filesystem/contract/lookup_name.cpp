#include "engine/filesystem/contract/lookup_name.h"

#include <new>
#include <string>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"

namespace fs {

namespace {

fs::path checked_name(const char* path, bool lower) {
    fs::path name(path, lower);
    // Rare: the path names nothing, or there was no memory for it.
    if (name.Empty() && !NormalText(path, !lower).empty()) throw std::bad_alloc();
    return name;
}

}  // namespace

fs::path lookup_name(const char* path) { return checked_name(path, true); }
fs::path creation_name(const char* path) { return checked_name(path, false); }

fs::path path_of(std::string_view directory, const char* file, bool lower) {
    fs::path name;
    name.Set(std::string(directory).c_str(), file, lower);
    if (name.Empty() && !(directory.empty() && *file == '\0')) throw std::bad_alloc();
    return name;
}

fs::path lower_case(const fs::path& name) {
    fs::path lower = name;
    if (lower.Empty() && !name.Empty()) throw std::bad_alloc();
    lower.Lowercase();
    return lower;
}

fs::string full_name(const fs::path& name) {
    fs::string text(name.PathNameView());
    text += name.FileNameView();
    return text;
}

bool is_creatable_name(const fs::path& name) { return !name.EmptyFile() && is_creatable(full_name(name)); }

}  // namespace fs

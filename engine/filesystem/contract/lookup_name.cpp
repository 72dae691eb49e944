#include "engine/filesystem/contract/lookup_name.h"

#include <algorithm>
#include <filesystem>
#include <new>
#include <string>

#include "engine/filesystem/contract/normalize.h"
#include "engine/platform/files.h"

namespace fs {

namespace {

constexpr bool knows_drives = std::filesystem::path::preferred_separator == '\\';

fs::path checked_name(const char* path, bool lower) {
    fs::path name(path, lower);
    // Rare: the path names nothing, or there was no memory for it.
    if (name.Empty() && !NormalText(path, !lower).empty()) throw std::bad_alloc();
    return name;
}

}  // namespace

fs::path lookup_name(const char* path) { return checked_name(path, true); }
fs::path creation_name(const char* path) { return checked_name(path, false); }

fs::path directory_name(std::string_view directory, bool lower) {
    fs::path name;
    name.Set(std::string(directory).c_str(), nullptr, lower);
    if (name.Empty() && !directory.empty()) throw std::bad_alloc();
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

bool is_native_directory_name(std::string_view directory) {
    if (directory.empty()) return false;
    if (directory.front() == '/') return true;
    if (!knows_drives) return false;
    const std::size_t end = directory.find_first_of("/:");
    return end != 0 && end != std::string_view::npos && directory[end] == ':';
}

bool is_creatable_name(const fs::path& name) {
    if (name.EmptyFile() || name.FileNameView() == ".." || !is_creatable_directory(name.PathNameView())) return false;
    return platform::is_valid_name(name.FileName(), name.FileNameView().size());
}

bool is_creatable_directory(std::string_view directory) {
    bool is_first = true;
    while (!directory.empty()) {
        const std::string_view part = directory.substr(0, directory.find('/'));
        directory.remove_prefix(std::min(directory.size(), part.size() + 1));
        const bool is_drive = knows_drives && is_first && part.ends_with(':');
        is_first = false;
        if (part.empty() || is_drive) continue;
        if (part == ".." || !platform::is_valid_name(part.data(), part.size())) return false;
    }
    return true;
}

}  // namespace fs

#include "engine/platform/windows/native_path.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace platform {

namespace {

bool is_slash(char c) { return c == '/' || c == '\\'; }

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

std::size_t drive_length(std::string_view path) {
    return path.size() >= 2 && path[1] == ':' && is_letter(path[0]) ? 2 : 0;
}

bool is_component(std::string_view name) {
    return name.empty() || name == "." || name == ".." || is_valid_name(name.data(), name.size());
}

bool has_valid_components(std::string_view path) {
    path.remove_prefix(drive_length(path));
    // "//./" and "//?/" lead to devices, and around every rule of names.
    if (path.size() >= 4 && is_slash(path[0]) && is_slash(path[1]) && path[2] == '.' && is_slash(path[3])) return false;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of("/\\"), path.size());
        if (!is_component(path.substr(0, end))) return false;
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return true;
}

std::size_t length_without_slashes(std::string_view path) {
    const std::size_t root = drive_length(path) + 1;
    while (path.size() > root && is_slash(path.back())) path.remove_suffix(1);
    return path.size();
}

}  // namespace

NativePath::NativePath(const char* path, Use use) {
    const std::string_view text(path, strnlen(path, path_buffer_size));
    if (text.empty()) {
        fail(Failure::INVALID_NAME);
    } else if (text.size() > max_path_bytes) {
        fail(Failure::PATH_TOO_LONG);
    } else if (!has_valid_components(text)) {
        fail(use == Use::NEW ? Failure::INVALID_NAME : Failure::NOT_FOUND);
    } else {
        length_ = length_without_slashes(text);
        std::memcpy(text_, path, length_);
    }
    text_[length_] = '\0';
}

bool ends_in_slash(const char* path) {
    const std::size_t length = std::strlen(path);
    return length != 0 && is_slash(path[length - 1]);
}

HANDLE open_for_query(const char* path) {
    constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return CreateFileA(path, FILE_READ_ATTRIBUTES, share_all, nullptr, windows_api::open_existing,
                       FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

bool find_item(const char* path, WIN32_FIND_DATAA& item) {
    const HANDLE search = FindFirstFileA(path, &item);
    if (search == INVALID_HANDLE_VALUE) return false;
    FindClose(search);
    return true;
}

}  // namespace platform

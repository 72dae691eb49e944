#include "engine/filesystem/contract/native_path.h"

#include <algorithm>
#include <string>

#include "engine/filesystem/contract/error.h"
#include "engine/platform/directories.h"

namespace fs {

namespace {

template <class Check>
bool all_components(std::string_view path, Check&& check) {
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        if (!check(component)) return false;
        path.remove_prefix(std::min(path.size(), component.size() + 1));
    }
    return true;
}

}  // namespace

bool begins_with_drive(std::string_view path) {
    const std::size_t colon = path.find(':');
    return colon != 0 && colon != std::string_view::npos && colon < path.find('/');
}

std::size_t fixed_prefix_length(std::string_view path) {
    const std::size_t separator = path.find('/');
    if (separator == std::string_view::npos) return 0;
    if (knows_drives && separator != 0 && path[separator - 1] == ':') return separator + 1;
    if (separator != 0) return 0;
    if (!path.starts_with("//")) return 1;
    const std::size_t server_end = path.find('/', 2);
    return server_end == std::string_view::npos ? path.size() : server_end + 1;
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

bool is_native_directory(const char* path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && attributes->is_directory;
}

bool create_directories(std::string_view path) {
    std::string part(path);
    for (std::size_t at = part.find('/', fixed_prefix_length(path)); at != std::string::npos;
         at = part.find('/', at + 1)) {
        part[at] = '\0';
        if (!platform::create_directory(part.c_str())) {
            const platform::Error error = platform::last_error();
            if (error.failure != platform::Failure::ALREADY_EXISTS && !is_native_directory(part.c_str())) {
                set_error_from_platform(part.c_str(), "cannot be made", error);
                return false;
            }
        }
        part[at] = '/';
    }
    return true;
}

}  // namespace fs

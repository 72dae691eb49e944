#include <engine/filesystem/access/open.h>

#include "engine/filesystem/access/holder.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/platform/files.h"

namespace fs {

namespace {

bool is_native(const char* path, bool directory) {
    if (path == nullptr || path[0] == '\0') return false;
    const auto attributes = platform::get_attributes(path);
    return attributes && attributes->is_directory == directory;
}

fs::string copy_of(std::string_view text) {
    try {
        return fs::string(text);
    } catch (...) {
        return {};
    }
}

fs::string text_of(const fs::path& path) {
    fs::string text;
    path.FullName(text);
    return text;
}

}  // namespace

bool exists(const char* path) {
    const fs::path name(path, true);
    if (name.Empty()) return false;
    registry::State& state = registry::state();
    const registry::SharedHold hold(state);
    return registry::first_source(state, [&](CFSSource& source) { return source.exists(name); }) != nullptr;
}

bool does_file_exist(const char* path) { return exists(path) || native_does_file_exist(path); }
bool native_does_file_exist(const char* path) { return is_native(path, false); }
bool does_dir_exist(const char* path) { return is_native(path, true); }

fs::string get_source_name(const char* path) {
    return with_holder<registry::SharedHold>(
        path, fs::string(), [](CFSSource& source, const fs::path&) { return copy_of(source.path().PathNameView()); });
}

const fs::string full_path(const char* path) {
    return with_holder<registry::SharedHold>(path, fs::string(), [](CFSSource& source, const fs::path& name) {
        fs::path out;
        source.full_path(out, name);
        return text_of(out);
    });
}

const fs::string root_path(const char* path) {
    return with_holder<registry::SharedHold>(path, fs::string(), [](CFSSource& source, const fs::path& name) {
        fs::path out;
        source.root_path(out, name);
        return text_of(out);
    });
}

void precache_file(const char* path) { full_path(path); }

}  // namespace fs

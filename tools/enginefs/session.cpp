#include "session.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <engine/filesystem.h>

#include "names.h"
#include "report.h"

namespace {

constexpr auto mount_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;

void print_message(Log::ELevel::TYPE, const char*, const char* text) { std::fputs(text, stderr); }

bool is_pack_name(const std::string& path) {
    const std::string name = lower_case(path);
    return name.ends_with(".pak") || name.ends_with(".mpak");
}

int fail_no_directory(const std::string& told, const std::string& full) {
    constexpr std::size_t longest = 259;
    return fail(told, full.size() > longest ? "its full path is longer than 259 bytes" : "there is no such directory");
}

bool add(const std::string& path) {
    const std::string full = full_native_path(path);
    if (!is_pack_name(full) && !fs::does_dir_exist(full.c_str())) return fail_no_directory(path, full) == exit_ok;
    fs::clear_error();
    // Sources given later stand behind those given earlier: what comes first on the line wins.
    if (fs::add_source(full.c_str(), mount_flags | FFSAddSourceFlags::AFTER_SAME_TYPE)) return true;
    return fail_with_last_error(path, "it cannot be mounted") == 0;
}

}  // namespace

bool show_messages(const std::string& level) {
    struct Name {
        const char* text;
        Log::ELevel::TYPE level;
    };
    constexpr Name names[] = {{"none", Log::ELevel::NONE},    {"fatal", Log::ELevel::FATL},
                              {"error", Log::ELevel::ERRR},   {"info", Log::ELevel::INFO},
                              {"warn", Log::ELevel::WARN},    {"debug", Log::ELevel::DEBG},
                              {"verbose", Log::ELevel::VERB}, {"all", Log::ELevel::VERE}};
    for (const Name& name : names) {
        if (level != name.text) continue;
        Log::Settings::Instance().SetLevel(name.level);
        LogSetPrintCallback(print_message);
        return true;
    }
    return false;
}

#if defined(_WIN32)
// Names come and go in the narrow code page, which std::filesystem takes for UTF-8.
std::string full_native_path(const std::string& path) {
    char full[1024];
    if (_fullpath(full, path.c_str(), sizeof full) == nullptr) return path;
    std::string text = full;
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}
#else
std::string full_native_path(const std::string& path) {
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(path, error);
    return error ? path : full.lexically_normal().generic_string();
}
#endif

bool Session::mount(const SessionOptions& options) {
    const std::string root = full_native_path(options.root.empty() ? "." : options.root);
    const std::string& told = options.root.empty() ? root : options.root;
    if (!fs::does_dir_exist(root.c_str())) return fail_no_directory(told, root) == exit_ok;
    fs::clear_error();
    const std::string cache_dir = options.cache_dir.empty() ? "" : full_native_path(options.cache_dir);
    mounted_ = fs::init(root.c_str(), mount_flags, cache_dir.c_str(), options.fallback, false, nullptr);
    if (!mounted_) return fail_with_last_error(told, "it cannot be the root") == 0;
    for (const std::string& path : options.sources)
        if (!add(path)) return false;
    return true;
}

Session::~Session() {
    if (mounted_) fs::shutdown();
}

#include "session.h"

#include <cstdio>

#include <engine/filesystem.h>

#include "names.h"
#include "report.h"

namespace {

constexpr auto mount_flags =
    FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES | FFSAddSourceFlags::EXACT_SEEKS;

/// Log lines end as log files want it; standard error ends its lines as the system does.
void print_message(Log::ELevel::TYPE, const char*, const char* text) {
    std::string lines = text;
    std::erase(lines, '\r');
    std::fputs(lines.c_str(), stderr);
}

bool is_pack_name(const std::string& path) {
    const std::string name = lower_case(path);
    return name.ends_with(".pak") || name.ends_with(".mpak");
}

bool check_directory(const std::string& told, const std::string& full) {
    if (full.size() > longest_path) return fail(told, "its full path is longer than 259 bytes");
    return fs::does_dir_exist(full.c_str()) || fail(told, "there is no such directory");
}

bool add(const std::string& path) {
    const std::string full = full_native_path(path);
    if (!is_pack_name(full) && !check_directory(path, full)) return false;
    // Sources given later stand behind those given earlier: what comes first on the line wins.
    return attempt(path, "it cannot be mounted",
                   [&] { return fs::add_source(full.c_str(), mount_flags | FFSAddSourceFlags::AFTER_SAME_TYPE); });
}

}  // namespace

void show_messages(const std::string& level) {
    struct {
        const char* text;
        Log::ELevel::TYPE level;
    } constexpr names[] = {{"none", Log::ELevel::NONE},    {"fatal", Log::ELevel::FATL}, {"error", Log::ELevel::ERRR},
                           {"info", Log::ELevel::INFO},    {"warn", Log::ELevel::WARN},  {"debug", Log::ELevel::DEBG},
                           {"verbose", Log::ELevel::VERB}, {"all", Log::ELevel::VERE}};
    for (const auto& name : names) {
        if (level != name.text) continue;
        Log::Settings::Instance().SetLevel(name.level);
        LogSetPrintCallback(print_message);
        return;
    }
    fail_usage(level, "this is no level; give none, fatal, error, info, warn, debug, verbose or all");
}

bool Session::mount(const SessionOptions& options) {
    const std::string root = full_native_path(options.root.empty() ? "." : options.root);
    const std::string& told = options.root.empty() ? root : options.root;
    if (!check_directory(told, root)) return false;
    const std::string cache_dir = options.cache_dir.empty() ? "" : full_native_path(options.cache_dir);
    mounted_ = attempt(told, "it cannot be the root", [&] {
        return fs::init(root.c_str(), mount_flags, cache_dir.c_str(), options.fallback, false, nullptr);
    });
    if (!mounted_) return false;
    for (const std::string& path : options.sources)
        if (!add(path)) return false;
    return true;
}

Session::~Session() {
    if (mounted_) fs::shutdown();
}

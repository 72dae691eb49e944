#include "session.h"

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <system_error>

#include <engine/filesystem.h>

#include "report.h"

namespace {

constexpr auto mount_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;

void print_message(Log::ELevel::TYPE, const char*, const char* text) { std::fputs(text, stderr); }

bool is_pack_name(const std::string& path) {
    std::string ending = std::filesystem::path(path).extension().string();
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ending == ".pak" || ending == ".mpak";
}

bool add(const std::string& path) {
    const std::string full = full_native_path(path);
    if (!is_pack_name(full) && !fs::does_dir_exist(full.c_str())) return fail(path, "there is no such directory") == 0;
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

std::string full_native_path(const std::string& path) {
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(path, error);
    return error ? path : full.lexically_normal().generic_string();
}

bool Session::mount(const SessionOptions& options) {
    const std::string root = full_native_path(options.root.empty() ? "." : options.root);
    const std::string& told = options.root.empty() ? root : options.root;
    if (!fs::does_dir_exist(root.c_str())) return fail(told, "there is no such directory to be the root") == 0;
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

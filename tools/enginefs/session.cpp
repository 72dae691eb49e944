#include "session.h"

#include <algorithm>
#include <optional>

#include <engine/filesystem.h>

#include "names.h"
#include "report.h"

namespace {

constexpr auto mount_flags =
    FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES | FFSAddSourceFlags::EXACT_SEEKS;

bool is_url(const std::string& path) {
    const std::string name = lower_case(path);
    return name.starts_with("http://") || name.starts_with("https://");
}

bool check_directory(const std::string& told, const std::string& full) {
    if (full.size() > longest_path) return fail(told, "its full path is longer than 259 bytes");
    if (fs::native_does_file_exist(full.c_str()))
        return fail(told, "it is no directory, and the name of a pack ends in .pak or .mpak");
    return fs::does_dir_exist(full.c_str()) || fail(told, "there is no such directory");
}

}  // namespace

bool (*mount_url)(const std::string& url, FFSAddSourceFlags::ENUM flags) = nullptr;

bool is_pack_name(const std::string& path) {
    const std::string name = lower_case(path);
    return name.ends_with(".pak") || name.ends_with(".mpak");
}

/// A mount that answers true may still have left names out, and says so.
void Session::tell_unlisted(const std::string& told) {
    const SFsError said = fs::last_error();
    const auto is_unlisted = [](const SFsSourceInfo& source) { return source.unlisted_directories != 0; };
    if (said.code != EFSError::NONE && std::ranges::any_of(all_sources(), is_unlisted)) whole_ = fail(told, said.text);
}

bool Session::add(const std::string& path) {
    // Sources given later stand behind those given earlier: what comes first on the line wins.
    constexpr auto flags = mount_flags | FFSAddSourceFlags::AFTER_SAME_TYPE;
    if (is_url(path))
        return mount_url != nullptr ? mount_url(path, flags)
                                    : fail("--add", "packs by URL are not available: built without HTTP");
    const std::string full = full_native_path(path);
    if (!is_pack_name(full) && !check_directory(path, full)) return false;
    if (!attempt(path, "it cannot be mounted", [&] { return fs::add_source(full.c_str(), flags); })) return false;
    tell_unlisted(path);
    return true;
}

bool Session::mount(const SessionOptions& options) {
    const std::string root = full_native_path(options.root.empty() ? "." : options.root);
    const std::string& told = options.root.empty() ? root : options.root;
    if (!check_directory(told, root)) return false;
    const std::string cache_dir = options.cache_dir.empty() ? "" : full_native_path(options.cache_dir);
    // Mounting records listings there, which are not to be left half-made.
    std::optional<Interruption> interruption;
    if (!cache_dir.empty()) interruption.emplace();
    mounted_ = attempt(told, "it cannot be the root", [&] {
        return fs::init({.root = root.c_str(),
                         .cache_dir = cache_dir.c_str(),
                         .flags = mount_flags | FFSAddSourceFlags::WRITE_HERE,
                         .use_fallback = options.fallback});
    });
    if (!mounted_) return false;
    tell_unlisted(told);
    for (const std::string& path : options.sources)
        if (!add(path)) return false;
    return !Interruption::requested() || fail("interrupted", "the rest is as it was");
}

bool watch_sources() {
    return std::ranges::all_of(all_sources(), [](const SFsSourceInfo& source) {
        const std::string path = place_of(source);
        return path.empty() || attempt(path, "it cannot be watched", [&] { return fs::watch(path.c_str(), true); });
    });
}

Session::~Session() {
    if (mounted_) fs::shutdown();
}

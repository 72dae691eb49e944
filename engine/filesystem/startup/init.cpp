#include <engine/filesystem/startup.h>

#include <cstring>
#include <memory>
#include <utility>

#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/sources/fallback.h>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/lookup_name.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/filesystem/loading/control.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/memory/server_archive.h"
#include "engine/filesystem/startup/prepared_path.h"
#include "engine/filesystem/startup/start.h"
#include "engine/filesystem/watch/watching.h"

// Starting and stopping. The root directory is the first source and the one that is written to; the fallback, when it is
// wanted, stands behind everything. Stopping takes things apart in the order in which they lean on each other: watches, loads,
// sources, index, server archive, read queues.

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};
constexpr MessageSource exit_source{"EXIT", "engine/filesystem/filesystem"};

/// Null, with the failure stored, when it does not mount.
std::unique_ptr<CWin32_dir> mount_root(const PreparedPath& built, const char* spelling, FFSAddSourceFlags::ENUM flags,
                                       const char** names) {
    auto root = std::make_unique<CWin32_dir>(EFSSourceType::SPECIAL, names);
    root->set_native_spelling(spelling);
    return root->init(lookup_name(built.c_str()), flags, nullptr) ? std::move(root) : nullptr;
}

std::unique_ptr<CWin32_fallback> mount_fallback() {
    auto fallback = std::make_unique<CWin32_fallback>();
    return fallback->init(fs::path(), FFSAddSourceFlags::NONE, nullptr) ? std::move(fallback) : nullptr;
}

/// Mounts and registers what the file system starts with. False, with the failure stored and nothing registered, when
/// that cannot be done.
bool mount_first_sources(const PreparedPath& built, const char* root, FFSAddSourceFlags::ENUM flags, bool use_fallback,
                         const char** names) {
    return guarded(root, false, [&] {
        std::unique_ptr<CWin32_dir> source = mount_root(built, root, flags, names);
        std::unique_ptr<CWin32_fallback> fallback = use_fallback ? mount_fallback() : nullptr;
        if (!source || (use_fallback && !fallback)) return false;
        const registry::ExclusiveGuard guard;
        registry::state().index.set_name("data");
        registry::append_root(std::move(source), std::move(fallback));
        return true;
    });
}

bool refuse_root(const char* root) {
    log_message(log_source, Log::ELevel::ERRR, __LINE__, "Full path must be specified when calling fs::init()!\n");
    return refuse(EFSError::INVALID_NAME, root, "The root is no full path, or longer than 259 bytes.");
}

/// With a "/" at its end.
PreparedPath prepare_directory(const char* path) {
    PreparedPath prepared(path);
    prepared.append_slash();
    return prepared;
}

static_assert(registry::cache_dir_capacity >= path_capacity);

enum class Started : std::uint8_t { YES, NO, UNMOUNTABLE };

Started try_to_start(const init_options& options) {
    const char* const root = options.root != nullptr ? options.root : "";
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "FileSystem cache is force disabled (unused).\n");
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "Initializing fs from '%s' ...\n", root);
    registry::State& state = registry::state();
    state.cache_dir[0] = '\0';
    const PreparedPath built = prepare_directory(root);
    const PreparedPath cache = prepare_directory(options.cache_dir);
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "fs:init paths: '%s' incoming, '%s' built\n", root,
                built.c_str());
    // An empty root would become "/", and the whole machine would be mounted. And nothing that is too long to be a
    // directory is taken, before anything has changed.
    const bool is_root = !PreparedPath(root).is_empty() && built.is_full() && !built.is_too_long();
    if (!is_root || cache.is_too_long()) return refuse_root(is_root ? options.cache_dir : root), Started::NO;
    const ErrorScope scope;
    if (!mount_first_sources(built, root, options.flags, options.use_fallback, options.names)) {
        fail_unless_told(scope, EFSError::NOT_FOUND, root, "The root directory could not be mounted.");
        return Started::UNMOUNTABLE;
    }
    std::strcpy(state.cache_dir, cache.c_str());
    state.initialized.store(true, std::memory_order_release);
    start_queues();
    start_loads();
    return Started::YES;
}

}  // namespace

bool init(const char* root, FFSAddSourceFlags::ENUM flags, const char* cache_dir, bool use_fallback, bool /*use_cache*/,
          const char** names) {
    return init({.root = root, .cache_dir = cache_dir, .flags = flags, .use_fallback = use_fallback, .names = names});
}

bool init(const init_options& options) {
    const Started started = try_to_start(options);
    if (started == Started::UNMOUNTABLE)
        log_message(exit_source, Log::ELevel::FATL, __LINE__, "could not initialize\n");
    return started == Started::YES;
}

bool start(const init_options& options) { return try_to_start(options) == Started::YES; }

void shutdown() {
    if (!is_initialized()) return;
    guarded(nullptr, [] {
        { const registry::ExclusiveGuard guard; }  // a source or callback that is being asked stops nothing
        stop_watching();
        stop_loads();
        registry::destroy_all();
        destroy_server_archive();
        stop_queues();
        registry::state().initialized.store(false, std::memory_order_release);
    });
}

}  // namespace fs

#include <engine/filesystem/startup.h>

#include <cstring>
#include <memory>
#include <new>

#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/sources/fallback.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/handles/queue_slots.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/memory/server_archive.h"
#include "engine/filesystem/startup/prepared_path.h"

// Starting and stopping. The root directory is the first source and the one that is written to; the fallback, when it is
// wanted, stands behind everything. Stopping takes things apart in the order in which they lean on each other: sources,
// index, server archive, read queues.

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};
constexpr MessageSource exit_source{"EXIT", "engine/filesystem/filesystem"};

/// Null when it does not mount.
std::unique_ptr<CWin32_dir> mount_root(const PreparedPath& built, const char* spelling, FFSAddSourceFlags::ENUM flags,
                                       const char** names) try {
    std::unique_ptr<CWin32_dir> root(new (std::nothrow) CWin32_dir(EFSSourceType::SPECIAL, names));
    if (!root) return nullptr;
    root->set_native_spelling(spelling);
    return root->init(fs::path(built.c_str(), true), flags, nullptr) ? std::move(root) : nullptr;
} catch (const std::bad_alloc&) {
    return nullptr;
}

std::unique_ptr<CWin32_fallback> mount_fallback() {
    std::unique_ptr<CWin32_fallback> fallback(new (std::nothrow) CWin32_fallback);
    if (!fallback || !fallback->init(fs::path(), FFSAddSourceFlags::NONE, nullptr)) return nullptr;
    return fallback;
}

/// Puts the root, and the fallback when there is one, at the end of the list.
bool register_sources(registry::State& state, std::unique_ptr<CWin32_dir> root,
                      std::unique_ptr<CWin32_fallback> fallback) {
    const registry::ExclusiveHold hold(state);
    if (registry::append(state, *root) == nullptr) return false;
    CWin32_dir& registered = *root.release();
    registry::index_source(state, registered);
    state.end_marker = nullptr;
    if (!fallback) return true;
    state.end_marker = registry::append(state, *fallback);
    if (state.end_marker != nullptr) static_cast<void>(fallback.release());
    return true;
}

bool fail_to_start(const char* root) {
    log_message(exit_source, Log::ELevel::FATL, __LINE__, "could not initialize\n");
    return refuse(EFSError::NOT_FOUND, root, "The root directory could not be mounted.");
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

}  // namespace

static_assert(registry::cache_dir_capacity >= path_capacity);

bool init(const char* root, FFSAddSourceFlags::ENUM flags, const char* cache_dir, bool use_fallback, bool /*use_cache*/,
          const char** names) {
    if (root == nullptr) root = "";
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "FileSystem cache is force disabled (unused).\n");
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "Initializing fs from '%s' ...\n", root);
    registry::State& state = registry::state();
    state.cache_dir[0] = '\0';
    const PreparedPath built = prepare_directory(root);
    const PreparedPath cache = prepare_directory(cache_dir);
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "fs:init paths: '%s' incoming, '%s' built\n", root,
                built.c_str());
    // An empty root would become "/", and the whole machine would be mounted.
    if (PreparedPath(root).is_empty() || !built.is_full() || built.is_too_long()) return refuse_root(root);
    // Nothing that is too long to be a directory is taken, before anything has changed.
    if (cache.is_too_long()) return refuse_root(cache_dir);
    {
        const registry::ExclusiveHold hold(state);
        state.index.set_name("data");
    }
    std::unique_ptr<CWin32_dir> source = mount_root(built, root, flags, names);
    std::unique_ptr<CWin32_fallback> fallback = use_fallback ? mount_fallback() : nullptr;
    if (!source || (use_fallback && !fallback)) return fail_to_start(root);
    if (!register_sources(state, std::move(source), std::move(fallback))) return fail_to_start(root);
    std::strcpy(state.cache_dir, cache.c_str());
    state.initialized.store(true, std::memory_order_release);
    start_queues();
    return true;
}

void shutdown() {
    if (!is_initialized()) return;
    registry::State& state = registry::state();
    {
        const registry::ExclusiveHold hold(state);
        registry::destroy_all(state);
    }
    destroy_server_archive();
    stop_queues();
    state.initialized.store(false, std::memory_order_release);
}

}  // namespace fs

#include "engine/filesystem/startup/startup.h"

#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <engine/filesystem/contract/followed_source.h>
#include <engine/filesystem/contract/native_source.h>
#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/sources/fallback.h>
#include <engine/filesystem/sources/pack.h>
#include <engine/filesystem/watch.h>

#include "engine/filesystem/contract/disk_use_scope.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/filesystem/loading/loader.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/directory/listing.h"
#include "engine/filesystem/sources/startup.h"
#include "engine/filesystem/watch/watching.h"
#include "engine/platform/directories.h"

// Starting and stopping. The root directory is the first source and the one that is written to; the fallback, when it is
// wanted, stands behind everything. Stopping takes things apart in the order in which they lean on each other: watches, loads,
// sources, index, server archive, read queues.
//
// Sources by path: mounted, removed, watched and read anew. The path decides the kind of source. Mounting reads the disk and
// may take long, so it runs outside the registry lock; two threads that add one path at once may therefore both pass the
// check for a source of that path.

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};
constexpr MessageSource exit_source{"EXIT", "engine/filesystem/filesystem"};

/// The path of a source as the registry knows it: one trailing separator dropped, in normal form, lower case; with a "/" at
/// its end where that is asked for. One that would be longer than a native path can be is "".
class PreparedPath {
public:
    explicit PreparedPath(const char* path, bool ends_in_slash = false) : text_{} {
        const std::string_view given(path != nullptr ? path : "");
        if (given.size() >= sizeof(text_)) return;
        given.copy(text_, given.size() > 1 && is_separator(given.back()) ? given.size() - 1 : given.size());
        // Once, so that one directory has one path however it was told.
        if (is_full_path(text_)) platform::expand_short_names(text_, text_);
        path_normalize(text_, text_, false);
        if (!ends_in_slash) return;
        const std::size_t length = std::strlen(text_);
        const bool fits = length + 1 < sizeof(text_);
        if (fits) text_[length] = '/';
        text_[fits ? length + 1 : 0] = '\0';
    }

    const char* c_str() const { return text_; }
    bool is_full() const { return is_full_path(text_); }
    bool is_empty() const { return text_[0] == '\0'; }
    bool names_pack() const {
        const std::string_view text(text_);
        return text.ends_with(".pak") || text.ends_with(".mpak");
    }
    /// Directory and file name for a pack; all of it a directory otherwise.
    fs::path as_source_path() const { return names_pack() ? lookup_name(text_) : directory_name(text_, true); }

private:
    char text_[path_capacity];
};

/// Mounts, and leaves a failure stored only for a mount that failed or that could not list everything.
bool mount(CFSSource& source, const fs::path& path, FFSAddSourceFlags::ENUM flags, ListingStore* cache) {
    ErrorScope scope;
    if (source.init(path, flags, cache != nullptr ? cache->listing() : nullptr)) {
        auto* const native = dynamic_cast<NativeSource*>(&source);
        if (native == nullptr || native->unlisted_directories() == 0) scope.forget();
        return true;
    }
    return fail_unless_told(scope, EFSError::NOT_FOUND, path.PathName(), "The source could not be mounted.");
}

/// Mounts and registers what the file system starts with. False, with the failure stored and nothing registered, when
/// that cannot be done.
bool mount_first_sources(const PreparedPath& built, const init_options& options) {
    return guarded(options.root, false, [&] {
        auto root = std::make_unique<CWin32_dir>(EFSSourceType::SPECIAL, options.names);
        root->set_native_spelling(options.root);
        if (!mount(*root, lookup_name(built.c_str()), options.flags, nullptr)) return false;
        auto fallback = options.use_fallback ? std::make_unique<CWin32_fallback>() : nullptr;
        if (fallback && !fallback->init(fs::path(), FFSAddSourceFlags::NONE, nullptr)) return false;
        const registry::ExclusiveGuard guard;
        registry::state().index.set_name("data");
        registry::append_root(std::move(root), std::move(fallback));
        return true;
    });
}

/// `ends_process`: what cannot be mounted is a fatal message, which ends the process.
bool start(const init_options& options, bool ends_process) {
    const char* const root = options.root != nullptr ? options.root : "";
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "FileSystem cache is force disabled (unused).\n");
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "Initializing fs from '%s' ...\n", root);
    registry::State& state = registry::state();
    state.cache_dir[0] = '\0';
    const PreparedPath built(root, true);
    const PreparedPath cache(options.cache_dir, true);
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "fs:init paths: '%s' incoming, '%s' built\n", root,
                built.c_str());
    // An empty root would become "/", and the whole machine would be mounted. And nothing that is too long to be a
    // directory is taken, before anything has changed.
    const bool is_root = !PreparedPath(root).is_empty() && built.is_full();
    if (!is_root || cache.is_empty()) {
        log_message(log_source, Log::ELevel::ERRR, __LINE__, "Full path must be specified when calling fs::init()!\n");
        set_error(EFSError::INVALID_NAME, is_root ? options.cache_dir : root,
                  is_root ? "The cache directory is longer than 259 bytes."
                          : "The root is no full path, or longer than 259 bytes.");
        return false;
    }
    if (!mount_first_sources(built, options)) {
        if (ends_process) log_message(exit_source, Log::ELevel::FATL, __LINE__, "could not initialize\n");
        return false;
    }
    std::strcpy(state.cache_dir, cache.c_str());
    state.initialized.store(true, std::memory_order_release);
    start_queues();
    start_loads();
    return true;
}

/// The caller's own spelling of the path is handed on, since the prepared one is lower case. Null without memory.
std::unique_ptr<CFSSource> new_source(bool is_pack, const char* spelling) try {
    const auto spelled = [&](auto source) -> std::unique_ptr<CFSSource> {
        source->set_native_spelling(spelling);
        return source;
    };
    return is_pack ? spelled(std::make_unique<CZip_dir>()) : spelled(std::make_unique<CWin32_dir>(EFSSourceType::DIR));
} catch (const std::bad_alloc&) {
    return nullptr;
}

bool is_registered(const fs::path& path) {
    const registry::SharedGuard guard;
    return registry::find(path) != nullptr;
}

bool check_key(const char* path, const fs::path& key, FFSAddSourceFlags::ENUM flags) {
    if (key.Empty()) {
        log_message(log_source, Log::ELevel::ERRR, __LINE__, "Invalid key for source '%s'.\n", path);
        return refuse(EFSError::INVALID_NAME, path, "The path names no source.");
    }
    if ((flags & FFSAddSourceFlags::ALLOW_DUPLICATE) == 0 && is_registered(key)) {
        log_message(log_source, Log::ELevel::ERRR, __LINE__, "Source from path '%s' already added.\n", path);
        return refuse(EFSError::ALREADY_EXISTS, path, "A source of this path is registered already.");
    }
    return true;
}

bool mount_path(const char* path, std::string_view prefix, FFSAddSourceFlags::ENUM flags) {
    const PreparedPath prepared(path);
    if (!prepared.is_full()) {
        log_message(log_source, Log::ELevel::WARN, __LINE__, "Cannot add source '%s'. It is not full path.\n", path);
        return refuse(EFSError::INVALID_NAME, path, "The path is no full path, or longer than 259 bytes.");
    }
    const std::unique_ptr<ListingStore> cache =
        ListingStore::open(get_cache_dir(), listing_cache_folder, prepared.c_str(), flags);
    std::string spelling = path;
    if (spelling.size() > 1 && is_separator(spelling.back())) spelling.pop_back();  // no file opens by such a name
    std::unique_ptr<CFSSource> source = new_source(prepared.names_pack(), spelling.c_str());
    if (!source) {
        log_message(log_source, Log::ELevel::ERRR, __LINE__, "Can not allocate memory for source '%s'.\n", path);
        return refuse(EFSError::OUT_OF_MEMORY, path, "There is no memory for one more source.");
    }
    if (!prefix.empty()) source = make_prefixed(std::move(source), prefix);
    const fs::path key = prepared.as_source_path();
    if (!check_key(path, key, flags) || !mount(*source, key, flags, cache.get())) return false;
    if (!registry::add(std::move(source), flags)) return false;
    if (cache) cache->finish();
    return true;
}

/// A pack that a host reads has whatever name the host gave it; other sources are named by a full path.
CFSSource* find_named(const char* path, const PreparedPath& prepared) {
    if (prepared.is_full()) {
        if (CFSSource* const found = registry::find(prepared.as_source_path())) return found;
    }
    return dynamic_cast<CZip_dir*>(registry::find(lookup_name(path)));
}

fs::path key_of(const char* path) {
    const PreparedPath prepared(path);
    if (prepared.is_full()) return prepared.as_source_path();
    set_error(EFSError::INVALID_NAME, path, "The path is no full path, or longer than 259 bytes.");
    throw StoredFailure();
}

/// What reads a source anew under the exclusive lock; empty, with the failure stored, when it cannot be read.
std::function<void()> read_anew(CFSSource& source) {
    if (auto* const followed = dynamic_cast<FollowedSource*>(&source)) return followed->read_anew();
    return [&source] { source.refresh(); };
}

}  // namespace

bool init(const char* root, FFSAddSourceFlags::ENUM flags, const char* cache_dir, bool use_fallback, bool /*use_cache*/,
          const char** names) {
    return init({.root = root, .cache_dir = cache_dir, .flags = flags, .use_fallback = use_fallback, .names = names});
}

bool init(const init_options& options) { return start(options, true); }
bool start(const init_options& options) { return start(options, false); }

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

bool add_source(const char* path, FFSAddSourceFlags::ENUM flags) { return add_source_at(path, "", flags); }

bool add_source_at(const char* path, const char* prefix, FFSAddSourceFlags::ENUM flags) {
    if (path == nullptr) path = "";
    const DiskUse use("listed", path);
    return guarded(path, false, [&] {
        NormalText place(prefix, false);
        place.drop_trailing_slash();
        if (is_full_path(place.c_str()) || climbs(place.c_str()))
            return refuse(EFSError::INVALID_NAME, prefix, "The prefix is a full path, or climbs.");
        return mount_path(path, place.c_str(), flags);
    });
}

bool add_pack_reader(const char* name, pack_reader& reader, FFSAddSourceFlags::ENUM flags) {
    if (name == nullptr) name = "";
    const DiskUse use("listed", name);
    return guarded(name, false, [&] {
        std::shared_ptr<pack_reader> owned(&reader, [](pack_reader* done) { done->release(); });
        const fs::path key = lookup_name(name);
        auto source = std::make_unique<CZip_dir>();
        source->set_native_spelling(name);
        source->set_reader(std::move(owned));
        return check_key(name, key, flags) && mount(*source, key, flags, nullptr) &&
               registry::add(std::move(source), flags);
    });
}

bool rem_source(const char* path) {
    return guarded(path, false, [&] {
        const PreparedPath prepared(path);
        const auto source = registry::take_out([&] { return find_named(path, prepared); });
        if (!source && !prepared.is_full()) return refuse(EFSError::INVALID_NAME, path, "The path is no full path.");
        if (!source) return refuse(EFSError::NOT_FOUND, path, "No source of this path is registered.");
        const fs::path& key = source->path();
        const EFSSourceType::TYPE type = source->type();
        log_message(log_source, Log::ELevel::DEBG, __LINE__, "Removing source '%s%s' of type %s(%i).\n", key.PathName(),
                    key.FileName(), registry::type_name(type), static_cast<int>(type));
        return true;
    });
}

bool watch(const char* source_path, bool on) {
    const DiskUse use("watched", source_path);
    return guarded(source_path, false, [&] { return watch_source(key_of(source_path), on); });
}

bool reload_source(const char* source_path) {
    const DiskUse use("read", source_path);
    return guarded(source_path, false, [&] {
        std::vector<CFSSource*> sources;
        std::vector<registry::Pin> pins;
        {
            const registry::SharedGuard guard;
            sources = sources_of(key_of(source_path));
            for (CFSSource* const source : sources) pins.emplace_back(*source);
        }
        std::vector<std::function<void()>> read;
        for (CFSSource* const source : sources) {
            read.push_back(read_anew(*source));
            if (!read.back()) return false;
        }
        const registry::ExclusiveGuard guard;
        const ErrorScope scope;
        for (const std::function<void()>& take_up : read) take_up();
        registry::rebuild_index();
        return !scope.has_error();
    });
}

}  // namespace fs

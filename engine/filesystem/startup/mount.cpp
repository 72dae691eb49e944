#include <engine/filesystem/startup.h>

#include <memory>
#include <new>
#include <string>
#include <utility>

#include <engine/filesystem/contract/native_source.h>
#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/lookup_name.h"
#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/directory/listing.h"
#include "engine/filesystem/sources/startup.h"
#include "engine/filesystem/startup/prepared_path.h"

// Mounting by path. The path decides the kind of source. Mounting reads the disk and may take long, so it runs outside
// the registry lock; two threads that add one path at once may therefore both pass the check for a source of that path.

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};

template <typename Source>
std::unique_ptr<CFSSource> with_spelling(std::unique_ptr<Source> source, const char* spelling) {
    source->set_native_spelling(spelling);
    return source;
}

/// The caller's own spelling of the path is handed on, since the prepared one is lower case. Null without memory.
std::unique_ptr<CFSSource> new_source(bool is_pack, const char* spelling) try {
    if (is_pack) return with_spelling(std::make_unique<CZip_dir>(), spelling);
    return with_spelling(std::make_unique<CWin32_dir>(EFSSourceType::DIR), spelling);
} catch (const std::bad_alloc&) {
    return nullptr;
}

bool is_registered(const fs::path& path) {
    const registry::SharedGuard guard;
    return registry::find(path) != nullptr;
}

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

bool mount_reader(const char* name, std::shared_ptr<pack_reader> reader, FFSAddSourceFlags::ENUM flags) {
    const fs::path key = lookup_name(name);
    auto source = std::make_unique<CZip_dir>();
    source->set_native_spelling(name);
    source->set_reader(std::move(reader));
    return check_key(name, key, flags) && mount(*source, key, flags, nullptr) &&
           registry::add(std::move(source), flags);
}

/// A pack that a host reads has whatever name the host gave it; other sources are named by a full path.
CFSSource* find_named(const char* path, const PreparedPath& prepared) {
    if (prepared.is_full()) {
        if (CFSSource* const found = registry::find(prepared.as_source_path())) return found;
    }
    return dynamic_cast<CZip_dir*>(registry::find(lookup_name(path)));
}

bool unmount_path(const char* path) {
    const PreparedPath prepared(path);
    const fs::path key = prepared.is_full() ? prepared.as_source_path() : lookup_name(path);
    const auto source = registry::take_out([&] { return find_named(path, prepared); });
    if (!source && !prepared.is_full()) return refuse(EFSError::INVALID_NAME, path, "The path is no full path.");
    if (!source) return refuse(EFSError::NOT_FOUND, key.PathName(), "No source of this path is registered.");
    const EFSSourceType::TYPE type = source->type();
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "Removing source '%s%s' of type %s(%i).\n", key.PathName(),
                key.FileName(), registry::type_name(type), static_cast<int>(type));
    return true;
}

}  // namespace

bool add_source(const char* path, FFSAddSourceFlags::ENUM flags) {
    if (path == nullptr) path = "";
    const DiskUse use("listed", path);
    return guarded(path, false, [&] { return mount_path(path, "", flags); });
}

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
        return mount_reader(name, std::shared_ptr<pack_reader>(&reader, [](pack_reader* done) { done->release(); }),
                            flags);
    });
}

bool rem_source(const char* path) {
    return guarded(path, false, [&] { return unmount_path(path); });
}

}  // namespace fs

#include <engine/filesystem/registry.h>

#include <engine/filesystem/contract/native_source.h>

#include <string_view>
#include <utility>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/holders.h"
#include "engine/kernel/text.h"

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};

void log_added(CFSSource& source, FFSAddSourceFlags::ENUM flags) {
    if (!is_logged(log_source, Log::ELevel::DEBG)) return;
    const fs::path& path = source.path();
    const EFSSourceType::TYPE type = source.type();
    log_message(log_source, Log::ELevel::DEBG, __LINE__, "Adding source '%s%s' of type %s(%i) with flags 0x%02X.\n",
                path.PathName(), path.FileName(), registry::type_name(type), static_cast<int>(type),
                static_cast<unsigned>(flags));
}

SFsSourceInfo describe(CFSSource& source) {
    auto* const native = dynamic_cast<NativeSource*>(&source);
    return {.path_name = source.path().PathName(),
            .file_name = source.path().FileName(),
            .type = source.type(),
            .flags = source.flags(),
            .writable = source.writable(),
            .is_protected = source.is_protected(),
            .unlisted_directories = native != nullptr ? native->unlisted_directories() : 0};
}

}  // namespace

bool registry::add(std::unique_ptr<CFSSource> source, FFSAddSourceFlags::ENUM flags) {
    return guarded(nullptr, false, [&] {
        log_added(*source, flags);
        const ExclusiveGuard guard;
        const bool is_there = first_source([&](CFSSource& held) { return &held == source.get(); }) != nullptr;
        if (is_there) {
            static_cast<void>(source.release());  // it has its owner
        } else {
            insert(std::move(source), flags);
        }
        return true;
    });
}

void add_source(CFSSource* source, FFSAddSourceFlags::ENUM flags) {
    if (source != nullptr) registry::add(std::unique_ptr<CFSSource>(source), flags);
}

bool rem_source(CFSSource* source) {
    return guarded(nullptr, false, [&] {
        // The caller has the source back.
        if (registry::take_out([source] { return source; }).release() != nullptr) return true;
        return refuse(EFSError::NOT_FOUND, nullptr, "This source is not registered.");
    });
}

bool rem_source(std::nullptr_t) { return rem_source(static_cast<CFSSource*>(nullptr)); }

bool source_exists(const char* path) {
    return guarded(path, false, [&] {
        const registry::SharedGuard guard;
        const std::string_view wanted(path != nullptr ? path : "");
        for (const auto& source : registry::state().sources) {
            if (kernel::equal_folded(source->path().PathNameView(), wanted)) return true;
        }
        return false;
    });
}

const char* write_path() {
    return guarded<const char*>(nullptr, "", [&] {
        const registry::SharedGuard guard;
        CFSSource* const creator = registry::creator("");
        return creator != nullptr ? creator->path().PathName() : "";
    });
}

const char* get_cache_dir() { return registry::state().cache_dir; }

bool is_initialized() { return registry::state().initialized.load(std::memory_order_acquire); }

void enable_read_membuffer(bool on) { registry::state().read_membuffer.store(on, std::memory_order_relaxed); }

bool is_read_membuffer_enabled() { return registry::state().read_membuffer.load(std::memory_order_relaxed); }

void get_sources(ztl::vector<SFsSourceInfo>& out) {
    out.clear();
    guarded(nullptr, [&] {
        ztl::vector<SFsSourceInfo> found;
        const registry::SharedGuard guard;
        registry::for_each_source([&](CFSSource& source) { found.push_back(describe(source)); });
        out = std::move(found);
    });
}

void find_holders(const char* path, ztl::vector<SFsSourceInfo>& out, FFSOpenFlags::FLAGS flags) {
    out.clear();
    guarded(path, [&] {
        const fs::path name = lookup_name(path);
        ztl::vector<SFsSourceInfo> found;
        const registry::SharedGuard guard;
        registry::first_concerned(name, [&](CFSSource& source) {
            if (registry::holds(source, name, registry::match_of(flags))) found.push_back(describe(source));
            return false;
        });
        out = std::move(found);
    });
}

}  // namespace fs

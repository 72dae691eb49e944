#include <engine/filesystem/registry.h>

#include <engine/filesystem/contract/native_source.h>

#include <cstring>
#include <utility>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};

bool equal_without_case(const char* a, const char* b) {
    while (*a != '\0' && fold(*a) == fold(*b)) {
        ++a;
        ++b;
    }
    return fold(*a) == fold(*b);
}

registry::Node* find_pointer(const registry::State& state, const CFSSource* source) {
    for (registry::Node* node = state.head; node != nullptr && node != state.end_marker; node = node->next) {
        if (node->source == source) return node;
    }
    return nullptr;
}

/// False when the source cannot be kept; one that is registered already stays once.
bool keep(registry::State& state, CFSSource& source, FFSAddSourceFlags::ENUM flags) {
    const registry::ExclusiveHold hold(state);
    return find_pointer(state, &source) != nullptr || registry::insert(state, source, flags);
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

template <typename Predicate>
void collect(ztl::vector<SFsSourceInfo>& out, Predicate wanted) {
    out.clear();
    try {
        ztl::vector<SFsSourceInfo> found;
        {
            const registry::State& state = registry::state();
            const registry::SharedHold hold(registry::state());
            registry::for_each_source(state, [&](CFSSource& source) {
                if (wanted(source)) found.push_back(describe(source));
            });
        }
        out = std::move(found);
    } catch (...) {
        set_error(EFSError::OUT_OF_MEMORY, nullptr, "There is no memory for the list of sources.");
    }
}

}  // namespace

void add_source(CFSSource* source, FFSAddSourceFlags::ENUM flags) {
    if (source == nullptr) return;
    if (is_logged(log_source, Log::ELevel::DEBG)) {
        const fs::path& path = source->path();
        const EFSSourceType::TYPE type = source->type();
        log_message(log_source, Log::ELevel::DEBG, __LINE__, "Adding source '%s%s' of type %s(%i) with flags 0x%02X.\n",
                    path.PathName(), path.FileName(), registry::type_name(type), static_cast<int>(type),
                    static_cast<unsigned>(flags));
    }
    if (keep(registry::state(), *source, flags)) return;
    set_error(EFSError::OUT_OF_MEMORY, source->path().PathName(), "The registry has no memory for one more source.");
    delete source;
}

bool rem_source(CFSSource* source) {
    registry::State& state = registry::state();
    const registry::ExclusiveHold hold(state);
    registry::Node* const node = source != nullptr ? find_pointer(state, source) : nullptr;
    if (node == nullptr) return false;
    registry::unlink(state, node);
    registry::rebuild_index(state);
    return true;
}

bool rem_source(std::nullptr_t) { return false; }

bool source_exists(const char* path) {
    const registry::State& state = registry::state();
    const registry::SharedHold hold(registry::state());
    for (const registry::Node* node = state.head; node != nullptr && node != state.end_marker; node = node->next) {
        if (equal_without_case(node->source->path().PathName(), path != nullptr ? path : "")) return true;
    }
    return false;
}

const char* write_path() {
    const registry::State& state = registry::state();
    const registry::SharedHold hold(registry::state());
    return state.head != nullptr ? state.head->source->path().PathName() : "";
}

const char* get_cache_dir() { return registry::state().cache_dir; }

bool is_initialized() { return registry::state().initialized.load(std::memory_order_acquire); }

void enable_read_membuffer(bool on) { registry::state().read_membuffer.store(on, std::memory_order_relaxed); }

bool is_read_membuffer_enabled() { return registry::state().read_membuffer.load(std::memory_order_relaxed); }

void get_sources(ztl::vector<SFsSourceInfo>& out) {
    collect(out, [](CFSSource&) { return true; });
}

void find_holders(const char* path, ztl::vector<SFsSourceInfo>& out) {
    const fs::path name(path, true);
    collect(out, [&](CFSSource& source) { return !name.Empty() && source.exists(name); });
}

}  // namespace fs

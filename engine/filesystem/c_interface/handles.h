#pragma once

#include <cstdint>
#include <memory>

#include <engine/filesystem/containers/pack_writer.h>
#include <engine/filesystem/loading.h>
#include <engine/filesystem_c.h>

#include "engine/filesystem/contract/open_file.h"

// What a host of the C interface gets for an object: a number, never an address. It names a place in a table and the
// object that stood there when it was given out, so that one that has ended, belongs to another kind or was made up is
// found out without touching memory that is gone.

namespace fs::c {

struct OpenFile {
    FilePtr file;
    bool is_written = false;  // opened in another mode than READ
};

struct List;

struct ReleaseLoad {
    void operator()(SFsLoad* load) const { load->Release(); }
};

template <typename ObjectOfKind, std::uint8_t number, typename Delete = std::default_delete<ObjectOfKind>>
struct Kind {
    using Object = ObjectOfKind;
    using Owner = std::unique_ptr<Object, Delete>;
    static constexpr std::uint8_t kind = number;
};

/// The object behind each type of handle, and the number that tells the types apart.
template <typename Handle>
struct Behind;
template <>
struct Behind<enginefs_file> : Kind<OpenFile, 1> {};
template <>
struct Behind<enginefs_list> : Kind<List, 2> {};
template <>
struct Behind<enginefs_pack> : Kind<pack_writer, 3> {};
template <>
struct Behind<enginefs_async_load> : Kind<SFsLoad, 4, ReleaseLoad> {};

namespace handles {

using Handle = std::uintptr_t;
static_assert(sizeof(Handle) == 8);

/// A new handle of this kind. Throws StoredFailure when too many are open, and std::bad_alloc.
Handle add(std::uint8_t kind, void* object);
/// Null, with the failure stored, when the handle is not open. Takes no lock.
void* find(Handle handle, std::uint8_t kind) noexcept;
/// Ends the handle. Its object; null, with the failure stored, when it is not open.
void* end(Handle handle, std::uint8_t kind) noexcept;
/// Puts another object behind the handle unless it has ended.
void set(Handle handle, void* object) noexcept;

}  // namespace handles

template <typename Handle>
typename Behind<Handle>::Object* find(const Handle* handle) noexcept {
    return static_cast<typename Behind<Handle>::Object*>(
        handles::find(reinterpret_cast<handles::Handle>(handle), Behind<Handle>::kind));
}

/// Ends the handle.
template <typename Handle>
typename Behind<Handle>::Owner end(Handle* handle) noexcept {
    return typename Behind<Handle>::Owner(static_cast<typename Behind<Handle>::Object*>(
        handles::end(reinterpret_cast<handles::Handle>(handle), Behind<Handle>::kind)));
}

template <typename Handle>
struct EndHandle {
    void operator()(Handle* handle) const { end(handle); }
};
/// A handle that ends unless what is behind it comes about.
template <typename Handle>
using NewHandle = std::unique_ptr<Handle, EndHandle<Handle>>;

/// A handle to the object, which it owns from here on.
template <typename Handle>
Handle* give(typename Behind<Handle>::Owner object) {
    const handles::Handle handle = handles::add(Behind<Handle>::kind, object.get());
    static_cast<void>(object.release());
    return reinterpret_cast<Handle*>(handle);
}

}  // namespace fs::c

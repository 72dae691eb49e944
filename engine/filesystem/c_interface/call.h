#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/registry.h>

#include "engine/filesystem/c_interface/handles.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/kernel/text.h"
#include "engine/platform/threads.h"

// What every function of the C interface goes through: arguments are checked here and failures become its answers.

namespace fs::c {

/// The boundary of a call that answers a status: 0 when `work()` is true, otherwise the code of what it has stored. What it
/// stored nothing for is an IO failure.
template <typename Work>
int status(const char* path, Work&& work) noexcept {
    const ErrorScope scope;
    if (guarded(path, false, std::forward<Work>(work))) return EFSError::NONE;
    fail_unless_told(scope, EFSError::IO, path, "The file or its source failed without giving a reason.");
    const EFSError::TYPE code = last_error().code;
    return static_cast<int>(code != EFSError::NONE ? code : EFSError::IO);
}

/// The same of `work(object)` for what is behind the handle.
template <typename Handle, typename Work>
int status_of(Handle* handle, Work&& work) noexcept {
    return status(nullptr, [&] {
        auto* const object = find(handle);
        return object != nullptr && work(*object);
    });
}

/// The same, and the handle ends first.
template <typename Handle, typename Work>
int status_of_end(Handle* handle, Work&& work) noexcept {
    return status(nullptr, [&] {
        const auto object = end(handle);
        return object != nullptr && work(*object);
    });
}

/// For calls that answer nothing: whether `work()` stored no failure.
template <typename Work>
bool is_quiet(Work&& work) {
    const ErrorScope scope;
    std::forward<Work>(work)();
    return !scope.has_error();
}

/// Stands on the stack of a thread while a callback of the host runs.
class InHost {
public:
    InHost() { ++depth; }
    InHost(const InHost&) = delete;
    InHost& operator=(const InHost&) = delete;
    ~InHost() { --depth; }

    static bool is_here() { return depth != 0; }

private:
    static inline constinit platform::PerThread<int, InHost> depth;
};

inline bool refuse_argument(const char* text) { return refuse(EFSError::INVALID_ARGUMENT, nullptr, text); }

/// True unless one of them is null.
inline bool are_given(std::initializer_list<const void*> arguments) {
    const bool is_null = std::find(arguments.begin(), arguments.end(), nullptr) != arguments.end();
    return !is_null || refuse_argument("An argument is null.");
}

/// True for bytes that are there, or need not be.
inline bool is_block(const void* data, std::uint64_t size) {
    if (size > INT64_MAX) return refuse_argument("The size is larger than memory can be.");
    return data != nullptr || size == 0 || refuse_argument("The block is null.");
}

inline bool are_known(std::uint32_t flags, std::uint32_t known) {
    return (flags & ~known) == 0 || refuse_argument("The flags hold an unknown bit.");
}

inline constexpr std::uint32_t source_flags = 0xFFF;  // every ENGINEFS_SOURCE_ there is
inline constexpr std::uint32_t open_flags = 0x1E3F;   // every ENGINEFS_OPEN_

inline FFSOpenFlags::FLAGS as_open_flags(std::uint32_t flags) { return static_cast<FFSOpenFlags::FLAGS>(flags); }
inline FFSAddSourceFlags::ENUM as_source_flags(std::uint32_t flags) {
    return static_cast<FFSAddSourceFlags::ENUM>(flags);
}

inline bool is_running() {
    return is_initialized() || refuse(EFSError::NOT_INITIALIZED, nullptr, "The file system does not run.");
}

/// Whether a file or source of this name can be asked for.
inline bool is_name(const char* name, std::uint32_t flags = 0, std::uint32_t known = open_flags) {
    return are_given({name}) && are_known(flags, known) && is_running();
}

/// Whether something of this name could be made.
inline bool is_new_name(const char* name) {
    if (!are_given({name})) return false;
    return kernel::is_utf8(name) || refuse(EFSError::INVALID_ARGUMENT, name, "The name is not UTF-8.");
}

/// The size that a structure had when it was first declared; to be given its old value when one of them grows.
template <typename Struct>
inline constexpr std::uint32_t first_size = sizeof(Struct);

template <typename Struct>
bool is_struct(const Struct* given) {
    if (!are_given({given})) return false;
    return given->struct_size >= first_size<Struct> || refuse_argument("The structure's struct_size is too small.");
}

/// What the caller's structure says, as far as it goes.
template <typename Struct>
bool take(const Struct* given, Struct& known) {
    if (!is_struct(given)) return false;
    std::memcpy(&known, given, std::min<std::size_t>(given->struct_size, sizeof known));
    if constexpr (requires { known.reserved; })
        return known.reserved == 0 || refuse_argument("What is reserved in the structure is not 0.");
    return true;
}

/// Fills the caller's structure, as far as it goes. `known.struct_size` is not looked at.
template <typename Struct>
bool put(Struct* given, Struct known) {
    if (!is_struct(given)) return false;
    known.struct_size = given->struct_size;
    std::memcpy(given, &known, std::min<std::size_t>(given->struct_size, sizeof known));
    return true;
}

}  // namespace fs::c

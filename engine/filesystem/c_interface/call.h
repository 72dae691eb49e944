#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include <engine/filesystem/contract/flags.h>

#include "engine/filesystem/contract/guarded.h"
#include "engine/kernel/utf8.h"

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

/// True unless one of them is null.
inline bool are_given(std::initializer_list<const void*> arguments) {
    const bool is_null = std::find(arguments.begin(), arguments.end(), nullptr) != arguments.end();
    return !is_null || refuse(EFSError::INVALID_ARGUMENT, nullptr, "An argument is null.");
}

/// True for bytes that are there, or need not be.
inline bool is_block(const void* data, std::uint64_t size) {
    if (size > INT64_MAX) return refuse(EFSError::INVALID_ARGUMENT, nullptr, "The size is larger than memory can be.");
    return data != nullptr || size == 0 || refuse(EFSError::INVALID_ARGUMENT, nullptr, "The block is null.");
}

/// Whether something of this name could be made.
inline bool is_new_name(const char* name) {
    if (!are_given({name})) return false;
    return kernel::is_utf8(name) || refuse(EFSError::INVALID_ARGUMENT, name, "The name is not UTF-8.");
}

inline bool are_known(std::uint32_t flags, std::uint32_t known) {
    return (flags & ~known) == 0 || refuse(EFSError::INVALID_ARGUMENT, nullptr, "The flags hold an unknown bit.");
}

inline constexpr std::uint32_t source_flags = 0xFFF;  // every ENGINEFS_SOURCE_ there is
inline constexpr std::uint32_t open_flags = 0x1E3F;   // every ENGINEFS_OPEN_

/// The flags of an open for a name that is asked for; nothing else is heeded.
inline FFSOpenFlags::FLAGS as_open_flags(std::uint32_t flags) { return static_cast<FFSOpenFlags::FLAGS>(flags); }

/// The size that a structure had when it was first declared; to be given its old value when one of them grows.
template <typename Struct>
inline constexpr std::uint32_t first_size = sizeof(Struct);

template <typename Struct>
bool is_struct(const Struct* given) {
    if (!are_given({given})) return false;
    return given->struct_size >= first_size<Struct> ||
           refuse(EFSError::INVALID_ARGUMENT, nullptr, "The structure's struct_size is too small.");
}

/// What the caller's structure says, as far as it goes.
template <typename Struct>
bool take(const Struct* given, Struct& known) {
    if (!is_struct(given)) return false;
    std::memcpy(&known, given, std::min<std::size_t>(given->struct_size, sizeof known));
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

// The numbers of the C header are those of the C++ headers.
#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/formats/pack_method.h>
#include <engine/filesystem/loading.h>
#include <engine/filesystem/log.h>

#include "engine/filesystem/c_interface/call.h"

namespace {

/// Whether each value at an even place is the one behind it.
template <auto... values>
constexpr bool are_pairs() {
    const std::int64_t list[] = {static_cast<std::int64_t>(values)...};
    for (std::size_t i = 0; i < sizeof...(values); i += 2)
        if (list[i] != list[i + 1]) return false;
    return true;
}

using Error = EFSError;
static_assert(are_pairs<ENGINEFS_ERROR_NOT_FOUND, Error::NOT_FOUND, ENGINEFS_ERROR_ACCESS_DENIED, Error::ACCESS_DENIED,
                        ENGINEFS_ERROR_IN_USE, Error::IN_USE, ENGINEFS_ERROR_ALREADY_EXISTS, Error::ALREADY_EXISTS,
                        ENGINEFS_ERROR_READ_ONLY, Error::READ_ONLY, ENGINEFS_ERROR_DISK_FULL, Error::DISK_FULL,
                        ENGINEFS_ERROR_INVALID_NAME, Error::INVALID_NAME, ENGINEFS_ERROR_INVALID_ARGUMENT,
                        Error::INVALID_ARGUMENT, ENGINEFS_ERROR_NOT_INITIALIZED, Error::NOT_INITIALIZED,
                        ENGINEFS_ERROR_BAD_FORMAT, Error::BAD_FORMAT, ENGINEFS_ERROR_UNSUPPORTED, Error::UNSUPPORTED,
                        ENGINEFS_ERROR_TOO_LARGE, Error::TOO_LARGE, ENGINEFS_ERROR_OUT_OF_MEMORY, Error::OUT_OF_MEMORY,
                        ENGINEFS_ERROR_CANCELLED, Error::CANCELLED, ENGINEFS_ERROR_IO, Error::IO>());

using Open = FFSOpenFlags;
static_assert(
    are_pairs<ENGINEFS_OPEN_IN_CACHE_DIR, Open::IN_CACHE_DIR, ENGINEFS_OPEN_WRITE_THROUGH, Open::WRITE_THROUGH,
              ENGINEFS_OPEN_GZIP_LEVEL5, Open::GZIP_LEVEL5, ENGINEFS_OPEN_GZIP_LEVEL9, Open::GZIP_LEVEL9,
              ENGINEFS_OPEN_GZIP, Open::GZIP, ENGINEFS_OPEN_CREATE, Open::CREATE, ENGINEFS_OPEN_GZIP_LEVEL1,
              Open::GZIP_LEVEL1, ENGINEFS_OPEN_REPLACE, Open::REPLACE, ENGINEFS_OPEN_WHOLE_NAME, Open::WHOLE_NAME,
              ENGINEFS_OPEN_SEEKABLE, Open::SEEKABLE, fs::c::open_flags,
              Open::IN_CACHE_DIR | Open::WRITE_THROUGH | Open::GZIP_LEVEL5 | Open::GZIP_LEVEL9 | Open::GZIP |
                  Open::CREATE | Open::GZIP_LEVEL1 | Open::REPLACE | Open::WHOLE_NAME | Open::SEEKABLE>());
static_assert(are_pairs<ENGINEFS_READ, EFSMode::READ, ENGINEFS_WRITE, EFSMode::WRITE, ENGINEFS_APPEND, EFSMode::APPEND,
                        ENGINEFS_READ_WRITE, EFSMode::READ_WRITE>());

using Source = FFSAddSourceFlags;
static_assert(
    are_pairs<ENGINEFS_SOURCE_RECURSIVE, Source::RECURSIVE, ENGINEFS_SOURCE_AFTER_SAME_TYPE, Source::AFTER_SAME_TYPE,
              ENGINEFS_SOURCE_MOUNT_PARENT, Source::MOUNT_PARENT, ENGINEFS_SOURCE_INDEX_NAMES, Source::INDEX_NAMES,
              ENGINEFS_SOURCE_ALLOW_DUPLICATE, Source::ALLOW_DUPLICATE, ENGINEFS_SOURCE_PACK_IN_MEMORY,
              Source::PACK_IN_MEMORY, ENGINEFS_SOURCE_SKIP_LISTING_CACHE, Source::SKIP_LISTING_CACHE,
              ENGINEFS_SOURCE_PROTECTED, Source::PROTECTED, ENGINEFS_SOURCE_MUST_EXIST, Source::MUST_EXIST,
              ENGINEFS_SOURCE_EXACT_SEEKS, Source::EXACT_SEEKS, ENGINEFS_SOURCE_BEFORE_PACKS, Source::BEFORE_PACKS,
              ENGINEFS_SOURCE_WRITE_HERE, Source::WRITE_HERE, fs::c::source_flags, 2 * Source::WRITE_HERE - 1>());
static_assert(are_pairs<ENGINEFS_KIND_MEMORY, EFSSourceType::PLS, ENGINEFS_KIND_PACK, EFSSourceType::PACK,
                        ENGINEFS_KIND_ROOT, EFSSourceType::SPECIAL, ENGINEFS_KIND_DIRECTORY, EFSSourceType::DIR>());

static_assert(are_pairs<ENGINEFS_METHOD_STORE, EFSPackMethod::STORE, ENGINEFS_METHOD_DEFLATE, EFSPackMethod::DEFLATE,
                        ENGINEFS_METHOD_ZSTD, EFSPackMethod::ZSTD>());
static_assert(are_pairs<ENGINEFS_PRIORITY_BACKGROUND, EFSLoadPriority::BACKGROUND, ENGINEFS_PRIORITY_NORMAL,
                        EFSLoadPriority::NORMAL, ENGINEFS_PRIORITY_HIGH, EFSLoadPriority::HIGH,
                        ENGINEFS_PRIORITY_URGENT, EFSLoadPriority::URGENT>());
static_assert(are_pairs<ENGINEFS_LOG_FATAL, Log::ELevel::FATL, ENGINEFS_LOG_ERROR, Log::ELevel::ERRR, ENGINEFS_LOG_INFO,
                        Log::ELevel::INFO, ENGINEFS_LOG_WARN, Log::ELevel::WARN, ENGINEFS_LOG_DEBUG, Log::ELevel::DEBG,
                        ENGINEFS_LOG_VERBOSE, Log::ELevel::VERB>());

}  // namespace

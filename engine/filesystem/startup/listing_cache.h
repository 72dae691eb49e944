#pragma once

#include <memory>

#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/contract/source.h>

namespace fs {

/// The recorded listing of one source path, while the source mounts with it.
class ListingCache {
public:
    /// Null when there is no place for recorded listings, or SKIP_LISTING_CACHE forbids them.
    static std::unique_ptr<ListingCache> open(const char* source_path, FFSAddSourceFlags::ENUM flags);

    virtual ~ListingCache() = default;
    /// Handed to CFSSource::init: with records when there is a trusted listing, else empty, to be filled by the scan.
    virtual fs::dir_listing* listing() = 0;
    /// Stores what the scan recorded. Not called when mounting fails.
    virtual void finish(const char* source_path) = 0;
};

}  // namespace fs

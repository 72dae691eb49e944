#pragma once

#include <memory>
#include <string>

#include <engine/filesystem/contract/flags.h>

#include "engine/filesystem/sources/directory/mount/recorded.h"

namespace fs {

/// The recorded listing of one source path, while the source mounts with it. It only saves time: whatever goes wrong with
/// it, silently, means that the disk is scanned.
class ListingStore {
public:
    /// Listings are recorded in the directory `below` of `cache_dir`; `source_path` is prepared. Null when there is no
    /// such directory, when SKIP_LISTING_CACHE forbids them, or without memory.
    static std::unique_ptr<ListingStore> open(const char* cache_dir, const char* below, const char* source_path,
                                              FFSAddSourceFlags::ENUM flags);

    /// Handed to CFSSource::init: with records when there is a listing, else empty, to be filled by the scan.
    dir_listing* listing() { return &listing_; }
    /// Stores what the scan recorded. Not called when mounting fails.
    void finish();

private:
    ListingStore(std::string file, const char* source_path, FFSAddSourceFlags::ENUM flags);
    ListingKey key() const { return {source_path_, flags_}; }
    void load();

    std::string file_;
    std::string source_path_;
    FFSAddSourceFlags::ENUM flags_;
    dir_listing listing_;
};

}  // namespace fs

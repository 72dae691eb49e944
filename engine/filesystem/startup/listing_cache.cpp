#include "engine/filesystem/startup/listing_cache.h"

namespace fs {

std::unique_ptr<ListingCache> ListingCache::open(const char*, FFSAddSourceFlags::ENUM) { return nullptr; }

}  // namespace fs

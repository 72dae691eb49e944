#include <engine/filesystem/contract/followed_source.h>

#include <atomic>

namespace fs {

FollowedSource::FollowedSource() {
    static std::atomic<std::uint64_t> latest{0};
    serial_ = latest.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace fs

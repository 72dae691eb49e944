#pragma once

#include <cstdint>
#include <unordered_map>

/// Packs keep local time. The offset of a quarter of an hour is asked for once: the C library takes a while for it.
class LocalTimes {
public:
    /// ns since 1970, universal time, of the ticks of a pack.
    std::int64_t time_of(std::int64_t ticks);

private:
    std::unordered_map<std::int64_t, std::int64_t> offsets_;
};

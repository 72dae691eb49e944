#pragma once

#include <cstdint>
#include <memory>

#include "engine/platform/files.h"

namespace fs {

class pack_reader;

/// Where the bytes of a pack come from. One call is made for each piece that is read, so that it may be virtual.
/// Threads  any number at once.
class PackOrigin {
public:
    static constexpr std::uint64_t failed = ~std::uint64_t{0};

    virtual ~PackOrigin() = default;

    /// `failed`, with fs::last_error set, when that is not known.
    virtual std::uint64_t length() = 0;
    /// Bytes read: less than `size` where the pack ended since its length was asked for. `failed`, with fs::last_error
    /// set, when they are not to be read.
    virtual std::uint64_t read(std::uint64_t offset, void* buffer, std::uint64_t size) const = 0;
    virtual void prefetch(std::uint64_t /*offset*/, std::uint64_t /*size*/) const {}
    /// Whether reading may take long, so that it is not done before it must be, and nothing can be mapped.
    virtual bool is_remote() const = 0;
    /// Empty, with fs::last_error set, on failure.
    virtual platform::Mapping map(std::uint64_t /*offset*/, std::uint64_t /*size*/) const { return {}; }

    /// The same bytes once more, where these are a file's that its path still leads to. Null otherwise.
    virtual std::unique_ptr<PackOrigin> again() const { return nullptr; }

    /// A file, which nobody else may open meanwhile; the monitor is told of it. Null, with fs::last_error set, on failure.
    static std::unique_ptr<PackOrigin> file(const char* native_path);
    /// What a host reads. `name` outlives it.
    static std::unique_ptr<PackOrigin> reader(const char* name, std::shared_ptr<pack_reader> reader);
};

}  // namespace fs

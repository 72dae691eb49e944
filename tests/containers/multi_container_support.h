#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <engine/filesystem/containers/multi_container.h>

#include "engine/filesystem/containers/container_format.h"

namespace test {

/// What a multi-container holds, by container and hash.
using Blobs = std::map<std::pair<std::string, std::uint32_t>, std::string>;

inline std::string fetch(const CFileHashMultiContainer& file, const std::string& container, std::uint32_t hash) {
    ztl::vector<unsigned char> bytes;
    if (!file.Fetch(container.c_str(), hash, bytes)) return "(none)";
    return {bytes.begin(), bytes.end()};
}

inline bool put(CFileHashMultiContainer& file, const std::string& container, std::uint32_t hash,
                const std::string& text, bool deflate = false) {
    return file.Put(container.c_str(), hash, text.data(), text.size(), deflate);
}

inline Blobs everything(const CFileHashMultiContainer& file) {
    Blobs all;
    ztl::vector<fs::string> names;
    file.ListContainers(names);
    for (const fs::string& name : names) {
        ztl::vector<SBlobInfo> blobs;
        EXPECT_TRUE(file.ListBlobs(name.c_str(), blobs));
        for (const SBlobInfo& blob : blobs) all[{name, blob.hash}] = fetch(file, name, blob.hash);
    }
    return all;
}

/// What a file holds; none when it does not open.
inline std::optional<Blobs> opened(const char* name) {
    CFileHashMultiContainer file;
    if (!file.Open(name, false)) return std::nullopt;
    return everything(file);
}

/// A file of these parts, whose checksums are all good, unless `twist` changes the record.
inline std::string made_of(const std::string& data, const std::string& index, std::uint64_t directory_size,
                           const std::function<void(container::Commit&)>& twist = {}) {
    container::Commit commit{.sequence = 2,
                             .index_offset = container::data_offset + data.size(),
                             .index_size = index.size(),
                             .directory_size = directory_size,
                             .directory_checksum = container::checksum(index.data(), directory_size)};
    if (twist) twist(commit);
    const container::HeadBytes head = container::head_of(commit);
    return std::string(head.begin(), head.end()) + data + index;
}

}  // namespace test

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <engine/filesystem/containers/multi_container.h>

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

inline Blobs opened(const char* name, bool& ok) {
    CFileHashMultiContainer file;
    ok = file.Open(name, false);
    return ok ? everything(file) : Blobs{};
}

}  // namespace test

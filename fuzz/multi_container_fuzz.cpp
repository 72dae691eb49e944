// Opening a multi-container file of any bytes, everything that can be asked of it, and compacting it within the file: one
// that was good stays good.
#include <cstdint>
#include <string>

#include <engine/filesystem/containers/multi_container.h>
#include <engine/filesystem/registry.h>

#include "fuzz/require.h"
#include "tests/support/memory_source.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static test::MemorySource* const source = test::mount_memory("/fuzz/");
    source->add("fuzz.mc", std::string(reinterpret_cast<const char*>(data), size));
    CFileHashMultiContainer file;
    if (!file.Open("fuzz.mc", false)) return 0;
    ztl::vector<fs::string> report;
    const bool is_good = file.Verify(report);
    ztl::vector<fs::string> names;
    file.ListContainers(names);
    for (const fs::string& name : names) {
        ztl::vector<SBlobInfo> blobs;
        ztl::vector<unsigned char> bytes;
        if (!file.ListBlobs(name.c_str(), blobs)) continue;
        for (const SBlobInfo& blob : blobs) file.Fetch(name.c_str(), blob.hash, bytes);
    }
    file.Close();
    require(file.Open("fuzz.mc", true));
    require(!file.Compact() || !is_good || file.Verify(report));
    return 0;
}

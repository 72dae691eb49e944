// Any bytes as a file name: every helper stays within its buffer and its answer within the law.
#include <engine/filesystem/contract/path.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string in(std::string(reinterpret_cast<const char*>(data), size).c_str());
    char drive[fs::path_capacity], dir[fs::path_capacity], name[fs::path_capacity], ext[fs::path_capacity];
    const bool whole = fs::decompose_path(in.c_str(), drive, dir, name, ext);
    if (whole) require(std::string(drive) + dir + name + ext == in);

    char out[fs::path_capacity];
    for (auto* function : {static_cast<char* (*)(char*, const char*)>(fs::filename_get_ext),
                           static_cast<char* (*)(char*, const char*)>(fs::filename_get_name),
                           static_cast<char* (*)(char*, const char*)>(fs::filename_get_path),
                           static_cast<char* (*)(char*, const char*)>(fs::filename_get_fname)}) {
        require(in.find(function(out, in.c_str())) != std::string::npos);
        if (!whole) continue;
        char place[fs::path_capacity];
        std::memcpy(place, in.c_str(), in.size() + 1);
        require(std::strcmp(function(place, place), out) == 0);
    }
    std::uint32_t flags = 0;
    if (fs::mangle_file_name(out, in.c_str(), 0x12345)[0] != '\0') {
        require(fs::unmangle_file_name(out, out, flags) == out && flags == 0x12345 && in == out);
    }
    fs::unmangle_file_name(in.c_str(), out, flags);
    if (whole) {
        std::memcpy(out, in.c_str(), in.size() + 1);
        fs::filename_change_extension_inplace(out, ext);
        fs::append_slash(fs::remove_slash(out), sizeof(out));
    }
    fs::filename_build_path_vq(out, in.c_str(), dir, in.c_str(), static_cast<const char*>(nullptr));
    return 0;
}

// Any bytes as a path: the normaliser and the path value keep their laws.
#include <engine/filesystem/contract/path.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/require.h"

namespace {

std::string normalized(const std::string& in, bool keep_case) {
    std::vector<char> apart(in.size() + 1);
    fs::path_normalize(apart.data(), in.c_str(), keep_case);
    std::vector<char> place(in.c_str(), in.c_str() + in.size() + 1);
    fs::path_normalize(place.data(), place.data(), keep_case);
    require(std::strcmp(apart.data(), place.data()) == 0);
    return apart.data();
}

void check_value(const std::string& in, bool lower) {
    fs::path path(in.c_str(), lower);
    const std::string dir = path.PathName();
    require(dir.empty() || dir.back() == '/');
    require(std::strchr(path.FileName(), '/') == nullptr);
    fs::path copy = path;
    copy.Set(copy.FileName(), copy.PathName(), lower);
    copy = std::move(path);
    copy.ExtReplace(copy.FileName());
    copy.Lowercase();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string in(std::string(reinterpret_cast<const char*>(data), size).c_str());
    for (const bool keep_case : {false, true}) {
        const std::string out = normalized(in, keep_case);
        require(out.size() <= in.size());
        require(out.find('\\') == std::string::npos);
        if (in.find(':') == std::string::npos) require(normalized(out, keep_case) == out);
        check_value(in, !keep_case);
    }
    fs::is_full_path(in.c_str());
    return 0;
}

// A name and a mask, parted by a zero: matching ends, and agrees with a slow matcher that keeps every possible state.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/path_text.h"
#include "fuzz/require.h"

namespace {

bool slow_match(const std::string& name, const std::string& mask) {
    std::vector<bool> reached(mask.size() + 1);  // how much of the mask may have been used up
    reached[0] = true;
    const auto pass_stars = [&] {
        for (std::size_t m = 0; m < mask.size(); ++m) {
            if (reached[m] && mask[m] == '*') reached[m + 1] = true;
        }
    };
    pass_stars();
    for (const char letter : name) {
        std::vector<bool> next(mask.size() + 1);
        for (std::size_t m = 0; m < mask.size(); ++m) {
            if (!reached[m]) continue;
            if (mask[m] == '*') {
                next[m] = true;
            } else if (mask[m] == '?' || fs::fold(mask[m]) == fs::fold(letter)) {
                next[m + 1] = true;
            }
        }
        reached = next;
        pass_stars();
    }
    return reached[mask.size()];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string all(reinterpret_cast<const char*>(data), size);
    const std::size_t zero = all.find('\0');
    if (zero == std::string::npos || size > 4096) return 0;
    const std::string name = all.substr(0, zero);
    const std::string mask(all.substr(zero + 1).c_str());
    const bool expected = mask.empty() || slow_match(name, mask);
    require(fs::name_matches(name, mask.c_str()) == expected);
    return 0;
}

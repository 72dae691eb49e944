#pragma once

#include <cstddef>

namespace fs {

/// What normalising a path found out on its way.
struct Normalized {
    std::size_t length = 0;
    std::size_t split = 0;   // just past the last "/", 0 when there is none
    bool has_colon = false;  // a part of it, taken alone, may normalise to something else
};

/// fs::path_normalize with its by-products. `in` is not null; `out` may be `in`.
Normalized normalize(char* out, const char* in, bool keep_case);

/// The text with ASCII letters in lower case; other bytes stay.
char fold(char letter);
void fold_text(char* text, std::size_t length);

inline bool is_separator(char letter) { return letter == '/' || letter == '\\'; }

}  // namespace fs

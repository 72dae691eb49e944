#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <engine/filesystem/contract/path.h>

#include "engine/kernel/text.h"

namespace fs {

/// What normalising a path found out on its way.
struct Normalized {
    std::size_t length = 0;
    std::size_t split = 0;   // just past the last "/", 0 when there is none
    bool has_colon = false;  // a part of it, taken alone, may normalise to something else
};

/// fs::path_normalize with its by-products, of a terminated text of this length. `out` may be `in`.
Normalized normalize(char* out, const char* in, std::size_t length, bool keep_case);
inline Normalized normalize(char* out, const char* in, bool keep_case) {
    return normalize(out, in, std::strlen(in), keep_case);
}

/// A path in normal form, in place while it is no longer than the system could hold. Null is the empty path. Throws
/// std::bad_alloc.
class NormalText {
public:
    NormalText(const char* path, bool keep_case);
    NormalText(const NormalText&) = delete;
    NormalText& operator=(const NormalText&) = delete;

    const char* c_str() const { return text_; }
    std::string_view view() const { return {text_, length_}; }
    bool empty() const { return length_ == 0; }
    void drop_trailing_slash();
    /// Whether it names nothing below a source: empty, or separators alone.
    bool names_nothing() const { return view().find_first_not_of('/') == std::string_view::npos; }

private:
    char inline_[path_capacity];
    std::unique_ptr<char[]> heap_;
    char* text_ = inline_;
    std::size_t length_ = 0;
};

/// ASCII letters in lower case; other bytes stay.
using kernel::fold;
void fold_text(char* text, std::size_t length);
std::string lower_text(std::string_view text);

inline bool is_separator(char letter) { return letter == '/' || letter == '\\'; }

}  // namespace fs

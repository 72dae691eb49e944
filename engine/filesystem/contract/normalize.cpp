#include "engine/filesystem/contract/normalize.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

// Every name that enters the file system is normalised here, so the usual name must cost next to nothing: one pass
// copies and folds it and stops at the first sign of work ("." and ".." components, runs of separators, prefixes).
// Only then the whole rule is applied from the start, which is safe in place too: what the first pass has changed
// (case, the kind of separator) the rule would change alike.
//
// Words: the prefix is what comes before the first separator and ends in ":", or "//server/share"; the floor is the
// output position behind prefix and root, and nothing before it is ever taken back.

namespace fs {

namespace {

enum Kind : std::uint8_t { PLAIN, END, SEPARATOR, DOT, COLON };

struct Tables {
    std::array<char, 256> same{};
    std::array<char, 256> lower{};
    std::array<std::uint8_t, 256> kind{};
};

constexpr Tables make_tables() {
    Tables tables;
    for (std::size_t i = 0; i < 256; ++i) {
        const bool upper = i >= 'A' && i <= 'Z';
        tables.same[i] = static_cast<char>(i);
        tables.lower[i] = static_cast<char>(upper ? i + ('a' - 'A') : i);
        tables.kind[i] = PLAIN;
    }
    tables.kind['\0'] = END;
    tables.kind['/'] = SEPARATOR;
    tables.kind['\\'] = SEPARATOR;
    tables.kind['.'] = DOT;
    tables.kind[':'] = COLON;
    return tables;
}

constexpr Tables tables = make_tables();

std::size_t index_of(char letter) { return static_cast<unsigned char>(letter); }
Kind kind_of(char letter) { return static_cast<Kind>(tables.kind[index_of(letter)]); }
bool ends_component(char letter) { return kind_of(letter) == END || kind_of(letter) == SEPARATOR; }

/// Whether the component that begins with the "." at `text` is "." or "..".
bool is_dots(const char* text) { return ends_component(text[1]) || (text[1] == '.' && ends_component(text[2])); }

/// Copies a path that is in normal form but for case and the kind of separators. False at the first sign that it is
/// not; `out` then holds a beginning of no use.
bool copy_normal(char* out, const char* in, const char* folded, Normalized& result) {
    std::size_t at = 0;
    std::size_t split = 0;
    bool has_colon = false;
    for (;; ++at) {
        const char letter = in[at];
        const Kind kind = kind_of(letter);
        if (kind == PLAIN) {
            out[at] = folded[index_of(letter)];
            continue;
        }
        if (kind == END) break;
        if (kind == SEPARATOR) {
            // An empty component: a run of separators, perhaps a network prefix.
            if ((at == split && at != 0) || (at == 0 && kind_of(in[1]) == SEPARATOR)) return false;
            out[at] = '/';
            split = at + 1;
            continue;
        }
        if (kind == DOT && at == split && is_dots(in + at)) return false;
        if (kind == COLON && split == 0 && at != 0 && !has_colon) return false;  // a prefix
        has_colon |= kind == COLON;
        out[at] = letter;
    }
    out[at] = '\0';
    result = {.length = at, .split = split, .has_colon = has_colon};
    return true;
}

/// The whole rule. The output position never overtakes the input position, so both may be in one buffer.
class Rule {
public:
    Rule(char* out, const char* in, const char* folded) : out_(out), in_(in), folded_(folded) {}

    std::size_t apply() {
        const std::size_t length = std::strlen(in_);
        const bool trailing = length != 0 && is_separator(in_[length - 1]);
        if (!copy_network_prefix()) copy_drive_prefix();
        copy_root();
        floor_ = out_at_;
        while (in_[in_at_] != '\0') take_component();
        if (trailing && out_at_ > floor_ && out_[out_at_ - 1] != '/') out_[out_at_++] = '/';
        out_[out_at_] = '\0';
        return out_at_;
    }

private:
    void copy_until(std::size_t end) {
        while (in_at_ < end) out_[out_at_++] = folded_[index_of(in_[in_at_++])];
    }

    std::size_t component_end(std::size_t from) const {
        while (!ends_component(in_[from])) ++from;
        return from;
    }

    bool copy_network_prefix() {
        if (!is_separator(in_[0]) || !is_separator(in_[1]) || ends_component(in_[2])) return false;
        const std::size_t server_end = component_end(2);
        // A server without a share counts ("//server/"), a server without a separator behind it does not.
        if (in_[server_end] == '\0' || is_separator(in_[server_end + 1])) return false;
        const std::size_t share_end = component_end(server_end + 1);
        copy_until(share_end);
        out_[0] = out_[1] = out_[server_end] = '/';
        return true;
    }

    void copy_drive_prefix() {
        std::size_t end = 0;
        while (!ends_component(in_[end]) && in_[end] != ':') ++end;
        if (end != 0 && in_[end] == ':') copy_until(end + 1);
    }

    void copy_root() {
        if (!is_separator(in_[in_at_])) return;
        rooted_ = true;
        out_[out_at_++] = '/';
        skip_separators();
    }

    void skip_separators() {
        while (is_separator(in_[in_at_])) ++in_at_;
    }

    void take_component() {
        const std::size_t end = component_end(in_at_);
        const std::size_t length = end - in_at_;
        const bool one_dot = length == 1 && in_[in_at_] == '.';
        const bool two_dots = length == 2 && in_[in_at_] == '.' && in_[in_at_ + 1] == '.';
        if (one_dot) {
            in_at_ = end;
        } else if (two_dots && !climb_is_kept()) {
            in_at_ = end;
        } else {
            if (out_at_ > floor_) out_[out_at_++] = '/';
            copy_until(end);
        }
        skip_separators();
    }

    /// Resolves ".." where that can be done; true when it must be written instead.
    bool climb_is_kept() {
        if (out_at_ == floor_) return !rooted_;
        std::size_t start = out_at_;
        while (start > floor_ && out_[start - 1] != '/') --start;
        if (out_at_ - start == 2 && out_[start] == '.' && out_[start + 1] == '.') return true;
        out_at_ = start == floor_ ? start : start - 1;
        return false;
    }

    char* out_;
    const char* in_;
    const char* folded_;
    std::size_t in_at_ = 0;
    std::size_t out_at_ = 0;
    std::size_t floor_ = 0;
    bool rooted_ = false;
};

}  // namespace

Normalized normalize(char* out, const char* in, bool keep_case) {
    const char* folded = keep_case ? tables.same.data() : tables.lower.data();
    Normalized result;
    if (copy_normal(out, in, folded, result)) return result;
    result.length = Rule(out, in, folded).apply();
    result.split = result.length;
    while (result.split != 0 && out[result.split - 1] != '/') --result.split;
    result.has_colon = std::memchr(out, ':', result.length) != nullptr;
    return result;
}

void path_normalize(char* out, const char* in, bool keep_case) {
    if (out == nullptr) return;
    normalize(out, in != nullptr ? in : "", keep_case);
}

bool is_full_path(const char* path) {
    if (path == nullptr || path[0] == '\0') return false;
    if (is_separator(path[0])) return true;
    std::size_t end = 0;
    while (!ends_component(path[end]) && path[end] != ':') ++end;
    return end != 0 && path[end] == ':';
}

ScratchText::ScratchText(std::size_t length) {
    if (length >= sizeof(inline_)) text_ = static_cast<char*>(std::malloc(length + 1));
}

ScratchText::~ScratchText() {
    if (text_ != inline_) std::free(text_);
}

NormalText::NormalText(const char* path, bool keep_case) : scratch_(path != nullptr ? std::strlen(path) : 0) {
    if (path != nullptr && scratch_.text() != nullptr) length_ = normalize(scratch_.text(), path, keep_case).length;
}

void NormalText::drop_trailing_slash() {
    if (length_ != 0 && scratch_.text()[length_ - 1] == '/') scratch_.text()[--length_] = '\0';
}

bool NormalText::climbs() const { return view() == ".." || view().starts_with("../"); }

char fold(char letter) { return tables.lower[index_of(letter)]; }

void fold_text(char* text, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) text[i] = fold(text[i]);
}

}  // namespace fs

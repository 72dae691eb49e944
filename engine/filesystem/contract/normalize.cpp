// Every name that enters the file system is normalised here, so the usual name must cost next to nothing: a look decides
// whether there is more to it than case and the kind of its separators, and only then the whole rule is applied.
//
// Words: the prefix is what comes before the first separator and ends in ":", or "//server/share"; the base is the
// output position behind prefix and root, and nothing before it is ever taken back.
#include "engine/filesystem/contract/path_text.h"

#include <cstring>

namespace fs {

namespace {

bool ends_component(char letter) { return letter == '\0' || is_separator(letter); }

/// Of a prefix that ends in ":" before the first separator; 0 when there is none.
std::size_t drive_prefix_length(const char* in) {
    std::size_t end = 0;
    while (!ends_component(in[end]) && in[end] != ':') ++end;
    return end != 0 && in[end] == ':' ? end + 1 : 0;
}

constexpr std::size_t piece = 16;  // bytes; loops over just so many become vector instructions

/// Whether a byte of the piece behind this byte is a colon, or begins a component as a dot or an empty one.
bool is_odd(const char* before) {
    unsigned char odd = 0;
    for (std::size_t i = 0; i < piece; ++i) {
        const char next = before[i + 1];
        const bool begins = (before[i] == '/') | (before[i] == '\\');
        const bool is_special = (next == '/') | (next == '\\') | (next == '.');
        odd |= (begins & is_special) | (next == ':');
    }
    return odd != 0;
}

/// Whether a path is in normal form but for case and the kind of its separators: no component is empty or may be one of
/// dots, and there is no colon.
bool is_plain(const char* in, std::size_t length) {
    if (length <= piece) {
        char padded[piece + 1] = {};
        std::memcpy(padded, in, length);
        return padded[0] != '.' && padded[0] != ':' && !is_odd(padded);
    }
    bool plain = in[0] != '.' && in[0] != ':';
    for (std::size_t at = 0; at + piece + 1 < length; at += piece) plain = plain && !is_odd(in + at);
    return plain && !is_odd(in + length - piece - 1);
}

void copy_plain(char* out, const char* in, std::size_t length, bool keep_case) {
    const unsigned letters = keep_case ? 0 : 26;
    const auto copy = [&](std::size_t at, std::size_t size) {
        char block[piece] = {};
        std::memcpy(block, in + at, size);
        for (char& letter : block) {
            if (letter == '\\') letter = '/';
            const bool is_upper = static_cast<unsigned char>(letter - 'A') < letters;
            letter = static_cast<char>(is_upper ? letter + ('a' - 'A') : letter);
        }
        std::memcpy(out + at, block, size);
    };
    if (length < piece) return copy(0, length);
    for (std::size_t at = 0; at + piece < length; at += piece) copy(at, piece);
    copy(length - piece, piece);  // what it copies a second time stays as it is
}

/// The whole rule. The output position never overtakes the input position, so both may be in one buffer.
class Rule {
public:
    Rule(char* out, const char* in, bool keep_case) : out_(out), in_(in), keep_case_(keep_case) {}

    std::size_t apply() {
        const std::size_t length = std::strlen(in_);
        const bool trailing = length != 0 && is_separator(in_[length - 1]);
        if (!copy_network_prefix()) copy_until(drive_prefix_length(in_));
        copy_root();
        base_ = out_at_;
        while (in_[in_at_] != '\0') take_component();
        if (trailing && out_at_ > base_ && out_[out_at_ - 1] != '/') out_[out_at_++] = '/';
        out_[out_at_] = '\0';
        return out_at_;
    }

private:
    void copy_until(std::size_t end) {
        for (; in_at_ < end; ++in_at_) out_[out_at_++] = keep_case_ ? in_[in_at_] : fold(in_[in_at_]);
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
        if (one_dot || (two_dots && !climb_is_kept())) {
            in_at_ = end;
        } else {
            if (out_at_ > base_) out_[out_at_++] = '/';
            copy_until(end);
        }
        skip_separators();
    }

    /// Resolves ".." where that can be done; true when it must be written instead.
    bool climb_is_kept() {
        if (out_at_ == base_) return !rooted_;
        std::size_t start = out_at_;
        while (start > base_ && out_[start - 1] != '/') --start;
        if (out_at_ - start == 2 && out_[start] == '.' && out_[start + 1] == '.') return true;
        out_at_ = start == base_ ? start : start - 1;
        return false;
    }

    char* out_;
    const char* in_;
    bool keep_case_;
    std::size_t in_at_ = 0;
    std::size_t out_at_ = 0;
    std::size_t base_ = 0;
    bool rooted_ = false;
};

}  // namespace

Normalized normalize(char* out, std::string_view in, bool keep_case) {
    Normalized result{.length = in.size()};
    if (is_plain(in.data(), in.size())) {
        copy_plain(out, in.data(), in.size(), keep_case);
        out[in.size()] = '\0';
    } else {
        result.length = Rule(out, in.data(), keep_case).apply();
        result.has_colon = std::memchr(out, ':', result.length) != nullptr;
    }
    result.split = std::string_view(out, result.length).rfind('/') + 1;  // 0 when there is none
    return result;
}

void path_normalize(char* out, const char* in, bool keep_case) {
    if (out != nullptr) normalize(out, view_of(in), keep_case);
}

bool is_full_path(const char* path) {
    return path != nullptr && (is_separator(path[0]) || drive_prefix_length(path) != 0);
}

void fold_text(char* text, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) text[i] = fold(text[i]);
}

std::string lower_text(std::string_view text) {
    std::string lower(text);
    fold_text(lower.data(), lower.size());
    return lower;
}

}  // namespace fs

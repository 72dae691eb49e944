#include "engine/filesystem/sources/listing/listing.h"

#include <cstring>

#include "engine/filesystem/contract/plain_path.h"

// The bytes of a listing: directory after directory. A directory is its two times (8 bytes each), the number of its files (4),
// the length of its text (2) and the text, ending in "/" unless it is empty; a file is the length of its name (2) and the
// name. Numbers have their least byte first. Every text is what a scan could have found: no name holds a separator or is
// "." or "..", and no directory climbs or stands at the root of the disk.

namespace fs {

namespace {

constexpr std::size_t directory_head = 22;

void put_number(unsigned char* out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out[i] = static_cast<unsigned char>(value >> 8 * i);
}

/// Sixteen bytes at a time: every name of a stored listing is looked at.
bool has_separator(std::string_view text) {
    for (std::size_t at = 0; at < text.size(); at += 16) {
        const __m128i block = load_block(text.data() + at, text.size() - at);
        const __m128i separators =
            _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8('/')), _mm_cmpeq_epi8(block, _mm_set1_epi8('\\')));
        const auto found = static_cast<unsigned>(
            _mm_movemask_epi8(_mm_or_si128(separators, _mm_cmpeq_epi8(block, _mm_setzero_si128()))));
        const std::size_t left = text.size() - at;
        const unsigned of_text = left < 16 ? (1u << left) - 1 : 0xFFFFu;
        if ((found & of_text) != 0) return true;
    }
    return false;
}

bool is_name(std::string_view text) { return !text.empty() && text != "." && text != ".." && !has_separator(text); }

bool is_directory(std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = text.find('/');
        if (end == std::string_view::npos || !is_name(text.substr(0, end))) return false;
        text.remove_prefix(end + 1);
    }
    return true;
}

}  // namespace

void dir_listing::clear() {
    bytes_.clear();
    count_at_ = 0;
    is_whole_ = true;
    is_stored_ = false;
    files_ = 0;
}

void dir_listing::put_text(std::string_view text) {
    unsigned char* out = text.size() > 0xFFFF ? nullptr : bytes_.extend(2 + text.size());
    if (!out) {
        is_whole_ = false;
        return;
    }
    put_number(out, text.size(), 2);
    if (!text.empty()) std::memcpy(out + 2, text.data(), text.size());
}

void dir_listing::add_directory(std::string_view dir, const platform::DirectoryTimes& times) {
    unsigned char* head = bytes_.extend(directory_head - 2);
    if (!head) {
        is_whole_ = false;
        return;
    }
    put_number(head, static_cast<std::uint64_t>(times.written), 8);
    put_number(head + 8, static_cast<std::uint64_t>(times.changed), 8);
    put_number(head + 16, 0, 4);
    count_at_ = bytes_.size() - 4;
    put_text(dir);
}

void dir_listing::add_file(std::string_view name) {
    put_text(name);
    if (bytes_.size() == 0) return;
    unsigned char* count = bytes_.data() + count_at_;
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= static_cast<std::uint32_t>(count[i]) << 8 * i;
    put_number(count, value + 1, 4);
}

bool dir_listing::assign(const unsigned char* bytes, std::size_t size) {
    clear();
    ListingReader reader(bytes, size);
    ListingReader::Directory directory;
    std::size_t files = 0;
    for (; !reader.at_end(); files += directory.files) {
        if (!reader.read_directory(directory) || !reader.skip_files(directory.files)) return false;
    }
    unsigned char* out = bytes_.extend(size);
    if (!out) return false;
    if (size != 0) std::memcpy(out, bytes, size);
    is_stored_ = true;
    files_ = files;
    return true;
}

std::uint64_t ListingReader::take(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= static_cast<std::uint64_t>(next_[i]) << 8 * i;
    next_ += bytes;
    return value;
}

bool ListingReader::read_text(std::string_view& out) {
    if (left() < 2) return false;
    const auto length = static_cast<std::size_t>(take(2));
    if (length > left()) return false;
    out = {reinterpret_cast<const char*>(next_), length};
    next_ += length;
    return true;
}

bool ListingReader::read_directory(Directory& out) {
    if (left() < directory_head) return false;
    out.times.written = static_cast<std::int64_t>(take(8));
    out.times.changed = static_cast<std::int64_t>(take(8));
    out.files = static_cast<std::uint32_t>(take(4));
    return read_text(out.dir) && (is_checked_ || is_directory(out.dir));
}

bool ListingReader::read_file(std::string_view& out) { return read_text(out) && (is_checked_ || is_name(out)); }

bool ListingReader::skip_files(std::uint32_t count) {
    std::string_view name;
    for (; count > 0; --count) {
        if (!read_file(name)) return false;
    }
    return true;
}

}  // namespace fs

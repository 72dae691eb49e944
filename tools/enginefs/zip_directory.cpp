#include "zip_directory.h"

#include <algorithm>
#include <memory>

#include <zlib.h>

namespace {

constexpr std::size_t end_size = 22;
constexpr std::size_t record_size = 46;
constexpr std::size_t local_size = 30;
constexpr std::size_t piece_size = 64 * 1024;

std::uint32_t u16(const char* bytes) {
    const auto* const b = reinterpret_cast<const unsigned char*>(bytes);
    return b[0] | static_cast<std::uint32_t>(b[1]) << 8;
}
std::uint32_t u32(const char* bytes) { return u16(bytes) | u16(bytes + 2) << 16; }

struct EndInflate {
    void operator()(z_stream* stream) const {
        inflateEnd(stream);
        delete stream;
    }
};
using InflateStream = std::unique_ptr<z_stream, EndInflate>;

InflateStream new_inflate() {
    InflateStream stream(new z_stream{});
    if (inflateInit2(stream.get(), -MAX_WBITS) != Z_OK) stream.reset();
    return stream;
}

/// Counts and sums what goes to the consumer; never lets more through than the entry says it holds.
struct Sink {
    const ZipEntry& entry;
    const std::function<bool(const char*, std::size_t)>& consumer;
    std::uint64_t done = 0;
    uLong crc = 0;

    std::string take(const char* data, std::size_t size) {
        if (size > entry.size - done) return "it holds more bytes than its recorded size";
        done += size;
        crc = crc32_z(crc, reinterpret_cast<const unsigned char*>(data), size);
        return consumer(data, size) ? "" : "stopped";
    }
    std::string end() const {
        if (done != entry.size) return "it holds fewer bytes than its recorded size";
        return crc == entry.crc ? "" : "its checksum does not match";
    }
};

/// Gives one piece of input to the decoder and what comes out to the sink.
std::string inflate_piece(z_stream& stream, Sink& sink, bool& ended) {
    std::vector<char> out(piece_size);
    do {
        stream.next_out = reinterpret_cast<Bytef*>(out.data());
        stream.avail_out = piece_size;
        const int result = inflate(&stream, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) return "its deflated data is damaged";
        if (std::string wrong = sink.take(out.data(), piece_size - stream.avail_out); !wrong.empty()) return wrong;
        ended = result == Z_STREAM_END;
    } while (!ended && stream.avail_out == 0);
    return "";
}

}  // namespace

bool ZipDirectory::fail(const std::string& reason) {
    error_ = reason;
    return false;
}

bool ZipDirectory::read_at(std::uint64_t offset, char* buffer, std::size_t size) {
    if (offset > length_ || size > length_ - offset) return false;
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(offset));
    return static_cast<bool>(file_.read(buffer, static_cast<std::streamsize>(size)));
}

bool ZipDirectory::open(const std::string& native_path) {
    file_.open(native_path, std::ios::binary | std::ios::ate);
    if (!file_) return fail("it cannot be opened");
    length_ = static_cast<std::uint64_t>(file_.tellg());
    char end[end_size];
    if (length_ < end_size || !read_at(length_ - end_size, end, end_size) || u32(end) != 0x06054B50)
        return fail("it does not end with a zip's end record (a pack has no comment)");
    const std::uint64_t size = u32(end + 12);
    const std::uint64_t offset = u32(end + 16);
    if (offset > length_ - end_size || size > length_ - end_size - offset)
        return fail("its central directory lies outside the file");
    std::string directory(size, '\0');
    if (!read_at(offset, directory.data(), size)) return fail("its central directory cannot be read");
    return read_entries(directory, u16(end + 8));
}

bool ZipDirectory::read_entries(const std::string& directory, std::size_t count) {
    std::size_t at = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const char* const record = directory.data() + at;
        const bool whole = directory.size() - at >= record_size && u32(record) == 0x02014B50;
        const std::size_t name = whole ? u16(record + 28) : 0;
        const std::size_t rest = whole ? u16(record + 30) + u16(record + 32) : 0;
        if (!whole || directory.size() - at - record_size < name + rest)
            return fail("entry " + std::to_string(i) + " of its central directory is damaged");
        ZipEntry entry{.name = std::string(record + record_size, name),
                       .header_offset = u32(record + 42),
                       .packed_size = u32(record + 20),
                       .size = u32(record + 24),
                       .crc = u32(record + 16),
                       .method = u16(record + 10),
                       .encrypted = (u16(record + 8) & 1) != 0,
                       .dos_time = u32(record + 12)};
        if (!name || entry.name.back() != '/') entries_.push_back(std::move(entry));
        at += record_size + name + rest;
    }
    return true;
}

std::string ZipDirectory::find_data(const ZipEntry& entry, std::uint64_t& offset) {
    char local[local_size];
    if (!read_at(entry.header_offset, local, local_size) || u32(local) != 0x04034B50)
        return "its local header is damaged";
    if (u16(local + 8) != entry.method) return "its local header tells of another method";
    offset = entry.header_offset + local_size + u16(local + 26) + u16(local + 28);
    if (offset > length_ || entry.packed_size > length_ - offset) return "its data lies outside the file";
    return "";
}

std::string ZipDirectory::decode(const ZipEntry& entry, const std::function<bool(const char*, std::size_t)>& consumer) {
    std::uint64_t offset = 0;
    if (std::string wrong = find_data(entry, offset); !wrong.empty()) return wrong;
    if (entry.encrypted) return "it is encrypted";
    if (entry.method != 0 && entry.method != 8)
        return "its method " + std::to_string(entry.method) + " is not supported";
    const InflateStream stream = entry.method == 8 ? new_inflate() : nullptr;
    if (entry.method == 8 && stream == nullptr) return "there is no memory to decode it";
    Sink sink{.entry = entry, .consumer = consumer};
    std::vector<char> in(piece_size);
    bool ended = false;
    for (std::uint64_t left = entry.packed_size; left != 0 && !ended;) {
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(left, piece_size));
        if (!read_at(offset, in.data(), piece)) return "its data cannot be read";
        offset += piece;
        left -= piece;
        if (stream != nullptr) {
            stream->next_in = reinterpret_cast<Bytef*>(in.data());
            stream->avail_in = static_cast<uInt>(piece);
        }
        std::string wrong = stream != nullptr ? inflate_piece(*stream, sink, ended) : sink.take(in.data(), piece);
        if (!wrong.empty()) return wrong;
    }
    if (stream != nullptr && !ended) return "its deflated data ends too early";
    return sink.end();
}

// chunks: the tree of chunks in a file.

#include <algorithm>
#include <cinttypes>

#include "command.h"

namespace {

constexpr std::uint64_t header_size = 12;
constexpr std::uint32_t window_size = 4096;  // headers of small chunks lie close together
// Versions count up from small numbers. What looks like a header otherwise but has a larger one is text or noise.
constexpr std::uint32_t likely_version = 1u << 24;

struct Header {
    std::string identifier;
    std::uint32_t version = 0;
    std::uint32_t size = 0;

    bool is_data() const { return identifier[0] >= 'a' && identifier[0] <= 'z'; }
    bool is_printable() const {
        return std::all_of(identifier.begin(), identifier.end(), [](char c) { return c >= ' ' && c <= '~'; });
    }
};

/// An empty text when there is a header at `offset` of a chunk that ends by `end`, else what is wrong with it.
std::string read_header(fs::ifile& file, std::uint64_t offset, std::uint64_t end, Header& header) {
    const std::uint64_t left = end - offset;
    if (left < header_size) return std::to_string(left) + " bytes are left, which is no chunk header";
    header.identifier.resize(4);
    if (!file.seek(static_cast<std::int64_t>(offset), EFSSeek::BEGIN) || file.read(header.identifier.data(), 4) != 4)
        return "it cannot be read";
    header.version = file.get_uint();
    header.size = file.get_uint();
    if (file.tell() != offset + header_size) return "it cannot be read";
    if (!header.is_printable()) return "the identifier is not made of printable characters";
    if (header.size <= left - header_size) return "";
    return "the chunk \"" + header.identifier + "\" claims " + std::to_string(header.size) + " bytes where " +
           std::to_string(left - header_size) + " are left";
}

class ChunkPrinter {
public:
    ChunkPrinter(fs::ifile& file, std::string name) : file_(file), name_(std::move(name)) {}

    /// Prints the tree that fills the file. Its depth costs memory, never stack.
    bool print_tree(std::uint64_t length) {
        levels_.push_back({0, length});
        while (!levels_.empty()) {
            Level& level = levels_.back();
            if (level.at == level.end) {
                levels_.pop_back();
                continue;
            }
            Header header;
            const std::uint64_t offset = level.at;
            const std::string wrong = read_header(file_, offset, level.end, header);
            level.at = wrong.empty() ? offset + header_size + header.size : level.end;
            if (wrong.empty())
                show(header, offset);
            else
                good_ = fail(name_, "it makes no sense from offset " + std::to_string(offset) + " on: " + wrong);
        }
        return listing_.finish() && good_;
    }

private:
    struct Level {
        std::uint64_t at;
        std::uint64_t end;
    };

    void show(const Header& header, std::uint64_t offset) {
        // A deep tree must not take line lengths in proportion.
        const std::size_t depth = levels_.size() - 1;
        const std::string indent = depth <= 40 ? std::string(depth * 2, ' ') : "[" + std::to_string(depth) + "] ";
        const std::string numbers =
            formatted("  version %" PRIu32 "  offset %" PRIu64 "  size %" PRIu32, header.version, offset, header.size);
        listing_.add({{"identifier", header.identifier},
                      {"depth", depth},
                      {"version", header.version},
                      {"offset", offset},
                      {"size", header.size}},
                     indent + header.identifier + numbers);
        const std::uint64_t data = offset + header_size;
        if (holds_chunks(header, data)) levels_.push_back({data, data + header.size});
    }

    /// By its identifier a chunk holds values or chunks. One that should hold chunks and plainly does not, from the first
    /// header on, is taken for one of values.
    bool holds_chunks(const Header& header, std::uint64_t data) {
        if (header.is_data() || header.size == 0) return false;
        const std::uint64_t end = data + header.size;
        if (parses(data, end)) return true;
        if (header.size < header_size) return false;
        Header first;
        read_header(file_, data, end, first);
        return first.is_printable() && first.version < likely_version;
    }

    /// Whether chunks follow each other exactly to the end.
    bool parses(std::uint64_t at, std::uint64_t end) {
        Header header;
        while (at < end) {
            if (!read_header(file_, at, end, header).empty()) return false;
            at += header_size + header.size;
        }
        return true;
    }

    fs::ifile& file_;
    const std::string name_;
    std::vector<Level> levels_;
    Listing listing_;
    bool good_ = true;
};

bool chunks(const std::string& name) {
    fs::cachedrdfile file(window_size);
    fs::clear_error();
    return (file.open(name.c_str(), EFSMode::READ) || fail_to_read(name)) &&
           ChunkPrinter(file, name).print_tree(file.length());
}

}  // namespace

void add_chunk_commands(Commands& commands) {
    const auto added = commands.add(
        "chunks", "Print the tree of chunks in a file: identifier, version, offset of the header, size of the data",
        "NAME", chunks);
    commands.add_json(added.app);
}

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <utility>

#include <engine/filesystem/comfort.h>

/// Reads files at any place. Of those that must be decoded it keeps windows, so that reading here and there does not
/// decode them again and again; what is read in order passes through, and its windows are the first to go.
///
/// Memory   windows take no more than the budget, and each read that fills one has that one in hand.
/// Files    only those that are decoded stay open, the latest few.
/// Threads  any number read at once; one file is decoded by one after another.
class WindowCache {
public:
    static constexpr std::uint64_t window_size = 256 * 1024;
    static constexpr std::size_t most_open = 32;

    /// The caller's number for a file, and what is known of it.
    struct File {
        std::uint64_t id;
        std::uint64_t size;
        bool is_decoded;
    };
    /// Opens a file; null with the reason in fs::last_error. Called by whichever thread reads.
    using Open = std::function<fs::file_ptr(std::uint64_t id)>;

    WindowCache(std::uint64_t budget, Open open) : budget_(budget), open_(std::move(open)) {}

    /// Reads `size` bytes, less at the end of the file. `failed` when they cannot be read or are damaged, with the reason
    /// in fs::last_error; nothing is there for a file that was found to be damaged before, which fails for good.
    std::uint64_t read(const File& file, std::uint64_t offset, char* out, std::uint64_t size);

    /// Decodes a file of one window that is likely to be read soon; whoever reads it meanwhile waits for that.
    void prepare(const File& file);

    /// A file holds something else now: nothing that was decoded of it is used any more.
    void forget(std::uint64_t id);

    std::uint64_t bytes() const;  // of the windows that are kept

private:
    struct Key {
        std::uint64_t id, index;
        auto operator<=>(const Key&) const = default;  // NOLINT(modernize-use-nullptr): there is none
    };
    using Block = std::shared_ptr<char[]>;
    struct Window {
        Key key;
        Block block;
        std::uint64_t size;
        std::uint64_t served = 0;  // bytes handed out

        bool was_read_through() const { return served >= size; }
    };
    using Place = std::list<Window>::iterator;
    /// A file that is being decoded. The lock guards the next two.
    struct Stream {
        std::mutex lock;
        fs::file_ptr file;
        std::uint64_t position = 0;
        std::uint64_t used = 0;  // the least is the first to go: 0 once it is at its end
    };

    bool read_part(const File& file, std::uint64_t offset, char* out, std::uint64_t size);
    bool read_window(const File& file, std::uint64_t offset, char* out, std::uint64_t size);
    bool read_on(Stream& stream, const File& file, std::uint64_t offset, char* out, std::uint64_t size);
    std::uint64_t first_missing(const Stream& stream, Key key) const;
    Block decode(Stream& stream, const File& file, std::uint64_t index, std::uint64_t served);
    std::shared_ptr<Stream> stream_of(std::uint64_t id);
    Block find(Key key, std::uint64_t served);
    void make_room();
    Block take_block();
    void keep(Window window, const Stream& stream);
    void drop(Place window);

    const std::uint64_t budget_;
    const Open open_;
    mutable std::mutex mutex_;  // guards what follows; never held while a file is opened or read
    std::unordered_set<std::uint64_t> damaged_;
    std::list<Window> windows_;  // the latest first; those that were read through last
    std::map<Key, Place> by_key_;
    std::map<std::uint64_t, std::shared_ptr<Stream>> streams_;  // by file
    std::uint64_t clock_ = 0;                                   // of the latest use of one
};

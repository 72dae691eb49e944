// Reading entries: positions, seeks, threads. Most of it is held against a model.
#include <cstring>
#include <thread>

#include "fixture.h"

namespace {

using packs::Entry;
using packs::with;

/// What reading an entry of a pack is defined to do, written down as plainly as it can be: two blocks of 32 KiB, input
/// by 16 KiB, everything in memory, nothing shared, no shortcut. The real reader must not be told from it.
class BlockModel {
public:
    explicit BlockModel(const Entry& entry) : entry_(entry) {
        inflateInit2(&stream_, -MAX_WBITS);
        start();
    }
    ~BlockModel() { inflateEnd(&stream_); }
    BlockModel(const BlockModel&) = delete;
    BlockModel& operator=(const BlockModel&) = delete;

    std::uint64_t position() const { return position_; }

    std::uint64_t read(char* buffer, std::uint64_t count) {
        if (position_ > entry_.size) return 0;
        if (position_ / block_size < now().number) start();
        decode(nullptr, position_ - (now().number * block_size + now().read));
        const std::uint64_t got = decode(buffer, std::min(count, entry_.size - position_));
        position_ += got;
        return got;
    }

    void seek(std::int64_t offset, EFSSeek::TYPE origin) {
        const std::uint64_t base = origin == EFSSeek::CURRENT ? position_ : entry_.size;
        position_ = static_cast<std::uint64_t>(offset) + (origin == EFSSeek::BEGIN ? 0 : base);
        for (int i = 0; i < 2; ++i) {
            if (blocks_[i].number != position_ / block_size) continue;
            current_ = i;
            now().read = std::min(static_cast<std::uint32_t>(position_ % block_size), now().fill);
            return;
        }
    }

private:
    static constexpr std::uint32_t block_size = 32768;
    struct Block {
        char bytes[block_size];
        std::uint32_t read, fill;
        std::uint64_t number;
    };
    Block& now() { return blocks_[current_]; }
    void empty(Block& block, std::uint64_t number) { block.read = block.fill = 0, block.number = number; }

    /// The input of a stored entry stays where it is.
    void start() {
        if (entry_.method != EFSPackMethod::STORE) inflateReset(&stream_);
        refill();
        current_ = 0;
        empty(blocks_[0], 0);
        empty(blocks_[1], ~std::uint64_t{0});
    }

    void refill() {
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(entry_.packed.data())) + stream_.total_in;
        stream_.avail_in = static_cast<uInt>(std::min<std::size_t>(entry_.packed.size() - stream_.total_in, 16384));
    }

    std::uint64_t decode(char* out, std::uint64_t count) {
        for (std::uint64_t done = 0;;) {
            const auto n = static_cast<std::uint32_t>(std::min<std::uint64_t>(count - done, now().fill - now().read));
            if (out) std::memcpy(out + done, now().bytes + now().read, n);
            now().read += n;
            done += n;
            if (done == count) return done;
            if (now().fill == block_size) {
                const std::uint64_t next = now().number + 1;
                current_ ^= 1;
                now().read = 0;
                if (now().number != next) empty(now(), next);
            }
            stream_.next_out = reinterpret_cast<Bytef*>(now().bytes) + now().fill;
            stream_.avail_out = block_size - now().fill;
            if (stream_.avail_in == 0) refill();
            if (entry_.method == EFSPackMethod::STORE) {
                copy();
            } else if (inflate(&stream_, Z_SYNC_FLUSH) == Z_STREAM_ERROR || stream_.msg) {
                return 0;
            }
            now().fill = block_size - stream_.avail_out;
            if (now().fill == now().read) return done;
        }
    }

    /// All of the input at once, unless a block that was kept is full already.
    void copy() {
        if (stream_.avail_in > stream_.avail_out) return;
        std::memcpy(stream_.next_out, stream_.next_in, stream_.avail_in);
        stream_.avail_out -= stream_.avail_in;
        stream_.total_in += stream_.avail_in;
        stream_.avail_in = 0;
    }

    const Entry& entry_;
    int current_ = 0;
    Block blocks_[2];
    std::uint64_t position_ = 0;
    z_stream stream_{};
};

/// Random reads and seeks of a kind that hits block ends, neighbours and far places.
void compare_by_chance(SFsFile& file, const Entry& entry, std::uint32_t seed) {
    std::mt19937 random(seed);
    BlockModel model(entry);
    for (int step = 0; step < 60; ++step) {
        if (random() % 3 == 0) {
            const auto around = static_cast<std::int64_t>(random() % (entry.size + 40000));
            const std::int64_t offset =
                random() % 2 == 0 ? around / 32768 * 32768 - 3 + static_cast<int>(random() % 6) : around;
            const auto origin = static_cast<EFSSeek::TYPE>(random() % 3);
            const std::int64_t targets[] = {offset, offset / 8 - entry.size / 16, -offset};
            EXPECT_TRUE(file.seek(targets[origin], origin));
            model.seek(targets[origin], origin);
        }
        const std::uint64_t lengths[] = {0, 1, 100, 16384, 32768, 70000, 190000, entry.size};
        const std::uint64_t length = lengths[random() % 8];
        std::string expected(400000, '!');
        std::string found(400000, '!');
        const std::uint64_t wanted = model.read(expected.data(), length);
        ASSERT_EQ(file.read(found.data(), length), wanted) << "seed " << seed << " step " << step;
        ASSERT_EQ(std::memcmp(found.data(), expected.data(), wanted), 0) << "seed " << seed << " step " << step;
        ASSERT_EQ(file.tell(), model.position()) << "seed " << seed << " step " << step;
    }
}

std::vector<std::pair<const char*, Entry>> entries_good_and_bad() {
    const std::string data = packs::noise(300000, 1);
    const Entry deflated = packs::deflated_entry("x", data);
    const Entry stored = packs::stored_entry("x", data);
    const Entry small = packs::deflated_entry("x", data.substr(0, 5000));
    return {{"deflated", deflated},
            {"stored", stored},
            {"deflated, empty", packs::deflated_entry("x", "")},
            {"stored, one block", packs::stored_entry("x", data.substr(0, 32768))},
            {"deflated, larger than recorded", with(deflated, [](Entry& e) { e.size = 200000; })},
            {"deflated, smaller than recorded", with(deflated, [](Entry& e) { e.size = 400000; })},
            {"stored, larger than recorded", with(stored, [](Entry& e) { e.size = 200000; })},
            {"stored, smaller than recorded", with(stored, [](Entry& e) { e.size = 400000; })},
            {"deflated, cut", with(deflated, [](Entry& e) { e.packed.resize(e.packed_size = 90000); })},
            {"deflated, damaged", with(deflated, [](Entry& e) { std::memset(&e.packed[80000], 0xFF, 2000); })},
            {"deflated, damaged at once", with(small, [](Entry& e) { std::memset(&e.packed[10], 0xFF, 200); })},
            {"deflated, other bytes", with(small, [](Entry& e) { e.packed[900] ^= 0x55; })}};
}

TEST(PackRead, CannotBeToldFromTheBlockModel) {
    for (const auto& [label, entry] : entries_good_and_bad()) {
        SCOPED_TRACE(label);
        const std::string pack = packs::build({entry});
        for (const std::string where : {"on the disk", "in memory", "at the host"}) {
            SCOPED_TRACE(where);
            CZip_dir source;
            if (where == "at the host") source.set_reader(std::make_shared<packs::MemoryReader>(pack));
            EXPECT_TRUE(write_file("test.pak", pack));
            ASSERT_TRUE(source.init(as_path("test.pak"),
                                    where == "in memory" ? FFSAddSourceFlags::PACK_IN_MEMORY : FFSAddSourceFlags::NONE,
                                    nullptr));
            for (std::uint32_t seed = 0; seed < 8; ++seed) {
                compare_by_chance(*packs::open(source, "x"), entry, seed);
                if (HasFatalFailure()) return;
            }
        }
    }
}

// A long zstd entry has frames, a long deflated one checkpoints; a seek far out used to lead to other bytes.
TEST(PackRead, ThreadsReadTheSameEntriesWholeAndWithSeeks) {
    const std::string data = packs::noise(8 << 20, 3);
    const auto small = [&data](std::size_t i) { return data.substr(i * 1000, 3000 + 700 * i); };
    const std::vector<Entry> large = packs::entries_of_all_methods(data);
    std::vector<Entry> entries = large;
    for (std::size_t i = 0; i < 50; ++i) {
        const std::string name = "d/" + std::to_string(i);
        entries.push_back(i % 2 == 0 ? packs::deflated_entry(name, small(i)) : packs::stored_entry(name, small(i)));
    }
    const auto source = packs::mount(packs::build(entries));
    ASSERT_TRUE(source);
    const std::int64_t far_out[] = {-1, std::int64_t{1} << 32, std::int64_t{1} << 47,
                                    (std::int64_t{0xFFFFFFFF} << 15) + 5};
    const auto work = [&](std::uint32_t seed) {
        std::mt19937 random(seed);
        std::string found(70000, '\0');
        for (std::size_t step = 0; step < 50; ++step)
            EXPECT_TRUE(packs::content(*source, "d/" + std::to_string(step)) == small(step)) << step;
        for (const Entry& entry : large) {
            const fs::file_ptr file(source->open_read(as_path(entry.name), FFSOpenFlags::SEEKABLE));
            for (std::size_t step = 0; step < 40; ++step) {
                file->seek(far_out[step % 4], EFSSeek::BEGIN);
                EXPECT_EQ(file->read(found.data(), 100), 0u) << step;
                const std::uint64_t at = random() % (data.size() - found.size());
                file->seek(static_cast<std::int64_t>(at), EFSSeek::BEGIN);
                EXPECT_EQ(file->read(found.data(), found.size()), found.size());
                EXPECT_TRUE(found == data.substr(at, found.size())) << entry.name << " at " << at;
            }
        }
    };
    std::thread others[] = {std::thread(work, 1), std::thread(work, 2)};
    work(3);
    for (std::thread& other : others) other.join();
}

}  // namespace

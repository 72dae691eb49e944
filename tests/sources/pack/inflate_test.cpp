// The ring decoder beside zlib: it may refuse what zlib takes only where nobody writes such streams, and never gives
// other bytes.
#include <atomic>
#include <cstring>

#include "engine/filesystem/sources/pack/ring_inflate.h"
#include "engine/filesystem/sources/pack/snapshots.h"
#include "engine/filesystem/sources/pack/store.h"
#include "fixture.h"

namespace {

using fs::RingInflate;

constexpr std::size_t most_output = 300000;

/// Bytes of one of several kinds: random, half random, repetitions from near and far, runs, words.
std::string sample(std::uint32_t seed) {
    std::mt19937 random(seed);
    const std::size_t size = random() % 150000;
    std::string out;
    while (out.size() < size) {
        switch (seed % 5) {
            case 0:
                out += static_cast<char>(random());
                break;
            case 1:
                out += static_cast<char>('a' + random() % 16);
                break;
            case 2:
                if (out.size() > 100 && random() % 3 != 0) {
                    const std::size_t from = out.size() - 1 - random() % std::min<std::size_t>(out.size() - 1, 40000);
                    for (std::size_t i = 0, length = 3 + random() % 300; i < length; ++i) out += out[from + i];
                } else {
                    out += static_cast<char>(random());
                }
                break;
            case 3:
                out.append(random() % 500, static_cast<char>(random() % 3));
                break;
            default:
                out += std::to_string(random() % 1000) + " word ";
                break;
        }
    }
    return out;
}

/// By zlib, all at once. False when it refuses the stream or needs more bytes.
bool by_zlib(const std::string& packed, std::string& out) {
    out.resize(most_output);
    z_stream stream{};
    inflateInit2(&stream, -MAX_WBITS);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = inflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    inflateEnd(&stream);
    return result == Z_STREAM_END;
}

/// By the ring; every third block from a snapshot in a new decoder. False when it refuses the stream.
bool by_ring(const fs::PackStore& store, std::uint32_t window, std::string& out) {
    std::vector<std::uint8_t> memory(RingInflate::ring_size + window);
    const fs::PackedInput input{store, 0, static_cast<std::uint32_t>(store.length()),
                                memory.data() + RingInflate::ring_size, window};
    auto ring = std::make_unique<RingInflate>(input, memory.data());
    ring->start();
    out.clear();
    for (std::uint32_t block = 0; out.size() < most_output; ++block) {
        std::uint32_t produced = 0;
        if (!ring->decode_block(produced)) return false;
        out.append(reinterpret_cast<const char*>(memory.data()) + block % 2 * RingInflate::block_size, produced);
        if (produced < RingInflate::block_size) return true;
        if (block % 3 != 0) continue;
        const auto snapshot = std::make_unique<RingInflate::Snapshot>();
        ring->save(*snapshot);
        std::memset(memory.data(), 0xEE, memory.size());
        ring = std::make_unique<RingInflate>(input, memory.data());
        ring->restore(*snapshot);
    }
    return true;
}

void compare(const std::string& packed, bool is_good, const std::string& label) {
    std::string expected;
    const bool zlib_takes_it = by_zlib(packed, expected);
    EXPECT_TRUE(write_file("stream", packed));
    for (const bool in_memory : {false, true}) {
        fs::PackStore store;
        ASSERT_TRUE(store.open("stream", in_memory));
        std::string found;
        const bool ring_takes_it = by_ring(store, 16384, found);
        if (is_good) ASSERT_TRUE(ring_takes_it) << label;
        if (ring_takes_it && zlib_takes_it) ASSERT_EQ(found, expected) << label;
        if (ring_takes_it && found.size() < most_output) ASSERT_TRUE(zlib_takes_it) << label;
    }
}

TEST(PackInflate, GivesTheBytesThatZlibGives) {
    for (std::uint32_t seed = 0; seed < 40; ++seed) {
        for (const int strategy : {Z_DEFAULT_STRATEGY, Z_HUFFMAN_ONLY, Z_FIXED}) {
            const std::string label = "seed " + std::to_string(seed) + " strategy " + std::to_string(strategy);
            compare(packs::deflated(sample(seed), static_cast<int>(seed % 10), strategy), true, label);
        }
    }
}

TEST(PackInflate, RefusesWhateverZlibRefuses) {
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        std::string packed =
            packs::deflated(sample(seed % 40), static_cast<int>(random() % 10), static_cast<int>(random() % 5));
        const std::size_t where = seed % 2 == 0 ? std::min<std::size_t>(packed.size(), 200) : packed.size();
        for (int flips = 0; flips < 2; ++flips) packed[random() % where] ^= static_cast<char>(1 << random() % 8);
        if (seed % 7 == 0) packed.resize(random() % packed.size());
        compare(packed, false, "seed " + std::to_string(seed));
    }
}

TEST(PackSnapshots, CoverAnEntryEvenlyWhateverRoomThereIs) {
    constexpr std::uint32_t blocks = 640;
    std::string plain;
    while (plain.size() < blocks * std::size_t{RingInflate::block_size}) {
        plain += std::to_string(plain.size() * 7919) + " word ";
    }
    plain.resize(blocks * std::size_t{RingInflate::block_size});
    EXPECT_TRUE(write_file("stream", packs::deflated(plain, 1)));
    fs::PackStore store;
    ASSERT_TRUE(store.open("stream", true));
    std::vector<std::uint8_t> memory(RingInflate::ring_size + 8);
    const fs::PackedInput input{store, 0, static_cast<std::uint32_t>(store.length()), nullptr, 0};
    const struct {
        std::uint64_t most;
        std::uint32_t shortest;  // of the intervals that may be left at the end; 0: no snapshot is
        std::uint32_t longest;
    } rows[] = {{16 << 20, 54, 54}, {300000, 63, 63}, {60000, 126, 252}, {1000, 0, 0}};
    for (const auto& row : rows) {
        std::atomic<std::uint64_t> total{0};
        {
            auto ring = std::make_unique<RingInflate>(input, memory.data());
            fs::EntrySnapshots snapshots(0, static_cast<std::uint32_t>(plain.size()), total, row.most);
            ring->start();
            for (std::uint32_t block = 0; block < blocks; ++block) {
                std::uint32_t produced = 0;
                if (snapshots.wants(block)) snapshots.add(block, *ring);
                ASSERT_TRUE(ring->decode_block(produced));
                ASSERT_LE(total, row.most);
            }
            std::uint32_t interval = 0;
            for (std::uint32_t block = 0; block < blocks && interval == 0; ++block) snapshots.find(block, 0, interval);
            EXPECT_GE(interval, row.shortest) << row.most;
            EXPECT_LE(interval, row.longest) << row.most;
            for (std::uint32_t block = 0; block < blocks; block += 29) {
                std::uint32_t found = 0;
                const auto snapshot = snapshots.find(block, 0, found);
                const std::uint32_t expected = interval == 0 ? 0 : block / interval * interval;
                ASSERT_EQ(snapshot ? found : 0, expected) << row.most << " block " << block;
                EXPECT_EQ(snapshots.find(block, expected, found), nullptr) << "only what lies behind is asked for";
                if (!snapshot) continue;
                ring->restore(*snapshot);
                std::uint32_t produced = 0;
                ASSERT_TRUE(ring->decode_block(produced));
                EXPECT_EQ(std::memcmp(memory.data() + found % 2 * RingInflate::block_size,
                                      plain.data() + std::size_t{found} * RingInflate::block_size, produced),
                          0);
            }
        }
        EXPECT_EQ(total, 0u);
    }
}

}  // namespace

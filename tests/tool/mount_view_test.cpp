// What a mounted view is made of, without a kernel.

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "mount/table.h"
#include "mount/window_cache.h"
#include "names.h"
#include "tests/support/memory_source.h"
#include "tests/support/run_together.h"

namespace {

constexpr std::uint64_t kib = 1024;

using testing::ElementsAre;

std::vector<std::string> listed(const Table& table, std::string_view directory) {
    std::vector<std::string> names;
    for (std::uint64_t inode = table.child(table.lookup_path(directory), 0); inode != 0; inode = table.next(inode))
        names.emplace_back(table.name(*table.find(inode)));
    return names;
}

TEST(MountTable, FindsEverySpellingOfWhatTheFirstSourceHas) {
    const Table table({{"levels/One.txt", {.source = 1, .size = 7, .time = 5}},
                       {"Levels/two.txt", {.source = 0, .is_decoded = true}},
                       {"levels-old/x", {.source = 1}},
                       {"Empty/Deep/", {.source = 1}},
                       {"a", {.source = 1}},
                       {"A/below", {.source = 0}},
                       {"b", {.source = 0}},
                       {"b/x/y", {.source = 1}},
                       {"b/", {.source = 2}}});
    EXPECT_THAT(listed(table, ""), ElementsAre("A", "b", "Empty", "Levels", "levels-old"));
    EXPECT_THAT(listed(table, "LEVELS"), ElementsAre("One.txt", "two.txt"));
    EXPECT_THAT(listed(table, "empty/deep"), ElementsAre());
    EXPECT_THAT(table.hidden(), ElementsAre("a", "b/"));
    EXPECT_FALSE(table.find(table.lookup_path("b"))->is_directory);
    const std::uint64_t levels = table.lookup(Table::root, "LEVELS"), one = table.lookup(levels, "oNE.TXT");
    ASSERT_NE(table.find(one), nullptr);
    EXPECT_EQ(table.find(one)->facts.size, 7U);
    EXPECT_EQ(table.find(one)->facts.time, 5);
    EXPECT_TRUE(table.find(table.next(one))->facts.is_decoded);
    EXPECT_EQ(table.path(one), "Levels/One.txt");
    EXPECT_EQ(table.parent(one), levels);
    EXPECT_EQ(table.parent(Table::root), Table::root);
    for (const char* const absent : {"level", "levelss", "One.txt", "levels//", "levels/one.txt/x"})
        EXPECT_EQ(table.lookup_path(absent), 0U) << absent;
    EXPECT_EQ(table.lookup(99, "x"), 0U);
    EXPECT_EQ(table.find(0), nullptr);
}

TEST(MountTable, KeepsInodesOfWhatStaysAndGivesNoneTwice) {
    const Table before({{"a/one", {}}, {"a/two", {}}, {"kind", {}}});
    const Table after({{"A/0new", {}}, {"A/Two", {}}, {"kind/x", {}}}, &before);
    const Table last({{"a/one", {}}, {"a/0new", {}}}, &after);
    for (const char* const kept : {"a", "a/two"}) EXPECT_EQ(after.lookup_path(kept), before.lookup_path(kept)) << kept;
    EXPECT_EQ(last.lookup_path("a/0new"), after.lookup_path("a/0new"));
    std::set<std::uint64_t> inodes;
    for (const Table* const table : {&before, &after, &last})
        for (const Table::Node& node : table->nodes()) inodes.insert(node.inode);
    EXPECT_EQ(inodes.size(), 9U) << "root, a, one, two, kind as a file; 0new, kind as a directory, x; one again";
}

/// A file that must be decoded from its start to wherever it is read, as the worst of packs.
class DecodedFile : public test::MemoryFile {
public:
    DecodedFile(const std::string& bytes, std::atomic<std::uint64_t>& decoded)
        : MemoryFile(nullptr, "", std::make_shared<std::string>(bytes), 0), decoded_(decoded) {}

    std::uint64_t read(void* buffer, std::uint64_t size) override {
        if (tell() < reached_) reached_ = 0;
        const std::uint64_t count = MemoryFile::read(buffer, size);
        decoded_ += tell() - reached_;
        reached_ = tell();
        return count;
    }

private:
    std::atomic<std::uint64_t>& decoded_;
    std::uint64_t reached_ = 0;
};

class MountWindowCache : public testing::Test {
protected:
    void use(std::uint64_t budget, std::uint64_t size) {
        size_ = readable_ = size;
        bytes_.resize(size + 8);
        for (std::uint64_t at = 0; at < bytes_.size(); ++at) bytes_[at] = static_cast<char>((at >> 12) * 31 + at * 7);
        windows_ = std::make_unique<WindowCache>(budget, [this](std::uint64_t id) {
            ++opened_;
            return fs::file_ptr(new DecodedFile(bytes_.substr(id, readable_), decoded_));
        });
    }
    bool reads(std::uint64_t id, std::uint64_t offset, std::uint64_t size) {
        const auto wanted = std::string_view(bytes_).substr(id + offset, std::min(size, size_ - offset));
        std::string out(size, 0);
        return windows_->read({id, size_, true}, offset, out.data(), size) == wanted.size() && out.starts_with(wanted);
    }

    std::string bytes_;  // of a file those behind its id
    std::atomic<std::uint64_t> decoded_ = 0, opened_ = 0;
    std::uint64_t size_ = 0, readable_ = 0;  // less is damage
    std::unique_ptr<WindowCache> windows_;
};

TEST_F(MountWindowCache, DecodesOnceWhatTheBudgetHolds) {
    use(8192 * kib, 8000 * kib + 5);
    std::mt19937_64 random(1);
    for (int i = 0; i < 500; ++i) ASSERT_TRUE(reads(7, random() % (size_ - 4 * kib), 4 * kib));
    ASSERT_TRUE(reads(7, size_ - 3, 100));
    EXPECT_LE(decoded_, size_);
    EXPECT_EQ(windows_->read({7, size_, true}, size_, nullptr, 1), 0U);
}

TEST_F(MountWindowCache, StreamsWhatIsReadInOrder) {
    use(64 * 1024 * kib, 20'000 * kib + 1);
    for (std::uint64_t at = 0; at < size_; at += 100 * kib) ASSERT_TRUE(reads(1, at, 100 * kib));
    EXPECT_EQ(decoded_, size_);
    EXPECT_EQ(opened_, 1U);
    EXPECT_LE(windows_->bytes(), 2 * WindowCache::window_size) << "what was read through is kept";
    use(0, 200 * kib);
    ASSERT_TRUE(reads(1, 0, 200 * kib));
    EXPECT_EQ(windows_->bytes(), 0U);
}

TEST_F(MountWindowCache, DecodesAgainOnlyWhatIsAnotherFileOrWasNotWorthPreparing) {
    use(4096 * kib, 200 * kib);
    for (int i = 0; i < 2; ++i) windows_->prepare({1, size_, true});
    windows_->prepare({2, 300 * kib, true});
    windows_->prepare({3, size_, false});
    ASSERT_TRUE(reads(1, 0, size_));
    EXPECT_EQ(opened_, 1U) << "what is long, or needs no decoding, gains nothing";
    EXPECT_EQ(decoded_, size_);
    windows_->forget(1);
    EXPECT_EQ(windows_->bytes(), 0U);
    ASSERT_TRUE(reads(1, 0, size_));
    EXPECT_EQ(decoded_, 2 * size_);
}

TEST_F(MountWindowCache, FailsWhereTheFileIsDamagedAndThereAlone) {
    use(4096 * kib, 2000 * kib);
    readable_ = 1000 * kib;
    EXPECT_TRUE(reads(1, 5, 4 * kib));
    std::vector<char> out(size_);
    for (const std::uint64_t at : {1900 * kib, std::uint64_t{0}, 1900 * kib})
        EXPECT_EQ(windows_->read({1, size_, true}, at, out.data(), size_), failed);
    readable_ = size_;
    EXPECT_TRUE(reads(1, 1900 * kib, 4 * kib));
}

TEST_F(MountWindowCache, ServesManyThreadsWithinTheBudget) {
    std::atomic<int> wrong = 0;
    const auto read_some = [&](std::size_t seed) {
        std::mt19937_64 random(seed);
        for (int i = 0; i < 50; ++i) {
            windows_->prepare({random() % 2, size_, true});
            if (!reads(random() % 2, random() % size_, random() % (300 * kib)) || windows_->bytes() > 1024 * kib)
                ++wrong;
        }
    };
    for (const std::uint64_t size : {1500 * kib, 200 * kib}) {
        use(1024 * kib, size);
        run_together(4, read_some);
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace

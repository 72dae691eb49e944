// Multi-container files on the disk, and those that a disk or a foe has changed.
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <engine/filesystem.h>

#include "engine/filesystem/containers/container_index.h"
#include "engine/platform/faults.h"
#include "engine/platform/files.h"
#include "tests/containers/multi_container_support.h"
#include "tests/support/temp_directory.h"

namespace {

using container::Commit;
using container::Entry;
using test::Blobs;
using test::everything;
using test::fetch;
using test::opened;
using test::put;

class MultiContainerOnDisk : public ::testing::Test {
protected:
    MultiContainerOnDisk() {
        EXPECT_TRUE(fs::init(disk_.path().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr));
    }
    ~MultiContainerOnDisk() override {
        platform::clear_faults();
        fs::shutdown();
    }

    /// A file in which more is wasted than live.
    Blobs wear(CFileHashMultiContainer& file, std::uint32_t blobs) {
        EXPECT_TRUE(file.Create("sub/a.mc"));
        for (std::uint32_t round = 0; round < 4; ++round) {
            for (std::uint32_t i = 0; i < blobs; ++i)
                put(file, "c" + std::to_string(i % 3), i, std::string(200, static_cast<char>('a' + round)));
            EXPECT_TRUE(file.Save());
        }
        for (std::uint32_t i = 0; i < blobs / 5; ++i) file.Remove("c0", i);
        put(file, "large", 1, std::string(300u << 10, 'l'));
        EXPECT_TRUE(file.Save());
        return everything(file);
    }

    TempDirectory disk_;
};

TEST_F(MultiContainerOnDisk, CompactingGivesBackSpaceAndManyReadersShare) {
    CFileHashMultiContainer file;
    const Blobs before = wear(file, 500);
    SMultiContainerStats stats;
    ASSERT_TRUE(file.Compact());
    ASSERT_TRUE(file.GetStats(stats));
    EXPECT_EQ(stats.wasted_bytes, 0u);
    EXPECT_EQ(stats.blobs, before.size());
    EXPECT_EQ(everything(file), before);
    EXPECT_TRUE(put(file, "c9", 1, "goes on") && file.Save());
    EXPECT_FALSE(disk_.exists("sub/a.mc.new"));
    file.Close();
    CFileHashMultiContainer shared;
    ASSERT_TRUE(shared.Open("sub/a.mc", false));
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 6; ++reader) {
        readers.emplace_back([&] {
            for (int i = 0; i < 4; ++i)
                for (const auto& [key, text] : before) ASSERT_EQ(fetch(shared, key.first, key.second), text);
        });
    }
    for (std::thread& reader : readers) reader.join();
}

TEST_F(MultiContainerOnDisk, AFailureAnywhereLosesNothing) {
    using platform::FaultPoint;
    struct Row {
        const char* label;
        bool (*run)(CFileHashMultiContainer&);
        bool empties;  // when it succeeds
    };
    const Row rows[] = {
        {"open", [](auto& f) { return f.Open("sub/a.mc", true); }, false},
        {"put and save",
         [](auto& f) { return f.Open("sub/a.mc", true) && put(f, "c2", 29, std::string(200, 'd')) && f.Save(); },
         false},
        {"compact", [](auto& f) { return f.Open("sub/a.mc", true) && f.Compact(); }, false},
        {"create", [](auto& f) { return f.Create("sub/a.mc"); }, true},
    };
    CFileHashMultiContainer file;
    const Blobs before = wear(file, 30);
    file.Close();
    const std::string worn = disk_.read("sub/a.mc");
    for (const Row& row : rows) {
        for (const FaultPoint point : {FaultPoint::OPEN, FaultPoint::READ, FaultPoint::WRITE, FaultPoint::STAT,
                                       FaultPoint::RENAME, FaultPoint::SET_END}) {
            bool hit = true;
            for (std::uint32_t nth = 1; hit; ++nth) {
                SCOPED_TRACE(testing::Message() << row.label << ", point " << static_cast<int>(point) << ", " << nth);
                disk_.write("sub/a.mc", worn);
                platform::inject_fault(point, nth, platform::Failure::DISK_FULL, false);
                fs::clear_error();
                const bool done = row.run(file);
                hit = platform::fault_hits() != 0;
                platform::clear_faults();
                EXPECT_TRUE(done ? true : hit && fs::last_error().code == EFSError::DISK_FULL) << fs::last_error().text;
                const Blobs after = done && row.empties ? Blobs{} : before;
                if (file.IsOpen()) {
                    EXPECT_TRUE(everything(file) == after);
                    EXPECT_TRUE(put(file, "next", 1, "works") && file.Save());
                }
                file.Close();
                bool ok = false;
                Blobs found = opened("sub/a.mc", ok);
                found.erase({"next", 1});
                EXPECT_TRUE(found == after) << found.size() << " blobs of " << after.size();
                EXPECT_FALSE(disk_.exists("sub/a.mc.new"));
                ASSERT_LT(nth, 100u);
            }
        }
    }
}

TEST_F(MultiContainerOnDisk, WithoutRoomForTheNewFileNothingIsCompacted) {
    CFileHashMultiContainer file;
    const Blobs before = wear(file, 30);
    std::filesystem::create_directory(disk_ / "sub/a.mc.new");
    EXPECT_FALSE(file.Compact());
    EXPECT_EQ(everything(file), before);
    EXPECT_TRUE(put(file, "next", 1, "works") && file.Save());
}

#ifndef _WIN32  // where nobody can replace a file that is open
TEST_F(MultiContainerOnDisk, OneThatIsReplacedWhileOpenServesWhatItOpened) {
    CFileHashMultiContainer file;
    const Blobs before = wear(file, 100);
    file.Close();
    ASSERT_TRUE(file.Open("sub/a.mc", false));
    disk_.write("other.mc", "no container");
    std::filesystem::rename(disk_ / "other.mc", disk_ / "sub/a.mc");
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&] {
            for (const auto& [key, text] : before) EXPECT_EQ(fetch(file, key.first, key.second), text);
        });
    }
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(disk_.read("sub/a.mc"), "no container");
}

TEST_F(MultiContainerOnDisk, CompactingLeavesAFileAloneThatHasTakenItsPlace) {
    CFileHashMultiContainer file;
    const Blobs before = wear(file, 30);
    disk_.write("other.mc", "no container");
    std::filesystem::rename(disk_ / "other.mc", disk_ / "sub/a.mc");
    EXPECT_FALSE(file.Compact());
    EXPECT_EQ(everything(file), before);
    EXPECT_EQ(disk_.read("sub/a.mc"), "no container");
}
#endif

TEST_F(MultiContainerOnDisk, ABlobThatHasRottedStaysKnownAsRottenWhenTheRestIsCompacted) {
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Create("a.mc") && put(file, "c", 1, "gone") && put(file, "c", 2, "rots") &&
                put(file, "c", 3, "keeps"));
    ASSERT_TRUE(file.Save() && file.Remove("c", 1) && file.Save());
    file.Close();
    {
        platform::File bytes = platform::File::open((disk_ / "a.mc").c_str(), {.access = platform::Access::WRITE});
        ASSERT_TRUE(bytes.seek(container::data_offset + 5, platform::Origin::BEGIN) && bytes.write("!", 1) == 1);
    }
    ASSERT_TRUE(file.Open("a.mc", true) && file.Compact());
    EXPECT_EQ(fetch(file, "c", 2), "(none)");
    EXPECT_EQ(fetch(file, "c", 3), "keeps");
    ztl::vector<fs::string> report;
    EXPECT_FALSE(file.Verify(report));
    EXPECT_EQ(report.size(), 1u);
}

/// A file of these parts, whose checksums are all good, unless `twist` changes the record.
std::string made_of(const std::string& data, const std::string& index, std::uint64_t directory_size,
                    const std::function<void(Commit&)>& twist = {}) {
    std::string bytes(container::data_offset, '\0');
    bytes.replace(0, container::magic.size(), reinterpret_cast<const char*>(container::magic.data()),
                  container::magic.size());
    Commit commit{.sequence = 2,
                  .index_offset = container::data_offset + data.size(),
                  .index_size = index.size(),
                  .directory_size = directory_size,
                  .directory_checksum = container::checksum(index.data(), directory_size)};
    if (twist) twist(commit);
    const container::CommitBytes record = container::encode(commit);
    bytes.replace(commit.place(), record.size(), reinterpret_cast<const char*>(record.data()), record.size());
    return bytes + data + index;
}

/// An index of one container "c" of these blobs, as the library writes it.
std::string index_of(std::vector<container::Blob> blobs, std::uint64_t& directory_size) {
    Commit commit;
    const container::IndexBytes bytes = container::encode({{"c", std::move(blobs)}}, commit);
    directory_size = commit.directory_size;
    return {bytes.get(), bytes.get() + commit.index_size};
}

Entry blob_at(std::uint64_t offset, std::uint32_t stored_size, std::uint32_t size, bool deflated = false) {
    return {.offset = offset, .stored_size = stored_size, .size = size, .deflated = deflated};
}

TEST_F(MultiContainerOnDisk, AnIndexThatLiesBehindGoodChecksumsIsRefused) {
    const std::string data(100, 'd');
    std::uint64_t directory_size = 0;
    const std::string good = index_of({{1, blob_at(192, 4, 4)}, {2, blob_at(196, 4, 4)}}, directory_size);
    const struct {
        const char* label;
        std::function<void(Commit&)> twist;
    } commits[] = {
        {"index in the head", [](Commit& c) { c.index_offset = 0; }},
        {"index far away", [](Commit& c) { c.index_offset = ~std::uint64_t{0} - 8; }},
        {"index larger than the file", [](Commit& c) { c.index_size = ~std::uint64_t{0}; }},
        {"directory larger than the index", [](Commit& c) { c.directory_size = c.index_size + 1; }},
        {"sizes that wrap", [](Commit& c) { c.index_size = c.directory_size = ~std::uint64_t{0} - c.index_offset; }},
    };
    CFileHashMultiContainer file;
    for (const auto& row : commits) {
        disk_.write("bad.mc", made_of(data, good, directory_size, row.twist));
        fs::refresh();
        EXPECT_FALSE(file.Open("bad.mc", true)) << row.label;
    }
    const struct {
        const char* label;
        std::size_t at;
        char value;
    } directories[] = {{"name longer than the directory", 1, 1}, {"more blobs than there are", 6, 127}};
    for (const auto& row : directories) {
        std::string index = good;
        index[row.at] = row.value;
        disk_.write("bad.mc", made_of(data, index, directory_size));
        fs::refresh();
        EXPECT_FALSE(file.Open("bad.mc", true)) << row.label;
    }
    const struct {
        const char* label;
        std::vector<container::Blob> blobs;
    } parts[] = {
        {"hashes that descend", {{2, blob_at(192, 4, 4)}, {1, blob_at(196, 4, 4)}}},
        {"a hash twice", {{1, blob_at(192, 4, 4)}, {1, blob_at(196, 4, 4)}}},
        {"a blob in the head", {{1, blob_at(0, 4, 4)}}},
        {"a blob behind the index", {{1, blob_at(std::uint64_t{1} << 62, 4, 4)}}},
        {"a blob into the index", {{1, blob_at(290, 4, 4)}}},
        {"two sizes of a stored blob", {{1, blob_at(192, 4, 0xFFFFFFFF)}}},
        {"a blob that no deflate packs so well", {{1, blob_at(192, 4, 0xFFFFFFFF, true)}}},
    };
    for (const auto& row : parts) {
        SCOPED_TRACE(row.label);
        const std::string index = index_of(row.blobs, directory_size);
        disk_.write("bad.mc", made_of(data, index, directory_size));
        fs::refresh();
        ASSERT_TRUE(file.Open("bad.mc", true));
        EXPECT_EQ(fetch(file, "c", 1), "(none)");
        ztl::vector<fs::string> report;
        EXPECT_FALSE(file.Verify(report));
        EXPECT_FALSE(put(file, "c", 7, "more")) << "saving would make it look good";
        EXPECT_TRUE(put(file, "other", 7, "more"));
        EXPECT_FALSE(file.Save());
        EXPECT_TRUE(file.RemoveContainer("c") && file.Save()) << "what is sound can be rescued";
        file.Close();
    }
}

TEST_F(MultiContainerOnDisk, KeepsBlobsBeyondFourGigabytes) {
    constexpr std::uint64_t far = std::uint64_t{5} << 30;
    disk_.write("far.mc", made_of("", "", 0, [](Commit& c) { c.index_offset = far; }));
    {
        platform::File file = platform::File::open((disk_ / "far.mc").c_str(), {.access = platform::Access::WRITE});
        ASSERT_TRUE(file.seek(far, platform::Origin::BEGIN) && file.set_end());  // a hole, which takes no space
    }
    fs::refresh();
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Open("far.mc", true));
    ASSERT_TRUE(put(file, "c", 1, "far away") && put(file, "c", 2, std::string(5000, 'z'), true) && file.Save());
    const Blobs before = everything(file);
    file.Close();
    EXPECT_GT(std::filesystem::file_size(disk_ / "far.mc"), far);
    bool ok = false;
    EXPECT_EQ(opened("far.mc", ok), before);
    ASSERT_TRUE(file.Open("far.mc", true) && file.Compact());
    EXPECT_EQ(everything(file), before);
    EXPECT_LT(std::filesystem::file_size(disk_ / "far.mc"), 1000u);
}

}  // namespace

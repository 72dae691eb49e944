// Multi-containers over a source in memory, which notes each write, and over the disk.
#include <algorithm>
#include <functional>
#include <optional>
#include <random>
#include <tuple>

#include "engine/filesystem/containers/container_index.h"
#include "tests/sources/kit.h"
#include "tests/support/mounted_root.h"
#include "tests/support/run_together.h"

namespace {

using container::Commit;
using container::Entry;
using test::why;
using enum EFSError::TYPE;

/// What a multi-container holds, by container and hash.
using Blobs = std::map<std::pair<std::string, std::uint32_t>, std::string>;

std::string fetch(const CFileHashMultiContainer& file, const std::string& container, std::uint32_t hash) {
    ztl::vector<unsigned char> bytes;
    if (!file.Fetch(container.c_str(), hash, bytes)) return "(none)";
    return {bytes.begin(), bytes.end()};
}

bool put(CFileHashMultiContainer& file, const std::string& container, std::uint32_t hash, const std::string& text,
         bool deflate = false) {
    return file.Put(container.c_str(), hash, text.data(), text.size(), deflate);
}

Blobs everything(const CFileHashMultiContainer& file) {
    Blobs all;
    ztl::vector<fs::string> names;
    file.ListContainers(names);
    for (const fs::string& name : names) {
        ztl::vector<SBlobInfo> blobs;
        EXPECT_TRUE(file.ListBlobs(name.c_str(), blobs));
        for (const SBlobInfo& blob : blobs) all[{name, blob.hash}] = fetch(file, name, blob.hash);
    }
    return all;
}

/// What a file holds; none when it does not open.
std::optional<Blobs> opened(const char* name) {
    CFileHashMultiContainer file;
    if (!file.Open(name, false)) return std::nullopt;
    return everything(file);
}

/// A file of these parts, whose checksums are all good, unless `twist` changes the record.
std::string made_of(const std::string& data, const std::string& index, std::uint64_t directory_size,
                    const std::function<void(Commit&)>& twist = {}) {
    Commit commit{.sequence = 2,
                  .index_offset = container::data_offset + data.size(),
                  .index_size = index.size(),
                  .directory_size = directory_size,
                  .directory_checksum = container::checksum(index.data(), directory_size)};
    if (twist) twist(commit);
    const container::HeadBytes head = container::head_of(commit);
    return std::string(head.begin(), head.end()) + data + index;
}

class MultiContainer : public ::testing::Test {
protected:
    MultiContainer() { source_->writes = &writes_; }
    ~MultiContainer() override { test::unmount_all(); }

    test::MemorySource* const source_ = test::mount_memory("/memory/");
    std::vector<test::Write> writes_;
};

/// Lets the writes that were noted reach a disk byte by byte; how often the state is `after` in the end. Any other than
/// `before` and `after` is a failure.
int states_after(test::MemorySource& source, std::string disk, const std::vector<test::Write>& writes,
                 const Blobs& before, const Blobs& after) {
    int seen_after = 0;
    for (const test::Write& write : writes) {
        for (std::size_t cut = 0; cut <= write.bytes.size(); ++cut) {
            std::string state = disk;
            if (state.size() < write.offset + cut) state.resize(write.offset + cut);
            state.replace(write.offset, cut, write.bytes, 0, cut);
            source.add("cut.mc", state);
            const auto found = opened("cut.mc");
            EXPECT_TRUE(found == before || found == after) << "write at " << write.offset << ", cut at " << cut;
            if (found == after) ++seen_after;
            if (cut == write.bytes.size()) disk = state;
        }
    }
    return seen_after;
}

TEST_F(MultiContainer, ASaveCutOffAtAnyByteLeavesTheOldStateOrTheNew) {
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Create("a.mc"));
    for (int save = 0; save < 3; ++save) {  // both commit records take their turn
        put(file, "kept", 1, "one");
        put(file, "changed", 2, "before " + std::to_string(save));
        ASSERT_TRUE(file.Save());
        const Blobs before = everything(file);
        const std::string disk = source_->content("a.mc");
        writes_.clear();
        put(file, "changed", 2, "after " + std::to_string(save));
        put(file, "added", 3, std::string(50, 'x'), true);
        file.Remove("kept", 1);
        const Blobs after = everything(file);
        ASSERT_TRUE(file.Save());
        ASSERT_EQ(writes_.size(), 3u) << "blobs, index, and what makes them count";
        EXPECT_LT(writes_[0].offset, writes_[1].offset);
        EXPECT_LT(writes_[2].offset, container::data_offset);
        EXPECT_EQ(states_after(*source_, disk, writes_, before, after), 1)
            << "only the whole of the last write brings the new state";
    }
    for (const auto flags : source_->open_flags)
        EXPECT_TRUE(flags & FFSOpenFlags::WRITE_THROUGH) << "the writes reach the disk in their order";
}

TEST_F(MultiContainer, NoDamagedByteGivesWrongBytesOut) {
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Create("a.mc"));
    for (std::uint32_t i = 0; i < 6; ++i)
        put(file, i % 2 == 0 ? "even" : "odd", i * 1000003, std::string(20 + i, 'p'), i > 3);
    ASSERT_TRUE(file.Save());
    const Blobs good = everything(file);
    const std::string whole = source_->content("a.mc");
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x41);
        source_->add("bad.mc", damaged);
        CFileHashMultiContainer bad;
        if (!bad.Open("bad.mc", false)) continue;
        for (const auto& [key, text] : good) {
            const std::string got = fetch(bad, key.first, key.second);
            ASSERT_TRUE(got == text || got == "(none)") << "byte " << at;
        }
        ztl::vector<fs::string> report;
        const bool fine = bad.Verify(report);
        EXPECT_EQ(fine, report.empty());
        if (at >= container::data_offset) EXPECT_FALSE(fine) << "byte " << at;
    }
    for (std::size_t length = 0; length < whole.size(); ++length) {
        source_->add("bad.mc", whole.substr(0, length));
        ASSERT_FALSE(opened("bad.mc")) << length;
    }
}

TEST_F(MultiContainer, SayWhyTheyFail) {
    using File = CFileHashMultiContainer;
    static ztl::vector<unsigned char> out;
    static std::uint64_t size;
    static char buffer[2];
    enum Opened { CLOSED, READABLE, WRITABLE };
    const std::tuple<const char*, Opened, EFSError::TYPE, bool (*)(File&)> rows[] = {
        {"no such file", CLOSED, NOT_FOUND, [](File& f) { return f.Open("none.mc", false); }},
        {"null path", CLOSED, NOT_FOUND, [](File& f) { return f.Open(nullptr, true); }},
        {"no container file", CLOSED, BAD_FORMAT, [](File& f) { return f.Open("text.txt", true); }},
        {"nothing open", CLOSED, INVALID_ARGUMENT, [](File& f) { return f.Save(); }},
        {"not for writing", READABLE, READ_ONLY, [](File& f) { return put(f, "c", 1, "x"); }},
        {"no such container", READABLE, NOT_FOUND, [](File& f) { return f.Fetch("d", 1, out); }},
        {"no such blob", READABLE, NOT_FOUND, [](File& f) { return f.Fetch("c", 9, out); }},
        {"null buffer", READABLE, INVALID_ARGUMENT, [](File& f) { return f.Fetch("c", 1, nullptr, 9, size); }},
        {"small buffer", READABLE, INVALID_ARGUMENT, [](File& f) { return f.Fetch("c", 1, buffer, 2, size); }},
        {"null data", WRITABLE, INVALID_ARGUMENT, [](File& f) { return f.Put("c", 1, nullptr, 1); }},
        {"long name", WRITABLE, INVALID_ARGUMENT, [](File& f) { return put(f, std::string(65536, 'n'), 1, "x"); }},
        {"not on the disk", WRITABLE, UNSUPPORTED, [](File& f) { return f.Remove("c", 1) && f.Compact(); }},
    };
    source_->add("text.txt", std::string(1000, 't'));
    File made;
    ASSERT_TRUE(made.Create("a.mc") && put(made, "c", 1, "text") && made.Save());
    made.Close();
    for (const auto& [label, opened, code, run] : rows) {
        File file;
        ASSERT_TRUE(opened == CLOSED || file.Open("a.mc", opened == WRITABLE));
        fs::clear_error();
        EXPECT_EQ(why(run(file)), code) << label;
    }
    EXPECT_EQ(size, 4u) << "what a small buffer would need";
}

TEST_F(MultiContainer, AnIndexThatLiesBehindGoodChecksumsIsDamaged) {
    const std::string data(100, 'd');
    Commit commit;
    /// An index of one container "c" of these blobs, as the library writes it.
    const auto index_of = [&commit](std::vector<container::Blob> blobs) {
        const container::IndexBytes bytes = container::encode({{"c", std::move(blobs)}}, commit);
        return std::string(bytes.get(), bytes.get() + commit.index_size);
    };
    constexpr Entry sound{.offset = 192, .stored_size = 4, .size = 4};
    constexpr Entry next{.offset = 196, .stored_size = 4, .size = 4};
    const std::string good = index_of({{1, sound}, {2, next}});
    std::string long_name = good;
    long_name[1] = 1;
    std::string many_blobs = good;
    many_blobs[6] = 127;
    const std::tuple<const char*, std::string, std::function<void(Commit&)>> files[] = {
        {"index in the head", good, [](Commit& c) { c.index_offset = 0; }},
        {"index far away", good, [](Commit& c) { c.index_offset = ~std::uint64_t{0} - 8; }},
        {"directory larger than the index", good, [](Commit& c) { c.directory_size = c.index_size + 1; }},
        {"sizes that wrap", good, [](Commit& c) { c.index_size = c.directory_size = ~c.index_offset; }},
        {"name longer than the directory", long_name, {}},
        {"more blobs than there are", many_blobs, {}},
    };
    CFileHashMultiContainer file;
    for (const auto& [label, index, twist] : files) {
        source_->add("bad.mc", made_of(data, index, commit.directory_size, twist));
        EXPECT_EQ(why(file.Open("bad.mc", true)), BAD_FORMAT) << label;
    }
    constexpr std::uint32_t huge = 0xFFFFFFFF;
    const std::pair<const char*, std::vector<container::Blob>> parts[] = {
        {"hashes that descend", {{2, sound}, {1, next}}},
        {"a hash twice", {{1, sound}, {1, next}}},
        {"a blob in the head", {{1, {.offset = 0, .stored_size = 4, .size = 4}}}},
        {"a blob behind the index", {{1, {.offset = std::uint64_t{1} << 62, .stored_size = 4, .size = 4}}}},
        {"a blob into the index", {{1, {.offset = 290, .stored_size = 4, .size = 4}}}},
        {"two sizes of a stored blob", {{1, {.offset = 192, .stored_size = 4, .size = huge}}}},
        {"a blob that no deflate packs so well",
         {{1, {.offset = 192, .stored_size = 4, .size = huge, .deflated = true}}}},
    };
    for (const auto& [label, blobs] : parts) {
        SCOPED_TRACE(label);
        const std::string index = index_of(blobs);
        source_->add("bad.mc", made_of(data, index, commit.directory_size));
        ASSERT_TRUE(file.Open("bad.mc", true));
        EXPECT_EQ(fetch(file, "c", 1), "(none)");
        ztl::vector<fs::string> report;
        EXPECT_FALSE(file.Verify(report) || put(file, "c", 7, "more")) << "saving would make it look good";
        EXPECT_TRUE(put(file, "other", 7, "more"));
        EXPECT_FALSE(file.Save());
        EXPECT_TRUE(file.RemoveContainer("c") && file.Save()) << "what is sound can be rescued";
        file.Close();
    }
}

class MultiContainerOnDisk : public MountedRoot {};

TEST_F(MultiContainerOnDisk, KeepsWhatARandomModelKeepsAndCompactingGivesBackWhatIsWastedWhateverBecomesOfTheName) {
    Blobs model;
    std::mt19937 random(7);
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Create("sub/a.mc"));
    for (int step = 0; step < 2000; ++step) {
        const std::string name = "c" + std::to_string(random() % 5);
        // Most lie at the ends, where an even spread would not have them.
        const auto hash = static_cast<std::uint32_t>(random() % 4 == 0 ? random() : random() % 40 - 20);
        const std::string text(random() % 300, static_cast<char>('a' + random() % 26));
        const auto action = random() % 160;
        if (action < 20) {
            EXPECT_EQ(file.Remove(name.c_str(), hash), model.erase({name, hash}) != 0);
        } else if (action < 30) {
            EXPECT_TRUE(file.Save());
        } else if (action == 30) {
            ASSERT_TRUE(file.Save());
            file.Close();
            ASSERT_TRUE(file.Open("SUB/A.MC", true));
        } else {
            EXPECT_TRUE(put(file, name, hash, text, random() % 2 == 0));
            model[{name, hash}] = text;
        }
    }
    EXPECT_EQ(everything(file), model);
    ASSERT_TRUE(put(file, "large", 1, std::string(300u << 10, 'l')) && file.Save());
    const Blobs before = everything(file);
    std::filesystem::create_directory(directory_ / "sub/a.mc.new");
    EXPECT_FALSE(file.Compact()) << "the new file cannot be made";
    std::filesystem::remove(directory_ / "sub/a.mc.new");
    const std::string as_saved = directory_.read("sub/a.mc");
    const auto stop = [](std::uint64_t done, std::uint64_t, void*) { return done == 0; };
    EXPECT_EQ(why(file.Compact(stop, nullptr)), EFSError::CANCELLED);
    EXPECT_EQ(directory_.read("sub/a.mc"), as_saved);
    SMultiContainerStats stats;
    std::vector<std::uint64_t> heard;
    const auto hear = [](std::uint64_t done, std::uint64_t total, void* user) {
        static_cast<std::vector<std::uint64_t>*>(user)->push_back(done);
        return done <= total;
    };
    ASSERT_TRUE(file.Compact(hear, &heard) && file.GetStats(stats));
    EXPECT_TRUE(heard.size() > 1 && std::ranges::is_sorted(heard) && heard.back() == stats.live_bytes);
    EXPECT_EQ(stats.wasted_bytes, 0u);
    EXPECT_EQ(stats.blobs, before.size());
    EXPECT_EQ(everything(file), before);
    EXPECT_TRUE(put(file, "c9", 1, "goes on") && file.Save() && file.Remove("c9", 1) && file.Save());
    EXPECT_FALSE(directory_.exists("sub/a.mc.new"));
#ifndef _WIN32  // where nobody can replace a file that is open
    directory_.write("other.mc", "no container");
    std::filesystem::rename(directory_ / "other.mc", directory_ / "sub/a.mc");
    EXPECT_FALSE(file.Compact());
    EXPECT_EQ(directory_.read("sub/a.mc"), "no container") << "what took its place is left alone";
#endif
    run_together(4, [&](std::size_t) { EXPECT_EQ(everything(file), before); });
}

TEST_F(MultiContainerOnDisk, WhatIsNotSavedLeavesNoBytesAndABlobThatRottedStaysRottenWhenTheRestIsCompacted) {
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Create("a.mc") && put(file, "c", 1, "gone") && put(file, "c", 2, "rots") &&
                put(file, "c", 3, "keeps"));
    ASSERT_TRUE(file.Save() && file.Remove("c", 1) && file.Save());
    const std::string as_saved = directory_.read("a.mc");
    ASSERT_TRUE(put(file, "c", 4, std::string(9u << 20, 'l')));
    EXPECT_GT(directory_.read("a.mc").size(), as_saved.size()) << "more than is collected is written at once";
    file.Close();
    EXPECT_EQ(directory_.read("a.mc"), as_saved);
    directory_.write("a.mc", directory_.read("a.mc").replace(container::data_offset + 5, 1, "!"));
    ASSERT_TRUE(file.Open("a.mc", true) && file.Compact());
    EXPECT_EQ(fetch(file, "c", 2), "(none)");
    EXPECT_EQ(fetch(file, "c", 3), "keeps");
    ztl::vector<fs::string> report;
    EXPECT_FALSE(file.Verify(report));
    EXPECT_EQ(report.size(), 1u);
}

TEST_F(MultiContainerOnDisk, KeepsBlobsBeyondFourGigabytes) {
    constexpr std::uint64_t far = std::uint64_t{5} << 30;
    const std::string path = directory_.write("far.mc", made_of("", "", 0, [](Commit& c) { c.index_offset = far; }));
    std::filesystem::resize_file(path, far);  // a hole, which takes no space
    fs::refresh();
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Open("far.mc", true));
    ASSERT_TRUE(put(file, "c", 1, "far away") && put(file, "c", 2, std::string(5000, 'z'), true) && file.Save());
    const Blobs before = everything(file);
    file.Close();
    EXPECT_GT(std::filesystem::file_size(path), far);
    EXPECT_EQ(opened("far.mc"), before);
    ASSERT_TRUE(file.Open("far.mc", true) && file.Compact());
    EXPECT_EQ(everything(file), before);
    EXPECT_LT(std::filesystem::file_size(path), 1000u);
}

}  // namespace

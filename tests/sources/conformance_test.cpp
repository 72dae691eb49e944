// What every source answers, whatever its kind: each case runs over the directory, a pack, the memory archive, the fallback
// and a source of a caller's own.
#include <engine/filesystem.h>

#include <gmock/gmock.h>
#include <zlib.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/memory_source.h"
#include "tests/support/temp_directory.h"

namespace {

const std::string content = "What the file holds.";

/// A source that holds the file "sub/file.txt" under `name`, and everything that it lives on.
struct Mounted {
    TempDirectory disk;
    std::vector<char> memory;
    fs::ZippedDataArchive archive;
    std::unique_ptr<CFSSource> source;
    std::string name = "sub/file.txt";
    std::string missing = "sub/missing.txt";
};

fs::path directory(const std::string& text) {
    fs::path out;
    out.Set(text.c_str(), "", true);
    return out;
}

void mount_directory(Mounted& to) {
    to.disk.write("Sub/File.txt", content);
    to.source = std::make_unique<CWin32_dir>(EFSSourceType::DIR);
    ASSERT_TRUE(to.source->init(directory(to.disk.path()), FFSAddSourceFlags::RECURSIVE, nullptr));
}

void mount_pack(Mounted& to) {
    const std::string path = to.disk / "some.pak";
    fs::pack_writer writer;
    ASSERT_TRUE(writer.open(path.c_str()) && writer.add("sub/file.txt", content.data(), content.size(), 6, 0));
    ASSERT_TRUE(writer.finish());
    to.source = std::make_unique<CZip_dir>();
    ASSERT_TRUE(to.source->init(fs::path(path.c_str(), true), FFSAddSourceFlags::NONE, nullptr));
}

void mount_memory_archive(Mounted& to) {
    to.memory.resize(4096);
    uLongf size = compressBound(static_cast<uLong>(content.size()));
    std::vector<Bytef> packed(size);
    compress(packed.data(), &size, reinterpret_cast<const Bytef*>(content.data()), static_cast<uLong>(content.size()));
    ASSERT_TRUE(to.archive.BindArchiveToMemory(to.memory.data(), to.memory.size()));
    ASSERT_TRUE(to.archive.AddEntry("file.txt", packed.data(), size, content.size()));
    to.source = std::make_unique<fs::CMemZip_dir>(&to.archive);
}

void mount_fallback(Mounted& to) {
    to.name = to.disk.write("sub/file.txt", content);
    to.missing = to.disk / "sub/missing.txt";
    to.source = std::make_unique<CWin32_fallback>();
    ASSERT_TRUE(to.source->init(fs::path(), FFSAddSourceFlags::NONE, nullptr));
}

void mount_own(Mounted& to) {
    auto own = std::make_unique<test::MemorySource>("/own/");
    own->add("sub/file.txt", content);
    to.source = std::move(own);
}

struct Kind {
    const char* label;
    void (*mount)(Mounted& to);
    bool lists;  // has a list and a tree of what it holds
};
void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.label; }

class EverySource : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override { GetParam().mount(mounted_); }
    CFSSource& source() { return *mounted_.source; }
    fs::path held() const { return fs::path(mounted_.name.c_str(), true); }
    fs::path missing() const { return fs::path(mounted_.missing.c_str(), true); }

    Mounted mounted_;
};

TEST_P(EverySource, ReadsWhatItHoldsInAnyPortions) {
    EXPECT_TRUE(source().exists(held()));
    for (const std::size_t step : {std::size_t{1}, std::size_t{7}, content.size() + 1}) {
        const std::unique_ptr<SFsFile> file(source().open_read(held(), FFSOpenFlags::NONE));
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->source, &source());
        EXPECT_EQ(file->length(), content.size());
        std::string got;
        std::vector<char> buffer(step);
        while (const std::uint64_t size = file->read(buffer.data(), step)) got.append(buffer.data(), size);
        EXPECT_EQ(got, content);
        EXPECT_EQ(file->tell(), content.size());
        EXPECT_TRUE(file->seek(-5, EFSSeek::END));
        EXPECT_EQ(file->read(buffer.data(), 1), 1u);
        EXPECT_EQ(buffer[0], content[content.size() - 5]);
    }
}

TEST_P(EverySource, HoldsNothingUnderOtherNamesAndChangesNothingForThem) {
    for (const fs::path& name : {missing(), fs::path()}) {
        EXPECT_FALSE(source().exists(name));
        EXPECT_EQ(source().open_read(name, FFSOpenFlags::NONE), nullptr);
        EXPECT_EQ(source().open_write(name, FFSOpenFlags::NONE), nullptr);
        EXPECT_FALSE(source().rem_file(name));
        EXPECT_EQ(source().is_installed(name), 0);
        if (auto* const whole = dynamic_cast<fs::WholeNames*>(&source())) EXPECT_FALSE(whole->exists_whole(name));
    }
    EXPECT_TRUE(source().exists(held()));
}

TEST_P(EverySource, TakesAWholeNameOnlyAsItIs) {
    auto* const whole = dynamic_cast<fs::WholeNames*>(&source());
    if (whole == nullptr) return;  // one that never matches by the end
    EXPECT_TRUE(whole->exists_whole(held()));
    EXPECT_FALSE(whole->exists_whole(fs::path("file.txt", true)));
    EXPECT_EQ(source().open_read(fs::path("file.txt", true), FFSOpenFlags::WHOLE_NAME), nullptr);
    const std::unique_ptr<SFsFile> file(source().open_read(held(), FFSOpenFlags::WHOLE_NAME));
    EXPECT_NE(file, nullptr);
}

TEST_P(EverySource, ListsItsFilesOrNothing) {
    const std::vector<std::string> names = test::take_names(source().get_file_list(nullptr, "*.TXT", true));
    const std::vector<std::string> below = test::take_names(source().search_substring("su"));
    if (!GetParam().lists) {
        EXPECT_TRUE(names.empty() && below.empty());
        return;
    }
    EXPECT_THAT(names, testing::ElementsAre("sub/file.txt"));
    EXPECT_THAT(below, testing::ElementsAre("sub/file.txt"));
    EXPECT_EQ(source().search_substring("nowhere"), nullptr);
    EXPECT_EQ(source().get_file_list("nowhere", nullptr, true), nullptr);
    ASSERT_NE(source().dir_tree(), nullptr);
    EXPECT_NE(source().dir_tree()->find("sub"), nullptr);
}

TEST_P(EverySource, RefusesEveryChangeUnlessItIsWritable) {
    if (source().writable()) return;
    EXPECT_EQ(source().open_write(held(), FFSOpenFlags::NONE), nullptr);
    EXPECT_EQ(source().open_append(held(), FFSOpenFlags::NONE), nullptr);
    EXPECT_EQ(source().open_read_write(held(), FFSOpenFlags::NONE), nullptr);
    EXPECT_EQ(source().create_write(held(), FFSOpenFlags::NONE), nullptr);
    EXPECT_EQ(source().create_read_write(held(), FFSOpenFlags::NONE), nullptr);
    EXPECT_FALSE(source().mkdir(directory("new")));
    EXPECT_FALSE(source().rem_file(held()));
    source().rem_dir(directory("sub"));
    EXPECT_FALSE(source().set_read_only(held(), true));
    EXPECT_TRUE(source().exists(held()));
}

INSTANTIATE_TEST_SUITE_P(Sources, EverySource,
                         testing::Values(Kind{"directory", mount_directory, true}, Kind{"pack", mount_pack, true},
                                         Kind{"memory_archive", mount_memory_archive, false},
                                         Kind{"fallback", mount_fallback, false}, Kind{"own", mount_own, true}),
                         [](const auto& row) { return row.param.label; });

}  // namespace

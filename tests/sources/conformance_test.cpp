// What every source answers, whatever its kind: each case runs over the directory, a pack, the memory archive and the
// fallback.

#include <tuple>

#include "tests/sources/kit.h"
#include "tests/support/pack_file.h"

namespace {

using testing::UnorderedElementsAreArray;
using Flags = FFSOpenFlags;

const std::string content = "What the file holds.";
constexpr const char* files[] = {"Sub/File.txt", "Sub/deep/3.TXT", "Sub/4.bin", "subs/5.txt", "r.txt"};

struct Kind {
    const char* label;
    enum { DIRECTORY, PACK, MEMORY_ARCHIVE, FALLBACK } kind;
    const char* whole;  // the name of the file
    const char* other;  // the same file name with another directory
    bool finds_other;   // finds the file by it
    bool lists;         // has a list and a tree of what it holds
    bool creates;
    EFSError::TYPE is_missing;  // what a name that is not held leaves in fs::last_error
};
void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.label; }

class EverySource : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override {
        const std::string pack = disk_ / "some.pak";
        const std::string packed = zipped(content);
        std::vector<PackFileEntry> entries;
        for (const char* name : files) {
            disk_.write(name, content);
            entries.push_back({name, content});
        }
        switch (GetParam().kind) {
            case Kind::DIRECTORY:
                source_ = std::make_unique<CWin32_dir>(EFSSourceType::DIR);
                ASSERT_TRUE(source_->init(as_dir(disk_.path()), FFSAddSourceFlags::RECURSIVE, nullptr));
                break;
            case Kind::PACK:
                source_ = std::make_unique<CZip_dir>();
                ASSERT_TRUE(write_pack(pack, entries));
                ASSERT_TRUE(source_->init(as_path(pack), FFSAddSourceFlags::NONE, nullptr));
                break;
            case Kind::MEMORY_ARCHIVE:
                ASSERT_TRUE(archive_.BindArchiveToMemory(memory_, sizeof memory_));
                ASSERT_TRUE(archive_.AddEntry("File.txt", packed.data(), packed.size(), content.size()));
                source_ = std::make_unique<fs::CMemZip_dir>(&archive_);
                break;
            case Kind::FALLBACK:
                lead_ = disk_.path() + "/";
                source_ = std::make_unique<CWin32_fallback>();
                ASSERT_TRUE(source_->init(fs::path(), FFSAddSourceFlags::NONE, nullptr));
        }
        fs::clear_error();
    }
    CFSSource& source() { return *source_; }
    fs::path at(const std::string& name, bool lower = true) const { return as_path(lead_ + name, lower); }
    fs::path held() const { return at(GetParam().whole); }
    std::string read() { return read_all(source().open_read(held(), Flags::NONE)); }

    const TempDirectory disk_;
    char memory_[200] = {};
    fs::ZippedDataArchive archive_;
    std::unique_ptr<CFSSource> source_;
    std::string lead_;  // stands before each name that the source is asked for
};

TEST_P(EverySource, ReadsWhatItHoldsInAnyPortions) {
    for (const std::size_t step : {std::size_t{1}, std::size_t{7}, content.size() + 1}) {
        const std::unique_ptr<SFsFile> file(source().open_read(held(), Flags::NONE));
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->source, &source());
        EXPECT_STREQ(file->name, as_text(held()).c_str());
        EXPECT_EQ(file->length(), content.size());
        std::string got;
        std::vector<char> buffer(step);
        EXPECT_EQ(file->read(buffer.data(), 0), 0u);
        while (const std::uint64_t size = file->read(buffer.data(), step)) got.append(buffer.data(), size);
        EXPECT_EQ(got, content);
        EXPECT_EQ(file->tell(), content.size());
        EXPECT_TRUE(file->seek(-5, EFSSeek::END));
        EXPECT_EQ(file->read(buffer.data(), 1), 1u);
        EXPECT_EQ(buffer[0], content[content.size() - 5]);
    }
    EXPECT_EQ(fs::last_error().code, EFSError::NONE) << "the end is no failure";
    EXPECT_EQ(read_all(source().open_read(held(), Flags::THROUGH_VFS)), content) << "asked through the sources already";
}

TEST_P(EverySource, HoldsNothingUnderOtherNamesAndChangesNothingForThem) {
    for (const fs::path& name :
         {at("sub/missing.txt"), at("nowhere/file"), as_path(std::string(300, 'x')), fs::path()}) {
        fs::clear_error();
        EXPECT_FALSE(source().exists(name));
        EXPECT_EQ(source().open_read(name, Flags::NONE), nullptr);
        if (as_text(name).size() < 260 && !name.Empty()) EXPECT_EQ(fs::last_error().code, GetParam().is_missing);
        EXPECT_EQ(source().open_write(name, Flags::NONE), nullptr);
        EXPECT_FALSE(source().rem_file(name) || source().set_read_only(name, true));
        EXPECT_EQ(source().is_installed(name), 0);
        if (auto* const whole = dynamic_cast<fs::WholeNames*>(&source())) EXPECT_FALSE(whole->exists_whole(name));
    }
    EXPECT_EQ(read(), content);
}

TEST_P(EverySource, TakesANameInAnyCaseAndByItsEndUnlessItIsToBeWhole) {
    EXPECT_TRUE(source().exists(at("SUB\\.\\File.TXT")));
    EXPECT_EQ(source().exists(at(GetParam().other)), GetParam().finds_other);
    auto* const whole = dynamic_cast<fs::WholeNames*>(&source());
    if (whole == nullptr) return;  // one that never matches by the end
    EXPECT_TRUE(whole->exists_whole(held()));
    EXPECT_FALSE(whole->exists_whole(at(GetParam().other)));
    EXPECT_EQ(source().open_read(at(GetParam().other), Flags::WHOLE_NAME), nullptr);
    EXPECT_EQ(read_all(source().open_read(held(), Flags::WHOLE_NAME)), content);
}

TEST_P(EverySource, ListsByDirectoryMaskAndFlagOrNotAtAll) {
    const std::tuple<const char*, const char*, bool, std::vector<std::string>> rows[] = {
        {nullptr, nullptr, false, {"sub/file.txt", "sub/deep/3.txt", "sub/4.bin", "subs/5.txt", "r.txt"}},
        {"", "", false, {"r.txt"}},
        {"", "*.txt", true, {"sub/file.txt", "sub/deep/3.txt", "subs/5.txt", "r.txt"}},
        {"sub", nullptr, false, {"sub/file.txt", "sub/4.bin"}},
        {"sub/", "?.TXT", true, {"sub/deep/3.txt"}},
        {"nowhere", nullptr, true, {}},
    };
    for (const auto& [dir, mask, flag, names] : rows) {
        EXPECT_THAT(test::take_names(source().get_file_list(dir, mask, flag)),
                    UnorderedElementsAreArray(GetParam().lists ? names : std::vector<std::string>()))
            << (dir ? dir : "(null)") << " " << (mask ? mask : "(null)") << " " << flag;
    }
    const std::vector<std::string> below = test::take_names(source().search_substring("ub/d"));
    EXPECT_EQ(below, std::vector<std::string>(GetParam().lists ? 1 : 0, "sub/deep/3.txt"));
    EXPECT_EQ(source().search_substring("nowhere"), nullptr);
    EXPECT_EQ(source().dir_tree() != nullptr, GetParam().lists);
    if (GetParam().lists) EXPECT_NE(source().dir_tree()->find("sub/deep"), nullptr);
}

TEST_P(EverySource, CreatesAndChangesOnlyWhereItCan) {
    const fs::path made = at("New/Made.txt", false);
    EXPECT_EQ(write_all(source().create_write(made, Flags::NONE), content), GetParam().creates);
    EXPECT_EQ(write_all(source().create_read_write(made, Flags::NONE), content), GetParam().creates);
    EXPECT_EQ(source().exists(at("new/made.txt")), GetParam().creates);
    EXPECT_EQ(source().mkdir(as_dir(lead_ + "Dir", false)), GetParam().creates);
    if (GetParam().creates) {
        EXPECT_NE(source().dir_tree()->find("dir"), nullptr);
        EXPECT_EQ(all_names(source()).size(), std::size(files) + 1) << "a file made again is entered once";
    }
    if (source().writable()) return;
    for (const auto open : {&CFSSource::open_write, &CFSSource::open_append, &CFSSource::open_read_write})
        EXPECT_EQ((source().*open)(held(), Flags::NONE), nullptr);
    EXPECT_FALSE(source().rem_file(held()) || source().set_read_only(held(), false));
    source().rem_dir(as_dir("sub"));
    EXPECT_TRUE(source().read_only(held()));
    EXPECT_EQ(read(), content);
}

TEST_P(EverySource, RenamesOnTheDiskAndKeepsTimesAndTheReadOnlyAttributeThatBindsDeletion) {
    auto* const native = dynamic_cast<fs::NativeSource*>(&source());
    ASSERT_EQ(native != nullptr, source().writable());
    if (native == nullptr) return;
    constexpr std::int64_t time = 132'000'000'000'000'000;  // some day of 2019, whole milliseconds
    EXPECT_TRUE(source().set_write_time(held(), time));
    EXPECT_FALSE(source().read_only(held()));
    EXPECT_TRUE(source().set_read_only(held(), true));
    EXPECT_TRUE(source().read_only(held()));
    EXPECT_TRUE(source().set_write_time(held(), 5 * time)) << "true even where the disk fails";
    EXPECT_EQ(source().write_time(held()), time);
    EXPECT_EQ(source().write_time(at("none")), -1);
    EXPECT_EQ(source().open_write(held(), Flags::NONE), nullptr);
    EXPECT_FALSE(source().rem_file(held()));
    EXPECT_EQ(fs::last_error().code, EFSError::READ_ONLY);
    EXPECT_EQ(read(), content);
    EXPECT_TRUE(source().set_read_only(held(), false));
    const auto rename = [&](const fs::path& from, const char* to) {
        return test::why(native->rename_file(from, at(to, false)));
    };
    EXPECT_EQ(rename(held(), "r.txt"), EFSError::ALREADY_EXISTS);
    EXPECT_EQ(rename(at("none"), "x"), EFSError::NOT_FOUND);
    EXPECT_EQ(rename(held(), "New/Name"), EFSError::NONE);
    EXPECT_EQ(disk_.read("New/Name"), content);
    EXPECT_FALSE(source().exists(held()));
    EXPECT_EQ(rename(at("new/name"), "new/NAME"), EFSError::NONE) << "a change of case alone";
    EXPECT_EQ(std::filesystem::directory_iterator(disk_ / "New")->path().filename(), "NAME");
    EXPECT_EQ(read_all(source().open_read(at("new/name"), Flags::NONE)), content);
    EXPECT_TRUE(source().rem_file(at("new/name")) && !source().exists(at("new/name")));
}

const Kind kinds[] = {
    {"directory", Kind::DIRECTORY, "sub/file.txt", "file.txt", true, true, true, EFSError::NONE},
    {"pack", Kind::PACK, "sub/file.txt", "file.txt", true, true, false, EFSError::NONE},
    {"memory_archive", Kind::MEMORY_ARCHIVE, "file.txt", "any/file.txt", true, false, false, EFSError::NONE},
    {"fallback", Kind::FALLBACK, "sub/file.txt", "file.txt", false, false, false, EFSError::NOT_FOUND},
};
INSTANTIATE_TEST_SUITE_P(Sources, EverySource, testing::ValuesIn(kinds),
                         [](const auto& row) { return row.param.label; });

}  // namespace

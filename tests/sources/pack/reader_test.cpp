// Packs that a host reads.
#include <limits>
#include <stdexcept>

#include "fixture.h"
#include "tests/support/mounted_root.h"

namespace {

using testing::HasSubstr;

class PackReader : public MountedRoot {};

TEST_F(PackReader, IsReadLateAndNeverUnderTheLock) {
    packs::MemoryReader reader(
        packs::build({packs::stored_entry("a", "text"), packs::deflated_entry("b", packs::noise(9000, 1))}));
    reader.during_read = [] {
        EXPECT_FALSE(fs::rename("nothing", "something"));
        EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND) << "INVALID_ARGUMENT: the lock is taken";
    };
    ASSERT_TRUE(fs::add_pack_reader("x:/odd//name", reader));
    const int mounted = reader.reads;
    const fs::file_ptr a = fs::open_file("a", EFSMode::READ);
    const fs::file_ptr b = fs::open_file("b", EFSMode::READ);
    EXPECT_TRUE(a && b && fs::length(a.get()) == 4 && fs::exists("a"));
    EXPECT_EQ(reader.reads, mounted) << "opening reads nothing";
    SFsView view;
    EXPECT_FALSE(fs::map("a", view, FFSMapFlags::NO_COPY));
    EXPECT_TRUE(fs::map("a", view));
    EXPECT_EQ(std::string(static_cast<const char*>(view.data), view.size), "text");
    fs::unmap(view);
    std::string text(9000, '\0');
    EXPECT_EQ(fs::read(b.get(), text.data(), text.size()), text.size());
    EXPECT_GT(reader.reads, mounted);
    EXPECT_TRUE(fs::rem_source("x:/odd/name"));
    reader.during_read = nullptr;
}

TEST_F(PackReader, EveryFailureOfTheHostIsAnIoFailureThatPasses) {
    const std::string data = packs::noise(300000, 1);
    const std::vector<packs::Entry> entries = packs::entries_of_all_methods(data);
    packs::MemoryReader reader(packs::build(entries));
    const std::pair<packs::MemoryReader::Fault, const char*> rows[] = {
        {[](std::uint64_t size) { return static_cast<std::int64_t>(size) - 1; }, "its reader answered"},
        {[](std::uint64_t size) { return static_cast<std::int64_t>(size) + 1; }, "its reader answered"},
        {[](std::uint64_t) { return 0; }, "its reader answered 0"},
        {[](std::uint64_t) { return std::numeric_limits<std::int64_t>::min(); }, "its reader failed"},
        {[](std::uint64_t) -> std::int64_t { throw std::runtime_error("x"); }, "exception"},
    };
    for (const auto& [fault, reason] : rows) {
        SCOPED_TRACE(reason);
        reader.fault = fault;
        fs::clear_error();
        EXPECT_FALSE(fs::add_pack_reader("m.pak", reader));
        EXPECT_EQ(fs::last_error().code, EFSError::IO);
        EXPECT_THAT(fs::last_error().text, HasSubstr(reason));
        reader.fault = nullptr;
        ASSERT_TRUE(fs::add_pack_reader("m.pak", reader));
        for (const packs::Entry& entry : entries) {
            SCOPED_TRACE(entry.name);
            std::string found(data.size(), '\0');
            const fs::file_ptr file = fs::open_file(entry.name.c_str(), EFSMode::READ, FFSOpenFlags::SEEKABLE);
            for (const bool is_located : {false, true}) {
                reader.fault = fault;
                fs::clear_error();
                fs::seek(file.get(), 0, EFSSeek::BEGIN);
                EXPECT_EQ(fs::read(file.get(), found.data(), 1000), is_located && entry.name == "stored" ? 1000u : 0u);
                EXPECT_EQ(fs::last_error().code, EFSError::IO);
                EXPECT_THAT(fs::last_error().text, HasSubstr(reason));
                reader.fault = nullptr;
                fs::seek(file.get(), 0, EFSSeek::BEGIN);
                ASSERT_EQ(fs::read(file.get(), found.data(), found.size()), data.size());
                EXPECT_TRUE(found == data);
                fs::seek(file.get(), 0, EFSSeek::BEGIN);
            }
        }
        EXPECT_TRUE(fs::rem_source("m.pak"));
    }
    reader.length_known = false;
    reader.reason = "the moon is in the way";
    EXPECT_FALSE(fs::add_pack_reader("m.pak", reader));
    EXPECT_EQ(fs::last_error().text, "The pack \"m.pak\" cannot be read: the moon is in the way.");
}

TEST_F(PackReader, IsReleasedOnceWhenNothingReadsItAnyMore) {
    packs::MemoryReader reader(packs::build({packs::stored_entry("a", "text")}));
    packs::MemoryReader other("no pack, but long enough for one");
    ASSERT_TRUE(fs::add_pack_reader("m.pak", reader));
    const std::pair<const char*, EFSError::TYPE> refused[] = {{"M.pak", EFSError::ALREADY_EXISTS},
                                                              {"", EFSError::INVALID_NAME},
                                                              {nullptr, EFSError::INVALID_NAME},
                                                              {"other", EFSError::BAD_FORMAT}};
    for (int count = 0; const auto& [name, code] : refused) {
        EXPECT_EQ(test::why(fs::add_pack_reader(name, other)), code);
        EXPECT_EQ(other.released, ++count) << "also by a call that fails";
    }
    fs::file_ptr late(fs::open("a", EFSMode::READ));
    EXPECT_TRUE(fs::rem_source("M.PAK"));
    EXPECT_EQ(reader.released, 0) << "a file is open";
    char text[4];
    EXPECT_EQ(fs::read(late.get(), text, 4), 4u);
    late.reset();
    EXPECT_EQ(reader.released, 1);
    EXPECT_FALSE(fs::rem_source("m.pak"));
}

}  // namespace

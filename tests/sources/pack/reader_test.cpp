// Packs that a host reads.
#include <cstring>
#include <functional>
#include <limits>
#include <mutex>
#include <stdexcept>

#include <gmock/gmock.h>

#include <engine/filesystem/pack_reader.h>

#include "engine/filesystem/formats/zstd.h"
#include "fixture.h"
#include "tests/support/mounted_root.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

/// A pack in memory that answers by `fault` while that is set.
class MemoryReader : public fs::pack_reader {
public:
    using Fault = std::function<std::int64_t(std::uint64_t size)>;

    explicit MemoryReader(std::string bytes) : bytes_(std::move(bytes)) {}
    std::uint64_t length() override { return length_known ? bytes_.size() : ~std::uint64_t{0}; }
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override {
        EXPECT_TRUE(offset <= bytes_.size() && size <= bytes_.size() - offset);
        ++reads;
        if (during_read) during_read();
        if (fault) return fault(size);
        std::memcpy(to, bytes_.data() + offset, size);
        return static_cast<std::int64_t>(size);
    }
    fs::string last_failure() override { return reason; }
    void release() noexcept override { ++released; }

    Fault fault;
    std::function<void()> during_read;
    fs::string reason;
    bool length_known = true;
    int reads = 0;
    int released = 0;

private:
    const std::string bytes_;
};

class PackReader : public MountedRoot {};

std::vector<packs::Entry> entries_of_all_methods(const std::string& data) {
    std::vector<packs::Entry> entries = {packs::deflated_entry("d/deflated", data),
                                         packs::stored_entry("stored", data)};
    if (fs::has_zstd()) {
        const auto packed = fs::make_zstd_compressor()->compress(data.data(), data.size(), 3, data.size());
        entries.push_back(packs::packed_entry("zstd", data, EFSPackMethod::ZSTD, {packed.begin(), packed.end()}));
    }
    entries.push_back(packs::with(entries[0], [](packs::Entry& e) { e.name = "damaged", e.packed[9000] ^= 1; }));
    entries.push_back(packs::with(entries[1], [](packs::Entry& e) { e.name = "bad sum", ++e.crc; }));
    return entries;
}

/// Everything that reading the file here and there gives: bytes, positions and failures.
std::string account_of(SFsFile& file) {
    std::string account;
    std::string piece(std::size_t{2} << 20, '\0');
    for (const auto& [at, size] : {std::pair<std::int64_t, std::size_t>{0, 2 << 20},
                                   {0, 100},
                                   {300000, 70000},
                                   {299000, 4000},
                                   {10, 50000},
                                   {1, 2 << 20},
                                   {1 << 24, 1}}) {
        file.seek(at, EFSSeek::BEGIN);
        fs::clear_error();
        const auto got = static_cast<std::size_t>(file.read(piece.data(), size));
        account.append(piece, 0, got) += std::to_string(got) + "@" + std::to_string(file.tell()) + ":" +
                                         std::to_string(fs::last_error().code) + "\n";
    }
    return account;
}

TEST_F(PackReader, AnswersAsTheSamePackOfTheDiskDoes) {
    const std::string data = packs::noise(1 << 20, 1);
    const std::vector<packs::Entry> entries = entries_of_all_methods(data);
    const std::string bytes = packs::build(entries);
    const std::string path = directory_.write("disk.pak", bytes);
    for (const auto flags :
         {FFSAddSourceFlags::NONE, FFSAddSourceFlags::EXACT_SEEKS, FFSAddSourceFlags::PACK_IN_MEMORY}) {
        const auto disk = packs::mount_file(path, flags);
        MemoryReader reader(bytes);
        ASSERT_TRUE(disk && fs::add_pack_reader("Memory.pak", reader, flags));
        for (const packs::Entry& entry : entries) {
            fs::file_ptr file(fs::open(entry.name.c_str(), EFSMode::READ));
            ASSERT_TRUE(file) << entry.name;
            EXPECT_TRUE(account_of(*file) == account_of(*packs::open(*disk, entry.name))) << entry.name << " " << flags;
        }
        EXPECT_EQ(fs::full_path("deflated"), "d/deflated");
        EXPECT_FALSE(fs::exists("other"));
        EXPECT_TRUE(fs::rem_source("memory.PAK")) << "by its own name, in any case";
        EXPECT_FALSE(fs::exists("stored"));
        EXPECT_EQ(reader.released, 1);
    }
}

TEST_F(PackReader, IsReadLateAndNeverUnderTheLock) {
    MemoryReader reader(
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
    MemoryReader reader(packs::build(entries_of_all_methods(data)));
    struct Row {
        const char* label;
        MemoryReader::Fault fault;
        const char* reason;
    };
    const Row rows[] = {
        {"short", [](std::uint64_t size) { return static_cast<std::int64_t>(size) - 1; }, "its reader answered"},
        {"more", [](std::uint64_t size) { return static_cast<std::int64_t>(size) + 1; }, "its reader answered"},
        {"nothing", [](std::uint64_t) { return 0; }, "its reader answered 0"},
        {"negative", [](std::uint64_t) { return -7; }, "its reader failed"},
        {"least", [](std::uint64_t) { return std::numeric_limits<std::int64_t>::min(); }, "its reader failed"},
        {"throws", [](std::uint64_t) -> std::int64_t { throw std::runtime_error("x"); }, "exception"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        reader.fault = row.fault;
        fs::clear_error();
        EXPECT_FALSE(fs::add_pack_reader("m.pak", reader));
        EXPECT_EQ(fs::last_error().code, EFSError::IO);
        EXPECT_THAT(fs::last_error().text, HasSubstr(row.reason));
        reader.fault = nullptr;
        ASSERT_TRUE(fs::add_pack_reader("m.pak", reader));
        for (const char* name : {"deflated", "stored"}) {
            std::string found(data.size(), '\0');
            const fs::file_ptr file = fs::open_file(name, EFSMode::READ, FFSOpenFlags::SEEKABLE);
            for (const bool is_located : {false, true}) {
                reader.fault = row.fault;
                fs::clear_error();
                fs::seek(file.get(), 0, EFSSeek::BEGIN);
                EXPECT_EQ(fs::read(file.get(), found.data(), 1000), is_located && *name == 's' ? 1000u : 0u);
                EXPECT_EQ(fs::last_error().code, EFSError::IO) << name;
                EXPECT_THAT(fs::last_error().text, HasSubstr(row.reason)) << name;
                reader.fault = nullptr;
                fs::seek(file.get(), 0, EFSSeek::BEGIN);
                ASSERT_EQ(fs::read(file.get(), found.data(), found.size()), data.size()) << name;
                EXPECT_TRUE(found == data) << name;
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
    MemoryReader reader(packs::build({packs::stored_entry("a", "text")}));
    MemoryReader other("no pack, but long enough for one");
    ASSERT_TRUE(fs::add_pack_reader("m.pak", reader));
    const std::pair<const char*, EFSError::TYPE> refused[] = {{"M.pak", EFSError::ALREADY_EXISTS},
                                                              {"", EFSError::INVALID_NAME},
                                                              {nullptr, EFSError::INVALID_NAME},
                                                              {"other", EFSError::BAD_FORMAT}};
    for (int count = 0; const auto& [name, code] : refused) {
        EXPECT_FALSE(fs::add_pack_reader(name, other));
        EXPECT_EQ(fs::last_error().code, code);
        EXPECT_EQ(other.released, ++count) << "also by a call that fails";
    }
    fs::file_ptr late(fs::open("a", EFSMode::READ));
    EXPECT_TRUE(fs::rem_source("m.pak"));
    EXPECT_EQ(reader.released, 0) << "a file is open";
    char text[4];
    EXPECT_EQ(fs::read(late.get(), text, 4), 4u);
    late.reset();
    EXPECT_EQ(reader.released, 1);
    EXPECT_FALSE(fs::rem_source("m.pak"));
}

/// A pack that lies in another pack: one handle, which the readers take turns with.
class NestedReader final : public fs::pack_reader {
public:
    explicit NestedReader(const char* name) : file_(fs::open(name, EFSMode::READ, FFSOpenFlags::SEEKABLE)) {}
    std::uint64_t length() override { return fs::length(file_.get()); }
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override {
        const std::lock_guard guard(lock_);
        if (!fs::seek(file_.get(), static_cast<std::int64_t>(offset), EFSSeek::BEGIN)) return -1;
        return static_cast<std::int64_t>(fs::read(file_.get(), to, size));
    }
    void release() noexcept override { delete this; }

private:
    std::mutex lock_;
    fs::file_ptr file_;
};

TEST_F(PackReader, MayReadFromAnotherPack) {
    const std::string data = packs::noise(300000, 1);
    const std::string inner = packs::build({packs::stored_entry("a", data), packs::deflated_entry("b", data)});
    const std::string path = directory_.write(
        "outer.pak", packs::build({packs::stored_entry("s.pak", inner), packs::deflated_entry("d.pak", inner)}));
    ASSERT_TRUE(fs::add_source(path.c_str()));
    for (const char* name : {"s.pak", "d.pak"}) {
        ASSERT_TRUE(fs::add_pack_reader(name, *new NestedReader(name)));
        for (const char* entry : {"b", "a"}) {
            fs::string found;
            EXPECT_TRUE(fs::load_text_file(found, entry));
            EXPECT_TRUE(found == data) << name << " " << entry;
        }
        EXPECT_TRUE(fs::rem_source(name));
    }
}

}  // namespace

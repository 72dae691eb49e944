// The C interface as its hosts see it: the header and the shared library alone.
#include <engine/filesystem_c.h>

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/c_interface/tour.h"
#include "tests/support/temp_directory.h"

namespace {

constexpr std::uint32_t whole_tree = ENGINEFS_SOURCE_RECURSIVE | ENGINEFS_SOURCE_INDEX_NAMES;
constexpr char not_utf8[] = "caf\xE9";

template <typename Struct>
Struct sized() {
    Struct made{};
    made.struct_size = sizeof made;
    return made;
}

int start(const std::string& root) {
    auto options = sized<enginefs_options>();
    options.root = root.c_str();
    options.flags = whole_tree;
    return enginefs_init(&options);
}

std::string error_text() {
    auto error = sized<enginefs_error>();
    enginefs_last_error(&error);
    return error.text;
}

class CInterface : public testing::Test {
protected:
    void SetUp() override {
        directory_.write("levels/one.txt", "first level\n");
        ASSERT_EQ(start(directory_.path()), ENGINEFS_OK);
    }
    void TearDown() override { EXPECT_EQ(enginefs_shutdown(), ENGINEFS_OK); }

    /// A pack in the root with one stored entry, "bytes", mounted.
    std::string MountPack(std::string_view bytes) {
        std::string path = directory_ / "one.pak";
        enginefs_pack* const pack = enginefs_pack_create(path.c_str());
        EXPECT_EQ(enginefs_pack_add(pack, "bytes", bytes.data(), bytes.size(), ENGINEFS_METHOD_DEFLATE, 0, 0), 0);
        EXPECT_EQ(enginefs_pack_finish(pack), ENGINEFS_OK);
        EXPECT_EQ(enginefs_add_source(path.c_str(), 0), ENGINEFS_OK);
        return path;
    }

    const TempDirectory directory_;
};

TEST(CInterfaceTour, EveryFamilyServesAProgramInC) {
    const TempDirectory directory;
    directory.write("root/levels/one.txt", "first level\n");
    EXPECT_STREQ(tour((directory / "root").c_str(), (directory / "made.pak").c_str()), nullptr) << error_text();
}

TEST(CInterfaceStart, FailsInsteadOfEndingTheProcess) {
    const TempDirectory directory;
    directory.write("a.txt", "");
    const std::string too_long = directory / std::string(300, 'x');
    EXPECT_EQ(start(directory / "missing"), ENGINEFS_ERROR_NOT_FOUND);
    EXPECT_FALSE(directory.exists("missing"));
    EXPECT_EQ(start(directory / "a.txt"), ENGINEFS_ERROR_NOT_FOUND);
    EXPECT_EQ(start("relative"), ENGINEFS_ERROR_INVALID_NAME);
    EXPECT_EQ(start(""), ENGINEFS_ERROR_INVALID_NAME);
    EXPECT_EQ(start(too_long), ENGINEFS_ERROR_INVALID_NAME);
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(start(directory.path()), ENGINEFS_OK);
        EXPECT_EQ(start(directory.path()), ENGINEFS_ERROR_ALREADY_EXISTS);
        EXPECT_EQ(enginefs_shutdown(), ENGINEFS_OK);
    }
    EXPECT_EQ(enginefs_shutdown(), ENGINEFS_OK);
}

TEST_F(CInterface, WrongArgumentsAreInvalidArgumentAndSaidSo) {
    enginefs_file* const file = enginefs_open("levels/one.txt", ENGINEFS_READ, 0);
    enginefs_file* const closed = enginefs_open("levels/one.txt", ENGINEFS_READ, 0);
    ASSERT_EQ(enginefs_close(closed), ENGINEFS_OK);
    // The place of the closed one serves again, and is not to be taken for it.
    enginefs_file* const other = enginefs_open("levels/one.txt", ENGINEFS_READ, 0);
    auto* const not_a_list = reinterpret_cast<enginefs_list*>(file);
    enginefs_list* const list = enginefs_search("", nullptr, 1);
    const std::string pack_path = directory_ / "x.pak";
    enginefs_pack* const pack = enginefs_pack_create(pack_path.c_str());
    enginefs_options no_size{};
    enginefs_info no_info{};
    auto short_info = sized<enginefs_info>();
    short_info.struct_size = 8;
    enginefs_load_wish no_wish{};
    auto empty_wish = sized<enginefs_load_wish>();
    auto info = sized<enginefs_info>();
    auto entry = sized<enginefs_pack_entry>();
    auto source = sized<enginefs_source_info>();
    std::uint32_t crc = 0;
    char bytes[4] = "abc";
    const std::string bad = directory_ / not_utf8;

    const auto status = [](int code) { return code == ENGINEFS_ERROR_INVALID_ARGUMENT; };
    const auto size = [](std::int64_t answer) { return answer == -1; };
    const auto null = [](const void* pointer) { return pointer == nullptr; };
    const std::vector<std::pair<const char*, std::function<bool()>>> rows = {
        {"init: null", [&] { return status(enginefs_init(nullptr)); }},
        {"init: no struct_size", [&] { return status(enginefs_init(&no_size)); }},
        {"open: null", [&] { return null(enginefs_open(nullptr, ENGINEFS_READ, 0)); }},
        {"open: no mode", [&] { return null(enginefs_open("x", 4, 0)); }},
        {"open: no flag", [&] { return null(enginefs_open("x", ENGINEFS_READ, 0x40)); }},
        {"open: not UTF-8", [&] { return null(enginefs_open(not_utf8, ENGINEFS_WRITE, 0)); }},
        {"close: null", [&] { return status(enginefs_close(nullptr)); }},
        {"close: closed", [&] { return status(enginefs_close(closed)); }},
        {"commit: closed", [&] { return status(enginefs_commit(closed)); }},
        {"discard: closed", [&] { return status(enginefs_discard(closed)); }},
        {"read: null", [&] { return size(enginefs_read(nullptr, bytes, 1)); }},
        {"read: closed", [&] { return size(enginefs_read(closed, bytes, 1)); }},
        {"read: another kind", [&] { return size(enginefs_read(reinterpret_cast<enginefs_file*>(list), bytes, 1)); }},
        {"read: made up", [&] { return size(enginefs_read(reinterpret_cast<enginefs_file*>(bytes), bytes, 1)); }},
        {"read: null block", [&] { return size(enginefs_read(file, nullptr, 1)); }},
        {"read: too large", [&] { return size(enginefs_read(file, bytes, ~std::uint64_t{0})); }},
        {"write: for reading", [&] { return size(enginefs_write(file, "x", 1)); }},
        {"seek: before the file", [&] { return status(enginefs_seek(file, -1, ENGINEFS_SEEK_BEGIN)); }},
        {"seek: too far", [&] { return status(enginefs_seek(file, INT64_MAX, ENGINEFS_SEEK_END)); }},
        {"seek: no origin", [&] { return status(enginefs_seek(file, 0, 3)); }},
        {"tell: closed", [&] { return size(enginefs_tell(closed)); }},
        {"length: closed", [&] { return size(enginefs_length(closed)); }},
        {"set_end: closed", [&] { return status(enginefs_set_end(closed)); }},
        {"load: null", [&] { return null(enginefs_load(nullptr, 0, nullptr)); }},
        {"save: null", [&] { return status(enginefs_save("x", nullptr, 1, 0)); }},
        {"save: not UTF-8", [&] { return status(enginefs_save(not_utf8, "x", 1, 0)); }},
        {"exists: null", [&] { return enginefs_exists(nullptr, 0) == 0; }},
        {"stat: null", [&] { return status(enginefs_stat("x", 0, nullptr)); }},
        {"stat: no struct_size", [&] { return status(enginefs_stat("x", 0, &no_info)); }},
        {"stat: short", [&] { return status(enginefs_stat("levels/one.txt", 0, &short_info)); }},
        {"stat: no name", [&] { return status(enginefs_stat(nullptr, 0, &info)); }},
        {"set_time: null", [&] { return status(enginefs_set_time(nullptr, 1)); }},
        {"remove: null", [&] { return status(enginefs_remove(nullptr)); }},
        {"remove_dir: null", [&] { return status(enginefs_remove_dir(nullptr)); }},
        {"mkdir: not UTF-8", [&] { return status(enginefs_mkdir("\xC0\x80")); }},
        {"rename: not UTF-8", [&] { return status(enginefs_rename("levels/one.txt", not_utf8)); }},
        {"copy: null", [&] { return status(enginefs_copy("levels/one.txt", nullptr)); }},
        {"crc: null", [&] { return status(enginefs_crc("levels/one.txt", nullptr)); }},
        {"crc: no name", [&] { return status(enginefs_crc(nullptr, &crc)); }},
        {"add_source: null", [&] { return status(enginefs_add_source(nullptr, 0)); }},
        {"add_source: no flag", [&] { return status(enginefs_add_source(pack_path.c_str(), 0x1000)); }},
        {"add_source_at: null", [&] { return status(enginefs_add_source_at(pack_path.c_str(), nullptr, 0)); }},
        {"remove_source: null", [&] { return status(enginefs_remove_source(nullptr)); }},
        {"holders: null", [&] { return null(enginefs_holders(nullptr)); }},
        {"source_at: of names", [&] { return status(enginefs_source_at(list, 0, &source)); }},
        {"dirs: null", [&] { return null(enginefs_dirs(nullptr, 0)); }},
        {"count: another kind", [&] { return size(enginefs_list_count(not_a_list)); }},
        {"at: behind the last", [&] { return null(enginefs_list_at(list, 1)); }},
        {"block: null", [&] { return null(enginefs_list_block(nullptr, nullptr)); }},
        {"list_free: another kind", [&] { return status(enginefs_list_free(not_a_list)); }},
        {"pack_create: not UTF-8", [&] { return null(enginefs_pack_create(bad.c_str())); }},
        {"pack_add: null", [&] { return status(enginefs_pack_add(nullptr, "x", "x", 1, 8, 6, 0)); }},
        {"pack_add: not UTF-8", [&] { return status(enginefs_pack_add(pack, not_utf8, "x", 1, 8, 6, 0)); }},
        {"pack_add: no method", [&] { return status(enginefs_pack_add(pack, "x", "x", 1, 7, 6, 0)); }},
        {"pack_add_deflated: null", [&] { return status(enginefs_pack_add_deflated(pack, "x", nullptr, 2, 1, 0, 0)); }},
        {"pack_finish: null", [&] { return status(enginefs_pack_finish(nullptr)); }},
        {"pack_list: null", [&] { return null(enginefs_pack_list(nullptr)); }},
        {"pack_entry_at: of names", [&] { return status(enginefs_pack_entry_at(list, 0, &entry)); }},
        {"load_async: null", [&] { return null(enginefs_load_async(nullptr)); }},
        {"load_async: no struct_size", [&] { return null(enginefs_load_async(&no_wish)); }},
        {"load_async: no name", [&] { return null(enginefs_load_async(&empty_wish)); }},
        {"load_wait: null", [&] { return size(enginefs_load_wait(nullptr, 0)); }},
        {"load_state: null", [&] { return size(enginefs_load_state(nullptr)); }},
        {"load_take: null", [&] { return null(enginefs_load_take(nullptr, nullptr)); }},
        {"load_cancel: null", [&] { return status(enginefs_load_cancel(nullptr)); }},
        {"load_release: null", [&] { return status(enginefs_load_release(nullptr)); }},
        {"log: null", [&] { return status(enginefs_log(ENGINEFS_LOG_INFO, "C", nullptr)); }},
        {"log: no level", [&] { return status(enginefs_log(16, "C", "text\n")); }},
        {"log: would end the process", [&] { return status(enginefs_log(ENGINEFS_LOG_FATAL, "EXIT", "text\n")); }},
        {"log_level: no level", [&] { return enginefs_log_level(16) == enginefs_log_level(-1); }},
    };
    for (const auto& [label, fails] : rows) {
        enginefs_clear_error();
        EXPECT_TRUE(fails()) << label;
        EXPECT_EQ(enginefs_last_error(nullptr), ENGINEFS_ERROR_INVALID_ARGUMENT) << label;
        EXPECT_NE(error_text(), "") << label;
    }
    EXPECT_EQ(enginefs_read(file, bytes, 3), 3);
    EXPECT_TRUE(enginefs_close(file) == 0 && enginefs_close(other) == 0 && enginefs_pack_cancel(pack) == 0);
    EXPECT_TRUE(enginefs_list_free(list) == 0 && enginefs_list_free(nullptr) == 0);
}

TEST_F(CInterface, AStructureOfALaterVersionIsServedAsFarAsItIsKnown) {
    struct {
        enginefs_info known;
        std::uint64_t later = 7;
    } info;
    info.known.struct_size = sizeof info;
    EXPECT_EQ(enginefs_stat("levels/one.txt", 0, &info.known), ENGINEFS_OK);
    EXPECT_EQ(info.known.struct_size, sizeof info);
    EXPECT_EQ(info.known.size, 12);
    EXPECT_EQ(info.later, 7u);
}

TEST_F(CInterface, EachThreadHasAnErrorOfItsOwn) {
    EXPECT_EQ(enginefs_remove("missing.txt"), ENGINEFS_ERROR_NOT_FOUND);
    std::thread([] {
        EXPECT_EQ(enginefs_last_error(nullptr), ENGINEFS_OK);
        EXPECT_EQ(enginefs_close(nullptr), ENGINEFS_ERROR_INVALID_ARGUMENT);
    }).join();
    auto error = sized<enginefs_error>();
    EXPECT_EQ(enginefs_last_error(&error), ENGINEFS_ERROR_NOT_FOUND);
    EXPECT_STREQ(error.path, "missing.txt");
    EXPECT_STREQ(enginefs_error_name(error.code), "NOT_FOUND");
    EXPECT_STREQ(enginefs_error_name(-1), "UNKNOWN");
}

TEST_F(CInterface, DamageFailsTheReadThatMeetsIt) {
    const std::string bytes(100'000, 'x');
    const std::string pack = MountPack(bytes);
    ASSERT_EQ(enginefs_remove_source(pack.c_str()), ENGINEFS_OK);
    std::string damaged = directory_.read("one.pak");
    damaged[damaged.find(std::string(64, 'x')) + 50'000] = 'y';
    directory_.write("one.pak", damaged);
    ASSERT_EQ(enginefs_add_source(pack.c_str(), 0), ENGINEFS_OK);
    std::string got(bytes.size(), '\0');
    enginefs_file* const file = enginefs_open("bytes", ENGINEFS_READ, 0);
    EXPECT_EQ(enginefs_read(file, got.data(), got.size()), -1);
    EXPECT_EQ(enginefs_last_error(nullptr), ENGINEFS_ERROR_BAD_FORMAT);
    EXPECT_EQ(enginefs_close(file), ENGINEFS_OK);
    EXPECT_EQ(enginefs_load("bytes", 0, nullptr), nullptr);
}

TEST_F(CInterface, AWholeGzipStreamIsLoadedThoughItsLengthIsNotKnown) {
    const std::string bytes(200'000, 'z');
    ASSERT_EQ(enginefs_save("a.gz", bytes.data(), bytes.size(), ENGINEFS_OPEN_GZIP_LEVEL1), ENGINEFS_OK);
    std::uint64_t size = 0;
    char* const text = static_cast<char*>(enginefs_load("a.gz", ENGINEFS_OPEN_GZIP, &size));
    ASSERT_NE(text, nullptr) << error_text();
    EXPECT_EQ(std::string_view(text), bytes);
    EXPECT_EQ(size, bytes.size());
    enginefs_free(text);
}

/// A pack in memory, which may be torn off.
struct Memory {
    std::string bytes;
    bool is_torn = false;
    std::atomic<int> released{0};

    enginefs_pack_reader reader() {
        auto made = sized<enginefs_pack_reader>();
        made.length = bytes.size();
        made.user = this;
        made.read_at = [](void* user, std::uint64_t offset, void* to, std::uint64_t size) {
            const Memory& memory = *static_cast<Memory*>(user);
            if (memory.is_torn) throw std::bad_function_call();
            return static_cast<std::int64_t>(memory.bytes.copy(static_cast<char*>(to), size, offset));
        };
        made.release = [](void* user) { ++static_cast<Memory*>(user)->released; };
        return made;
    }
};

TEST_F(CInterface, APackIsReadThroughTheHostAndReleasedOnceWhateverHappens) {
    const std::string path = MountPack("in memory");
    ASSERT_EQ(enginefs_remove_source(path.c_str()), ENGINEFS_OK);
    Memory memory{.bytes = directory_.read("one.pak")};
    const enginefs_pack_reader reader = memory.reader();
    ASSERT_EQ(enginefs_add_pack_reader("memory", &reader, 0), ENGINEFS_OK) << error_text();
    char* const text = static_cast<char*>(enginefs_load("bytes", 0, nullptr));
    EXPECT_STREQ(text, "in memory");
    enginefs_free(text);
    EXPECT_EQ(enginefs_add_pack_reader("memory", &reader, 0), ENGINEFS_ERROR_ALREADY_EXISTS);
    EXPECT_EQ(memory.released, 1);
    EXPECT_EQ(enginefs_remove_source("memory"), ENGINEFS_OK);
    EXPECT_EQ(memory.released, 2);
    memory.is_torn = true;
    EXPECT_EQ(enginefs_add_pack_reader("memory", &reader, 0), ENGINEFS_ERROR_IO);
    EXPECT_EQ(memory.released, 3);
    EXPECT_EQ(enginefs_add_pack_reader(nullptr, &reader, 0), ENGINEFS_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(memory.released, 4);
    EXPECT_EQ(enginefs_add_pack_reader("memory", nullptr, 0), ENGINEFS_ERROR_INVALID_ARGUMENT);
}

struct Heard {
    std::atomic<int> lines{0};
    std::string text;
};

void hear(int level, const char* category, const char* text, void* user) {
    auto& heard = *static_cast<Heard*>(user);
    if (level == ENGINEFS_LOG_ERROR && std::string_view(category) == "Host") heard.text = text;
    ++heard.lines;
    throw std::bad_function_call();
}

TEST_F(CInterface, ALogCallbackThatThrowsLosesNothingAndEndsWithItsRemoval) {
    Heard heard;
    enginefs_set_log(hear, &heard);
    EXPECT_EQ(enginefs_log(ENGINEFS_LOG_ERROR, "Host", "100 % done\n"), ENGINEFS_OK);
    EXPECT_THAT(heard.text, testing::HasSubstr("100 % done"));
    enginefs_set_log(nullptr, nullptr);
    const int before = heard.lines;
    EXPECT_EQ(enginefs_log(ENGINEFS_LOG_ERROR, "Host", "more\n"), ENGINEFS_OK);
    EXPECT_EQ(heard.lines, before);

    const int level = enginefs_log_level(ENGINEFS_LOG_DEBUG);
    EXPECT_EQ(enginefs_log_level(level), ENGINEFS_LOG_DEBUG);
    EXPECT_EQ(enginefs_log_level(-1), level);
}

TEST_F(CInterface, ARemovedLogCallbackRunsNoMoreWhateverOthersLog) {
    std::atomic<bool> ends{false};
    std::thread speaker([&] {
        while (!ends) enginefs_log(ENGINEFS_LOG_ERROR, "Other", "word\n");
    });
    for (int turn = 0; turn < 200; ++turn) {
        const auto heard = std::make_unique<Heard>();
        enginefs_set_log(hear, heard.get());
        while (heard->lines == 0) std::this_thread::yield();
        enginefs_set_log(nullptr, nullptr);
        const int before = heard->lines;
        std::this_thread::yield();
        EXPECT_EQ(heard->lines, before);
    }
    ends = true;
    speaker.join();
}

/// Releases its load and throws.
void leave(enginefs_async_load* load, void* user) {
    const bool is_done = enginefs_load_state(load) == ENGINEFS_LOAD_DONE;
    const int released = enginefs_load_release(load);
    static_cast<std::atomic<int>*>(user)->store(is_done && released == ENGINEFS_OK ? 1 : 2);
    throw std::bad_function_call();
}

TEST_F(CInterface, ALoadsCallbackMayReleaseItAndThrow) {
    std::atomic<int> told{0};
    auto wish = sized<enginefs_load_wish>();
    wish.path = "levels/one.txt";
    wish.callback = leave;
    wish.user = &told;
    enginefs_async_load* const load = enginefs_load_async(&wish);
    ASSERT_NE(load, nullptr);
    while (told == 0) std::this_thread::yield();
    EXPECT_EQ(told, 1);
    EXPECT_EQ(enginefs_load_state(load), -1);

    wish.callback = nullptr;
    wish.path = "missing.txt";
    enginefs_async_load* const fails = enginefs_load_async(&wish);
    EXPECT_EQ(enginefs_load_wait(fails, 0xFFFFFFFF), 1);
    EXPECT_EQ(enginefs_load_state(fails), ENGINEFS_LOAD_FAILED);
    EXPECT_EQ(enginefs_load_take(fails, nullptr), nullptr);
    EXPECT_EQ(enginefs_last_error(nullptr), ENGINEFS_ERROR_NOT_FOUND);
    EXPECT_EQ(enginefs_load_release(fails), ENGINEFS_OK);
}

}  // namespace

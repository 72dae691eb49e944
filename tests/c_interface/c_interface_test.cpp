// The C interface as its hosts see it: the header and the shared library alone.
#include <engine/filesystem_c.h>

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/run_together.h"
#include "tests/support/temp_directory.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;

constexpr char not_utf8[] = "caf\xE9";
constexpr std::uint32_t for_ever = 0xFFFFFFFF;

template <typename Struct>
Struct sized() {
    Struct made{};
    made.struct_size = sizeof made;
    return made;
}

int start(const std::string& root, const std::string& cache = "") {
    auto options = sized<enginefs_options>();
    options.root = root.c_str();
    options.cache_dir = cache.c_str();
    options.flags = ENGINEFS_SOURCE_RECURSIVE | ENGINEFS_SOURCE_INDEX_NAMES;
    return enginefs_init(&options);
}

/// A pointer's answer: it is null when the call has failed.
int code_of(const void* answer) { return answer != nullptr ? ENGINEFS_OK : -1; }

std::string error_text() {
    auto error = sized<enginefs_error>();
    enginefs_last_error(&error);
    return error.text;
}

/// That a call, whose answer this is, has failed for this reason and said so.
void expect_failure(std::int64_t answer, int code) {
    EXPECT_TRUE(answer == -1 || answer == code) << answer;
    EXPECT_EQ(enginefs_last_error(nullptr), code) << error_text();
    EXPECT_NE(error_text(), "");
    enginefs_clear_error();
}
void expect_failure(const void* answer, int code) { expect_failure(code_of(answer), code); }

void expect_invalid(auto answer) { expect_failure(answer, ENGINEFS_ERROR_INVALID_ARGUMENT); }

/// The bytes of a file, behind which there is a zero; "(none)" when they are not to be had.
std::string loaded(const char* path, std::uint32_t flags = 0) {
    std::uint64_t size = 7;
    char* const text = static_cast<char*>(enginefs_load(path, flags, &size));
    EXPECT_TRUE(text != nullptr ? text[size] == '\0' : size == 0);
    const std::string bytes = text != nullptr ? std::string(text, size) : "(none)";
    enginefs_free(text);
    return bytes;
}

/// The texts of a list, which ends with this.
std::vector<std::string> texts(enginefs_list* list) {
    std::vector<std::string> all;
    std::string joined;
    for (std::int64_t i = 0; i < enginefs_list_count(list); ++i)
        joined += all.emplace_back(enginefs_list_at(list, static_cast<std::uint64_t>(i))) + '\0';
    std::uint64_t size = 0;
    const char* const block = enginefs_list_block(list, &size);
    EXPECT_EQ(std::string_view(block, size), joined);
    EXPECT_TRUE(list != nullptr && enginefs_list_free(list) == ENGINEFS_OK) << error_text();
    return all;
}

enginefs_async_load* load_of(const char* path, std::uint32_t flags, enginefs_load_callback callback = nullptr,
                             void* user = nullptr) {
    auto wish = sized<enginefs_load_wish>();
    wish.path = path;
    wish.flags = flags;
    wish.callback = callback;
    wish.user = user;
    return enginefs_load_async(&wish);
}

/// A call that names a file, a directory or a source. Its answer as a code: that of the failure, or -1.
struct NamedCall {
    const char* label;
    bool makes;  // something of this name
    int (*call)(const char* path, std::uint32_t flags);
};

using Path = const char*;
using Flags = std::uint32_t;
enginefs_info an_info = sized<enginefs_info>();
std::uint32_t a_crc = 0;
const NamedCall named_calls[] = {
    {"open", false, [](Path path, Flags flags) { return code_of(enginefs_open(path, ENGINEFS_READ, flags)); }},
    {"create", true, [](Path path, Flags flags) { return code_of(enginefs_open(path, ENGINEFS_WRITE, flags)); }},
    {"load", false, [](Path path, Flags flags) { return code_of(enginefs_load(path, flags, nullptr)); }},
    {"save", true, [](Path path, Flags flags) { return enginefs_save(path, "x", 1, flags); }},
    {"exists", false, [](Path path, Flags flags) { return enginefs_exists(path, flags) - 1; }},
    {"stat", false, [](Path path, Flags flags) { return enginefs_stat(path, flags, &an_info); }},
    {"crc", false, [](Path path, Flags flags) { return enginefs_crc(path, flags, &a_crc); }},
    {"set_time", false, [](Path path, Flags flags) { return enginefs_set_time(path, 1, flags); }},
    {"remove", false, enginefs_remove},
    {"remove_dir", false, enginefs_remove_dir},
    {"mkdir", true, enginefs_mkdir},
    {"rename", false, [](Path path, Flags flags) { return enginefs_rename(path, "x", flags); }},
    {"rename to", true, [](Path path, Flags flags) { return enginefs_rename("levels/one.txt", path, flags); }},
    {"copy", false, [](Path path, Flags flags) { return enginefs_copy(path, "x", flags); }},
    {"copy to", true, [](Path path, Flags flags) { return enginefs_copy("levels/one.txt", path, flags); }},
    {"holders", false, [](Path path, Flags flags) { return code_of(enginefs_holders(path, flags)); }},
    {"load_async", false, [](Path path, Flags flags) { return code_of(load_of(path, flags)); }},
    {"add_source", false, enginefs_add_source},
    {"add_source_at", true, [](Path path, Flags flags) { return enginefs_add_source_at("/x", path, flags); }},
};

class CInterface : public testing::Test {
protected:
    void SetUp() override {
        directory_.write("levels/one.txt", "first level\n");
        directory_.write("cache/levels/old.txt", "in the cache");
        ASSERT_EQ(start(directory_.path(), directory_ / "cache"), ENGINEFS_OK);
    }
    void TearDown() override { EXPECT_EQ(enginefs_shutdown(), ENGINEFS_OK); }

    const TempDirectory directory_;
};

TEST(CInterfaceStart, FailsInsteadOfEndingTheProcess) {
    const TempDirectory directory;
    directory.write("a.txt", "");
    EXPECT_EQ(start(directory / "missing"), ENGINEFS_ERROR_NOT_FOUND);
    EXPECT_FALSE(directory.exists("missing"));
    EXPECT_EQ(start(directory / "a.txt"), ENGINEFS_ERROR_NOT_FOUND);
    for (const std::string& root : {std::string("relative"), std::string(), directory / std::string(300, 'x')})
        EXPECT_EQ(start(root), ENGINEFS_ERROR_INVALID_NAME) << root;
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(start(directory.path()), ENGINEFS_OK);
        EXPECT_EQ(start(directory.path()), ENGINEFS_ERROR_ALREADY_EXISTS);
        EXPECT_EQ(enginefs_shutdown(), ENGINEFS_OK);
    }
    EXPECT_EQ(enginefs_shutdown(), ENGINEFS_OK);
    for (const auto& [label, makes, call] : named_calls) {
        SCOPED_TRACE(label);
        expect_failure(call("x", 0), ENGINEFS_ERROR_NOT_INITIALIZED);
    }
    expect_failure(enginefs_sources(), ENGINEFS_ERROR_NOT_INITIALIZED);
    expect_failure(enginefs_refresh(nullptr), ENGINEFS_ERROR_NOT_INITIALIZED);
    expect_failure(enginefs_search("", "", 1), ENGINEFS_ERROR_NOT_INITIALIZED);
}

TEST_F(CInterface, AFileIsWhatWasCommitted) {
    char bytes[16];
    enginefs_file* file = enginefs_open("saves/one.sav", ENGINEFS_WRITE, ENGINEFS_OPEN_REPLACE);
    EXPECT_EQ(enginefs_write(file, "0123456789", 10), 10);
    EXPECT_EQ(enginefs_exists("saves/one.sav", 0), 0);
    EXPECT_EQ(enginefs_commit(file), ENGINEFS_OK);
    file = enginefs_open("saves/one.sav", ENGINEFS_WRITE, ENGINEFS_OPEN_REPLACE);
    EXPECT_TRUE(enginefs_write(file, "other", 5) == 5 && enginefs_discard(file) == ENGINEFS_OK);

    file = enginefs_open("SAVES\\ONE.SAV", ENGINEFS_READ_WRITE, 0);
    EXPECT_TRUE(enginefs_length(file) == 10 && enginefs_tell(file) == 0);
    EXPECT_EQ(enginefs_seek(file, -3, ENGINEFS_SEEK_END), ENGINEFS_OK);
    EXPECT_TRUE(enginefs_read(file, bytes, 16) == 3 && std::string_view(bytes, 3) == "789");
    EXPECT_EQ(enginefs_read(file, bytes, 16), 0);
    EXPECT_EQ(enginefs_seek(file, -6, ENGINEFS_SEEK_CURRENT), ENGINEFS_OK);
    EXPECT_TRUE(enginefs_set_end(file) == ENGINEFS_OK && enginefs_length(file) == 4);
    EXPECT_EQ(enginefs_close(file), ENGINEFS_OK);
}

TEST_F(CInterface, WholeFilesAreSavedAndFound) {
    auto info = sized<enginefs_info>();
    EXPECT_EQ(enginefs_version(), static_cast<std::uint32_t>(ENGINEFS_VERSION));
    EXPECT_EQ(loaded("one.txt"), "first level\n");
    EXPECT_EQ(loaded("one.txt", ENGINEFS_OPEN_WHOLE_NAME), "(none)");
    EXPECT_TRUE(enginefs_save("new/a.bin", "abc", 3, 0) == 0 && enginefs_save("empty", nullptr, 0, 0) == 0);
    EXPECT_EQ(loaded("empty"), "");
    enginefs_file* const stream = enginefs_open("b.gz", ENGINEFS_WRITE, ENGINEFS_OPEN_GZIP_LEVEL1);
    EXPECT_EQ(enginefs_write(stream, "abc", 3), 3);
    expect_failure(enginefs_seek(stream, 0, ENGINEFS_SEEK_BEGIN), ENGINEFS_ERROR_UNSUPPORTED);
    EXPECT_EQ(enginefs_close(stream), ENGINEFS_OK);
    const std::string long_text(200'000, 'z');
    EXPECT_EQ(enginefs_save("a.gz", long_text.data(), long_text.size(), ENGINEFS_OPEN_GZIP_LEVEL1), ENGINEFS_OK);
    EXPECT_EQ(loaded("a.gz", ENGINEFS_OPEN_GZIP), long_text) << "though its length is not known";
    EXPECT_TRUE(enginefs_crc("new/a.bin", 0, &a_crc) == ENGINEFS_OK && a_crc == 0x352441C2);
    EXPECT_EQ(enginefs_stat("new/a.bin", 0, &info), ENGINEFS_OK);
    EXPECT_TRUE(info.type == ENGINEFS_TYPE_FILE && info.size == 3 && info.kind == ENGINEFS_KIND_ROOT);
    EXPECT_TRUE(!info.is_read_only && !info.is_protected);
    EXPECT_EQ(enginefs_stat("new", 0, &info), ENGINEFS_OK);
    EXPECT_TRUE(info.type == ENGINEFS_TYPE_DIRECTORY && info.size == -1);
    expect_failure(enginefs_mkdir("NEW/A.bin", 0), ENGINEFS_ERROR_ALREADY_EXISTS);
    struct {
        enginefs_info known;
        std::uint64_t added = 7;
    } later{};
    later.known.struct_size = sizeof later;
    EXPECT_EQ(enginefs_stat("new/a.bin", 0, &later.known), ENGINEFS_OK) << "a structure of a later version";
    EXPECT_TRUE(later.known.struct_size == sizeof later && later.known.size == 3 && later.added == 7);

    EXPECT_THAT(texts(enginefs_search("", "*.?in", 1)), ElementsAre("new/a.bin"));
    EXPECT_THAT(texts(enginefs_search("levels", "*.none", 0)), ElementsAre());
    EXPECT_THAT(texts(enginefs_dirs("", 1)), ElementsAre("cache", "cache/levels", "levels", "new"));
    enginefs_record_access(1);
    loaded("levels/one.txt");
    enginefs_record_access(0);
    EXPECT_THAT(texts(enginefs_access_record()), ElementsAre("levels/one.txt"));
}

TEST_F(CInterface, APackIsMadeListedAndMounted) {
    const unsigned char deflated[] = {0x4B, 0x4C, 0x4A, 0x06, 0x00};  // "abc"
    const std::string path = directory_ / "made.pak";
    enginefs_pack* pack = enginefs_pack_create(path.c_str());
    EXPECT_TRUE(enginefs_pack_cancel(pack) == ENGINEFS_OK && enginefs_pack_list(path.c_str()) == nullptr);
    pack = enginefs_pack_create(path.c_str());
    EXPECT_EQ(enginefs_pack_add(pack, "p/one.txt", "in a pack", 9, ENGINEFS_METHOD_STORE, 0, 0), ENGINEFS_OK);
    EXPECT_EQ(enginefs_pack_add_deflated(pack, "p/two.txt", deflated, 5, 3, 0x352441C2, 0), ENGINEFS_OK);
    EXPECT_EQ(enginefs_pack_finish(pack), ENGINEFS_OK);
    enginefs_list* list = enginefs_pack_list(path.c_str());
    auto entry = sized<enginefs_pack_entry>();
    EXPECT_EQ(enginefs_pack_entry_at(list, 1, &entry), ENGINEFS_OK);
    EXPECT_TRUE(entry.method == ENGINEFS_METHOD_DEFLATE && entry.size == 3 && entry.packed_size == 5);
    EXPECT_EQ(entry.crc, 0x352441C2u);
    EXPECT_THAT(texts(list), ElementsAre("p/one.txt", "p/two.txt"));

    EXPECT_EQ(enginefs_add_source_at(path.c_str(), "mods/snow", ENGINEFS_SOURCE_EXACT_SEEKS), ENGINEFS_OK);
    auto source = sized<enginefs_source_info>();
    list = enginefs_sources();
    EXPECT_EQ(enginefs_source_at(list, 0, &source), ENGINEFS_OK);
    EXPECT_TRUE(source.kind == ENGINEFS_KIND_PACK && source.flags == ENGINEFS_SOURCE_EXACT_SEEKS);
    EXPECT_TRUE(!source.is_writable && texts(list).size() == 2);
    EXPECT_THAT(texts(enginefs_holders("mods/snow/p/two.txt", 0)), ElementsAre(path));
    auto info = sized<enginefs_info>();
    EXPECT_EQ(enginefs_stat("mods/snow/p/two.txt", 0, &info), ENGINEFS_OK);
    expect_failure(enginefs_set_time("mods/snow/p/two.txt", 1, 0), ENGINEFS_ERROR_READ_ONLY);
    EXPECT_TRUE(info.size == 3 && info.time == 0 && info.kind == ENGINEFS_KIND_PACK && info.is_read_only);
    EXPECT_TRUE(enginefs_refresh(nullptr) == ENGINEFS_OK && enginefs_refresh("levels") == ENGINEFS_OK);
    EXPECT_TRUE(enginefs_remove_source(path.c_str()) == ENGINEFS_OK && !enginefs_exists("mods/snow/p/two.txt", 0));
}

TEST_F(CInterface, ALoadGivesItsBlockOnceOrFillsTheCallersBuffer) {
    char buffer[5];
    std::uint64_t size = 0;
    enginefs_async_load* load = load_of("levels/one.txt", 0);
    EXPECT_TRUE(enginefs_load_wait(load, for_ever) == 1 && enginefs_load_state(load) == ENGINEFS_LOAD_DONE);
    void* const block = enginefs_load_take(load, &size);
    EXPECT_EQ(std::string(static_cast<char*>(block), size), "first level\n");
    EXPECT_EQ(enginefs_load_take(load, &size), nullptr);
    enginefs_free(block);
    EXPECT_TRUE(enginefs_load_cancel(load) == ENGINEFS_OK && enginefs_load_release(load) == ENGINEFS_OK);

    auto wish = sized<enginefs_load_wish>();
    wish.path = "levels/one.txt";
    wish.offset = 6;
    wish.size = wish.capacity = sizeof buffer;
    wish.buffer = buffer;
    load = enginefs_load_async(&wish);
    EXPECT_TRUE(enginefs_load_wait(load, for_ever) == 1 && enginefs_load_take(load, &size) == buffer);
    EXPECT_EQ(std::string_view(buffer, size), "level");
    EXPECT_EQ(enginefs_load_release(load), ENGINEFS_OK);

    load = load_of("one.txt", ENGINEFS_OPEN_WHOLE_NAME);
    EXPECT_TRUE(enginefs_load_wait(load, for_ever) == 1 && enginefs_load_state(load) == ENGINEFS_LOAD_FAILED);
    expect_failure(enginefs_load_take(load, nullptr), ENGINEFS_ERROR_NOT_FOUND);
    EXPECT_EQ(enginefs_load_release(load), ENGINEFS_OK);
}

TEST_F(CInterface, OfTwoThreadsOneTakesTheBlock) {
    for (int turn = 0; turn < 1000; ++turn) {
        enginefs_async_load* const load = load_of("levels/one.txt", 0);
        enginefs_load_wait(load, for_ever);
        void* blocks[2];
        run_together(2, [&](std::size_t i) { blocks[i] = enginefs_load_take(load, nullptr); });
        ASSERT_NE(blocks[0] == nullptr, blocks[1] == nullptr);
        for (void* const block : blocks) enginefs_free(block);
        EXPECT_EQ(enginefs_load_release(load), ENGINEFS_OK);
    }
}

TEST_F(CInterface, WrongNamesAndFlagsAreInvalidArgument) {
    for (const auto& [label, makes, call] : named_calls) {
        SCOPED_TRACE(label);
        expect_invalid(call(nullptr, 0));
        expect_invalid(call("levels/one.txt", 0x80000000));
        if (makes) expect_invalid(call(not_utf8, 0));
    }
}

TEST_F(CInterface, HandlesThatHaveEndedAreOfAnotherKindOrMadeUpAreInvalidArgument) {
    char bytes[4] = "abc";
    enginefs_file* const closed = enginefs_open("levels/one.txt", ENGINEFS_READ, 0);
    ASSERT_EQ(enginefs_close(closed), ENGINEFS_OK);
    // The place of the closed one serves again, and is not to be taken for it.
    enginefs_file* const file = enginefs_open("levels/one.txt", ENGINEFS_READ, 0);
    enginefs_list* const list = enginefs_search("", nullptr, 1);
    for (void* const bad : std::initializer_list<void*>{nullptr, closed, list, bytes}) {
        SCOPED_TRACE(bad);
        expect_invalid(enginefs_close(static_cast<enginefs_file*>(bad)));
        expect_invalid(enginefs_read(static_cast<enginefs_file*>(bad), bytes, 1));
        expect_invalid(enginefs_pack_add(static_cast<enginefs_pack*>(bad), "x", "x", 1, 8, 6, 0));
        expect_invalid(enginefs_load_wait(static_cast<enginefs_async_load*>(bad), for_ever));
    }
    auto* const not_a_list = reinterpret_cast<enginefs_list*>(file);
    expect_invalid(enginefs_list_count(not_a_list));
    expect_invalid(enginefs_list_block(not_a_list, nullptr));
    expect_invalid(enginefs_list_free(not_a_list));
    EXPECT_EQ(enginefs_read(file, bytes, 3), 3);
    EXPECT_TRUE(enginefs_close(file) == 0 && enginefs_list_free(list) == 0 && enginefs_list_free(nullptr) == 0);
}

TEST_F(CInterface, OtherWrongArgumentsAreInvalidArgument) {
    enginefs_file* const file = enginefs_open("levels/one.txt", ENGINEFS_READ, 0);
    enginefs_list* const names = enginefs_search("levels", nullptr, 1);
    enginefs_pack* const pack = enginefs_pack_create((directory_ / "x.pak").c_str());
    const std::string bad = directory_ / not_utf8;
    enginefs_info no_size{};
    enginefs_error no_error{};
    auto options = sized<enginefs_options>();
    auto entry = sized<enginefs_pack_entry>();
    auto source = sized<enginefs_source_info>();
    char bytes[4] = "abc";
    expect_invalid(enginefs_init(&options));
    options.root = bad.c_str();
    options.reserved = 1;
    expect_invalid(enginefs_init(&options));
    expect_invalid(enginefs_open("x", 4, 0));
    expect_invalid(enginefs_read(file, nullptr, 1));
    expect_invalid(enginefs_read(file, bytes, ~std::uint64_t{0}));
    expect_invalid(enginefs_write(file, "x", 1));
    expect_invalid(enginefs_seek(file, -1, ENGINEFS_SEEK_BEGIN));
    expect_invalid(enginefs_seek(file, INT64_MAX, ENGINEFS_SEEK_END));
    expect_invalid(enginefs_seek(file, 0, 3));
    expect_invalid(enginefs_save("x", nullptr, 1, 0));
    expect_invalid(enginefs_stat("levels/one.txt", 0, &no_size));
    expect_invalid(enginefs_crc("levels/one.txt", 0, nullptr));
    expect_invalid(enginefs_dirs(nullptr, 0));
    expect_invalid(enginefs_list_at(names, 1));
    expect_invalid(enginefs_source_at(names, 0, &source));
    expect_invalid(enginefs_pack_entry_at(names, 0, &entry));
    expect_invalid(enginefs_pack_create(bad.c_str()));
    expect_invalid(enginefs_pack_list(nullptr));
    expect_invalid(enginefs_pack_add(pack, not_utf8, "x", 1, 8, 6, 0));
    expect_invalid(enginefs_pack_add(pack, "x", "x", 1, 7, 6, 0));
    expect_invalid(enginefs_pack_add_deflated(pack, "x", nullptr, 2, 1, 0, 0));
    expect_invalid(enginefs_log(ENGINEFS_LOG_INFO, "C", nullptr));
    expect_invalid(enginefs_log(16, "C", "text\n"));
    expect_invalid(enginefs_log(ENGINEFS_LOG_FATAL, "EXIT", "text\n"));
    expect_invalid(enginefs_log_level(16) == enginefs_log_level(-1) ? -1 : ENGINEFS_OK);
    EXPECT_EQ(enginefs_last_error(&no_error), ENGINEFS_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(enginefs_last_error(nullptr), ENGINEFS_OK) << "what it told of is left alone";
    auto error = sized<enginefs_error>();
    EXPECT_TRUE(enginefs_remove("missing.txt", 0) == enginefs_last_error(&error) && error.path == "missing.txt"s);
    EXPECT_STREQ(enginefs_error_name(error.code), "NOT_FOUND");
    EXPECT_STREQ(enginefs_error_name(-1), "UNKNOWN");
    EXPECT_TRUE(enginefs_close(file) == 0 && enginefs_pack_cancel(pack) == 0 && enginefs_list_free(names) == 0);
}

TEST_F(CInterface, FlagsMeanTheSameWhereverAFileIsNamed) {
    EXPECT_TRUE(enginefs_exists("one.txt", 0) == 1 && enginefs_exists("one.txt", ENGINEFS_OPEN_WHOLE_NAME) == 0);
    EXPECT_THAT(texts(enginefs_holders("one.txt", ENGINEFS_OPEN_WHOLE_NAME)), ElementsAre());
    constexpr std::uint32_t in_cache = ENGINEFS_OPEN_IN_CACHE_DIR;
    for (const int code :
         {enginefs_mkdir("made", in_cache), enginefs_copy("levels/old.txt", "made/new.txt", in_cache),
          enginefs_rename("made/new.txt", "made/newer.txt", in_cache),
          enginefs_set_time("made/newer.txt", 132223104000000000, in_cache),
          enginefs_stat("made/newer.txt", in_cache, &an_info), enginefs_crc("made/newer.txt", in_cache, &a_crc)})
        EXPECT_EQ(code, ENGINEFS_OK) << error_text();
    EXPECT_EQ(an_info.time, 132223104000000000);
    EXPECT_EQ(directory_.read("cache/made/newer.txt"), "in the cache");
    EXPECT_EQ(enginefs_remove("made/newer.txt", in_cache), ENGINEFS_OK) << error_text();
    EXPECT_EQ(enginefs_remove_dir("made", in_cache), ENGINEFS_OK) << error_text();
    EXPECT_FALSE(directory_.exists("cache/made"));
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
            EXPECT_EQ(enginefs_shutdown(), ENGINEFS_ERROR_INVALID_ARGUMENT) << "and the read goes on";
            return static_cast<std::int64_t>(memory.bytes.copy(static_cast<char*>(to), size, offset));
        };
        made.release = [](void* user) {
            ++static_cast<Memory*>(user)->released;
            EXPECT_EQ(enginefs_shutdown(), ENGINEFS_ERROR_INVALID_ARGUMENT) << "and does not wait for itself";
        };
        return made;
    }
};

TEST_F(CInterface, APackIsReadThroughTheHostAndReleasedOnceWhateverHappens) {
    enginefs_pack* const pack = enginefs_pack_create((directory_ / "one.pak").c_str());
    EXPECT_EQ(enginefs_pack_add(pack, "bytes", "in memory", 9, ENGINEFS_METHOD_DEFLATE, 0, 0), ENGINEFS_OK);
    EXPECT_EQ(enginefs_pack_finish(pack), ENGINEFS_OK);
    Memory memory{.bytes = directory_.read("one.pak")};
    enginefs_pack_reader reader = memory.reader();
    ASSERT_EQ(enginefs_add_pack_reader("memory", &reader, 0), ENGINEFS_OK) << error_text();
    EXPECT_EQ(loaded("bytes"), "in memory");
    EXPECT_EQ(enginefs_add_pack_reader("memory", &reader, 0), ENGINEFS_ERROR_ALREADY_EXISTS);
    EXPECT_EQ(memory.released, 1);
    EXPECT_EQ(enginefs_remove_source("memory"), ENGINEFS_OK);
    memory.is_torn = true;
    EXPECT_EQ(enginefs_add_pack_reader("memory", &reader, 0), ENGINEFS_ERROR_IO);
    EXPECT_EQ(enginefs_add_pack_reader(nullptr, &reader, 0), ENGINEFS_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(memory.released, 4);
    EXPECT_EQ(enginefs_add_pack_reader("memory", nullptr, 0), ENGINEFS_ERROR_INVALID_ARGUMENT);
    enginefs_pack_reader reserved = reader, readless = reader;
    reserved.reserved = 1;
    readless.read_at = nullptr;
    for (const enginefs_pack_reader& wrong : {reserved, readless})
        EXPECT_EQ(enginefs_add_pack_reader("memory", &wrong, 0), ENGINEFS_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(memory.released, 5) << "not for a structure that was wrong itself";
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

TEST_F(CInterface, ALogCallbackThatThrowsLosesNothingAndRunsNoMoreOnceRemoved) {
    const auto first = std::make_unique<Heard>();
    enginefs_set_log(hear, first.get());
    EXPECT_EQ(enginefs_log(ENGINEFS_LOG_ERROR, "Host", "100 % done\n"), ENGINEFS_OK);
    EXPECT_THAT(first->text, testing::HasSubstr("100 % done"));
    const int level = enginefs_log_level(ENGINEFS_LOG_DEBUG);
    EXPECT_EQ(enginefs_log_level(level), ENGINEFS_LOG_DEBUG);
    EXPECT_EQ(enginefs_log_level(-1), level);

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

/// What a load's callback found: 0 as long as it has not run.
struct Told {
    std::atomic<int> state{0};
    std::atomic<int> stopped{-1};
    std::atomic<bool> may_go_on{false};
};

/// Stops the file system, in vain, releases its load and throws.
void leave(enginefs_async_load* load, void* user) {
    auto& told = *static_cast<Told*>(user);
    const int state = enginefs_load_state(load);
    told.state = enginefs_load_release(load) == ENGINEFS_OK ? state : -1;
    while (!told.may_go_on) std::this_thread::yield();
    told.stopped = enginefs_shutdown();
    throw std::bad_function_call();
}

TEST_F(CInterface, ALoadsCallbackMayReleaseItStopInVainAndThrow) {
    Told told;
    enginefs_async_load* const load = load_of("levels/one.txt", 0, leave, &told);
    while (told.state == 0) std::this_thread::yield();
    EXPECT_EQ(told.state, ENGINEFS_LOAD_DONE);
    EXPECT_EQ(enginefs_load_state(load), -1);
    std::thread stops([] { EXPECT_EQ(enginefs_shutdown(), ENGINEFS_OK); });
    while (enginefs_async_load* const later = load_of("levels/one.txt", 0)) enginefs_load_release(later);
    told.may_go_on = true;
    stops.join();
    EXPECT_EQ(told.stopped, ENGINEFS_ERROR_INVALID_ARGUMENT);
}

}  // namespace

// A pack that a host in C reads.
#include <engine/filesystem_c.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/temp_directory.h"

namespace {

struct Host {
    std::string bytes;
    int released = 0;
    bool fails = false;
};

std::int64_t read_at(void* user, std::uint64_t offset, void* to, std::uint64_t size) {
    const Host& host = *static_cast<const Host*>(user);
    if (host.fails) throw 1;
    std::memcpy(to, host.bytes.data() + offset, size);
    return static_cast<std::int64_t>(size);
}

TEST(CInterfacePackReader, ServesAPackOfTheHostsOwn) {
    const TempDirectory directory;
    enginefs_options options{};
    options.struct_size = sizeof options;
    options.root = directory.path().c_str();
    ASSERT_EQ(enginefs_init(&options), ENGINEFS_OK);
    const std::string path = directory / "one.pak";
    enginefs_pack* const pack = enginefs_pack_create(path.c_str());
    EXPECT_EQ(enginefs_pack_add(pack, "a.txt", "some text", 9, ENGINEFS_METHOD_DEFLATE, 6, 0), ENGINEFS_OK);
    ASSERT_EQ(enginefs_pack_finish(pack), ENGINEFS_OK);

    Host host{.bytes = read_file(path)};
    const enginefs_pack_reader good{.struct_size = sizeof good,
                                    .user = &host,
                                    .length = host.bytes.size(),
                                    .read_at = read_at,
                                    .release = [](void* user) { ++static_cast<Host*>(user)->released; }};
    enginefs_pack_reader wrong = good;
    wrong.struct_size = 0;
    EXPECT_EQ(enginefs_add_pack_reader("m", &wrong, 0), ENGINEFS_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(enginefs_add_pack_reader("m", nullptr, 0), ENGINEFS_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(host.released, 0);
    EXPECT_EQ(enginefs_add_pack_reader(nullptr, &good, 0), ENGINEFS_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(enginefs_add_pack_reader("m", &good, 0x10000), ENGINEFS_ERROR_INVALID_ARGUMENT);
    host.fails = true;
    EXPECT_EQ(enginefs_add_pack_reader("m", &good, 0), ENGINEFS_ERROR_IO);
    EXPECT_EQ(host.released, 3);
    host.fails = false;

    ASSERT_EQ(enginefs_add_pack_reader("m", &good, 0), ENGINEFS_OK);
    enginefs_file* const file = enginefs_open("a.txt", ENGINEFS_READ, 0);
    char text[9] = {};
    EXPECT_EQ(enginefs_read(file, text, sizeof text), 9);
    EXPECT_EQ(std::string(text, 9), "some text");
    EXPECT_EQ(enginefs_remove_source("m"), ENGINEFS_OK);
    EXPECT_EQ(host.released, 3);
    EXPECT_EQ(enginefs_close(file), ENGINEFS_OK);
    EXPECT_EQ(host.released, 4);
    EXPECT_EQ(enginefs_shutdown(), ENGINEFS_OK);
}

}  // namespace

#pragma once

#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include <gmock/gmock.h>

#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/failure.h"
#include "tests/support/memory_source.h"
#include "tests/support/mounted_root.h"

// What tests of opening and managing by name say again and again.

using test::MemorySource;
using test::mount_memory;
using test::take_names;
using test::why;
using testing::ElementsAre;
using enum EFSError::TYPE;

/// Over sources in memory, which the test mounts.
class OverMemory : public testing::Test {
protected:
    void SetUp() override { fs::clear_error(); }
    void TearDown() override { test::unmount_all(); }
};

/// Over a home on the disk, in which "game" is the root.
class OverDisk : public testing::Test {
protected:
    void TearDown() override { fs::shutdown(); }

    void Start(bool use_fallback, FFSAddSourceFlags::ENUM flags = whole_tree) {
        ASSERT_TRUE(fs::init((home_ / "game").c_str(), flags, (home_ / "cache").c_str(), use_fallback, false, nullptr));
        fs::clear_error();
    }

    const TempDirectory home_;
};

/// Every source by its path, in the order in which they are asked.
inline std::vector<std::string> mounted_sources() {
    ztl::vector<SFsSourceInfo> infos;
    fs::get_sources(infos);
    std::vector<std::string> out;
    for (const SFsSourceInfo& info : infos) out.push_back(info.path_name + info.file_name);
    return out;
}

/// Opens, writes `text` and closes; false when either fails.
inline bool save(const char* path, std::string_view text, EFSMode::TYPE mode = EFSMode::WRITE,
                 FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) {
    const fs::file_ptr file = fs::open_file(path, mode, flags);
    return file && fs::write(file.get(), text.data(), text.size()) == text.size();
}

/// What the file holds; "(none)" when it cannot be read.
inline std::string load(const char* path, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) {
    const fs::file_ptr file = fs::open_file(path, EFSMode::READ, flags);
    std::string text;
    return file && fs::read_rest(file.get(), text) ? text : "(none)";
}

#pragma once

#include <engine/filesystem/startup.h>
#include <gtest/gtest.h>

#include "tests/support/temp_directory.h"

inline constexpr auto whole_tree = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;

/// The library over a directory of the test's own.
class MountedRoot : public testing::Test {
protected:
    void SetUp() override { Start(); }
    void TearDown() override { fs::shutdown(); }
    void Start() { ASSERT_TRUE(fs::init(directory_.path().c_str(), whole_tree, "", false, false, nullptr)); }

    const TempDirectory directory_;
};

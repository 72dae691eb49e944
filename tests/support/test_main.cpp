// Runs the tests inside a fresh folder of their own, so that relative names never meet what lies
// around the build tree, and removes it when they are done.
#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace {

std::filesystem::path make_private_folder() {
    std::random_device random;
    const std::filesystem::path base = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::filesystem::path folder = base / ("engine_tests_" + std::to_string(random()));
        std::error_code error;
        if (std::filesystem::create_directory(folder, error)) return folder;
    }
    return {};
}

// Tests take permissions away from some files; the owner's must be back before removal.
void remove_folder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::recursive_directory_iterator items(folder, error);
    for (; items != std::filesystem::recursive_directory_iterator(); items.increment(error)) {
        if (error) break;
        if (items->is_symlink(error)) continue;
        std::filesystem::permissions(items->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, error);
    }
    std::filesystem::remove_all(folder, error);
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();

    const std::filesystem::path home = std::filesystem::current_path();
    const std::filesystem::path folder = make_private_folder();
    if (folder.empty()) {
        std::fprintf(stderr, "test_main: cannot make a temporary folder\n");
        return 1;
    }
    std::filesystem::current_path(folder);
    const int status = RUN_ALL_TESTS();
    std::filesystem::current_path(home);
    remove_folder(folder);
    return status;
}

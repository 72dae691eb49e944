// Runs the tests inside a fresh folder of their own, so that relative names never meet what lies around the build tree,
// and removes it when they are done.
#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

namespace {

namespace disk = std::filesystem;

/// Tests take permissions away from some files; the owner's must be back before removal.
void remove_folder(const disk::path& folder) {
    std::error_code error;
    disk::recursive_directory_iterator items(folder, error);
    for (; !error && items != disk::recursive_directory_iterator(); items.increment(error)) {
        if (!items->is_symlink())
            disk::permissions(items->path(), disk::perms::owner_all, disk::perm_options::add, error);
    }
    disk::remove_all(folder, error);
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();

    const disk::path home = disk::current_path();
    disk::path folder;
    std::error_code error;
    do folder = disk::temp_directory_path() / ("engine_tests_" + std::to_string(std::random_device()()));
    while (!disk::create_directory(folder, error) && !error);
    if (error) return std::fprintf(stderr, "test_main: cannot make %s\n", folder.string().c_str()), 1;
    disk::current_path(folder);
    const int status = RUN_ALL_TESTS();
    disk::current_path(home);
    remove_folder(folder);
    return status;
}

// Mounting a tree: the directory source's scan beside a bare walk that reads every directory and does nothing else.
#include <dirent.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/startup.h>

#include "bench/support/paired.h"
#include "bench/support/tree.h"

namespace {

std::size_t walk(std::string& path) {
    DIR* dir = opendir(path.c_str());
    if (!dir) return 0;
    std::size_t count = 0;
    while (const dirent* item = readdir(dir)) {
        if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0) continue;
        if (item->d_type != DT_DIR) {
            ++count;
            continue;
        }
        const std::size_t length = path.size();
        path.append("/").append(item->d_name);
        count += walk(path);
        path.resize(length);
    }
    closedir(dir);
    return count;
}

std::unique_ptr<CWin32_dir> mount(const std::string& root) {
    auto source = std::make_unique<CWin32_dir>(EFSSourceType::DIR);
    fs::path path;
    path.Set(root.c_str(), "", true);
    source->init(path, FFSAddSourceFlags::RECURSIVE, nullptr);
    return source;
}

void MountBesideABareWalk(benchmark::State& state) {
    const auto directories = static_cast<std::size_t>(state.range(0));
    const BenchTree& tree = bench_tree(directories, directories <= 2000);
    std::size_t walked = 0;
    std::unique_ptr<CWin32_dir> source;
    const std::size_t before = resident_bytes();
    source = mount(tree.root);
    const std::size_t held = resident_bytes() - before;
    source.reset();
    paired::compare(
        state, tree.names.size(), 11,
        [&] {
            source.reset();
            source = mount(tree.root);
        },
        [&] {
            std::string path = tree.root;
            walked = walk(path);
        });
    if (walked != tree.names.size() || !source->exists(fs::path(tree.names[0].c_str(), true))) {
        state.SkipWithError("the tree is not what it should be");
    }
    state.counters["resident_bytes_per_file"] = static_cast<double>(held) / static_cast<double>(tree.names.size());
}
BENCHMARK(MountBesideABareWalk)->Arg(2000)->Arg(20000)->Iterations(1)->Unit(benchmark::kMillisecond);

// A tree that was made just now would be scanned each time: who changes a directory may change it once more.
void age_directories(const std::string& root) {
    const auto time = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    std::filesystem::last_write_time(root, time);
    for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
        if (item.is_directory()) std::filesystem::last_write_time(item.path(), time);
    }
}

// The same tree from its stored listing, start-up and all, beside the scan.
void MountFromStoredListingBesideTheScan(benchmark::State& state) {
    const BenchTree& tree = bench_tree(2000, true);
    const std::filesystem::path cache = tree.root + ".cache";
    const std::filesystem::path folder = cache / fs::listing_cache_folder;
    std::filesystem::create_directories(folder);
    age_directories(tree.root);
    const std::string empty_root = cache.generic_string() + "/filesystem";
    if (!fs::init(empty_root.c_str(), FFSAddSourceFlags::NONE, cache.generic_string().c_str(), false, false, nullptr)) {
        state.SkipWithError("the file system does not start");
        return;
    }
    const auto add = [&tree](FFSAddSourceFlags::ENUM flags) {
        fs::rem_source(tree.root.c_str());
        if (!fs::add_source(tree.root.c_str(), FFSAddSourceFlags::RECURSIVE | flags)) std::abort();
    };
    add(FFSAddSourceFlags::NONE);
    const auto recorded = std::filesystem::last_write_time(*std::filesystem::directory_iterator(folder));
    paired::compare(
        state, tree.names.size(), 11, [&] { add(FFSAddSourceFlags::NONE); },
        [&] { add(FFSAddSourceFlags::SKIP_LISTING_CACHE); });
    if (std::filesystem::last_write_time(*std::filesystem::directory_iterator(folder)) != recorded)
        state.SkipWithError("the listing was not replayed");
    if (!fs::exists(tree.names[0].c_str())) state.SkipWithError("the tree is not what it should be");
    fs::shutdown();
}
BENCHMARK(MountFromStoredListingBesideTheScan)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

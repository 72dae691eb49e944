// Opening by virtual name, reading 4 KiB and closing, beside the same done with the system's own calls and full paths: by
// one thread, and by two at once.
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/directory.h>

#include "bench/support/paired.h"
#include "bench/support/tree.h"

#if HAVE_PHYSFS
#include <physfs.h>
#endif

namespace {

constexpr std::size_t files = 20000;

struct Mounted {
    const BenchTree& tree = bench_tree(2000, true);
    // Copies, so that the texts lie one after the other in memory as the full paths of the raw calls do.
    const std::vector<std::string> names{tree.names.begin(), tree.names.begin() + files};
    CWin32_dir source{EFSSourceType::DIR};

    Mounted() {
        fs::path path;
        path.Set(tree.root.c_str(), "", true);
        source.init(path, FFSAddSourceFlags::RECURSIVE, nullptr);
        fs::add_source(&source, FFSAddSourceFlags::NONE);
    }
    ~Mounted() { fs::rem_source(&source); }

    std::uint64_t read_through_library(std::size_t begin = 0, std::size_t end = files) const {
        std::uint64_t bytes = 0;
        char buffer[4096];
        for (std::size_t i = begin; i < end; ++i) {
            SFsFile* file = fs::open(names[i].c_str(), EFSMode::READ);
            bytes += fs::read(file, buffer, sizeof buffer);
            fs::close(file);
        }
        return bytes;
    }
};

std::vector<std::string> full_paths(const Mounted& mounted) {
    std::vector<std::string> paths;
    for (const std::string& name : mounted.names) paths.push_back(mounted.tree.root + "/" + name);
    return paths;
}

std::uint64_t read_raw(const std::vector<std::string>& paths, std::size_t begin = 0, std::size_t end = files) {
    std::uint64_t bytes = 0;
    char buffer[4096];
    struct stat status;
    for (std::size_t i = begin; i < end; ++i) {
        const int file = open(paths[i].c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0 || fstat(file, &status) != 0) continue;
        bytes += static_cast<std::uint64_t>(read(file, buffer, sizeof buffer));
        close(file);
    }
    return bytes;
}

void OpenReadCloseBesideRawCalls(benchmark::State& state) {
    const Mounted mounted;
    const std::vector<std::string> paths = full_paths(mounted);
    std::uint64_t ours = 0;
    std::uint64_t raw = 0;
    paired::compare(
        state, files, 15, [&] { ours = mounted.read_through_library(); }, [&] { raw = read_raw(paths); });
    if (ours != raw || ours != files * 4096) state.SkipWithError("the bytes are not those of the disk");
}
BENCHMARK(OpenReadCloseBesideRawCalls)->Iterations(1);

void run_on_core(int core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    pthread_setaffinity_np(pthread_self(), sizeof cores, &cores);
}

/// How many times faster two threads, each with half of the files and on a core of its own, are than one with all.
template <class Work>
double scaling(Work&& work) {
    const auto first = [&] {
        run_on_core(0);
        work(0, files / 2);
    };
    const auto second = [&] {
        run_on_core(1);
        work(files / 2, files);
    };
    const double alone = paired::seconds([&] {
        std::thread([&] {
            run_on_core(0);
            work(0, files);
        }).join();
    });
    const double together = paired::seconds([&] {
        std::thread other(second);
        std::thread(first).join();
        other.join();
    });
    return alone / together;
}

// The ratio is that of the scalings, ours to that of the bare calls.
void TwoThreadsBesideTwoThreadsOfRawCalls(benchmark::State& state) {
    const Mounted mounted;
    const std::vector<std::string> paths = full_paths(mounted);
    std::atomic<std::uint64_t> bytes{0};
    std::vector<double> ours, theirs, ratios;
    constexpr std::size_t rounds = 11;
    for (auto _ : state) {
        for (std::size_t round = 0; round < rounds; ++round) {
            theirs.push_back(
                scaling([&](std::size_t begin, std::size_t end) { bytes += read_raw(paths, begin, end); }));
            ours.push_back(scaling(
                [&](std::size_t begin, std::size_t end) { bytes += mounted.read_through_library(begin, end); }));
            ratios.push_back(ours.back() / theirs.back());
        }
    }
    if (bytes != rounds * 4 * files * 4096) state.SkipWithError("the bytes are not those of the disk");
    state.counters["ratio"] = paired::median(ratios);
    state.counters["our_scaling"] = paired::median(ours);
    state.counters["their_scaling"] = paired::median(theirs);
}
BENCHMARK(TwoThreadsBesideTwoThreadsOfRawCalls)->Iterations(1);

#if HAVE_PHYSFS
void OpenReadCloseBesidePhysFS(benchmark::State& state, bool links) {
    const Mounted mounted;
    PHYSFS_init("bench");
    PHYSFS_permitSymbolicLinks(links ? 1 : 0);
    PHYSFS_mount(mounted.tree.root.c_str(), nullptr, 1);
    std::uint64_t ours = 0;
    std::uint64_t peer = 0;
    paired::compare(
        state, files, 9, [&] { ours = mounted.read_through_library(); },
        [&] {
            peer = 0;
            char buffer[4096];
            for (std::size_t i = 0; i < files; ++i) {
                PHYSFS_File* file = PHYSFS_openRead(mounted.names[i].c_str());
                peer += static_cast<std::uint64_t>(PHYSFS_readBytes(file, buffer, sizeof buffer));
                PHYSFS_close(file);
            }
        });
    PHYSFS_deinit();
    if (ours != peer) state.SkipWithError("the bytes differ");
}
BENCHMARK_CAPTURE(OpenReadCloseBesidePhysFS, as_it_comes, false)->Iterations(1);
BENCHMARK_CAPTURE(OpenReadCloseBesidePhysFS, links_permitted, true)->Iterations(1);
#endif

}  // namespace

BENCHMARK_MAIN();

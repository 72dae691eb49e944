// Opening by virtual name, reading 4 KiB and closing, beside the same done with the system's own calls and full paths.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
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
char buffer[4096];

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

    std::uint64_t read_through_library() const {
        std::uint64_t bytes = 0;
        for (std::size_t i = 0; i < files; ++i) {
            SFsFile* file = fs::open(names[i].c_str(), EFSMode::READ);
            bytes += fs::read(file, buffer, sizeof buffer);
            fs::close(file);
        }
        return bytes;
    }
};

std::uint64_t read_raw(const std::vector<std::string>& paths) {
    std::uint64_t bytes = 0;
    struct stat status;
    for (const std::string& path : paths) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0 || fstat(file, &status) != 0) continue;
        bytes += static_cast<std::uint64_t>(read(file, buffer, sizeof buffer));
        close(file);
    }
    return bytes;
}

void OpenReadCloseBesideRawCalls(benchmark::State& state) {
    const Mounted mounted;
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < files; ++i) paths.push_back(mounted.tree.root + "/" + mounted.tree.names[i]);
    std::uint64_t ours = 0;
    std::uint64_t raw = 0;
    paired::compare(
        state, files, 15, [&] { ours = mounted.read_through_library(); }, [&] { raw = read_raw(paths); });
    if (ours != raw || ours != files * sizeof buffer) state.SkipWithError("the bytes are not those of the disk");
}
BENCHMARK(OpenReadCloseBesideRawCalls)->Iterations(1);

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

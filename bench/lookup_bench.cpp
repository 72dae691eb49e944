// Asking for names: fs::exists over one and eight directory sources beside one raw stat, and the look-up of a name that
// every file bears beside that among distinct ones.
#include <sys/stat.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/startup.h>

#include "bench/support/paired.h"
#include "bench/support/tree.h"
#include "engine/filesystem/sources/names/name_table.h"

#if HAVE_PHYSFS
#include <physfs.h>
#endif

namespace {

constexpr std::size_t queries = 20000;

/// The sources: eight over the tree's rooms, or one over the whole.
class Mounted {
public:
    Mounted(const BenchTree& tree, int count) {
        static constexpr const char* rooms[] = {"textures", "models",  "sounds",  "animations",
                                                "levels",   "effects", "scripts", "ui"};
        for (int i = 0; i < count; ++i) {
            auto source = std::make_unique<CWin32_dir>(EFSSourceType::DIR);
            fs::path path;
            path.Set((tree.root + (count == 1 ? "" : std::string("/") + rooms[i])).c_str(), "", true);
            source->init(
                path,
                FFSAddSourceFlags::RECURSIVE | (count == 1 ? FFSAddSourceFlags::NONE : FFSAddSourceFlags::MOUNT_PARENT),
                nullptr);
            fs::add_source(source.get(), FFSAddSourceFlags::NONE);
            sources_.push_back(std::move(source));
        }
    }
    ~Mounted() {
        for (const auto& source : sources_) fs::rem_source(source.get());
    }

private:
    std::vector<std::unique_ptr<CWin32_dir>> sources_;
};

// Each list is made by itself, so that its texts lie one after the other in memory: whoever asks, reads them alike.
struct Queries {
    std::vector<std::string> hits, misses, full, full_misses;
    explicit Queries(const BenchTree& tree) : hits(tree.names.begin(), tree.names.begin() + queries), misses(hits) {
        for (std::string& name : misses) name[name.size() - 6] = '~';
        for (const std::string& name : hits) full.push_back(tree.root + "/" + name);
        for (const std::string& name : misses) full_misses.push_back(tree.root + "/" + name);
    }
};

std::size_t ask(const std::vector<std::string>& names) {
    std::size_t found = 0;
    for (const std::string& name : names) found += fs::exists(name.c_str()) ? 1 : 0;
    return found;
}

std::size_t stat_all(const std::vector<std::string>& names) {
    std::size_t found = 0;
    struct stat status;
    for (const std::string& name : names) found += stat(name.c_str(), &status) == 0 ? 1 : 0;
    return found;
}

void ExistsBesideStat(benchmark::State& state, int sources, bool hit, std::size_t directories) {
    const BenchTree& tree = bench_tree(directories, directories <= 2000);
    const Mounted mounted(tree, sources);
    const Queries asked(tree);
    std::size_t found = 0;
    std::size_t on_disk = 0;
    paired::compare(
        state, queries, 15, [&] { found = ask(hit ? asked.hits : asked.misses); },
        [&] { on_disk = stat_all(asked.full); });
    if (found != (hit ? queries : 0) || on_disk != queries) state.SkipWithError("an answer is wrong");
}
BENCHMARK_CAPTURE(ExistsBesideStat, one_source_hit, 1, true, 2000)->Iterations(1);
BENCHMARK_CAPTURE(ExistsBesideStat, one_source_miss, 1, false, 2000)->Iterations(1);
BENCHMARK_CAPTURE(ExistsBesideStat, eight_sources_hit, 8, true, 2000)->Iterations(1);
BENCHMARK_CAPTURE(ExistsBesideStat, eight_sources_miss, 8, false, 2000)->Iterations(1);
BENCHMARK_CAPTURE(ExistsBesideStat, one_source_hit_of_a_million, 1, true, 20000)->Iterations(1);

// Names that nobody holds, with the fallback behind the sources, beside one raw stat of the same names.
void MissThatReachesTheFallbackBesideStat(benchmark::State& state) {
    const BenchTree& tree = bench_tree(2000, true);
    if (!fs::init(tree.root.c_str(), FFSAddSourceFlags::RECURSIVE, "", true, false, nullptr)) {
        state.SkipWithError("the file system does not start");
        return;
    }
    const Queries asked(tree);
    std::size_t found = 0;
    paired::compare(
        state, queries, 15, [&] { found += ask(asked.full_misses); }, [&] { found += stat_all(asked.full_misses); });
    if (found != 0 || ask(asked.full) != queries) state.SkipWithError("an answer is wrong");
    fs::shutdown();
}
BENCHMARK(MissThatReachesTheFallbackBesideStat)->Iterations(1);

/// A table of the names, and the queries that find them.
struct Table {
    fs::NameTable table{"/root/"};
    std::vector<std::pair<std::string, std::string>> asked;  // directory and name

    Table(const std::vector<std::string>& names, bool one_name) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            const std::size_t split = names[i].rfind('/') + 1;
            // With one name, the file's own becomes its directory.
            const std::string dir = one_name ? names[i] + "/" : names[i].substr(0, split);
            const std::string name = one_name ? "settings.xml" : names[i].substr(split);
            table.add(table.intern_dir(dir), name, 1);
            if (i % 5 == 0) asked.emplace_back(dir, name);
        }
        std::shuffle(asked.begin(), asked.end(), std::mt19937(7));
    }
    std::size_t ask() const {
        std::size_t found = 0;
        for (const auto& [dir, name] : asked) found += table.find(dir, name) != fs::NameTable::none ? 1 : 0;
        return found;
    }
};

void OneNameForAllBesideDistinctNames(benchmark::State& state) {
    const std::vector<std::string> names = bench_names(2000);
    const Table one(names, true);
    const Table distinct(names, false);
    std::size_t found = 0;
    paired::compare(
        state, one.asked.size(), 15, [&] { found += one.ask(); }, [&] { benchmark::DoNotOptimize(distinct.ask()); });
    if (found % one.asked.size() != 0) state.SkipWithError("an answer is wrong");
    state.counters["bytes_per_file"] = static_cast<double>(one.table.bytes()) / static_cast<double>(names.size());
}
BENCHMARK(OneNameForAllBesideDistinctNames)->Iterations(1);

void LookUpAmongAMillionBesideAHundredThousand(benchmark::State& state) {
    const Table million(bench_names(20000), false);
    const Table fewer(bench_names(2000), false);
    const double scale = static_cast<double>(million.asked.size()) / static_cast<double>(fewer.asked.size());
    paired::compare(
        state, million.asked.size(), 15, [&] { benchmark::DoNotOptimize(million.ask()); },
        [&] {
            for (int i = 0; i < static_cast<int>(scale); ++i) benchmark::DoNotOptimize(fewer.ask());
        });
}
BENCHMARK(LookUpAmongAMillionBesideAHundredThousand)->Iterations(1);

#if HAVE_PHYSFS
void ExistsBesidePhysFS(benchmark::State& state, int sources, bool hit) {
    const BenchTree& tree = bench_tree(2000, true);
    const Mounted mounted(tree, sources);
    const Queries asked(tree);
    PHYSFS_init("bench");
    if (sources == 1) PHYSFS_mount(tree.root.c_str(), nullptr, 1);
    for (int i = 0; sources != 1 && i < sources; ++i) {
        static constexpr const char* rooms[] = {"textures", "models",  "sounds",  "animations",
                                                "levels",   "effects", "scripts", "ui"};
        PHYSFS_mount((tree.root + "/" + rooms[i]).c_str(), rooms[i], 1);
    }
    const std::vector<std::string>& names = hit ? asked.hits : asked.misses;
    std::size_t found = 0;
    std::size_t peer_found = 0;
    paired::compare(
        state, queries, 7, [&] { found = ask(names); },
        [&] {
            peer_found = 0;
            for (const std::string& name : names) peer_found += PHYSFS_exists(name.c_str()) ? 1 : 0;
        });
    PHYSFS_deinit();
    if (found != peer_found) state.SkipWithError("the answers differ");
}
BENCHMARK_CAPTURE(ExistsBesidePhysFS, eight_sources_hit, 8, true)->Iterations(1);
BENCHMARK_CAPTURE(ExistsBesidePhysFS, eight_sources_miss, 8, false)->Iterations(1);
#endif

}  // namespace

BENCHMARK_MAIN();

// Sources that follow the disk: watching a tree beside a bare walk of it, and polls that take up what was changed, beside the
// refresh that they spare.
#include <dirent.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <benchmark/benchmark.h>

#include <engine/filesystem.h>

#include "bench/support/paired.h"
#include "bench/support/tree.h"

namespace {

constexpr std::size_t directories = 2000;
constexpr std::size_t changed = 5000;
constexpr int rounds = 9;

void walk(std::string& path) {
    DIR* dir = opendir(path.c_str());
    if (!dir) return;
    while (const dirent* item = readdir(dir)) {
        if (item->d_type != DT_DIR || item->d_name[0] == '.') continue;
        const std::size_t length = path.size();
        path.append("/").append(item->d_name);
        walk(path);
        path.resize(length);
    }
    closedir(dir);
}

/// A tree of 100,000 files, mounted as the root and watched.
class WatchedTree {
public:
    explicit WatchedTree(benchmark::State& state) : state_(state) {
        const auto flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;
        if (!fs::init({.root = tree.root.c_str(), .flags = flags, .use_fallback = false}) ||
            !fs::watch(tree.root.c_str(), true))
            state_.SkipWithError(fs::last_error().text.c_str());
        poll();
    }
    WatchedTree(const WatchedTree&) = delete;
    WatchedTree& operator=(const WatchedTree&) = delete;
    ~WatchedTree() { fs::shutdown(); }

    void poll() {
        if (!fs::poll_changes(changes, 0)) state_.SkipWithError(fs::last_error().text.c_str());
    }
    double seconds_of_poll(std::size_t names) {
        const double time = paired::seconds([&] { poll(); });
        if (changes.size() != names) state_.SkipWithError("a poll did not tell what was changed");
        return time;
    }
    std::string path(const std::string& name) const { return tree.root + "/" + name; }

    const BenchTree& tree = bench_tree(directories, true);
    ztl::vector<SFsChange> changes;

private:
    benchmark::State& state_;
};

void WatchBesideABareWalk(benchmark::State& state) {
    WatchedTree watched(state);
    const char* const root = watched.tree.root.c_str();
    paired::compare_prepared(
        state, watched.tree.names.size(), rounds, [&] { fs::watch(root, false); }, [&] { fs::watch(root, true); },
        [&] {
            std::string path = root;
            walk(path);
        });
}
BENCHMARK(WatchBesideABareWalk)->Iterations(1)->Unit(benchmark::kMillisecond);

void IdlePoll(benchmark::State& state) {
    WatchedTree watched(state);
    for (auto _ : state) fs::poll_changes(watched.changes);
}
BENCHMARK(IdlePoll);

// What is written again.
void PollOfContents(benchmark::State& state) {
    WatchedTree watched(state);
    const auto count = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        std::vector<double> times;
        for (int round = 0; round < rounds; ++round) {
            for (std::size_t i = 0; i < count; ++i)
                std::fstream(watched.path(watched.tree.names[i]), std::ios::binary | std::ios::in | std::ios::out)
                    << 'x';
            times.push_back(watched.seconds_of_poll(count));
        }
        state.counters["poll_us"] = paired::median(times) * 1e6;
    }
}
BENCHMARK(PollOfContents)->Arg(1)->Arg(changed)->Iterations(1)->Unit(benchmark::kMillisecond);

// What is new in 100 directories, beside fs::refresh.
void PollOfCreationsBesideARefresh(benchmark::State& state) {
    WatchedTree watched(state);
    std::set<std::string> directories_of_new;
    for (const std::string& name : watched.tree.names) {
        if (directories_of_new.size() < 100) directories_of_new.insert(name.substr(0, name.rfind('/') + 1));
    }
    std::vector<std::string> names;
    for (const std::string& dir : directories_of_new) {
        for (std::size_t i = 0; i < changed / directories_of_new.size(); ++i)
            names.push_back(watched.path(dir + "new_" + std::to_string(i)));
    }
    for (auto _ : state) {
        std::vector<double> ratios;
        std::vector<double> times;
        for (int round = 0; round < rounds; ++round) {
            for (const std::string& name : names) std::ofstream{name};
            times.push_back(watched.seconds_of_poll(names.size()));
            ratios.push_back(times.back() / paired::seconds([] { fs::refresh(); }));
            for (const std::string& name : names) std::filesystem::remove(name);
            watched.poll();
        }
        state.counters["ratio"] = paired::median(ratios);
        state.counters["poll_us"] = paired::median(times) * 1e6;
    }
}
BENCHMARK(PollOfCreationsBesideARefresh)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

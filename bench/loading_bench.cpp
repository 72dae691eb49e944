// Loads by workers: what an urgent one waits while big entries are inflated, what steps and the hand-over cost, how soon a
// cancel answers, many files by two workers beside a loop, lookups beside a slow open, and views beside reads.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#if defined(HAVE_TBB)
#include <tbb/parallel_for_each.h>
#include <tbb/task_arena.h>
#endif

#include <engine/filesystem.h>

#include "bench/support/paired.h"

namespace {

constexpr auto mount_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;
constexpr std::size_t big_size = 64 << 20;
constexpr int file_count = 2000;

std::string text_of(std::size_t size, unsigned seed) {
    static const char* const words[] = {"texture", "mesh", "sound", "level", "\n", " ", "0", "1", "camera", "light"};
    std::minstd_rand random(seed);
    std::string text;
    while (text.size() < size) text += words[random() % std::size(words)];
    text.resize(size);
    return text;
}

std::string name_of(int file) { return "file" + std::to_string(file) + ".bin"; }

/// A pack with big entries, one of them stored, and many small ones, mounted beside an empty root.
struct Bed {
    explicit Bed(const SFsLoadSettings& settings) : folder(std::filesystem::temp_directory_path() / "loading_bench") {
        std::filesystem::create_directories(folder / "root");
        const std::string pack = (folder / "bench.pak").generic_string();
        if (!std::filesystem::exists(pack)) make_pack(pack);
        fs::init((folder / "root").generic_string().c_str(), mount_flags, "", false, false, nullptr);
        fs::add_source(pack.c_str(), mount_flags);
        fs::set_load_settings(settings);
        for (const char* name : {"big0.bin", "big1.bin", "urgent.bin"}) std::free(fs::read(name, nullptr));  // warm
    }
    ~Bed() { fs::shutdown(); }

    static void make_pack(const std::string& path) {
        fs::pack_writer pack;
        pack.open(path.c_str());
        for (unsigned i = 0; i < 2; ++i) {
            const std::string text = text_of(big_size, i + 1);
            pack.add(("big" + std::to_string(i) + ".bin").c_str(), text.data(), text.size(), 6, 0);
            if (i == 0) pack.add("stored.bin", text.data(), text.size(), 0, 0);
        }
        const std::string small = text_of(64 << 10, 7);
        pack.add("urgent.bin", small.data(), small.size(), 6, 0);
        std::minstd_rand random(9);
        const std::string source = text_of(256 << 10, 8);
        for (int i = 0; i < file_count; ++i)
            pack.add(name_of(i).c_str(), source.data(), (1 << 10) + random() % (255 << 10), 6, 0);
        pack.finish();
    }

    const std::filesystem::path folder;
};

void wait_until_in_hand(const SFsLoad& load) {
    while (load.State() == EFSRequestState::QUEUED) std::this_thread::yield();
}

void report(benchmark::State& state, std::vector<double> seconds) {
    std::sort(seconds.begin(), seconds.end());
    state.counters["median_us"] = seconds[seconds.size() / 2] * 1e6;
    state.counters["p95_us"] = seconds[seconds.size() * 95 / 100] * 1e6;
}

/// An urgent 64 KiB while two entries of 64 MiB are inflated by two workers.
void UrgentBesideBig(benchmark::State& state) {
    Bed bed({.workers = 2, .no_urgent_lane = state.range(0) == 0});
    std::vector<double> times;
    for (auto _ : state) {
        for (int round = 0; round < 40; ++round) {
            SFsLoad* const big[] = {fs::load_async({.path = "big0.bin"}), fs::load_async({.path = "big1.bin"})};
            for (SFsLoad* load : big) wait_until_in_hand(*load);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            times.push_back(paired::seconds([] {
                SFsLoad* const load = fs::load_async({.path = "urgent.bin", .priority = EFSLoadPriority::URGENT});
                load->Wait();
                load->Release();
            }));
            for (SFsLoad* load : big) {
                load->Cancel();
                load->Release();
            }
        }
    }
    report(state, times);
}
BENCHMARK(UrgentBesideBig)->Iterations(1)->Arg(1)->Arg(0)->ArgName("lane")->Unit(benchmark::kMillisecond);

void CancelOfABigLoad(benchmark::State& state) {
    Bed bed({.workers = 1});
    std::vector<double> times;
    for (auto _ : state) {
        for (int round = 0; round < 40; ++round) {
            SFsLoad* const big = fs::load_async({.path = "big0.bin"});
            wait_until_in_hand(*big);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            times.push_back(paired::seconds([big] { big->Cancel(); }));
            big->Release();
        }
    }
    report(state, times);
}
BENCHMARK(CancelOfABigLoad)->Iterations(1)->Unit(benchmark::kMillisecond);

/// Processor time of all threads, in seconds.
double processor_seconds(const std::function<void()>& work) {
    const std::clock_t start = std::clock();
    work();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

/// What ours takes of the processors beside theirs: the ratio, and for each of `items` the microseconds more.
void compare_processor_time(benchmark::State& state, std::size_t items, const std::function<void()>& ours,
                            const std::function<void()>& theirs) {
    std::vector<double> ratios, more;
    for (int round = 0; round < 9; ++round) {
        const double their_time = processor_seconds(theirs);
        const double our_time = processor_seconds(ours);
        ratios.push_back(our_time / their_time);
        more.push_back((our_time - their_time) / static_cast<double>(items) * 1e6);
    }
    state.counters["cpu_ratio"] = paired::median(ratios);
    state.counters["cpu_more_us"] = paired::median(more);
}

/// A load in steps beside one whole read.
void BigInStepsBesideWhole(benchmark::State& state) {
    Bed bed({.workers = 1});
    std::vector<char> buffer(big_size);
    const auto load = [&] {
        SFsLoad* const big = fs::load_async({.path = "big0.bin", .buffer = buffer.data(), .capacity = buffer.size()});
        big->Wait();
        big->Release();
    };
    const auto whole = [&] { fs::read(buffer.data(), "big0.bin", nullptr); };
    paired::compare(state, 1, 9, load, whole);
    compare_processor_time(state, 1, load, whole);
}
BENCHMARK(BigInStepsBesideWhole)->Iterations(1)->Unit(benchmark::kMillisecond);

std::vector<std::string> names_of_files() {
    std::vector<std::string> names;
    for (int i = 0; i < file_count; ++i) names.push_back(name_of(i));
    return names;
}

void read_in_a_loop(const std::vector<std::string>& names) {
    for (const std::string& name : names) std::free(fs::read(name.c_str(), nullptr));
}

/// As a game takes them over: each block is used up in its callback.
void load_as_a_batch(const std::vector<std::string>& names) {
    std::vector<SFsLoadWish> wishes;
    for (const std::string& name : names)
        wishes.push_back({.path = name.c_str(), .callback = [](SFsLoad* load, void*) { std::free(load->Take()); }});
    static mt::CEvent done(false);  // a worker may still be inside when this goes on
    SFsLoadBatch* const loads = fs::load_batch(
        wishes.data(), wishes.size(), [](SFsLoadBatch*, void* event) { static_cast<mt::CEvent*>(event)->Set(); },
        &done);
    done.Wait();
    loads->Release();
}

/// 2,000 files of 1 to 256 KiB beside a loop of fs::read.
void ManyFilesBesideALoop(benchmark::State& state) {
    Bed bed({.workers = static_cast<std::uint32_t>(state.range(0)), .no_urgent_lane = true});
    const std::vector<std::string> names = names_of_files();
    const auto batch = [&] { load_as_a_batch(names); };
    const auto loop = [&] { read_in_a_loop(names); };
    paired::compare(state, names.size(), 7, batch, loop);
    compare_processor_time(state, names.size(), batch, loop);
}
BENCHMARK(ManyFilesBesideALoop)->Iterations(1)->Arg(1)->Arg(2)->ArgName("workers")->Unit(benchmark::kMillisecond);

/// The same by a std::async for each file, as a host without loads may do it.
void ManyFilesByStdAsync(benchmark::State& state) {
    Bed bed({});
    const std::vector<std::string> names = names_of_files();
    const auto by_async = [&] {
        std::vector<std::future<void>> reads;
        for (const std::string& name : names)
            reads.push_back(std::async(std::launch::async, [&name] { std::free(fs::read(name.c_str(), nullptr)); }));
        for (std::future<void>& read : reads) read.get();
    };
    const auto loop = [&] { read_in_a_loop(names); };
    paired::compare(state, names.size(), 7, by_async, loop);
    compare_processor_time(state, names.size(), by_async, loop);
}
BENCHMARK(ManyFilesByStdAsync)->Iterations(1)->Unit(benchmark::kMillisecond);

/// The same by two threads of TBB.
void ManyFilesByTbb(benchmark::State& state) {
#if defined(HAVE_TBB)
    Bed bed({});
    const std::vector<std::string> names = names_of_files();
    tbb::task_arena arena(2);
    const auto by_tbb = [&] {
        arena.execute([&] {
            tbb::parallel_for_each(names, [](const std::string& name) { std::free(fs::read(name.c_str(), nullptr)); });
        });
    };
    const auto loop = [&] { read_in_a_loop(names); };
    paired::compare(state, names.size(), 7, by_tbb, loop);
    compare_processor_time(state, names.size(), by_tbb, loop);
#else
    state.SkipWithError("TBB: not available");
#endif
}
BENCHMARK(ManyFilesByTbb)->Iterations(1)->Unit(benchmark::kMillisecond);

/// The same files in a directory whose pages the system has dropped, by four workers beside the loop.
void ColdFilesBesideALoop(benchmark::State& state) {
    Bed bed({.workers = 4, .no_urgent_lane = true});
    const std::vector<std::string> names = names_of_files();
    const std::filesystem::path folder = bed.folder / "loose";
    std::vector<int> files;
    std::filesystem::create_directories(folder);
    for (const std::string& name : names) {
        const std::string file = (folder / name).generic_string();
        if (!std::filesystem::exists(file)) {
            std::uint64_t size = 0;
            void* const bytes = fs::read(name.c_str(), &size);
            std::ofstream(file, std::ios::binary)
                .write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
            std::free(bytes);
        }
        files.push_back(::open(file.c_str(), O_RDONLY));
        ::fdatasync(files.back());  // what is not on the disk yet is not dropped
    }
    fs::rem_source((bed.folder / "bench.pak").generic_string().c_str());
    fs::add_source(folder.generic_string().c_str(), mount_flags);
    const auto drop = [&] {
        for (const int file : files) ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
    };
    paired::compare_prepared(
        state, names.size(), 7, drop, [&] { load_as_a_batch(names); }, [&] { read_in_a_loop(names); });
    for (const int file : files) ::close(file);
}
BENCHMARK(ColdFilesBesideALoop)->Iterations(1)->Unit(benchmark::kMillisecond);

/// Makes each open of a file of the disk take as long as a disk that was asleep.
class SlowDisk final : public fs::IFsMonitor {
public:
    SlowDisk() { fs::set_monitor(this); }
    ~SlowDisk() { fs::set_monitor(nullptr); }
    void touch_file(const char*, EFSMode::TYPE, FFSOpenFlags::FLAGS) override {
        is_opening = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::atomic<bool> is_opening{false};
};

/// What fs::exists waits while a worker opens a file that takes 50 ms and another thread adds a source.
void ExistsBesideASlowOpen(benchmark::State& state) {
    Bed bed({.workers = 1});
    const std::string added = (bed.folder / "added").generic_string();
    std::filesystem::create_directories(added);
    std::ofstream(bed.folder / "root/slow.bin") << "slow";
    fs::refresh();
    std::vector<double> times;
    for (auto _ : state) {
        for (int round = 0; round < 20; ++round) {
            SlowDisk disk;
            SFsLoad* const load = fs::load_async({.path = "slow.bin"});
            while (!disk.is_opening) std::this_thread::yield();
            std::thread adder([&] { fs::add_source(added.c_str(), mount_flags); });
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            times.push_back(paired::seconds([] { fs::exists("urgent.bin"); }));
            adder.join();
            load->Wait();
            load->Release();
            fs::rem_source(added.c_str());
        }
    }
    report(state, times);
}
BENCHMARK(ExistsBesideASlowOpen)->Iterations(1)->Unit(benchmark::kMillisecond);

std::uint64_t sum(const void* bytes, std::uint64_t size) {
    const auto* const words = static_cast<const std::uint64_t*>(bytes);
    return std::accumulate(words, words + size / sizeof(std::uint64_t), std::uint64_t{0});
}

/// A sum over a stored entry of 64 MiB, shown where it lies, beside reading it.
void ViewBesideRead(benchmark::State& state) {
    Bed bed({});
    std::vector<std::uint64_t> buffer(big_size / sizeof(std::uint64_t));
    std::uint64_t total = 0;
    const auto view = [&] {
        SFsView shown;
        fs::map("stored.bin", shown);
        total += sum(shown.data, shown.size);
        fs::unmap(shown);
    };
    const auto read = [&] {
        fs::read(buffer.data(), "stored.bin", nullptr);
        total += sum(buffer.data(), big_size);
    };
    paired::compare(state, 1, 9, view, read);
    benchmark::DoNotOptimize(total);
    std::vector<double> times;
    for (int i = 0; i < 1000; ++i) {
        times.push_back(paired::seconds([] {
            SFsView shown;
            fs::map("stored.bin", shown);
            fs::unmap(shown);
        }));
    }
    report(state, times);
}
BENCHMARK(ViewBesideRead)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

// The multi-container file: opening, fetching, adding and compacting, beside the bare reads and copies that it cannot do
// without, and beside SQLite.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <engine/filesystem.h>

#include "bench/support/paired.h"
#include "engine/platform/files.h"

#ifdef HAVE_SQLITE
#include <sqlite3.h>
#endif

namespace {

constexpr std::size_t containers = 100;

/// A root directory of its own, mounted for as long as it lives.
struct Bed {
    Bed() : root((std::filesystem::temp_directory_path() / "container_bench").generic_string()) {
        std::filesystem::remove_all(root);
        std::filesystem::create_directories(root);
        fs::init(root.c_str(), FFSAddSourceFlags::NONE, "", false, false, nullptr);
    }
    ~Bed() {
        fs::shutdown();
        std::filesystem::remove_all(root);
    }
    std::string native(const char* name) const { return root + "/" + name; }
    const std::string root;
};

std::vector<std::uint32_t> random_hashes(std::size_t count) {
    std::mt19937 random(11);
    std::vector<std::uint32_t> hashes(count);
    for (std::uint32_t& hash : hashes) hash = random();
    return hashes;
}

std::vector<std::string> container_names() {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < containers; ++i) names.push_back("container" + std::to_string(i));
    return names;
}

void fill(const char* file_name, const std::vector<std::uint32_t>& hashes, std::size_t blob_size) {
    static const std::vector<std::string> names = container_names();
    CFileHashMultiContainer file;
    file.Create(file_name);
    std::string blob(blob_size, 'b');
    for (std::size_t i = 0; i < hashes.size(); ++i) {
        std::memcpy(blob.data(), &hashes[i], sizeof hashes[i]);
        file.Put(names[i % containers].c_str(), hashes[i], blob.data(), blob.size());
    }
    file.Save();
}

void OpeningBesideReadingTheIndex(benchmark::State& state) {
    Bed bed;
    const std::vector<std::uint32_t> hashes = random_hashes(1000000);
    fill("a.mc", hashes, 16);
    constexpr std::uint64_t index_size = 24u * 1000000;
    const std::uint64_t length = std::filesystem::file_size(bed.native("a.mc"));
    const auto ours = [] {
        CFileHashMultiContainer file;
        benchmark::DoNotOptimize(file.Open("a.mc", false));
    };
    const auto theirs = [&] {
        const platform::File file = platform::File::open(bed.native("a.mc").c_str(), {});
        const std::unique_ptr<char[]> bytes(new char[index_size]);
        benchmark::DoNotOptimize(file.read_at(bytes.get(), index_size, length - index_size));
    };
    paired::compare(state, 1, 15, ours, theirs);
}
BENCHMARK(OpeningBesideReadingTheIndex)->Iterations(1)->Unit(benchmark::kMillisecond);

void FetchingBesidePlainReads(benchmark::State& state) {
    Bed bed;
    constexpr std::size_t count = 200000;
    const std::vector<std::uint32_t> hashes = random_hashes(count);
    const std::vector<std::string> names = container_names();
    fill("a.mc", hashes, 1024);
    CFileHashMultiContainer file;
    file.Open("a.mc", false);
    const platform::File plain = platform::File::open(bed.native("a.mc").c_str(), {});
    char blob[1024];
    std::uint64_t size = 0;
    const auto ours = [&] {
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t k = i * 7919 % count;
            if (!file.Fetch(names[k % containers].c_str(), hashes[k], blob, sizeof blob, size)) std::abort();
        }
    };
    const auto theirs = [&] {
        for (std::size_t i = 0; i < count; ++i) plain.read_at(blob, sizeof blob, 192 + i * 7919 % count * sizeof blob);
    };
    paired::compare(state, count, 9, ours, theirs);
}
BENCHMARK(FetchingBesidePlainReads)->Iterations(1)->Unit(benchmark::kMillisecond);

#ifdef HAVE_SQLITE
void add_to_sqlite(const std::string& path, const std::vector<std::uint32_t>& hashes, std::size_t blob_size) {
    std::filesystem::remove(path);
    sqlite3* base = nullptr;
    sqlite3_open(path.c_str(), &base);
    sqlite3_exec(base, "create table blobs(hash integer primary key, blob blob); begin", nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(base, "insert or replace into blobs values(?,?)", -1, &insert, nullptr);
    const std::string blob(blob_size, 'b');
    for (const std::uint32_t hash : hashes) {
        sqlite3_bind_int64(insert, 1, hash);
        sqlite3_bind_blob(insert, 2, blob.data(), static_cast<int>(blob.size()), SQLITE_STATIC);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    sqlite3_exec(base, "commit", nullptr, nullptr, nullptr);
    sqlite3_close(base);
}

void AddingBesideSqlite(benchmark::State& state) {
    Bed bed;
    const std::vector<std::uint32_t> hashes = random_hashes(1000000);
    const auto ours = [&] { fill("a.mc", hashes, 100); };
    const auto theirs = [&] { add_to_sqlite(bed.native("b.db"), hashes, 100); };
    paired::compare(state, hashes.size(), 3, ours, theirs);
    state.counters["our_bytes"] = static_cast<double>(std::filesystem::file_size(bed.native("a.mc")));
    state.counters["their_bytes"] = static_cast<double>(std::filesystem::file_size(bed.native("b.db")));
}
BENCHMARK(AddingBesideSqlite)->Iterations(1)->Unit(benchmark::kMillisecond);
#endif

/// What a compaction cannot do without: the bytes in a new file, and that file on the disk where `is_durable`.
void copy_file(const std::string& from, const std::string& to, bool is_durable) {
    constexpr std::size_t piece = 4u << 20;
    static const std::unique_ptr<char[]> buffer(new char[piece]);
    platform::File source = platform::File::open(from.c_str(), {});
    platform::File target = platform::File::open(
        to.c_str(), {.access = platform::Access::WRITE, .disposition = platform::Disposition::TRUNCATE_OR_CREATE});
    for (std::uint64_t got = piece; got == piece;) {
        got = source.read(buffer.get(), piece);
        if (target.write(buffer.get(), got) != got) std::abort();
    }
    if (is_durable && !target.sync()) std::abort();
}

/// A file in which half of the blobs was replaced by as many: every second one, or the first half in one piece.
void fill_worn(const char* file_name, const std::vector<std::uint32_t>& hashes, bool is_scattered) {
    const std::vector<std::string> names = container_names();
    fill(file_name, hashes, 1024);
    CFileHashMultiContainer file;
    file.Open(file_name, true);
    const std::string blob(1024, 'n');
    const std::size_t end = is_scattered ? hashes.size() : hashes.size() / 2;
    for (std::size_t i = 0; i < end; i += is_scattered ? 2 : 1)
        file.Put(names[i % containers].c_str(), hashes[i], blob.data(), blob.size());
    file.Save();
}

void compact(benchmark::State& state, bool is_scattered, bool is_durable) {
    constexpr int rounds = 7;
    Bed bed;
    const std::vector<std::uint32_t> hashes = random_hashes(200000);
    fill_worn("worn.mc", hashes, is_scattered);
    fill("live.mc", hashes, 1024);
    std::vector<double> ratios;
    std::vector<double> our_times;
    for (auto _ : state) {
        for (int round = -1; round < rounds; ++round) {
            std::filesystem::copy_file(bed.native("worn.mc"), bed.native("a.mc"),
                                       std::filesystem::copy_options::overwrite_existing);
            fs::refresh();
            CFileHashMultiContainer file;
            if (!file.Open("a.mc", true)) std::abort();
            const double their_time =
                paired::seconds([&] { copy_file(bed.native("live.mc"), bed.native("copy.mc"), is_durable); });
            const double our_time = paired::seconds([&] {
                if (!file.Compact()) std::abort();
            });
            std::filesystem::remove(bed.native("copy.mc"));
            if (round < 0) continue;
            ratios.push_back(our_time / their_time);
            our_times.push_back(our_time);
        }
    }
    state.counters["ratio"] = paired::median(ratios);
    state.counters["ours_ms"] = paired::median(our_times) * 1e3;
}

void CompactingBesideCopying(benchmark::State& state) { compact(state, false, true); }
BENCHMARK(CompactingBesideCopying)->Iterations(1)->Unit(benchmark::kMillisecond);

void CompactingScatteredBlobsBesideCopying(benchmark::State& state) { compact(state, true, true); }
BENCHMARK(CompactingScatteredBlobsBesideCopying)->Iterations(1)->Unit(benchmark::kMillisecond);

/// The copy waits for no disk, which a compaction must.
void CompactingBesideCopyingIntoMemory(benchmark::State& state) { compact(state, false, false); }
BENCHMARK(CompactingBesideCopyingIntoMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

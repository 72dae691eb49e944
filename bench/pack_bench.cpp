// Packs beside the least that the same work can cost (a bare walk of the central directory, a hash map, pread with one
// libdeflate or zlib call) and beside PhysicsFS and libzip where they are installed.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <zlib.h>

#include <engine/filesystem/containers/pack_writer.h>
#include <engine/filesystem/sources/pack.h>

#include "bench/support/paired.h"

#if HAVE_PHYSFS
#include <physfs.h>
#endif
#if HAVE_LIBZIP
#include <zip.h>
#endif

namespace {

using Bytes = std::vector<char>;

/// Text-like bytes: words of a small vocabulary.
std::string text_like(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<std::string> words(2000);
    for (std::string& word : words) {
        for (std::uint32_t i = 3 + random() % 7; i > 0; --i) word += static_cast<char>('a' + random() % 26);
    }
    std::string out;
    while (out.size() < size) out += words[std::min(random() % 2000, random() % 2000)] + ' ';
    out.resize(size);
    return out;
}

struct Made {
    std::string name;
    std::string full;  // lower case, as the table holds it
};

/// A directory for the packs, removed at the end.
class Workshop {
public:
    Workshop() : root_(std::filesystem::temp_directory_path() / ("pack_bench_" + std::to_string(getpid()))) {
        std::filesystem::create_directories(root_);
    }
    ~Workshop() { std::filesystem::remove_all(root_); }
    std::string operator/(const char* name) const { return (root_ / name).string(); }

private:
    std::filesystem::path root_;
};
Workshop& workshop() {
    static Workshop one;
    return one;
}

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "pack_bench: %s\n", what);
    std::exit(1);
}

struct Pack {
    std::string path;
    std::vector<std::string> names;
    fs::path mount_path() const { return fs::path(path.c_str(), true); }
    std::unique_ptr<CZip_dir> mount(FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE) const {
        auto source = std::make_unique<CZip_dir>();
        require(source->init(mount_path(), flags, nullptr), "cannot mount");
        return source;
    }
};

enum Layout { MANY_NAMES, ONE_NAME, OWN_DIRECTORIES };

std::string name_in(Layout layout, int i) {
    char name[100];
    if (layout == ONE_NAME) std::snprintf(name, sizeof name, "levels/l%d/data/level.bin", i);
    if (layout == OWN_DIRECTORIES) std::snprintf(name, sizeof name, "assets/d%d/item_%d.dat", i, i);
    if (layout == MANY_NAMES) {
        std::snprintf(name, sizeof name, "data/room%02d/set%04d/model_part_%05d.mesh", i % 1500 / 50, i % 1500, i);
    }
    return name;
}

/// 60,000 entries of 1 to 16 KiB (one byte each in the other layouts).
const Pack& large_pack(Layout layout, int count = 60000) {
    static std::unordered_map<int, Pack> made;
    Pack& pack = made[layout * 1000000 + count];
    if (!pack.path.empty()) return pack;
    pack.path = workshop() / (std::to_string(layout) + "_" + std::to_string(count) + ".pak").c_str();
    std::vector<std::string> blobs;
    std::mt19937 random(5);
    for (std::uint32_t i = 0; i < 200; ++i) blobs.push_back(text_like(1024 + random() % (15 * 1024), i));
    fs::pack_writer writer;
    require(writer.open(pack.path.c_str()), "cannot write");
    for (int i = 0; i < count; ++i) {
        pack.names.push_back(name_in(layout, i));
        const std::string& blob = blobs[random() % blobs.size()];
        const std::size_t size = layout == MANY_NAMES ? blob.size() : 1;
        require(writer.add(pack.names.back().c_str(), blob.data(), size, 6, 0), "cannot add");
    }
    require(writer.finish(), "cannot finish");
    return pack;
}

struct Located {
    std::uint64_t offset;
    std::uint32_t packed;
    std::uint32_t size;
};

std::uint32_t u32(const char* bytes) {
    std::uint32_t value;
    std::memcpy(&value, bytes, 4);
    return value;
}
std::uint16_t u16(const char* bytes) {
    std::uint16_t value;
    std::memcpy(&value, bytes, 2);
    return value;
}

/// One read of the central directory and one step an entry.
std::uint64_t bare_walk(const std::string& path, std::vector<Located>* found = nullptr) {
    const int file = open(path.c_str(), O_RDONLY);
    const auto size = static_cast<std::uint64_t>(lseek(file, 0, SEEK_END));
    char end[22];
    require(pread(file, end, 22, static_cast<off_t>(size - 22)) == 22, "short pack");
    const std::uint64_t start = u32(end + 16);
    Bytes directory(size - start);
    require(pread(file, directory.data(), directory.size(), static_cast<off_t>(start)) > 0, "short directory");
    std::uint64_t sum = 0;
    const char* at = directory.data();
    for (int i = u16(end + 8); i > 0; --i) {
        sum += u32(at + 24) + u32(at + 20) + u32(at + 42);
        const std::uint32_t texts = u16(at + 28);
        if (found) found->push_back({u32(at + 42) + 30ull + texts, u32(at + 20), u32(at + 24)});
        at += 46 + texts + u16(at + 30) + u16(at + 32);
    }
    close(file);
    return sum;
}

void Mount(benchmark::State& state) {
    const Pack& pack = large_pack(static_cast<Layout>(state.range(0)), static_cast<int>(state.range(1)));
    paired::compare(
        state, pack.names.size(), 15, [&] { pack.mount(); }, [&] { benchmark::DoNotOptimize(bare_walk(pack.path)); });
}
BENCHMARK(Mount)
    ->Iterations(1)
    ->Args({MANY_NAMES, 60000})
    ->Args({OWN_DIRECTORIES, 60000})
    ->Args({OWN_DIRECTORIES, 15000})
    ->Args({ONE_NAME, 60000});

void Lookup(benchmark::State& state) {
    const Pack& pack = large_pack(static_cast<Layout>(state.range(0)));
    const auto source = pack.mount();
    std::vector<std::string> names = pack.names;
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
    std::vector<fs::path> paths;
    std::unordered_map<std::string, int> map;
    for (const std::string& name : pack.names) map.emplace(name, 1);
    for (const std::string& name : names) paths.emplace_back(name.c_str(), true);
    std::size_t found = 0;
    paired::compare(
        state, names.size(), 21,
        [&] {
            for (const fs::path& path : paths) found += static_cast<CFSSource&>(*source).exists(path);
        },
        [&] {
            for (const std::string& name : names) found += map.count(name);
        });
    require(found % names.size() == 0, "a name was not found");
}
BENCHMARK(Lookup)->Iterations(1)->Arg(MANY_NAMES)->Arg(OWN_DIRECTORIES)->Arg(ONE_NAME);

std::vector<std::uint32_t> some_entries(std::uint32_t count) {
    std::mt19937 random(9);
    std::vector<std::uint32_t> picked(count);
    for (std::uint32_t& i : picked) i = random() % 60000;
    return picked;
}

std::uint64_t read_small(CZip_dir& source, const std::vector<fs::path>& paths, char* buffer) {
    std::uint64_t bytes = 0;
    for (const fs::path& path : paths) {
        SFsFile* file = source.open_read(path, FFSOpenFlags::NONE);
        bytes += file->read(buffer, file->length());
        fs::close(file);
    }
    return bytes;
}

std::vector<fs::path> paths_of(const Pack& pack, const std::vector<std::uint32_t>& picked) {
    std::vector<fs::path> paths;
    for (const std::uint32_t i : picked) paths.emplace_back(pack.names[i].c_str(), true);
    return paths;
}

void SmallEntries(benchmark::State& state) {
    const Pack& pack = large_pack(MANY_NAMES);
    const auto picked = some_entries(20000);
    const auto paths = paths_of(pack, picked);
    std::vector<Located> all;
    bare_walk(pack.path, &all);
    const auto source = pack.mount();
    Bytes buffer(20000);
    Bytes packed(20000);
    libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
    const int file = open(pack.path.c_str(), O_RDONLY);
    std::uint64_t sums[2] = {};
    paired::compare(
        state, picked.size(), 9, [&] { sums[0] = read_small(*source, paths, buffer.data()); },
        [&] {
            sums[1] = 0;
            for (const std::uint32_t i : picked) {
                require(pread(file, packed.data(), all[i].packed, static_cast<off_t>(all[i].offset)) > 0, "short");
                std::size_t got = 0;
                libdeflate_deflate_decompress(inflater, packed.data(), all[i].packed, buffer.data(), all[i].size, &got);
                sums[1] += got;
            }
        });
    require(sums[0] == sums[1], "bytes differ");
    close(file);
    libdeflate_free_decompressor(inflater);
}
BENCHMARK(SmallEntries)->Iterations(1);

void SmallEntriesTwoThreads(benchmark::State& state) {
    const Pack& pack = large_pack(MANY_NAMES);
    const auto paths = paths_of(pack, some_entries(20000));
    const auto source = pack.mount();
    const auto work = [&](std::uint64_t* bytes) {
        Bytes buffer(20000);
        *bytes = read_small(*source, paths, buffer.data());
    };
    std::uint64_t sums[3] = {};
    paired::compare(
        state, 2 * paths.size(), 9,
        [&] {
            std::thread other(work, &sums[0]);
            work(&sums[1]);
            other.join();
        },
        [&] {
            work(&sums[2]);
            work(&sums[2]);
        });
    require(sums[0] == sums[2] && sums[1] == sums[2], "bytes differ");
}
BENCHMARK(SmallEntriesTwoThreads)->Iterations(1);

struct OneFile {
    Pack pack;
    std::string data;
    std::string packed;
    std::uint64_t offset = 0;
    fs::path name{"dir/entry.bin", true};
};

const OneFile& one_file(std::size_t size, int level, EFSPackMethod::TYPE method = EFSPackMethod::DEFLATE) {
    static std::unordered_map<std::string, OneFile> made;
    const std::string label =
        std::to_string(size) + "_" + std::to_string(level) + "_" + std::to_string(static_cast<int>(method));
    OneFile& one = made[label];
    if (!one.data.empty()) return one;
    one.data = text_like(size, 77);
    one.pack.path = workshop() / ("one" + label + ".pak").c_str();
    one.pack.names = {"dir/entry.bin"};
    fs::pack_writer writer;
    require(writer.open(one.pack.path.c_str()) &&
                writer.add("dir/entry.bin", one.data.data(), size, level, 0, method) && writer.finish(),
            "cannot write");
    std::vector<Located> all;
    bare_walk(one.pack.path, &all);
    one.offset = all[0].offset;
    one.packed.resize(all[0].packed);
    const int file = open(one.pack.path.c_str(), O_RDONLY);
    require(pread(file, one.packed.data(), all[0].packed, static_cast<off_t>(all[0].offset)) > 0, "short");
    close(file);
    return one;
}

constexpr std::size_t four_mib = 4 << 20;

/// Fresh: each read into a new block, as fs::read(path) gives one; else into the same one.
void WholeDeflated(benchmark::State& state) {
    const OneFile& one = one_file(four_mib, 6);
    const auto source = one.pack.mount();
    libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
    const bool fresh = state.range(0) != 0;
    void* kept = std::malloc(four_mib);
    const auto get = [&] { return fresh ? std::malloc(four_mib) : kept; };
    const auto put = [&](void* block) {
        benchmark::DoNotOptimize(block);
        if (fresh) std::free(block);
    };
    paired::compare(
        state, 1, 41,
        [&] {
            SFsFile* file = source->open_read(one.name, FFSOpenFlags::NONE);
            void* block = get();
            require(file->read(block, file->length()) == four_mib, "short read");
            fs::close(file);
            put(block);
        },
        [&] {
            void* block = get();
            std::size_t got = 0;
            libdeflate_deflate_decompress(inflater, one.packed.data(), one.packed.size(), block, four_mib, &got);
            put(block);
        });
    require(std::memcmp(kept, one.data.data(), fresh ? 0 : four_mib) == 0, "bytes differ");
    std::free(kept);
    libdeflate_free_decompressor(inflater);
}
BENCHMARK(WholeDeflated)->Iterations(1)->Arg(0)->Arg(1)->ArgName("fresh");

void inflate_by_blocks(const OneFile& one, std::size_t input_step) {
    static char block[32768];
    z_stream stream{};
    inflateInit2(&stream, -MAX_WBITS);
    int result = Z_OK;
    for (std::size_t at = 0; result == Z_OK;) {
        stream.next_out = reinterpret_cast<Bytef*>(block);
        stream.avail_out = sizeof block;
        while (stream.avail_out != 0 && result == Z_OK) {
            if (stream.avail_in == 0) {
                stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(one.packed.data())) + at;
                stream.avail_in = static_cast<uInt>(std::min(input_step, one.packed.size() - at));
                at += stream.avail_in;
            }
            result = inflate(&stream, Z_SYNC_FLUSH);
        }
        benchmark::DoNotOptimize(block[0]);
    }
    require(stream.total_out == one.data.size(), "zlib gave less");
    inflateEnd(&stream);
}

void SequentialDeflated(benchmark::State& state) {
    const OneFile& one = one_file(four_mib, 6);
    const auto source = one.pack.mount();
    char buffer[4096];
    paired::compare(
        state, 1, 21,
        [&] {
            SFsFile* file = source->open_read(one.name, FFSOpenFlags::NONE);
            std::uint64_t bytes = 0;
            while (const std::uint64_t got = file->read(buffer, sizeof buffer)) bytes += got;
            require(bytes == four_mib, "short read");
            fs::close(file);
        },
        [&] { inflate_by_blocks(one, 16384); });
}
BENCHMARK(SequentialDeflated)->Iterations(1);

void WholeStored(benchmark::State& state) {
    const OneFile& one = one_file(four_mib, 0);
    const auto source = one.pack.mount();
    const int raw = open(one.pack.path.c_str(), O_RDONLY);
    std::string buffer(four_mib, '\0');
    paired::compare(
        state, 1, 41,
        [&] {
            SFsFile* file = source->open_read(one.name, FFSOpenFlags::NONE);
            require(file->read(buffer.data(), four_mib) == four_mib, "short read");
            fs::close(file);
        },
        [&] { require(pread(raw, buffer.data(), four_mib, static_cast<off_t>(one.offset)) > 0, "short"); });
    close(raw);
}
BENCHMARK(WholeStored)->Iterations(1);

// The peers cannot be mounted beside an open pack of ours by name alone, so each takes its turn with the file to itself.

#if HAVE_PHYSFS
struct Physfs {
    explicit Physfs(const std::string& path) {
        require(PHYSFS_init(nullptr) && PHYSFS_mount(path.c_str(), nullptr, 1), "PhysicsFS cannot mount");
    }
    ~Physfs() { PHYSFS_deinit(); }
};

void MountPhysfs(benchmark::State& state) {
    const Pack& pack = large_pack(MANY_NAMES);
    paired::compare(
        state, 1, 3, [&] { pack.mount(); }, [&] { Physfs mounted(pack.path); });
}
BENCHMARK(MountPhysfs)->Iterations(1);

void LookupPhysfs(benchmark::State& state) {
    const Pack& pack = large_pack(MANY_NAMES);
    const Physfs mounted(pack.path);
    const auto source = pack.mount();
    const auto paths = paths_of(pack, some_entries(20000));
    const auto picked = some_entries(20000);
    std::size_t found = 0;
    paired::compare(
        state, picked.size(), 9,
        [&] {
            for (const fs::path& path : paths) found += source->exists(path);
        },
        [&] {
            for (const std::uint32_t i : picked) found += PHYSFS_exists(pack.names[i].c_str()) != 0;
        });
    require(found % picked.size() == 0, "a name was not found");
}
BENCHMARK(LookupPhysfs)->Iterations(1);

void SmallEntriesPhysfs(benchmark::State& state) {
    const Pack& pack = large_pack(MANY_NAMES);
    const Physfs mounted(pack.path);
    const auto source = pack.mount();
    const auto picked = some_entries(20000);
    const auto paths = paths_of(pack, picked);
    Bytes buffer(20000);
    paired::compare(
        state, picked.size(), 5, [&] { read_small(*source, paths, buffer.data()); },
        [&] {
            for (const std::uint32_t i : picked) {
                PHYSFS_File* file = PHYSFS_openRead(pack.names[i].c_str());
                PHYSFS_readBytes(file, buffer.data(), static_cast<PHYSFS_uint64>(PHYSFS_fileLength(file)));
                PHYSFS_close(file);
            }
        });
}
BENCHMARK(SmallEntriesPhysfs)->Iterations(1);

void SequentialDeflatedPhysfs(benchmark::State& state) {
    const OneFile& one = one_file(four_mib, 6);
    const Physfs mounted(one.pack.path);
    const auto source = one.pack.mount();
    char buffer[4096];
    paired::compare(
        state, 1, 15,
        [&] {
            SFsFile* file = source->open_read(one.name, FFSOpenFlags::NONE);
            while (file->read(buffer, sizeof buffer) != 0) benchmark::DoNotOptimize(buffer[0]);
            fs::close(file);
        },
        [&] {
            PHYSFS_File* file = PHYSFS_openRead("dir/entry.bin");
            while (PHYSFS_readBytes(file, buffer, sizeof buffer) > 0) benchmark::DoNotOptimize(buffer[0]);
            PHYSFS_close(file);
        });
}
BENCHMARK(SequentialDeflatedPhysfs)->Iterations(1);
#endif

void RandomSeeks(benchmark::State& state) {
    const OneFile& one = one_file(64 << 20, 6);
    const auto source = one.pack.mount();
    std::mt19937 random(3);
    std::vector<std::uint32_t> places(200);
    for (std::uint32_t& place : places) place = random() % ((64 << 20) - 4096);
    char buffer[4096];
    const auto ours = [&] {
        SFsFile* file = source->open_read(one.name, FFSOpenFlags::NONE);
        for (const std::uint32_t place : places) {
            file->seek(place, EFSSeek::BEGIN);
            file->read(buffer, sizeof buffer);
        }
        fs::close(file);
    };
    state.counters["first_ms"] = 1e3 * paired::seconds(ours) / 200;
#if HAVE_PHYSFS
    const Physfs mounted(one.pack.path);
    paired::compare(state, places.size(), 1, ours, [&] {
        PHYSFS_File* file = PHYSFS_openRead("dir/entry.bin");
        for (const std::uint32_t place : places) {
            PHYSFS_seek(file, place);
            PHYSFS_readBytes(file, buffer, sizeof buffer);
        }
        PHYSFS_close(file);
    });
#else
    for (auto _ : state) ours();
#endif
}
BENCHMARK(RandomSeeks)->Iterations(1);

/// The same seeks, zstd beside deflate.
void RandomSeeksZstd(benchmark::State& state) {
    const OneFile& zstd = one_file(64 << 20, 9, EFSPackMethod::ZSTD);
    const OneFile& deflated = one_file(64 << 20, 6);
    std::mt19937 random(3);
    std::vector<std::uint32_t> places(200);
    for (std::uint32_t& place : places) place = random() % ((64 << 20) - 4096);
    char buffer[4096];
    const auto seek_in = [&](const OneFile& one) {
        const auto source = one.pack.mount();
        SFsFile* file = source->open_read(one.name, FFSOpenFlags::NONE);
        for (const std::uint32_t place : places) {
            file->seek(place, EFSSeek::BEGIN);
            require(file->read(buffer, sizeof buffer) == sizeof buffer, "short read");
        }
        fs::close(file);
    };
    paired::compare(
        state, places.size(), 3, [&] { seek_in(zstd); }, [&] { seek_in(deflated); });
}
BENCHMARK(RandomSeeksZstd)->Iterations(1);

/// 4,000 assets, texts, half-random tables and bytes that no method shrinks, of 1 to 128 KiB: zstd 9 beside deflate 6.
void MixedAssetsZstd(benchmark::State& state) {
    Pack packs[2];
    std::mt19937 random(11);
    std::vector<std::string> bodies;
    for (std::uint32_t i = 0; i < 400; ++i) {
        std::string body = text_like(1024 + random() % (127 * 1024), i);
        if (i % 4 == 1) {
            for (char& byte : body) byte = static_cast<char>(random() % 64);
        }
        if (i % 4 == 2) {
            for (std::size_t at = 0; at < body.size(); at += 4) body[at] = static_cast<char>(random());
        }
        bodies.push_back(std::move(body));
    }
    for (const int zstd : {0, 1}) {
        Pack& pack = packs[zstd];
        pack.path = workshop() / (zstd != 0 ? "assets_zstd.pak" : "assets_deflate.pak");
        fs::pack_writer writer;
        require(writer.open(pack.path.c_str()), "cannot write");
        for (int i = 0; i < 4000; ++i) {
            const std::string& body = bodies[static_cast<std::size_t>(i) % bodies.size()];
            pack.names.push_back("assets/" + std::to_string(i));
            require(writer.add(pack.names.back().c_str(), body.data(), body.size(), zstd != 0 ? 9 : 6, 0,
                               zstd != 0 ? EFSPackMethod::ZSTD : EFSPackMethod::DEFLATE),
                    "cannot add");
        }
        require(writer.finish(), "cannot finish");
    }
    const auto size_of = [](const Pack& pack) { return static_cast<double>(std::filesystem::file_size(pack.path)); };
    state.counters["size"] = size_of(packs[1]) / size_of(packs[0]);
    std::vector<std::uint32_t> all(4000);
    for (std::uint32_t i = 0; i < all.size(); ++i) all[i] = i;
    Bytes buffer(128 * 1024);
    const auto load = [&](const Pack& pack) {
        static std::unordered_map<std::string, std::unique_ptr<CZip_dir>> mounted;
        auto& source = mounted[pack.path];
        if (!source) source = pack.mount();
        read_small(*source, paths_of(pack, all), buffer.data());
    };
    paired::compare(
        state, all.size(), 5, [&] { load(packs[1]); }, [&] { load(packs[0]); });
}
BENCHMARK(MixedAssetsZstd)->Iterations(1);

/// Entries packed by two threads, a packer each, beside one.
void PackTwoThreads(benchmark::State& state) {
    const SFsPacking how{.method = state.range(0) != 0 ? EFSPackMethod::ZSTD : EFSPackMethod::DEFLATE, .level = 6};
    std::vector<std::string> bodies;
    for (std::uint32_t i = 0; i < 200; ++i) bodies.push_back(text_like(64 * 1024, i));
    const auto pack_half = [&](std::size_t first) {
        fs::entry_packer packer;
        SFsPackedEntry entry;
        for (std::size_t i = first; i < bodies.size(); i += 2)
            require(packer.pack(bodies[i].data(), bodies[i].size(), how, entry), "cannot pack");
    };
    paired::compare(
        state, bodies.size(), 9,
        [&] {
            std::thread other(pack_half, 1);
            pack_half(0);
            other.join();
        },
        [&] {
            pack_half(0);
            pack_half(1);
        });
}
BENCHMARK(PackTwoThreads)->Iterations(1)->Arg(0)->Arg(1)->ArgName("zstd");

#if HAVE_LIBZIP
void MountLibzip(benchmark::State& state) {
    const Pack& pack = large_pack(MANY_NAMES);
    paired::compare(
        state, 1, 5, [&] { pack.mount(); },
        [&] {
            zip_t* zip = zip_open(pack.path.c_str(), ZIP_RDONLY, nullptr);
            benchmark::DoNotOptimize(zip_name_locate(zip, pack.names[0].c_str(), 0));
            zip_close(zip);
        });
}
BENCHMARK(MountLibzip)->Iterations(1);

void SmallEntriesLibzip(benchmark::State& state) {
    const Pack& pack = large_pack(MANY_NAMES);
    const auto picked = some_entries(20000);
    const auto paths = paths_of(pack, picked);
    Bytes buffer(20000);
    zip_t* zip = zip_open(pack.path.c_str(), ZIP_RDONLY, nullptr);
    const auto source = pack.mount();
    paired::compare(
        state, picked.size(), 5, [&] { read_small(*source, paths, buffer.data()); },
        [&] {
            for (const std::uint32_t i : picked) {
                zip_file_t* file = zip_fopen(zip, pack.names[i].c_str(), 0);
                zip_fread(file, buffer.data(), buffer.size());
                zip_fclose(file);
            }
        });
    zip_close(zip);
}
BENCHMARK(SmallEntriesLibzip)->Iterations(1);
#endif

}  // namespace

BENCHMARK_MAIN();

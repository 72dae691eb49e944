// The asynchronous read queue: many queued reads beside a plain loop of reads, the latency of one beside a hand-over
// between two threads, and what queueing and cancelling cost at depth.
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include <engine/filesystem/handles.h>
#include <engine/kernel/multithreading.h>

#include "bench/support/paired.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/platform/files.h"

namespace {

constexpr std::size_t depth = 100000;
constexpr std::uint64_t piece = 4096;
constexpr std::uint64_t pieces = 16384;

std::uint64_t offset_of(std::size_t i) { return i * 7919 % pieces * piece; }

/// A file in the page cache, the queue, an open handle and a request for every read.
struct Bed {
    Bed() : path((std::filesystem::temp_directory_path() / "read_queue_bench.bin").generic_string()) {
        std::ofstream(path, std::ios::binary) << std::string(piece * pieces, 'x');
        fs::start_queues();
        file.reset(fs::open_native(nullptr, path.c_str(), EFSMode::READ, FFSOpenFlags::ASYNC));
        plain = platform::File::open(path.c_str(), {});
        for (std::size_t i = 0; i < depth; ++i) requests.push_back(SFsRequest::Create(nullptr, nullptr));
    }
    ~Bed() {
        for (SFsRequest* const request : requests) request->Release();
        file.reset();
        plain.close();
        fs::stop_queues();
        std::filesystem::remove(path);
    }
    bool queue(std::size_t i, std::uint32_t priority) {
        return file->read_async(buffer, offset_of(i), piece, requests[i], priority);
    }

    struct Close {
        void operator()(SFsFile* open) const { fs::close(open); }
    };
    const std::string path;
    std::unique_ptr<SFsFile, Close> file;
    platform::File plain;
    std::vector<SFsRequest*> requests;
    char buffer[piece];
};

void QueuedReadsBesidePlainOnes(benchmark::State& state) {
    Bed bed;
    const auto queued = [&bed] {
        for (std::size_t i = 0; i < depth; ++i) bed.queue(i, 0);
        for (SFsRequest* const request : bed.requests) request->Wait();
    };
    const auto plain = [&bed] {
        for (std::size_t i = 0; i < depth; ++i) bed.plain.read_at(bed.buffer, piece, offset_of(i));
    };
    paired::compare(state, depth, 9, queued, plain);
}
BENCHMARK(QueuedReadsBesidePlainOnes)->Iterations(1)->Unit(benchmark::kMillisecond);

void LatencyBesideASemaphoreHandOver(benchmark::State& state) {
    Bed bed;
    constexpr std::size_t rounds = 2000;
    const auto reads = [&bed] {
        for (std::size_t i = 0; i < rounds; ++i) {
            bed.queue(0, 0);
            bed.requests[0]->Wait();
        }
    };
    mt::CSemaphore there(0, 10);
    mt::CSemaphore back(0, 10);
    const auto hand_over = [&] {
        std::thread other([&] {
            for (std::size_t i = 0; i < rounds; ++i) {
                there.Wait();
                back.Release();
            }
        });
        for (std::size_t i = 0; i < rounds; ++i) {
            there.Release();
            back.Wait();
        }
        other.join();
    };
    paired::compare(state, rounds, 9, reads, hand_over);
}
BENCHMARK(LatencyBesideASemaphoreHandOver)->Iterations(1)->Unit(benchmark::kMillisecond);

/// What anybody would write first: a deque under a mutex, with a condition variable, and the read's event reset.
double plain_queueing(const Bed& bed) {
    struct Item {
        SFsFile* file;
        void* buffer;
        std::uint64_t offset, size;
        SFsRequest* request;
    };
    std::mutex lock;
    std::condition_variable changed;
    std::deque<Item> items;
    return paired::seconds([&] {
        for (std::size_t i = 0; i < depth; ++i) {
            bed.requests[i]->AddRef();
            {
                const std::lock_guard guard(lock);
                items.push_back({bed.file.get(), nullptr, offset_of(i), piece, bed.requests[i]});
            }
            changed.notify_one();
        }
        for (const Item& item : items) item.request->Release();
    });
}

/// Queueing and cancelling while the worker is held; the argument is how many priorities are mixed.
void QueueAndCancelAtDepth(benchmark::State& state) {
    Bed bed;
    mt::CEvent gate(true);
    const auto wait = [](SFsRequest*, void* user) { static_cast<mt::CEvent*>(user)->Wait(); };
    SFsRequest* const held = SFsRequest::Create(wait, &gate);
    bed.file->read_async(bed.buffer, 0, 1, held, 1u << 30);
    const auto mix = static_cast<std::size_t>(state.range(0));
    std::vector<double> queueing, cancelling, plain;
    for (auto _ : state) {
        for (int round = 0; round < 5; ++round) {
            queueing.push_back(paired::seconds([&] {
                for (std::size_t i = 0; i < depth; ++i) bed.queue(i, static_cast<std::uint32_t>(i * 7919 % mix));
            }));
            cancelling.push_back(paired::seconds([&] {
                for (std::size_t i = 0; i < depth; ++i) bed.file->cancel_async(bed.requests[i * 7919 % depth]);
            }));
            plain.push_back(plain_queueing(bed));
        }
    }
    state.counters["queue_ns"] = paired::median(queueing) * 1e9 / depth;
    state.counters["cancel_ns"] = paired::median(cancelling) * 1e9 / depth;
    state.counters["deque_ns"] = paired::median(plain) * 1e9 / depth;
    gate.Set();
    held->Wait();
    held->Release();
}
BENCHMARK(QueueAndCancelAtDepth)->Arg(1)->Arg(17)->Arg(1000)->Iterations(1)->ArgName("priorities");

}  // namespace

BENCHMARK_MAIN();

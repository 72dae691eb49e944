#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <engine/filesystem/containers.h>

/// A file on its way into a pack.
struct PackedFile {
    std::string error;          // not "": why it cannot be packed
    std::vector<char> plain{};  // kept only when the writer is to pack or store it
    std::vector<char> packed{};
    std::uint64_t size = 0;
    std::uint32_t crc = 0;
    std::int64_t time = 0;
    bool deflated = false;
    EFSPackMethod::TYPE method = EFSPackMethod::STORE;  // of what is not deflated
};

/// How a file is packed.
struct PackPlan {
    EFSPackMethod::TYPE method = EFSPackMethod::DEFLATE;
    int level = 6;  // 0: stored
    int worth = 3;  // percent that packing must save, or the file goes in as a deflate stream that only copies
};

/// Reads and deflates files on every core that gives a thread, and hands them out in their order. What is finished or under way is bounded.
class Compressor {
public:
    /// `load` fills plain, size and time of one file, or its error; it is called from several threads. `plan_of` says
    /// how a file is packed; the writer does what zstd packs.
    using Load = std::function<void(std::size_t index, PackedFile& file)>;
    using PlanOf = std::function<PackPlan(std::size_t index)>;
    Compressor(std::size_t count, Load load, PlanOf plan_of);
    ~Compressor();
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;

    /// Waits for file `index` and takes it; called once for each, in ascending order.
    PackedFile take(std::size_t index);

private:
    void work();
    PackedFile make(std::size_t index) const;
    bool next_index(std::size_t& index);

    const std::size_t count_;
    const Load load_;
    const PlanOf plan_of_;
    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    std::vector<PackedFile> files_;
    std::vector<bool> ready_;
    std::size_t next_ = 0;    // the first file that nobody works on
    std::size_t taken_ = 0;   // files handed out
    std::uint64_t held_ = 0;  // bytes of finished files that were not taken
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

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
    std::string error;  // not "": why it cannot be packed
    SFsPackedEntry entry{};
    std::int64_t time = 0;
};

/// Packs files on every core that gives a thread, and hands them out in their order. What is finished or under way is bounded.
class Compressor {
public:
    /// Makes one file; called from several threads, which have a packer each.
    using Make = std::function<PackedFile(std::size_t index, fs::entry_packer& packer)>;

    Compressor(std::size_t count, Make make);
    ~Compressor();
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;

    /// Waits for file `index` and takes it; called once for each, in ascending order.
    PackedFile take(std::size_t index);

private:
    void work();
    bool next_index(std::size_t& index);

    const std::size_t count_;
    const Make make_;
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

#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <engine/filesystem/pack_reader.h>

#include "block_cache.h"
#include "connection.h"

namespace fs::http {

/// A pack on a server, read through its cache of blocks. What is missing is fetched by workers, each with a connection of
/// its own; readers wait until their blocks are there.
class RemotePack final : public pack_reader {
public:
    RemotePack(std::string url, std::string cache_dir, options how);

    std::uint64_t length() override;
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override;
    fs::string last_failure() override;
    void prefetch(std::uint64_t offset, std::uint64_t size) override;
    void release() noexcept override { delete this; }

private:
    /// Blocks that are to be fetched by one request, or are being fetched.
    struct Job {
        std::uint64_t first;
        std::uint64_t end;
        bool is_urgent = false;  // somebody waits for it
        bool is_taken = false;   // by a worker
        bool is_done = false;
        std::string failure{};
    };
    using JobPtr = std::shared_ptr<Job>;
    /// A place where somebody reads on.
    struct Stream {
        std::uint64_t next = 0;   // the block behind the latest read
        std::uint64_t ahead = 0;  // the block behind those that were asked for
        std::uint64_t window = 0;
        unsigned advances = 0;
        std::uint64_t used = 0;  // when, by counting
    };
    class BlockSink;
    class TailSink;

    ~RemotePack();
    bool connect();
    bool load_directory(const std::string& tail);
    Result fetch(Connection& connection, Range range, Receiver& receiver, const std::uint64_t& progress);
    bool wait_before_retry(unsigned failures, std::uint32_t wished_seconds);

    bool load(std::uint64_t first, std::uint64_t end);
    JobPtr job_of(std::uint64_t block);
    void queue(std::uint64_t first, std::uint64_t end, bool is_urgent);
    void read_ahead(std::uint64_t first, std::uint64_t end);
    void work();
    void run(Connection& connection, Job& job);

    const std::string url_;
    const std::string cache_dir_;
    const options how_;
    Version version_;
    BlockCache cache_;
    std::unique_ptr<Connection> first_connection_;  // which mounted, for the first worker
    std::atomic<bool> stopping_{false};
    std::mutex lock_;  // guards what follows
    std::condition_variable changed_;
    std::list<JobPtr> jobs_;
    std::vector<std::thread> workers_;
    std::size_t idle_ = 0;
    std::string broken_;  // why nothing can be fetched any more; "" while it can
    std::vector<Stream> streams_;
    std::uint64_t uses_ = 0;
};

}  // namespace fs::http

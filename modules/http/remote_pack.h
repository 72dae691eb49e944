#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
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
    /// `url` is encoded, and "" when it is none of http or https; `kept_name` is that of the file of blocks.
    RemotePack(std::string url, std::string cache_dir, std::string kept_name, options how);

    std::uint64_t length() override;
    std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) override;
    fs::string last_failure() override;
    void prefetch(std::uint64_t offset, std::uint64_t size) override;
    void release() noexcept override { delete this; }

private:
    /// Blocks that one request will fetch.
    struct Job {
        std::uint64_t first;
        std::uint64_t end;
    };
    /// A place where somebody reads on, in blocks.
    struct Stream {
        std::uint64_t start = 0;
        std::uint64_t next = 0;   // behind the latest read
        std::uint64_t ahead = 0;  // behind those that were asked for
    };
    class BlockSink;

    ~RemotePack();
    bool connect();
    bool load_directory(const std::string& tail);
    Result retry(const std::function<Result(bool& has_advanced)>& attempt);
    bool wait_before_retry(unsigned failures, std::uint32_t wished_seconds);

    bool load(std::uint64_t first, std::uint64_t end);
    void want(std::uint64_t first, std::uint64_t end);
    void queue(std::uint64_t first, std::uint64_t needed, std::uint64_t end);
    void start_worker();
    void work(std::unique_ptr<Connection> connection);
    Result run(Connection& connection, Job& job);

    const std::string url_;
    const std::string cache_dir_;
    const std::string kept_name_;
    const options how_;
    Version version_;
    BlockCache cache_;
    std::atomic<bool> stopping_{false};
    std::mutex lock_;                // guards what follows
    std::condition_variable asked_;  // for jobs, or to stop
    std::condition_variable came_;   // a block, or the end of a job
    std::list<Job> jobs_;            // which no worker has taken yet
    std::vector<bool> is_coming_;    // blocks that somebody has asked for
    std::vector<std::thread> workers_;
    std::size_t idle_ = 0;
    bool is_broken_ = false;                                             // nothing can be fetched any more
    std::string failure_ = "the file of fetched blocks cannot be read";  // why the latest fetch failed
    std::array<Stream, 16> streams_{};                                   // where somebody read on, the latest first
};

}  // namespace fs::http

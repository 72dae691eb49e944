#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem_http.h>

#include "block_cache.h"
#include "connection.h"

namespace fs::http {

namespace {

constexpr std::uint64_t block_size = BlockCache::block_size;
constexpr std::uint64_t failed = ~std::uint64_t{0};
constexpr std::uint64_t end_record_size = 22;
constexpr std::uint64_t longest_pack = 0x200000000;         // entries and directory, each of 32 bits
constexpr std::uint64_t most_directory = 64 * 1024 * 1024;  // what claims more is read as it is walked
constexpr std::uint64_t blocks_a_request = 64;              // of those that are read ahead
constexpr std::uint64_t most_ahead = 256;
constexpr std::uint64_t ahead_of_read = 16;  // blocks for each that was read in a row
constexpr std::uint64_t start_counts = 3;    // blocks more: so much comes while the next connections are made
constexpr std::uint64_t most_prefetched = 16;

thread_local std::string failure;  // of this thread's latest call

/// A pack on a server, read through its cache of blocks. What is missing is fetched by workers, each with a connection of
/// its own; readers wait until their blocks are there.
class RemotePack final : public pack_reader {
public:
    RemotePack(const std::string& url, std::string cache_dir, options how)
        : url_(encoded_url(url)),
          cache_dir_(std::move(cache_dir)),
          whose_(how.name.empty() ? url : how.name),
          how_(std::move(how)) {}

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

    const std::string url_;  // "" when it is none of http or https
    const std::string cache_dir_;
    const std::string whose_;  // the kept blocks are
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

/// Puts whole blocks into the cache as they come; what there is of one when a transfer ends is dropped.
class RemotePack::BlockSink {
public:
    BlockSink(RemotePack& pack, Job& job) : pack_(pack), job_(job) {}

    void take(const char* bytes, std::size_t size) {
        while (size != 0) {
            const std::uint64_t wanted = pack_.cache_.size_of(job_.first);
            const std::size_t part = std::min<std::size_t>(size, wanted - bytes_.size());
            bytes_.append(bytes, part);
            if (bytes_.size() != wanted) return;
            pack_.cache_.put(job_.first, bytes_.data());
            bytes += part;
            size -= part;
            bytes_.clear();
            const std::lock_guard guard(pack_.lock_);
            pack_.is_coming_[job_.first++] = false;
            pack_.came_.notify_all();
        }
    }

private:
    RemotePack& pack_;
    Job& job_;
    std::string bytes_;
};

RemotePack::~RemotePack() {
    {
        const std::lock_guard guard(lock_);
        stopping_ = true;
    }
    asked_.notify_all();
    for (std::thread& worker : workers_) worker.join();
}

fs::string RemotePack::last_failure() { return failure; }

std::uint64_t RemotePack::length() {
    failure.clear();
    if (url_.empty()) return failure = "its URL is none of http or https", failed;
    return connect() ? version_.size : failed;
}

/// Asks for the end of the file, and for what is missing of the directory that it tells of.
bool RemotePack::connect() {
    cache_.open(cache_dir_, whose_);
    auto connection = std::make_unique<Connection>(url_, how_, stopping_);
    const std::uint64_t wanted = cache_.is_kept() ? end_record_size : std::max(how_.first_bytes, end_record_size);
    std::string tail;
    const Result result = retry([&](bool& /*has_advanced*/) {
        tail.clear();
        return connection->fetch({.size = wanted},
                                 [&](const char* bytes, std::size_t size) { tail.append(bytes, size); });
    });
    if (result.outcome != Outcome::DONE) return failure = result.reason, false;
    if (result.version.size > longest_pack) return failure = "the file is longer than any pack", false;
    version_ = result.version;
    cache_.accept(version_);
    is_coming_.assign(cache_.blocks(), false);
    workers_.emplace_back([this, first = std::move(connection)]() mutable { work(std::move(first)); });
    return load_directory(tail);
}

bool RemotePack::load_directory(const std::string& tail) {
    const std::uint64_t first = version_.size - tail.size();
    for (std::uint64_t block = (first + block_size - 1) / block_size; block < cache_.blocks(); ++block) {
        if (!cache_.has(block)) cache_.put(block, tail.data() + (block * block_size - first));
    }
    if (tail.size() < end_record_size) return true;
    const std::size_t record = tail.size() - end_record_size;
    const std::uint64_t size = load_u32(&tail[record + 12]);
    const std::uint64_t offset = load_u32(&tail[record + 16]);
    if (size > most_directory || offset >= version_.size || version_.size - offset > most_directory) return true;
    return load(offset / block_size, cache_.blocks());
}

/// Tries again what may pass. A try that advanced brought something, and those after it are counted anew.
Result RemotePack::retry(const std::function<Result(bool& has_advanced)>& attempt) {
    for (unsigned failures = 0;;) {
        bool has_advanced = false;
        Result result = attempt(has_advanced);
        if (result.outcome != Outcome::MAY_PASS) return result;
        failures = has_advanced ? 1 : failures + 1;
        if (failures > how_.retries || !wait_before_retry(failures, result.wait_seconds)) return result;
    }
}

/// False when the pack is given up meanwhile. The wait doubles, and is not the same for all who wait.
bool RemotePack::wait_before_retry(unsigned failures, std::uint32_t wished_seconds) {
    const auto now = std::chrono::steady_clock::now();
    std::minstd_rand random(static_cast<std::uint_fast32_t>(now.time_since_epoch().count()));
    const std::uint64_t doubled = std::uint64_t{100} << std::min(failures - 1, 10u);
    const std::uint64_t wait = std::min<std::uint64_t>(
        std::max<std::uint64_t>(doubled + random() % doubled, wished_seconds * std::uint64_t{1000}),
        how_.longest_wait_ms);
    std::unique_lock guard(lock_);
    return !asked_.wait_until(guard, now + std::chrono::milliseconds(wait), [this] { return stopping_.load(); });
}

std::int64_t RemotePack::read_at(std::uint64_t offset, void* to, std::uint64_t size) {
    failure.clear();
    const std::uint64_t first = offset / block_size;
    const std::uint64_t end = (offset + size + block_size - 1) / block_size;
    want(first, end);
    // What the cache has it may lose, when the disk fails; what was fetched again it has in memory.
    for (unsigned tries = 0; tries < 3; ++tries) {
        if (!load(first, end)) return -1;
        if (cache_.read(offset, static_cast<char*>(to), size)) return static_cast<std::int64_t>(size);
    }
    failure = "the file of fetched blocks cannot be read";
    return -1;
}

void RemotePack::prefetch(std::uint64_t offset, std::uint64_t size) {
    const std::uint64_t first = offset / block_size;
    want(first, std::min((offset + size + block_size - 1) / block_size, first + most_prefetched));
}

/// Waits until the cache has these blocks.
bool RemotePack::load(std::uint64_t first, std::uint64_t end) {
    for (std::uint64_t block = first; block < end; ++block) {
        for (bool is_asked = false; !cache_.has(block); is_asked = true) {
            std::unique_lock guard(lock_);
            if (!is_coming_[block] && (is_asked || is_broken_)) return failure = failure_, false;
            queue(block, end, end);
            const auto holds = [block](const Job& job) { return block >= job.first && block < job.end; };
            const auto job = std::ranges::find_if(jobs_, holds);
            if (job != jobs_.end()) jobs_.splice(jobs_.begin(), jobs_, job);
            came_.wait(guard, [&] { return !is_coming_[block]; });
        }
    }
    return true;
}

/// Makes jobs of those blocks that are neither there nor on their way, the first of them `needed` ones. With the lock held.
void RemotePack::queue(std::uint64_t first, std::uint64_t needed, std::uint64_t end) {
    const auto is_wanted = [this](std::uint64_t block) { return !is_coming_[block] && !cache_.may_have(block); };
    end = std::min(end, cache_.blocks());
    while (first < end && !is_broken_) {
        if (!is_wanted(first)) {
            ++first;
            continue;
        }
        const std::uint64_t most = std::min(end, std::max(needed, first + blocks_a_request));
        Job job{.first = first, .end = first};
        while (job.end < most && is_wanted(job.end)) ++job.end;
        jobs_.insert(first < needed ? jobs_.begin() : jobs_.end(), job);
        for (; first < job.end; ++first) is_coming_[first] = true;
        asked_.notify_all();
        if (jobs_.size() > idle_ && workers_.size() < std::clamp(how_.connections, 1u, 32u)) start_worker();
    }
}

/// There is one at least since the mount, so that those who wait are served even when no more can be started.
void RemotePack::start_worker() try {
    workers_.emplace_back([this] { work(nullptr); });
} catch (const std::exception&) {
}

/// Asks for blocks that somebody needs, and for what comes next once they go on from those that were read before: ever
/// more, up to 16 MiB. Whoever begins at the start of the pack is taken to go on.
void RemotePack::want(std::uint64_t first, std::uint64_t end) {
    const std::lock_guard guard(lock_);
    const auto covers = [&](const Stream& stream) { return first >= stream.start && first <= stream.next; };
    auto stream = std::ranges::find_if(streams_, covers);
    if (stream == streams_.end()) *--stream = {.start = first, .next = end, .ahead = end};
    std::rotate(streams_.begin(), stream, stream + 1);  // the latest comes first, the last is forgotten
    Stream& here = streams_.front();
    const bool goes_on = end > here.next && (first > here.start || first == 0);
    here.next = std::max(here.next, end);
    const std::uint64_t read = here.next - here.start + (first == 0 ? start_counts : 0);
    const std::uint64_t window = std::min(read * ahead_of_read, most_ahead);
    if (goes_on && here.ahead < here.next + window / 2) here.ahead = here.next + window;
    queue(first, end, std::max(end, here.ahead));
}

/// What a worker does: one job after the other, what is needed before what is read ahead.
void RemotePack::work(std::unique_ptr<Connection> connection) {
    std::unique_lock guard(lock_);
    for (;;) {
        ++idle_;
        asked_.wait(guard, [this] { return stopping_ || !jobs_.empty(); });
        --idle_;
        if (stopping_) return;
        Job job = jobs_.front();
        jobs_.pop_front();
        guard.unlock();
        Result result;
        try {
            if (!connection) connection = std::make_unique<Connection>(url_, how_, stopping_);
            result = run(*connection, job);
        } catch (const std::bad_alloc&) {
            result = {.outcome = Outcome::FAILED, .reason = "no memory"};  // which takes none itself
        }
        guard.lock();
        if (result.outcome == Outcome::CHANGED) is_broken_ = true;
        if (result.outcome != Outcome::DONE) failure_ = std::move(result.reason);
        while (job.first < job.end) is_coming_[job.first++] = false;
        came_.notify_all();
    }
}

/// Fetches a job's blocks; `job` is left with those that did not come.
Result RemotePack::run(Connection& connection, Job& job) {
    return retry([&](bool& has_advanced) {
        const std::uint64_t first = job.first;
        const std::uint64_t last = std::min(job.end * block_size, version_.size);
        BlockSink sink(*this, job);
        const Range range{.first = first * block_size, .size = last - first * block_size, .known = &version_};
        Result result = connection.fetch(range, [&](const char* bytes, std::size_t size) { sink.take(bytes, size); });
        has_advanced = job.first != first;
        return job.first != job.end ? result : Result{};
    });
}

/// What is mounted when there is no memory for a pack, so that the reason is told as any other.
class NoMemory final : public pack_reader {
public:
    std::uint64_t length() override { throw std::bad_alloc(); }
    std::int64_t read_at(std::uint64_t, void*, std::uint64_t) override { return -1; }
};

}  // namespace

fs::string source_name(const char* url) { return shown_url(url ? url : ""); }

bool add_pack(const char* url, const char* cache_dir, const options& how) {
    try {
        const std::string address(url ? url : "");
        std::string name = how.name.empty() ? shown_url(address) : how.name;
        if (name.empty()) name = "(no URL)";
        return add_pack_reader(name.c_str(), *new RemotePack(address, cache_dir ? cache_dir : "", how), how.flags);
    } catch (const std::bad_alloc&) {
        static NoMemory reader;
        return add_pack_reader("(no memory)", reader);
    }
}

}  // namespace fs::http

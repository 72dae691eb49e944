#include "remote_pack.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <utility>

#include "bytes.h"
#include "url.h"

namespace fs::http {

namespace {

constexpr std::uint64_t block_size = BlockCache::block_size;
constexpr std::uint64_t failed = ~std::uint64_t{0};
constexpr std::uint64_t end_record_size = 22;
constexpr std::uint64_t most_directory = 64 * 1024 * 1024;  // what claims more is read as it is walked
constexpr std::uint64_t blocks_a_request = 64;
constexpr std::uint64_t most_ahead = 256;
constexpr std::uint64_t most_prefetched = 16;
constexpr std::size_t most_streams = 16;
constexpr unsigned advances_before_reading_ahead = 3;  // an entry of a few blocks is no sequence yet

thread_local std::string failure;  // of this thread's latest call

}  // namespace

/// Puts whole blocks into the cache as they come.
class RemotePack::BlockSink final : public Receiver {
public:
    BlockSink(RemotePack& pack, std::uint64_t block) : pack_(pack), next_(block) {}

    void begin(const Version& /*version*/, std::uint64_t /*first*/) override { bytes_.clear(); }
    void take(const char* bytes, std::size_t size) override {
        while (size != 0) {
            const std::uint64_t wanted = pack_.cache_.size_of(next_);
            const std::size_t part = std::min<std::size_t>(size, wanted - bytes_.size());
            if (part != wanted) bytes_.append(bytes, part);
            if (part != wanted && bytes_.size() != wanted) return;
            pack_.cache_.put(next_, part == wanted ? bytes : bytes_.data());
            bytes += part;
            size -= part;
            bytes_.clear();
            const std::lock_guard guard(pack_.lock_);
            ++next_;
            pack_.came_.notify_all();
        }
    }
    const std::uint64_t& next() const { return next_; }

private:
    RemotePack& pack_;
    std::uint64_t next_;
    std::string bytes_;
};

/// Takes the end of the file, which tells its version and its size.
class RemotePack::TailSink final : public Receiver {
public:
    void begin(const Version& told, std::uint64_t /*first*/) override {
        version = told;
        bytes.clear();
    }
    void take(const char* more, std::size_t size) override { bytes.append(more, size); }

    Version version;
    std::string bytes;
};

RemotePack::RemotePack(std::string url, std::string cache_dir, options how)
    : url_(std::move(url)), cache_dir_(std::move(cache_dir)), how_(std::move(how)) {}

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
    if (shown_url(url_).empty()) return failure = "its URL is none of http or https", failed;
    return connect() ? version_.size : failed;
}

/// Asks for the end of the file, and for what is missing of the directory that it tells of.
bool RemotePack::connect() {
    first_connection_ = std::make_unique<Connection>(url_, how_, stopping_);
    cache_.open(cache_dir_, hashed_name(how_.name.empty() ? url_ : how_.name) + ".blocks");
    TailSink tail;
    const std::uint64_t wanted = cache_.is_kept() ? end_record_size : std::max(how_.first_bytes, end_record_size);
    constexpr std::uint64_t no_progress = 0;
    const Result result = fetch(*first_connection_, {.size = wanted}, tail, no_progress);
    if (result.outcome != Outcome::DONE) return failure = result.reason, false;
    version_ = tail.version;
    cache_.accept(version_);
    return load_directory(tail.bytes);
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
    std::uint64_t begin = offset / block_size;
    std::uint64_t end = cache_.blocks();
    while (begin != end && cache_.has(begin)) ++begin;
    while (begin != end && cache_.has(end - 1)) --end;
    if (begin == end) return true;
    BlockSink sink(*this, begin);
    const std::uint64_t last = std::min(end * block_size, version_.size);
    const Range range{.first = begin * block_size, .size = last - begin * block_size, .known = &version_};
    const Result result = fetch(*first_connection_, range, sink, sink.next());
    return result.outcome == Outcome::DONE || (failure = result.reason, false);
}

/// Fetches a range, with retries. `progress` counts the blocks that came: then a retry goes on behind them.
Result RemotePack::fetch(Connection& connection, Range range, Receiver& receiver, const std::uint64_t& progress) {
    for (unsigned failures = 0;;) {
        const std::uint64_t before = progress;
        const Result result = connection.fetch(range, receiver);
        if (result.outcome != Outcome::MAY_PASS || stopping_) return result;
        const std::uint64_t came = (progress - before) * block_size;
        if (came >= range.size) return {};
        range.first += came;
        range.size -= came;
        failures = came != 0 ? 1 : failures + 1;
        if (failures > how_.retries || !wait_before_retry(failures, result.wait_seconds)) return result;
    }
}

/// False when the pack is given up meanwhile. The wait doubles, and is not the same for all who wait.
bool RemotePack::wait_before_retry(unsigned failures, std::uint32_t wished_seconds) {
    thread_local std::minstd_rand random{std::random_device{}()};
    const std::uint64_t doubled = std::uint64_t{100} << std::min(failures - 1, 10u);
    const std::uint64_t wait = std::min<std::uint64_t>(
        std::max<std::uint64_t>(doubled + random() % doubled, wished_seconds * std::uint64_t{1000}),
        how_.longest_wait_ms);
    std::unique_lock guard(lock_);
    return !asked_.wait_for(guard, std::chrono::milliseconds(wait), [this] { return stopping_.load(); });
}

std::int64_t RemotePack::read_at(std::uint64_t offset, void* to, std::uint64_t size) {
    failure.clear();
    const std::uint64_t first = offset / block_size;
    const std::uint64_t end = (offset + size + block_size - 1) / block_size;
    read_ahead(first, end);
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
    const std::uint64_t end = std::min((offset + size + block_size - 1) / block_size, first + most_prefetched);
    const std::lock_guard guard(lock_);
    queue(first, end, true);
}

/// Waits until the cache has these blocks.
bool RemotePack::load(std::uint64_t first, std::uint64_t end) {
    bool is_queued = false;
    for (std::uint64_t block = first; block < end; ++block) {
        if (cache_.has(block)) continue;
        std::unique_lock guard(lock_);
        if (!is_queued) queue(block, end, true);
        is_queued = true;
        while (!cache_.has(block)) {
            JobPtr job = job_of(block);
            if (!job) {  // it was fetched and lost again
                queue(block, block + 1, true);
                job = job_of(block);
            }
            if (!broken_.empty() && !job) return failure = broken_, false;
            if (!job) continue;  // it has come meanwhile
            job->is_urgent = true;
            came_.wait(guard, [&] { return job->is_done || cache_.has(block); });
            if (!job->failure.empty() && !cache_.has(block)) return failure = job->failure, false;
        }
    }
    return true;
}

/// The job that will bring the block, if there is one.
RemotePack::JobPtr RemotePack::job_of(std::uint64_t block) {
    const auto found =
        std::ranges::find_if(jobs_, [block](const JobPtr& job) { return block >= job->first && block < job->end; });
    return found != jobs_.end() ? *found : nullptr;
}

/// Makes jobs of those blocks that are neither there nor on their way. With the lock held.
void RemotePack::queue(std::uint64_t first, std::uint64_t end, bool is_urgent) {
    if (!broken_.empty()) return;
    const auto is_wanted = [this](std::uint64_t block) { return !cache_.may_have(block) && !job_of(block); };
    end = std::min(end, cache_.blocks());
    while (first < end) {
        std::uint64_t behind = first;
        while (behind < end && behind - first < blocks_a_request && is_wanted(behind)) ++behind;
        if (behind == first) {
            ++first;
            continue;
        }
        jobs_.push_back(std::make_shared<Job>(Job{.first = first, .end = behind, .is_urgent = is_urgent}));
        first = behind;
        asked_.notify_all();
        const auto waiting = std::ranges::count_if(jobs_, [](const JobPtr& job) { return !job->is_taken; });
        if (static_cast<std::size_t>(waiting) > idle_ && workers_.size() < std::clamp(how_.connections, 1u, 32u))
            start_worker();
    }
}

/// Of a job that nobody would ever take, nobody must be left waiting.
void RemotePack::start_worker() try {
    workers_.emplace_back([this] { work(); });
} catch (...) {
    if (!workers_.empty()) return;
    jobs_.pop_back();
    throw;
}

/// Notes where somebody reads, and fetches what comes next once that is a sequence: ever more, up to 16 MiB.
void RemotePack::read_ahead(std::uint64_t first, std::uint64_t end) {
    const std::lock_guard guard(lock_);
    auto stream =
        std::ranges::find_if(streams_, [&](const Stream& s) { return first == s.next || first + 1 == s.next; });
    if (stream == streams_.end()) {
        if (streams_.size() < most_streams) streams_.emplace_back();
        stream =
            streams_.size() < most_streams ? streams_.end() - 1 : std::ranges::min_element(streams_, {}, &Stream::used);
        *stream = {.next = end, .ahead = end};
    }
    stream->used = ++uses_;
    if (end <= stream->next) return;
    stream->next = end;
    if (++stream->advances < advances_before_reading_ahead) return;
    stream->window = std::min(std::max(stream->window * 4, 4 * (end - first)), most_ahead);
    const std::uint64_t wanted = end + stream->window;
    if (stream->ahead > end && wanted - stream->ahead < stream->window / 2) return;
    queue(std::max(end, stream->ahead), wanted, false);
    stream->ahead = wanted;
}

/// What a worker does: jobs that somebody waits for, then the others, each in the order in which they came.
void RemotePack::work() {
    std::unique_ptr<Connection> connection;
    std::unique_lock guard(lock_);
    connection = std::move(first_connection_);
    for (;;) {
        const auto is_free = [](const JobPtr& job) { return !job->is_taken; };
        auto next = jobs_.end();
        ++idle_;
        asked_.wait(guard, [&] {
            next = std::ranges::find_if(jobs_, [&](const JobPtr& job) { return is_free(job) && job->is_urgent; });
            if (next == jobs_.end()) next = std::ranges::find_if(jobs_, is_free);
            return stopping_ || next != jobs_.end();
        });
        --idle_;
        if (stopping_) return;
        const JobPtr job = *next;
        job->is_taken = true;
        guard.unlock();
        try {
            if (!connection) connection = std::make_unique<Connection>(url_, how_, stopping_);
            run(*connection, *job);
        } catch (const std::bad_alloc&) {
            const std::lock_guard again(lock_);
            job->failure = "no memory";  // which takes none itself
        }
        guard.lock();
        job->is_done = true;
        jobs_.remove(job);
        came_.notify_all();
    }
}

void RemotePack::run(Connection& connection, Job& job) {
    BlockSink sink(*this, job.first);
    const std::uint64_t last = std::min(job.end * block_size, version_.size);
    const Range range{.first = job.first * block_size, .size = last - job.first * block_size, .known = &version_};
    Result result = fetch(connection, range, sink, sink.next());
    if (result.outcome == Outcome::DONE) return;
    const std::lock_guard guard(lock_);
    if (result.outcome == Outcome::CHANGED) broken_ = result.reason;
    job.failure = std::move(result.reason);
}

}  // namespace fs::http

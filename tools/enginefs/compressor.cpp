#include "compressor.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr std::uint64_t most_held = 256u << 20;
constexpr std::size_t most_ahead = 4096;

PackedFile make_or_fail(const Compressor::Make& make, std::size_t index, fs::entry_packer& packer) {
    try {
        return make(index, packer);
    } catch (const std::bad_alloc&) {
        return {.error = "no memory"};  // short enough to take none
    }
}

}  // namespace

Compressor::Compressor(std::size_t count, Make make)
    : count_(count), make_(std::move(make)), files_(count), ready_(count) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    try {
        while (threads_.size() < cores) threads_.emplace_back([this] { work(); });
    } catch (const std::exception&) {
        // The system gives no more threads: those that started do the work, or take() itself.
    }
}

Compressor::~Compressor() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

PackedFile Compressor::take(std::size_t index) {
    if (threads_.empty()) {
        fs::entry_packer packer;
        return make_or_fail(make_, index, packer);
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return ready_[index]; });
    PackedFile file = std::move(files_[index]);
    held_ -= file.entry.bytes.size();
    taken_ = index + 1;
    lock.unlock();
    changed_.notify_all();
    return file;
}

/// Waits until another file may be begun. The one that is waited for may always be, or nothing would move.
bool Compressor::next_index(std::size_t& index) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] {
        if (stopping_ || next_ == count_ || next_ == taken_) return true;
        return held_ < most_held && next_ - taken_ < most_ahead;
    });
    if (stopping_ || next_ == count_) return false;
    index = next_++;
    return true;
}

void Compressor::work() {
    fs::entry_packer packer;
    for (std::size_t index = 0; next_index(index);) {
        PackedFile file = make_or_fail(make_, index, packer);
        {
            const std::lock_guard lock(mutex_);
            held_ += file.entry.bytes.size();
            files_[index] = std::move(file);
            ready_[index] = true;
        }
        changed_.notify_all();
    }
}

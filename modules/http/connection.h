#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include <engine/filesystem_http.h>

namespace fs::http {

/// What tells one state of the file on the server from another.
struct Version {
    std::uint64_t size = 0;
    std::string validator{};  // its ETag, or else when it was changed; "": nothing tells
    std::string condition{};  // the header that asks for just this version

    bool operator==(const Version& other) const { return size == other.size && validator == other.validator; }
};

/// Part of the file: `size` bytes at `first`, or its last `size` bytes where `known` is null.
struct Range {
    std::uint64_t first = 0;
    std::uint64_t size = 0;
    const Version* known = nullptr;  // the version that the part must be of
};

/// Takes the bytes of a range as they come.
class Receiver {
public:
    /// What is about to come; the version is the known one, where one is.
    virtual void begin(const Version& version, std::uint64_t first) = 0;
    virtual void take(const char* bytes, std::size_t size) = 0;

protected:
    ~Receiver() = default;
};

enum class Outcome : std::uint8_t { DONE, MAY_PASS, FAILED, CHANGED };
struct Result {
    Outcome outcome = Outcome::DONE;
    std::string reason{};            // unless DONE
    std::uint32_t wait_seconds = 0;  // what the server asks for before the next try
};

/// Fetches ranges of one URL, over a connection that is kept.
/// Threads  one at a time; each worker has its own.
class Connection {
public:
    /// Ends what it does when `stop` becomes true. The arguments outlive it. Throws std::bad_alloc.
    Connection(const std::string& url, const options& how, const std::atomic<bool>& stop);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// One request. Nothing but the bytes that were asked for reaches the receiver.
    Result fetch(const Range& range, Receiver& receiver);

private:
    struct State;
    const std::unique_ptr<State> state_;
};

}  // namespace fs::http

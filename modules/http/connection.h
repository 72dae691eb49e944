#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <curl/curl.h>

#include <engine/filesystem_http.h>

namespace fs::http {

/// The URL as it is asked for: blanks and the like are encoded. "" when it is none of http or https.
std::string encoded_url(const std::string& text);

/// The URL without user, password, query and fragment: what may be shown. "" when it is none of http or https.
std::string shown_url(const std::string& text);

/// What tells one state of the file on the server from another.
struct Version {
    std::uint64_t size = 0;
    std::string validator{};  // its ETag, or else when it was changed; "": nothing tells
    std::string condition{};  // the header that asks for just this version

    bool operator==(const Version&) const = default;
};

/// Part of the file: `size` bytes at `first`, or its last `size` bytes where `known` is null.
struct Range {
    std::uint64_t first = 0;
    std::uint64_t size = 0;
    const Version* known = nullptr;  // the version that the part must be of
};

/// Takes the bytes of a range as they come.
using Receiver = std::function<void(const char* bytes, std::size_t size)>;

enum class Outcome : std::uint8_t { DONE, MAY_PASS, FAILED, CHANGED };
struct Result {
    Outcome outcome = Outcome::DONE;
    std::string reason{};            // unless DONE
    std::uint32_t wait_seconds = 0;  // what the server asks for before the next try
    Version version{};               // when DONE
};

/// Fetches ranges of one URL, over a connection that is kept.
/// Threads  one at a time; each worker has its own.
class Connection {
public:
    /// Ends what it does when `stop` becomes true. The arguments outlive it. Throws std::bad_alloc.
    Connection(const std::string& url, const options& how, const std::atomic<bool>& stop);

    /// One request. Nothing but the bytes that were asked for reaches the receiver.
    Result fetch(const Range& range, const Receiver& receiver);

private:
    const options& how_;
    const std::unique_ptr<CURL, void (*)(CURL*)> curl_;
};

}  // namespace fs::http

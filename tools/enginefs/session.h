#pragma once

#include <string>
#include <vector>

/// What the options before the command say.
struct SessionOptions {
    std::string root;  // "": the current directory
    std::vector<std::string> sources{};
    bool fallback = true;
    std::string cache_dir{};  // "": none
    std::string log_level{};  // "": no messages
};

/// The mounted file system, for as long as it lives.
class Session {
public:
    /// Mounts root and sources. False, with the reason on standard error, when one of them cannot be mounted.
    bool mount(const SessionOptions& options);
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

private:
    bool mounted_ = false;
};

/// Sends the library's messages of at least this importance to standard error. False when the level is not one.
bool show_messages(const std::string& level);

/// The full form of a path as somebody typed it, with "/" separators.
std::string full_native_path(const std::string& path);

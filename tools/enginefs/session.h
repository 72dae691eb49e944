#pragma once

#include <string>
#include <vector>

#include <engine/filesystem/contract/flags.h>

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
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    /// Mounts root and sources. False, with the reason on standard error, when one of them cannot be mounted.
    bool mount(const SessionOptions& options);
    /// Whether all names of what is mounted are known; what cannot be listed has been said.
    bool is_whole() const { return whole_; }

private:
    bool add(const std::string& path);
    void tell_unlisted(const std::string& told);

    bool mounted_ = false;
    bool whole_ = true;
};

/// Mounts a pack by its URL, or tells why it cannot be. Null where the tool was built without HTTP.
extern bool (*mount_url)(const std::string& url, FFSAddSourceFlags::ENUM flags);

/// Whether a source of this name is mounted as a pack.
bool is_pack_name(const std::string& path);

/// Has every source watched but the fallback, which holds no names. False, with a word on standard error, when one cannot be.
bool watch_sources();

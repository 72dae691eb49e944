#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <string>

#include <curl/curl.h>

#include <engine/filesystem/pack_reader.h>
#include <engine/filesystem_http.h>

#include "remote_pack.h"

namespace fs::http {

namespace {

using Url = std::unique_ptr<CURLU, void (*)(CURLU*)>;

std::string part_of(const Url& url, CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return "";
    const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
    return text;
}

/// Null when it is none of http or https. Blanks and the like are encoded.
Url parse(const std::string& text) {
    Url url(curl_url(), curl_url_cleanup);
    if (url && curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_URLENCODE) != CURLUE_OK) url.reset();
    const std::string scheme = url ? part_of(url, CURLUPART_SCHEME) : "";
    if (scheme != "http" && scheme != "https") url.reset();
    return url;
}

std::uint64_t fnv1a(const std::string& text, std::uint64_t hash) {
    for (const char byte : text) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return hash;
}

/// The URL as it is asked for: blanks and the like are encoded. "" when it is none of http or https.
std::string encoded_url(const std::string& text) {
    const Url url = parse(text);
    return url ? part_of(url, CURLUPART_URL) : "";
}

/// The URL without user, password, query and fragment: what may be shown. "" when it is none of http or https.
std::string shown_url(const std::string& text) {
    const Url url = parse(text);
    if (!url) return "";
    for (const CURLUPart secret : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_QUERY, CURLUPART_FRAGMENT})
        curl_url_set(url.get(), secret, nullptr, 0);
    return part_of(url, CURLUPART_URL);
}

/// A file name of 32 hexadecimal digits for a text; which does not give the text away.
std::string hashed_name(const std::string& text) {
    char name[33];
    std::snprintf(name, sizeof name, "%016llx%016llx", static_cast<unsigned long long>(fnv1a(text, 0xCBF29CE484222325)),
                  static_cast<unsigned long long>(fnv1a(text, 0x9E3779B97F4A7C15)));
    return name;
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
        const std::string kept = hashed_name(how.name.empty() ? address : how.name) + ".blocks";
        auto* const pack = new RemotePack(encoded_url(address), cache_dir ? cache_dir : "", kept, how);
        return add_pack_reader(name.c_str(), *pack, how.flags);
    } catch (const std::bad_alloc&) {
        static NoMemory reader;
        return add_pack_reader("(no memory)", reader);
    }
}

}  // namespace fs::http

#include "url.h"

#include <cstdint>
#include <cstdio>
#include <memory>

#include <curl/curl.h>

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

}  // namespace

std::string encoded_url(const std::string& text) {
    const Url url = parse(text);
    return url ? part_of(url, CURLUPART_URL) : "";
}

std::string shown_url(const std::string& text) {
    const Url url = parse(text);
    if (!url) return "";
    for (const CURLUPart secret : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_QUERY, CURLUPART_FRAGMENT})
        curl_url_set(url.get(), secret, nullptr, 0);
    return part_of(url, CURLUPART_URL);
}

std::string hashed_name(const std::string& text) {
    char name[33];
    std::snprintf(name, sizeof name, "%016llx%016llx", static_cast<unsigned long long>(fnv1a(text, 0xCBF29CE484222325)),
                  static_cast<unsigned long long>(fnv1a(text, 0x9E3779B97F4A7C15)));
    return name;
}

}  // namespace fs::http

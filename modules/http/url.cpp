#include "url.h"

#include <cstdint>
#include <cstdio>
#include <memory>

#include <curl/curl.h>

namespace fs::http {

namespace {

std::string part_of(CURLU* url, CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, 0) != CURLUE_OK) return "";
    const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
    return text;
}

std::uint64_t fnv1a(const std::string& text, std::uint64_t hash) {
    for (const char byte : text) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return hash;
}

}  // namespace

std::string shown_url(const std::string& url) {
    const std::unique_ptr<CURLU, void (*)(CURLU*)> parsed(curl_url(), curl_url_cleanup);
    if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return "";
    const std::string scheme = part_of(parsed.get(), CURLUPART_SCHEME);
    if (scheme != "http" && scheme != "https") return "";
    for (const CURLUPart secret : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_QUERY, CURLUPART_FRAGMENT})
        curl_url_set(parsed.get(), secret, nullptr, 0);
    return part_of(parsed.get(), CURLUPART_URL);
}

std::string hashed_name(const std::string& text) {
    char name[33];
    std::snprintf(name, sizeof name, "%016llx%016llx", static_cast<unsigned long long>(fnv1a(text, 0xCBF29CE484222325)),
                  static_cast<unsigned long long>(fnv1a(text, 0x9E3779B97F4A7C15)));
    return name;
}

}  // namespace fs::http

#include "connection.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <string_view>
#include <utility>

namespace fs::http {

namespace {

struct FreeList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

void append(HeaderList& list, const std::string& line) {
    curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
    if (!longer) throw std::bad_alloc();
    static_cast<void>(list.release());
    list.reset(longer);
}

std::string text_of(std::uint64_t first, std::uint64_t last) {
    return std::to_string(first) + "-" + std::to_string(last);
}

/// Failures of the connection, not of what was asked.
bool may_pass(CURLcode code) {
    constexpr CURLcode passing[] = {CURLE_COULDNT_RESOLVE_HOST, CURLE_COULDNT_CONNECT, CURLE_OPERATION_TIMEDOUT,
                                    CURLE_RECV_ERROR,           CURLE_SEND_ERROR,      CURLE_GOT_NOTHING,
                                    CURLE_PARTIAL_FILE,         CURLE_HTTP2,           CURLE_HTTP2_STREAM,
                                    CURLE_WEIRD_SERVER_REPLY};
    return std::ranges::find(passing, code) != std::end(passing);
}

/// One request and its answer. What it decides by the headers ends the transfer before any of the body is fetched.
struct Transfer {
    const Range& range;
    const Receiver& receiver;
    CURL* curl;
    std::uint64_t missing = 0;  // bytes of the body yet to come, once it is accepted
    bool accepted = false;
    bool failed_in_memory = false;
    Result result{.outcome = Outcome::MAY_PASS};  // its reason is "" until something was decided

    bool refuse(Outcome outcome, std::string reason) {
        result.outcome = outcome;
        result.reason = std::move(reason);
        return false;
    }
    std::string answered(const char* name) const;
    bool header(std::string_view line);
    bool accept();
    bool refuse_status(long status);
    bool body(const char* bytes, std::size_t size);
};

/// A header of the latest answer, behind all redirections; "" where it has none.
std::string Transfer::answered(const char* name) const {
    curl_header* found = nullptr;
    return curl_easy_header(curl, name, 0, CURLH_HEADER, -1, &found) == CURLHE_OK ? found->value : "";
}

bool Transfer::header(std::string_view line) {
    if (accepted || !(line == "\r\n" || line == "\n")) return true;  // a trailer, or not yet the end
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    const bool is_redirection = status / 100 == 3 && !answered("Location").empty();
    if (is_redirection || status / 100 == 1) return true;  // another answer follows
    return status == 206 ? accept() : refuse_status(status);
}

bool Transfer::refuse_status(long status) {
    const std::string answer = "the server answers " + std::to_string(status);
    if (status == 412 || (status == 416 && range.known))
        return refuse(Outcome::CHANGED, "the file was changed on the server");
    if (status == 416) return refuse(Outcome::FAILED, "the file is empty");
    if (status == 200) return refuse(Outcome::FAILED, "the server does not serve parts of the file");
    if (status != 429 && status / 100 != 5) return refuse(Outcome::FAILED, answer);
    curl_off_t seconds = 0;
    curl_easy_getinfo(curl, CURLINFO_RETRY_AFTER, &seconds);
    result.wait_seconds = static_cast<std::uint32_t>(std::clamp<curl_off_t>(seconds, 0, 3600));
    return refuse(Outcome::MAY_PASS, answer);
}

/// Holds what the server says it sends against what was asked for.
bool Transfer::accept() {
    const std::string part = answered("Content-Range");
    const std::string encoding = answered("Content-Encoding");
    const std::string etag = answered("ETag");
    const std::string changed_at = answered("Last-Modified");
    Version version;
    const std::size_t slash = part.find('/');
    const char* const end = part.data() + part.size();
    if (slash == std::string::npos || std::from_chars(part.data() + slash + 1, end, version.size).ptr != end ||
        version.size == 0)
        return refuse(Outcome::FAILED, "the server does not say which part of the file it sends");
    if (!encoding.empty() && !curl_strequal(encoding.c_str(), "identity"))
        return refuse(Outcome::FAILED, "the server packs the file by itself (" + encoding.substr(0, 20) + ")");
    const bool is_strong = !etag.empty() && !etag.starts_with("W/");  // a weak one does not vouch for bytes
    version.validator = is_strong ? etag : changed_at;
    if (!version.validator.empty())
        version.condition = (is_strong ? "If-Match: " : "If-Unmodified-Since: ") + version.validator;
    if (range.known && !(version == *range.known))
        return refuse(Outcome::CHANGED, "the file was changed on the server");
    missing = range.known ? range.size : std::min(range.size, version.size);
    const std::uint64_t first = range.known ? range.first : version.size - missing;
    if (part != "bytes " + text_of(first, first + missing - 1) + "/" + std::to_string(version.size))
        return refuse(Outcome::FAILED, "the server sends another part of the file than was asked for");
    accepted = true;
    result.version = std::move(version);
    return true;
}

bool Transfer::body(const char* bytes, std::size_t size) {
    if (size > missing) return refuse(Outcome::FAILED, "the server sends more than was asked for");
    receiver(bytes, size);
    missing -= size;
    return true;
}

/// libcurl's side of a transfer: no exception may pass through it. 0 ends the transfer.
template <typename Step>
std::size_t guarded_step(void* user, std::size_t size, Step step) noexcept {
    auto& transfer = *static_cast<Transfer*>(user);
    try {
        return step(transfer) ? size : 0;
    } catch (...) {
        transfer.failed_in_memory = true;
        return 0;
    }
}

std::size_t on_header(char* bytes, std::size_t /*one*/, std::size_t size, void* user) {
    return guarded_step(user, size, [&](Transfer& transfer) { return transfer.header({bytes, size}); });
}

std::size_t on_body(char* bytes, std::size_t /*one*/, std::size_t size, void* user) {
    return guarded_step(user, size, [&](Transfer& transfer) { return transfer.body(bytes, size); });
}

int on_progress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<const std::atomic<bool>*>(user)->load(std::memory_order_relaxed) ? 1 : 0;
}

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

Connection::Connection(const std::string& url, const options& how, const std::atomic<bool>& stop)
    : how_(how), curl_(curl_easy_init(), curl_easy_cleanup) {
    CURL* const curl = curl_.get();
    if (!curl) throw std::bad_alloc();
    const bool is_secure = curl_strnequal(url.c_str(), "https:", 6) != 0;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, is_secure ? "https" : "http,https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(curl, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "engine_filesystem_http");
    curl_easy_setopt(curl, CURLOPT_BUFFERSIZE, 128L * 1024);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(how.connect_timeout_ms));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1024L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, std::max(1L, static_cast<long>(how.stall_timeout_ms) / 1000));
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, on_header);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, on_body);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, on_progress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &stop);
}

Result Connection::fetch(const Range& range, const Receiver& receiver) {
    CURL* const curl = curl_.get();
    HeaderList headers;
    for (const fs::string& line : how_.headers) append(headers, line);
    if (range.known && !range.known->condition.empty()) append(headers, range.known->condition);
    const std::string part =
        range.known ? text_of(range.first, range.first + range.size - 1) : "-" + std::to_string(range.size);
    Transfer transfer{.range = range, .receiver = receiver, .curl = curl};
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_RANGE, part.c_str());
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    const CURLcode code = curl_easy_perform(curl);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
    if (transfer.failed_in_memory || code == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    if (!transfer.result.reason.empty()) return transfer.result;
    if (code == CURLE_OK && transfer.accepted && transfer.missing == 0)
        return {.version = std::move(transfer.result.version)};
    if (code == CURLE_OK) return {.outcome = Outcome::MAY_PASS, .reason = "the server sends less than it says"};
    return {.outcome = may_pass(code) ? Outcome::MAY_PASS : Outcome::FAILED,
            .reason = std::string("the transfer failed (") + curl_easy_strerror(code) + ")"};
}

}  // namespace fs::http

#include "connection.h"

#include <algorithm>
#include <charconv>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#include <curl/curl.h>

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

bool take_number(std::string_view& text, std::uint64_t& number, char end) {
    const auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(next - text.data()));
    if (end == '\0') return text.empty();
    if (!text.starts_with(end)) return false;
    text.remove_prefix(1);
    return true;
}

struct ContentRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t total = 0;
};

/// "bytes 0-99/1000", and nothing else.
bool read_content_range(std::string_view text, ContentRange& out) {
    if (!text.starts_with("bytes ")) return false;
    text.remove_prefix(6);
    return take_number(text, out.first, '-') && take_number(text, out.last, '/') &&
           take_number(text, out.total, '\0') && out.first <= out.last && out.last < out.total;
}

bool is_redirection(long status) { return (status >= 301 && status <= 303) || status == 307 || status == 308; }

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
    Receiver& receiver;
    CURL* curl;
    std::string etag{};
    std::string changed_at{};
    std::string content_range{};
    std::string encoding{};
    std::uint64_t missing = 0;  // bytes of the body yet to come, once it is accepted
    bool accepted = false;
    bool failed_in_memory = false;
    Result result{Outcome::MAY_PASS};  // its reason is "" until something was decided

    bool refuse(Outcome outcome, std::string reason) {
        result.outcome = outcome;
        result.reason = std::move(reason);
        return false;
    }
    bool header(std::string_view line);
    bool end_of_headers();
    bool accept();
    bool refuse_status(long status);
    bool body(const char* bytes, std::size_t size);
};

bool Transfer::header(std::string_view line) {
    while (line.ends_with('\n') || line.ends_with('\r')) line.remove_suffix(1);
    if (accepted) return true;  // a trailer
    if (line.empty()) return end_of_headers();
    if (line.starts_with("HTTP/")) etag = changed_at = content_range = encoding = "";
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return true;
    const std::string name(line.substr(0, colon));
    line.remove_prefix(std::min(line.find_first_not_of(" \t", colon + 1), line.size()));
    const std::pair<const char*, std::string*> known[] = {{"ETag", &etag},
                                                          {"Last-Modified", &changed_at},
                                                          {"Content-Range", &content_range},
                                                          {"Content-Encoding", &encoding}};
    for (const auto& [known_name, value] : known)
        if (curl_strequal(name.c_str(), known_name)) *value = line;
    return true;
}

bool Transfer::end_of_headers() {
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (status / 100 == 1 || is_redirection(status)) return true;  // more follows, or body() ends it
    return status == 206 ? accept() : refuse_status(status);
}

bool Transfer::refuse_status(long status) {
    const std::string answer = "the server answers " + std::to_string(status);
    if (status == 412) return refuse(Outcome::CHANGED, "the file was changed on the server");
    if (status == 200) return refuse(Outcome::FAILED, "the server does not serve parts of the file");
    if (status != 429 && status / 100 != 5) return refuse(Outcome::FAILED, answer);
    curl_off_t seconds = 0;
    curl_easy_getinfo(curl, CURLINFO_RETRY_AFTER, &seconds);
    result.wait_seconds = static_cast<std::uint32_t>(std::clamp<curl_off_t>(seconds, 0, 3600));
    return refuse(Outcome::MAY_PASS, answer);
}

/// Holds what the server says it sends against what was asked for.
bool Transfer::accept() {
    ContentRange sent;
    if (!read_content_range(content_range, sent))
        return refuse(Outcome::FAILED, "the server does not say which part of the file it sends");
    if (!encoding.empty() && !curl_strequal(encoding.c_str(), "identity"))
        return refuse(Outcome::FAILED, "the server packs the file by itself (" + encoding.substr(0, 20) + ")");
    Version version{.size = sent.total};
    if (!etag.empty() && !etag.starts_with("W/")) {  // a weak one does not vouch for bytes
        version.validator = etag;
        version.condition = "If-Match: " + etag;
    } else if (!changed_at.empty()) {
        version.validator = changed_at;
        version.condition = "If-Unmodified-Since: " + changed_at;
    }
    if (range.known && !(version == *range.known))
        return refuse(Outcome::CHANGED, "the file was changed on the server");
    const std::uint64_t first = range.known ? range.first : sent.total - std::min(range.size, sent.total);
    const std::uint64_t last = range.known ? range.first + range.size - 1 : sent.total - 1;
    if (sent.first != first || sent.last != last)
        return refuse(Outcome::FAILED, "the server sends another part of the file than was asked for");
    missing = last - first + 1;
    accepted = true;
    receiver.begin(version, first);
    return true;
}

bool Transfer::body(const char* bytes, std::size_t size) {
    if (!accepted) return refuse(Outcome::FAILED, "the server answers with a redirection that leads nowhere");
    if (size > missing) return refuse(Outcome::FAILED, "the server sends more than was asked for");
    receiver.take(bytes, size);
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

}  // namespace

struct Connection::State {
    std::unique_ptr<CURL, void (*)(CURL*)> curl{nullptr, curl_easy_cleanup};
    const options& how;
};

Connection::Connection(const std::string& url, const options& how, const std::atomic<bool>& stop)
    : state_(new State{.how = how}) {
    static std::once_flag started;
    std::call_once(started, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    CURL* const curl = curl_easy_init();
    if (!curl) throw std::bad_alloc();
    state_->curl.reset(curl);
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

Connection::~Connection() = default;

Result Connection::fetch(const Range& range, Receiver& receiver) {
    CURL* const curl = state_->curl.get();
    HeaderList headers;
    for (const fs::string& line : state_->how.headers) append(headers, line);
    if (range.known && !range.known->condition.empty()) append(headers, range.known->condition);
    const std::string part = range.known
                                 ? std::to_string(range.first) + "-" + std::to_string(range.first + range.size - 1)
                                 : "-" + std::to_string(range.size);
    Transfer transfer{.range = range, .receiver = receiver, .curl = curl};
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_RANGE, part.c_str());
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    const CURLcode code = curl_easy_perform(curl);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
    if (transfer.failed_in_memory || code == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
    if (!transfer.result.reason.empty()) return transfer.result;
    if (code == CURLE_OK && transfer.accepted && transfer.missing == 0) return {};
    if (code == CURLE_OK) return {Outcome::MAY_PASS, "the server sends less than it says"};
    return {may_pass(code) ? Outcome::MAY_PASS : Outcome::FAILED,
            std::string("the transfer failed (") + curl_easy_strerror(code) + ")"};
}

}  // namespace fs::http

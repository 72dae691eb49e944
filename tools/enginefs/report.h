#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <engine/filesystem/contract/error.h>

// What the tool says: results on standard output, in the style that is asked for, and all else on standard error.

using Json = nlohmann::ordered_json;

inline constexpr std::uint64_t failed = ~std::uint64_t{0};  // how the library answers for a size it cannot tell

inline constexpr int exit_ok = 0;
inline constexpr int exit_failed = 1;  // not found, or failed
inline constexpr int exit_usage = 2;   // a wrong command line

/// How results are shown.
struct Style {
    bool json = false;           // what is listed, as one array of objects
    bool zero = false;           // or the first text of each alone, with a zero byte behind it
    std::string color = "auto";  // or "always" or "never"
};
void set_style(const Style& style);

/// A text as it stands in one line: without the control characters of ASCII and of ISO 8859, which steer terminals.
std::string printable(const std::string& text);

/// The same, with bytes that are no UTF-8 as "\\xe9".
std::string as_utf8(const std::string& text);

/// A name as it is printed in a line: on a terminal its control characters are escaped, and it may have a colour.
enum class Color { PLAIN, DIRECTORY, PACK, SHADOWED };
std::string shown(const std::string& name, Color color = Color::PLAIN);

/// Text as printf makes it.
#if defined(__MINGW32__) && !defined(__clang__)
[[gnu::format(gnu_printf, 1, 2)]]
#else
[[gnu::format(printf, 1, 2)]]
#endif
std::string
formatted(const char* format, ...);

/// "1 file", "2 files".
std::string counted(std::uint64_t count, const char* one, const char* many);

/// Says on standard error what is wrong with `name`. Returns false.
bool fail(const std::string& name, const std::string& reason);

/// The same with the library's own account of the thread's last failure, or `otherwise` when it gave none.
bool fail_with_last_error(const std::string& name, const std::string& otherwise);

/// Calls into the library; when that answers false, says why of `name`.
template <class Call>
bool attempt(const std::string& name, const char* otherwise, const Call& call) {
    fs::clear_error();
    return call() || fail_with_last_error(name, otherwise);
}

/// Thrown, after a word on standard error, where a command cannot go on.
struct CommandFailed {};

/// What the library answers. The command fails, and says why of `name`, when it could not tell.
template <class Call>
auto ask(const std::string& name, const Call& call) {
    fs::clear_error();
    auto answer = call();
    const EFSError::TYPE code = fs::last_error().code;
    if (code == EFSError::NONE || code == EFSError::NOT_FOUND || code == EFSError::UNSUPPORTED) return answer;
    fail_with_last_error(name, "it cannot be looked up");
    throw CommandFailed();
}

/// Says so without using memory.
void fail_without_memory();

/// Thrown, after a word on standard error, when an argument is not what it should be.
struct WrongUsage {};
[[noreturn]] void fail_usage(const std::string& name, const std::string& reason);

/// Says something on standard error that is no failure.
void note(const std::string& name, const std::string& text);

/// Prints to standard output; what cannot be written is remembered for finish_output. False when it was not.
bool print(const std::string& text);
bool print_bytes(const void* data, std::uint64_t size);

/// Names are bytes; what is no UTF-8 is shown with replacement characters. `indent` -1: all of it in one line.
bool print_json(const Json& json, int indent = 2);

/// Hands on what was printed; false when it could not be.
bool flush_output();

/// `status`, or exit_failed with a message when standard output could not be written.
int finish_output(int status);

/// A size or text as JSON; null where it is not known.
Json json_or_null(std::uint64_t size);
Json json_or_null(const std::string& text);

/// Items as a JSON array where the style is JSON; null elsewhere, since destroying an array takes memory.
bool shows_json();
template <class Items, class Make = std::identity>
Json json_array(const Items& items, const Make& make = {}) {
    Json array = shows_json() ? Json::array() : Json();
    for (auto item = items.begin(); shows_json() && item != items.end(); ++item) array.push_back(make(*item));
    return array;
}

/// What is known of an item: what JSON calls it, and how wide its column is in a line; below 0: from the left, 0: none.
struct Field {
    static constexpr int hexadecimal = -1000;

    const char* key;
    Json value;
    int width = 0;
};
using Fields = std::vector<Field>;

/// What a command lists, in the style that is set.
class Listing {
public:
    /// An item by its fields, the first of which is its name. Its line is that of its columns with the name behind them,
    /// unless there is a `line`; alone of it, where that is asked for, is the name, or `alone`.
    void add(const Fields& fields, const std::string& line = "", const std::string& alone = "");
    /// A line for readers alone, such as a sum.
    void note(const std::string& line);
    bool finish() const;

private:
    Json items_ = Json::array();
};

/// Shows how far long work has come, on a terminal only; cleared when it ends.
class Progress {
public:
    /// `total` 0, or all bits set: not known. Counts bytes when `bytes`, else items.
    Progress(const std::string& label, std::uint64_t total, bool bytes);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void add(std::uint64_t amount);
    void reach(std::uint64_t done) { add(done - done_); }

private:
    using Clock = std::chrono::steady_clock;

    void draw(double seconds) const;
    std::string amount_text(double amount) const;

    const std::string label_;
    const std::uint64_t total_;
    const bool bytes_;
    const bool watched_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point drawn_{};  // the latest time
    std::uint64_t done_ = 0;
};

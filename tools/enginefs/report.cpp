#include "report.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "terminal.h"

namespace {

constexpr std::chrono::milliseconds first_drawing{500};  // quick work shows no progress
constexpr std::chrono::milliseconds redraw{100};

int output_error = 0;  // errno of the first write to standard output that failed
bool as_json = false;
bool as_zeros = false;
bool has_colors = false;   // standard output
bool has_escapes = false;  // the same, of control characters
bool has_error_colors = false;
bool has_progress = false;  // standard error, in the line that is written next; the main thread's

/// Whatever is written stands in a line of its own.
void clear_progress() {
    if (!has_progress) return;
    std::fprintf(stderr, "\r%79s\r", "");
    has_progress = false;
}

bool takes_colors(const std::string& color, int stream) {
    const char* const no_color = std::getenv("NO_COLOR");
    const bool is_wanted = no_color == nullptr || no_color[0] == '\0';
    return color == "always" || (color == "auto" && is_wanted && shows_colors(stream));
}

void remember_failure() {
    if (output_error == 0) output_error = errno != 0 ? errno : EIO;
}

/// Bytes of the character that a text begins with; 0 when that is no UTF-8.
std::size_t utf8_length(std::string_view text) {
    const auto byte = [text](std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u; };
    const unsigned first = byte(0), second = byte(1);
    if (first < 0x80) return 1;
    if (first < 0xC2 || first > 0xF4) return 0;
    // What could be shorter, halves of surrogate pairs, and what is beyond the last character.
    const unsigned from = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned to = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (second < from || second > to) return 0;
    const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    for (std::size_t at = 2; at < length; ++at)
        if ((byte(at) & 0xC0) != 0x80) return 0;
    return length;
}

std::string column_text(const Field& field) {
    if (field.width == Field::hexadecimal) return formatted("%08" PRIx32, field.value.get<std::uint32_t>());
    const std::string text = field.value.is_null()     ? "-"
                             : field.value.is_string() ? field.value.get<std::string>()
                                                       : field.value.dump();
    return formatted("%*s", field.width, text.c_str());
}

std::string line_of(const Fields& fields) {
    std::string line;
    for (const Field& field : fields) {
        if (field.width == 0) continue;
        line += line.empty() ? "" : field.width > 0 ? " " : "  ";
        line += column_text(field);
    }
    return line + (line.empty() ? "" : "  ") + shown(fields[0].value.get<std::string>());
}

}  // namespace

void set_style(const Style& style) {
    as_json = style.json;
    as_zeros = style.zero;
    has_colors = takes_colors(style.color, 1);
    has_escapes = has_colors || is_terminal(1);
    has_error_colors = takes_colors(style.color, 2);
}

std::string printable(const std::string& text) {
    std::string out;
    unsigned char before = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool is_iso = before == 0xC2 && byte >= 0x80 && byte < 0xA0;
        if (is_iso) out.pop_back();
        out += byte < ' ' || byte == 0x7F || is_iso ? formatted("\\x%02x", static_cast<unsigned>(byte))
                                                    : std::string(1, c);
        before = byte;
    }
    return out;
}

std::string as_utf8(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = utf8_length(std::string_view(text).substr(at));
        out += length != 0 ? text.substr(at, length) : formatted("\\x%02x", static_cast<unsigned char>(text[at]));
        at += std::max<std::size_t>(length, 1);
    }
    return printable(out);
}

std::string shown(const std::string& name, Color color) {
    constexpr const char* codes[] = {"", "\x1b[1;34m", "\x1b[36m", "\x1b[2m"};
    const std::string text = has_escapes ? printable(name) : name;
    return has_colors && color != Color::PLAIN ? codes[static_cast<int>(color)] + text + "\x1b[0m" : text;
}

std::string formatted(const char* format, ...) {
    char text[256];  // for numbers and short words
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string counted(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

bool fail(const std::string& name, const std::string& reason) {
    flush_output();
    clear_progress();
    std::fprintf(stderr, has_error_colors ? "\x1b[31menginefs\x1b[0m: %s: %s\n" : "enginefs: %s: %s\n",
                 name.empty() ? "\"\"" : printable(name).c_str(), printable(reason).c_str());
    return false;
}

bool fail_with_last_error(const std::string& name, const std::string& otherwise) {
    const SFsError& error = fs::last_error();
    return fail(name, error.code == EFSError::NONE || error.text.empty() ? otherwise : error.text);
}

void fail_without_memory() { std::fputs("enginefs: there is not enough memory\n", stderr); }

void fail_usage(const std::string& name, const std::string& reason) {
    fail(name, reason);
    throw WrongUsage();
}

void note(const std::string& name, const std::string& text) { fail(name, text); }

bool print(const std::string& text) { return print_bytes(text.data(), text.size()); }

bool print_bytes(const void* data, std::uint64_t size) {
    clear_progress();
    errno = 0;
    if (std::fwrite(data, 1, size, stdout) != size) remember_failure();
    return output_error == 0;
}

bool print_json(const Json& json, int indent) {
    return print(json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n");
}

bool flush_output() {
    errno = 0;
    if (std::fflush(stdout) != 0) remember_failure();
    return output_error == 0;
}

int finish_output(int status) {
    if (flush_output()) return status;
    fail("standard output", std::string("it cannot be written: ") + std::strerror(output_error));
    return exit_failed;
}

Json json_or_null(std::uint64_t size) { return size != failed ? Json(size) : Json(); }
Json json_or_null(const std::string& text) { return !text.empty() ? Json(text) : Json(); }

bool shows_json() { return as_json; }

void Listing::add(const Fields& fields, const std::string& line, const std::string& alone) {
    if (as_json) {
        Json& object = items_.emplace_back(Json::object());
        for (const Field& field : fields) object[field.key] = field.value;
    } else if (as_zeros) {
        print((alone.empty() ? fields[0].value.get<std::string>() : alone) + '\0');
    } else {
        print((line.empty() ? line_of(fields) : line) + "\n");
    }
}

void Listing::note(const std::string& line) {
    if (!as_json && !as_zeros) print(line + "\n");
}

bool Listing::finish() const { return as_json ? print_json(items_) : print(""); }

Progress::Progress(const std::string& label, std::uint64_t total, bool bytes)
    : label_(printable(label)), total_(total == failed ? 0 : total), bytes_(bytes), watched_(is_terminal(2)) {}

Progress::~Progress() { clear_progress(); }

void Progress::add(std::uint64_t amount) {
    done_ += amount;
    if (!watched_) return;
    const Clock::time_point now = Clock::now();
    if (now - start_ < first_drawing || now - drawn_ < redraw) return;
    drawn_ = now;
    draw(std::chrono::duration<double>(now - start_).count());
}

void Progress::draw(double seconds) const {
    const double rate = static_cast<double>(done_) / seconds;
    std::string line = label_ + ": " + amount_text(static_cast<double>(done_));
    if (total_ != 0) line += " of " + amount_text(static_cast<double>(total_));
    line += ", " + amount_text(rate) + "/s";
    if (total_ > done_ && rate > 0) {
        const auto left = std::lround(static_cast<double>(total_ - done_) / rate);
        line += ", " + std::to_string(left) + " s left";
    }
    std::fprintf(stderr, "\r%-79.79s", line.c_str());
    has_progress = true;
}

std::string Progress::amount_text(double amount) const {
    if (!bytes_) return formatted("%.0f", amount);
    constexpr double kib = 1024, mib = kib * kib;
    return amount < mib ? formatted("%.0f KiB", amount / kib) : formatted("%.1f MiB", amount / mib);
}

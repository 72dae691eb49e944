#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// Makes standard output carry bytes as they are (Windows would turn "\n" into "\r\n"), and gives standard streams that
/// were closed a place where writing fails, so that no file that is opened later is taken for one of them.
void prepare_streams();

/// Whether a standard stream, 1 or 2, is a terminal; and one that shows colours.
bool is_terminal(int stream);
bool shows_colors(int stream);

/// While it lives, the first Ctrl-C (or other request to end) is only remembered, for good, so that half a result can be
/// removed; the second ends the program as usual. One within another is the same one.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    static bool requested();
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

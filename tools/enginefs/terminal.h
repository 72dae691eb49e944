#pragma once

/// Makes standard output carry bytes as they are (Windows would turn "\n" into "\r\n"), and gives standard streams that
/// were closed a place where writing fails, so that no file that is opened later is taken for one of them.
void prepare_streams();

/// Whether a standard stream, 1 or 2, is a terminal; and one that shows colours.
bool is_terminal(int stream);
bool shows_colors(int stream);

/// While it lives, the first Ctrl-C (or other request to end, or a pipe that nobody reads any more) is only remembered, for
/// good, so that half a result can be removed; the second ends the program as usual. One within another is the same one.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    static bool requested();
};

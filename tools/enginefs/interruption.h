#pragma once

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

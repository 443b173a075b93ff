// The terminal that a program fills: one screen of text, drawn again and again, and a key that ends it.
#pragma once

#include <chrono>
#include <string_view>
#include <termios.h>

namespace kalix::ctl {

// Takes the whole terminal of standard output, and gives it back as it was: also when an exception ends the program,
// or one of the signals that ask it to. One at a time.
class full_screen {
public:
    full_screen();
    ~full_screen();
    full_screen(const full_screen&) = delete;
    full_screen& operator=(const full_screen&) = delete;

    // Shows the text from the top left, as many lines and columns of it as there is room for.
    void draw(std::string_view text) const;
    // Waits so long, or shorter when the size changed. True when q or ctrl-C was typed or the program was asked to end.
    bool ends_within(std::chrono::milliseconds wait) const;

private:
    termios before_{};
    bool has_keys_ = false; // standard input is a terminal
};

} // namespace kalix::ctl

#pragma once

#include <stdexcept>
#include <string_view>

// Standard output cannot take what is written.
class OutputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Standard output, one line at a time and unbuffered, so that a reader sees each line when it is
// made. Used on one thread.
class Output {
  public:
    // Writes the text and a line feed. Throws OutputError; vcihost::Interrupted when a signal ends
    // a write that blocks.
    void Line(std::string_view text);

    // The same without a line feed, for many lines at once.
    void Write(std::string_view text);
};

#pragma once

#include <exception>
#include <string>
#include <utility>

// A failure told in words; thrown around the start of child programs. Bound to no thread.
class NV_Exception : public std::exception {
  public:
    explicit NV_Exception(std::string text) : description(std::move(text)) {}

    // The text; valid as long as the exception.
    const char* what() const noexcept override { return description.c_str(); }

  private:
    std::string description;
};

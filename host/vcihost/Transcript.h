#pragma once

#include "vcihost/Hex.h"

#include <functional>
#include <string>
#include <string_view>

namespace vcihost {

// Writes down a conversation: who said what, in hex, and what it means. Each entry is a line of
// three columns. Used on one thread.
class Transcript {
  public:
    // Takes the lines, without line feeds; empty to write nothing down.
    using Sink = std::function<void(const std::string& line)>;

    explicit Transcript(Sink sink) : sink_(std::move(sink)) {}

    // The host sends a frame around a service section: shows that section.
    void HostFrame(std::span<const uint8_t> frame);
    // The host sends bytes as they stand: shows all of them.
    void HostBytes(std::span<const uint8_t> bytes);
    // The device sends a message: shows its service section, or all of it when it has none.
    void Device(std::span<const uint8_t> message);

    // Something else that happens: who or what, what it is, what comes of it.
    void Note(std::string_view who, std::string_view what, std::string_view meaning = "");
    // Lines that a command wrote, indented.
    void Quote(const std::string& text);
    // A sentence of the narrator, behind an empty line.
    void Say(const std::string& text);

  private:
    void Row(std::string_view who, std::string_view bytes, std::string_view meaning);

    Sink sink_;
    bool empty_ = true;
};

} // namespace vcihost

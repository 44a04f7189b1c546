#pragma once

#include <atomic>
#include <vector>

// The threads that are in a write on a socket while another thread closes it. Its number must not
// become another file's under them: a frame would land there.
class SocketWriters {
  public:
    SocketWriters() = default;
    SocketWriters(const SocketWriters&) = delete;
    SocketWriters& operator=(const SocketWriters&) = delete;
    ~SocketWriters(); // nobody writes any more

    // Around a write, any thread: the descriptor is looked up inside.
    class Inside {
      public:
        explicit Inside(SocketWriters& all) : inside_(all.inside_) { ++inside_; }
        ~Inside() { --inside_; }
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;

      private:
        std::atomic<int>& inside_;
    };

    // Closes a descriptor that no further writer finds. One thread. Those inside get some 10 ms to
    // leave; for one that the driver holds up longer the descriptor stays until the next close.
    void Close(int fd);

  private:
    void CloseAll();

    std::atomic<int> inside_{0};
    std::vector<int> closing_; // the closing thread's
};

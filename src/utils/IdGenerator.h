#pragma once

#include <atomic>

// Hands out ids 0, 1, 2, ... Safe from any thread: no id is handed out twice.
class IdGenerator {
  public:
    int NextId() { return ++currentId; }

  private:
    std::atomic<int> currentId{-1};
};

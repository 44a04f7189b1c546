#pragma once

#include "utils/UniqueFd.h"

#include <filesystem>

#include <fcntl.h>
#include <sys/file.h>

// Held by a test that looks at what the whole machine shares, such as names of processes: of the
// tests that hold it, one at a time runs, in whatever program.
class MachineLock {
  public:
    MachineLock()
        : directory_(open(std::filesystem::temp_directory_path().c_str(),
                          O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        flock(directory_.get(), LOCK_EX);
    }

  private:
    UniqueFd directory_; // its lock leaves no file behind
};

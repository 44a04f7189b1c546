#pragma once

#include "utils/UniqueFd.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>

// Held by a test that looks at what the whole machine shares, such as names of processes: of the
// tests that hold it, one at a time runs, in whatever program. Throws when it cannot be had.
class MachineLock {
  public:
    MachineLock() {
        const auto path = std::filesystem::temp_directory_path();
        directory_.reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!directory_) {
            throw std::system_error(errno, std::generic_category(), "cannot open " + path.string());
        }
        while (flock(directory_.get(), LOCK_EX) != 0) {
            if (errno != EINTR) {
                throw std::system_error(errno, std::generic_category(),
                                        "cannot lock " + path.string());
            }
        }
    }

  private:
    UniqueFd directory_; // its lock leaves no file behind
};

#include "vcictl/Output.h"

#include "vcictl/Interrupt.h"
#include "vcihost/Waiter.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <poll.h>
#include <unistd.h>

void Output::Line(std::string_view text) {
    std::string line(text);
    line += '\n';
    Write(line);
}

void Output::Write(std::string_view text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t written = write(STDOUT_FILENO, text.data() + done, text.size() - done);
        if (written >= 0) {
            done += static_cast<size_t>(written);
        } else if (errno == EINTR) {
            if (Interrupt::Came()) {
                throw vcihost::Interrupted();
            }
        } else if (errno == EAGAIN) { // somebody made it non-blocking
            vcihost::Waiter().Wait(STDOUT_FILENO, POLLOUT, vcihost::Deadline::max());
        } else {
            throw OutputError(std::string("cannot write to standard output: ") +
                              std::strerror(errno));
        }
    }
}

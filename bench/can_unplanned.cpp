// Periodic frames without a plan: hands the same tasks to the broadcast manager, all with one
// start, and keeps them until its standard input ends. Runs on the board, beside a planned run.
//
//   can_unplanned CHANNEL COUNT PERIOD_MS...   ids 0x100 up in the order of the periods, COUNT of
//   each

#include "net/BcmMessage.h"
#include "net/ZephCanCom.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <unistd.h>

namespace {

constexpr uint64_t kLeadUs = 50'000; // time to hand over all of them

uint64_t NowUs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 +
           static_cast<uint64_t>(now.tv_nsec) / 1000;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: can_unplanned CHANNEL COUNT PERIOD_MS...\n");
        return 2;
    }
    net::ZephCanCom channel(std::atoi(argv[1]));
    if (channel.Open() != 0) {
        return 1;
    }
    const uint64_t start = NowUs() + kLeadUs;
    can_frame frame{};
    frame.can_id = 0x100;
    frame.can_dlc = CAN_MAX_DLEN;
    for (int i = 3; i < argc; ++i) {
        for (int n = std::atoi(argv[2]); n > 0; --n, ++frame.can_id) {
            const uint64_t now = NowUs();
            const auto message =
                net::BcmMessage::Start(frame, SETTIMER | STARTTIMER, start > now ? start - now : 0,
                                       static_cast<uint64_t>(std::atoi(argv[i])));
            if (write(channel.getfd2(), message.Data(), message.Size()) < 0) {
                std::perror("can_unplanned: the broadcast manager refuses");
                return 1;
            }
        }
    }
    std::printf("started\n");
    std::fflush(stdout);
    std::vector<char> rest(256);
    while (read(STDIN_FILENO, rest.data(), rest.size()) > 0) {
    }
    return 0;
}

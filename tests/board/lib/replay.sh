# For the tests that replay a trace; read by them, no test itself.

log=/tmp/replay.log
trace=$VBOARD_RESULTS/$(basename "${0%.sh}").trace

end_replay() {
    ask 1204 # one that has ended keeps its descriptors until the next command
    close_wires
}

# make_log FRAMES SECONDS SEED: a log of mixed frames on three channels, spread at random.
make_log() {
    awk -v frames="$1" -v seconds="$2" -v seed="$3" 'BEGIN {
        srand(seed)
        split("12 16 20 24 32 48 64", longer, " ")
        time = 1700000000
        for (i = 0; i < frames; i++) {
            id = rand() < 0.5 ? sprintf("%03X", rand() * 2048) : sprintf("%08X", rand() * 536870912)
            length_ = int(rand() * 9)
            kind = rand()
            mark = "#"
            if (kind < 0.1) {
                data = length_ ? "R" length_ : "R"
            } else {
                if (kind < 0.4) {
                    mark = "##" int(rand() * 2)
                    if (rand() < 0.3) length_ = longer[1 + int(rand() * 7)]
                }
                for (data = ""; length_ > 0; length_--) data = data sprintf("%02X", rand() * 256)
            }
            printf "(%.6f) can%d %s%s%s\n", time, 2 * int(rand() * 3), id, mark, data
            time += 2 * rand() * seconds / frames
        }
    }' >"$log"
}

# What the wires carried is the log, frame for frame, in its order.
compare_with_log() {
    vboardctl can trace >"$trace"
    if grep '^# lost' "$trace"; then return 1; fi
    diff <(awk '{ print $2, $3 }' "$log") \
        <(awk '!/^#/ && $7 == "ok"' "$trace" | sort -n -s -k1,1 | awk '{ print $4, $5 }') | head -n 20
}

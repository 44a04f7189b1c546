# shellcheck shell=bash disable=SC2154
# One run of the board: its options, its run directory, the emulator, its end.

# Files of a run in its results directory; those of an earlier run go first.
run_files=(board.conf cmd emmc.img kernel.log console.log supervisor.log daemon.log emulator.log
    stdout.log stderr.log failure status)

# Sets: results, timeout_s, boots, append, daemon_mode, command.
parse_board_options() {
    results='' timeout_s='' boots=1 daemon_mode=wait append=() command=()
    while [[ $# -gt 0 ]]; do
        case $1 in
        --results | --timeout | --boots | --append)
            [[ $# -ge 2 ]] || fail "$1 needs a value"
            case $1 in
            --results) results=$2 ;;
            --timeout) timeout_s=$2 ;;
            --boots) boots=$2 ;;
            --append) append+=("$2") ;;
            esac
            shift 2
            ;;
        --no-wait) daemon_mode=start && shift ;;
        --no-daemon) daemon_mode=off && shift ;;
        --)
            shift
            command=("$@")
            break
            ;;
        *) fail "no such option: $1 (the command comes after --)" ;;
        esac
    done
    [[ ${timeout_s:-1} =~ ^[1-9][0-9]*$ ]] || fail "--timeout $timeout_s: give a number of seconds"
    [[ $boots =~ ^[1-9][0-9]*$ ]] || fail "--boots $boots: give a number, 1 or more"
}

run_board() {
    local verb=$1
    if [[ $verb == run ]]; then
        [[ ${#command[@]} -gt 0 ]] || fail "nothing to run: vboard run [OPTION...] -- CMD..."
        timeout_s=${timeout_s:-600}
    else
        [[ ${#command[@]} -eq 0 ]] || fail "shell takes no command: use vboard run -- CMD..."
        [[ -t 0 && -t 1 ]] || fail "a shell needs a terminal: use vboard run -- CMD..."
        timeout_s=${timeout_s:-0}
    fi
    find_daemon
    make_results
    make_card

    trap 'stop_board; exit 130' INT
    trap 'stop_board; exit 143' TERM HUP
    local boot=1 emulator_status
    SECONDS=0
    while :; do
        write_conf "$verb" "$boot"
        emulator_status=0
        start_board "$verb"
        wait "$board_pid" || emulator_status=$?
        board_pid=
        wait
        has_restarted "$boot" "$emulator_status" || break
        if [[ $boot -eq $boots ]]; then
            echo "it restarted (--boots $((boots + 1)) starts the command again after that)" >"$results/failure"
            break
        fi
        boot=$((boot + 1))
    done
    trap - INT TERM HUP
    report_end "$emulator_status"
}

# has_restarted BOOT EMULATOR_STATUS: the boot ended with a restart that the board was asked for.
# The emulator ends in the same way after a panic and after a power-off: the kernel's word counts.
has_restarted() {
    [[ $2 -eq 0 && ! -f $results/status && ! -f $results/failure ]] &&
        [[ $(grep -c 'reboot: Restarting system' "$results/kernel.log") -eq $1 ]]
}

find_daemon() {
    daemon=$(realpath -m "${VBOARD_DAEMON:-$project/build/release/src/main/vcid}")
    [[ $daemon_mode == off || -x $daemon ]] ||
        fail "no daemon at $daemon: build it (cmake --preset release && cmake --build --preset release),
or set VBOARD_DAEMON, or run with --no-daemon"
}

# The results directory: the caller's, or one of its own that goes when all went well.
make_results() {
    results_are_ours=no
    if [[ -z $results ]]; then
        local runs=$cache/../runs
        mkdir -p "$runs" || fail "cannot make $runs: set VBOARD_CACHE to a directory that can be written"
        find "$runs" -mindepth 1 -maxdepth 1 -mtime +7 -exec rm -rf {} +
        results=$(mktemp -d "$runs/XXXXXXXX") || fail "cannot make a run directory in $runs"
        results_are_ours=yes
    fi
    mkdir -p "$results" || fail "cannot make the results directory $results"
    results=$(cd "$results" && pwd)
    [[ -w $results ]] || fail "cannot write to the results directory $results"
    need_space "$results" 100

    # The emulator inherits the lock, and so keeps it for as long as a board runs.
    exec 9>"$results/.lock"
    flock -n 9 || fail "a board is running with the results directory $results: wait for its end, or give another"
    (cd "$results" && rm -f "${run_files[@]}" && touch kernel.log console.log stdout.log stderr.log emulator.log)
}

# The eMMC card: 64 MiB with a boot and a system partition, both empty, and the raw one of the
# serial record. It lasts for one run, with all its boots.
make_card() {
    local image=$results/emmc.img
    {
        head -c 446 /dev/zero
        partition 2048 32768 0c
        partition 34816 65536 83
        partition 100352 2048 da
        partition 0 0 00
        printf '\x55\xaa'
    } >"$image" && truncate -s 64M "$image" || fail "cannot make the card image $image"
}

# partition FIRST COUNT TYPE: an entry of the partition table, in blocks of 512 bytes.
partition() {
    local number
    printf '\0\0\0\0%b\0\0\0' "\\x$3"
    for number in "$1" "$2"; do
        # shellcheck disable=SC2059 # little-endian, as escapes
        printf "$(printf '\\x%02x\\x%02x\\x%02x\\x%02x' $((number & 255)) $((number >> 8 & 255)) \
            $((number >> 16 & 255)) $((number >> 24)))"
    done
}

# write_conf VERB BOOT
write_conf() {
    local path=() entries entry rows=24 columns=80
    IFS=: read -ra entries <<<"${VBOARD_PATH:-build/release/host}"
    for entry in "${entries[@]}"; do
        [[ $entry == /* ]] || entry=$project/$entry
        path+=("$entry")
    done
    [[ $1 == shell ]] && read -r rows columns < <(stty size)

    accelerator=tcg
    if grep -qEw 'vmx|svm' /proc/cpuinfo && [[ -w /dev/kvm ]]; then accelerator=kvm; fi

    # The board has a /tmp and a /run of its own; what it needs from ours is shown to it.
    local directory shown=''
    for directory in "$project" "$cache" "$(dirname "$daemon")"; do
        if [[ -d $directory && $directory == /@(tmp|run)/* ]]; then shown+=" $(quoted "$directory")"; fi
    done

    {
        local name value
        while read -r name value; do
            printf '%s=%s\n' "BOARD_$name" "$(quoted "$value")"
        done <<EOF
VERB $1
BOOT $2
PROJECT $project
CACHE $cache
KERNEL $kernel_version
DAEMON $daemon
SHOWN $shown
DAEMON_MODE $daemon_mode
PATH $(IFS=:; printf %s "${path[*]}")
ACCEL $accelerator
TERM ${TERM:-dumb}
ROWS $rows
COLUMNS $columns
EOF
    } >"$results/board.conf"

    if [[ $1 == run ]]; then
        {
            printf 'cd %s || exit 127\nexec' "$(quoted "$project")"
            for entry in "${command[@]}"; do printf ' %s' "$(quoted "$entry")"; done
            echo
        } >"$results/cmd"
    fi
}

# Starts the emulator and, for a command, what copies its output; sets board_pid.
start_board() {
    local devices words left=$timeout_s
    if [[ $timeout_s -ne 0 ]]; then left=$((timeout_s > SECONDS ? timeout_s - SECONDS : 1)); fi
    option_path() { printf %s "${1//,/,,}"; }
    output() { printf 'file,id=%s,append=on,path=%s' "$1" "$(option_path "$results/$2")"; }

    # shellcheck disable=SC2016 # the kernel wants the dollar
    words=(console=ttyS0 quiet 'memmap=160M$0x80000000' panic=-1 oops=panic nokaslr mitigations=off
        no_timer_check tsc=reliable cryptomgr.notests random.trust_cpu=on "${append[@]}")
    if [[ $1 == shell ]]; then
        devices=(-chardev "stdio,id=tty,signal=off" -device "virtconsole,chardev=tty")
    else
        devices=(-chardev "$(output out stdout.log)" -device "virtserialport,chardev=out,name=vboard.stdout"
            -chardev "$(output err stderr.log)" -device "virtserialport,chardev=err,name=vboard.stderr")
    fi

    # What an earlier boot has printed has been copied.
    local stdout_bytes stderr_bytes
    stdout_bytes=$(stat -c %s "$results/stdout.log")
    stderr_bytes=$(stat -c %s "$results/stderr.log")

    # Whoever kills this script kills the board too.
    setpriv --pdeathsig TERM timeout --foreground -k 5 "$left" \
        qemu-system-x86_64 -nodefaults -no-user-config -machine pc -accel "$accelerator" -cpu max -smp 2 \
        -m "${VBOARD_MEMORY:-4096}" -no-reboot -nic none -display none -monitor none \
        -kernel "$cache/kernel" -initrd "$cache/initramfs.img" -append "${words[*]}" \
        -chardev "$(output kernel kernel.log)" -serial chardev:kernel \
        -chardev "$(output console console.log)" -serial chardev:console \
        -virtfs "local,path=/,mount_tag=root,security_model=none,readonly=on,multidevs=remap" \
        -virtfs "local,path=$(option_path "$results"),mount_tag=results,security_model=none,multidevs=remap" \
        -drive "if=none,id=emmc,format=raw,file=$(option_path "$results/emmc.img")" \
        -device sdhci-pci -device sd-card,drive=emmc \
        -device virtio-serial-pci "${devices[@]}" <&0 2>"$results/emulator.log" &
    board_pid=$!
    if [[ $1 == run ]]; then
        tail -c +$((stdout_bytes + 1)) -f -s 0.1 --pid="$board_pid" "$results/stdout.log" 9<&- &
        tail -c +$((stderr_bytes + 1)) -f -s 0.1 --pid="$board_pid" "$results/stderr.log" 9<&- >&2 &
    fi
}

stop_board() {
    say "stopped: the logs are in $results"
    [[ -z ${board_pid:-} ]] || kill -TERM "$board_pid" 2>/dev/null || true
    wait
}

# report_end EMULATOR_STATUS: exits with the run's status, and says what is to be said.
report_end() {
    local status failure=''
    if [[ -f $results/failure ]]; then failure=$(<"$results/failure"); fi
    if [[ ! -f $results/status ]]; then
        if [[ -z $failure && $1 -eq 124 ]]; then failure="it ran into its time limit of $timeout_s s"; fi
        say "the board did not come to its end${failure:+: $failure}"
        show_tail emulator.log
        show_tail kernel.log
        say "kernel log:  $results/kernel.log"
        say "console log: $results/console.log"
        exit 125
    fi

    status=$(<"$results/status")
    if [[ -n $failure ]]; then
        say "$failure"
        show_tail console.log
        if [[ $status == 0 ]]; then status=125; fi
    fi
    # SIGTERM is how a run ends a daemon, which may be too young to have a handler yet; SIGINT is a test's.
    local death
    if death=$(grep 'killed by signal' "$results/supervisor.log" | grep -vE -m 1 'signal (2|15),'); then
        say "the daemon died: $death"
    fi
    if grep -qE '(WARNING|BUG): ' "$results/kernel.log"; then
        say "the kernel complains: $(grep -m 1 -E '(WARNING|BUG): ' "$results/kernel.log")"
    fi
    if [[ $status != 0 ]]; then
        show_tail kernel.log
        say "status $status; the logs are in $results"
    elif [[ $results_are_ours == yes ]]; then
        rm -rf "$results"
    fi
    exit "$status"
}

show_tail() {
    [[ -s $results/$1 ]] || return 0
    say "the end of $1:"
    tail -n 15 "$results/$1" | tr -d '\r' | sed 's/^/  /' >&2
}

# shellcheck shell=bash
# What the parts of the launcher share. Nothing here prints on standard output:
# that belongs to the command that runs on the board.

say() { printf 'vboard: %s\n' "$*" >&2; }

# The board cannot be started: what, and what to do.
fail() {
    say "$*"
    exit 2
}

# A word as a POSIX shell reads it back.
quoted() { printf "'%s'" "${1//\'/\'\\\'\'}"; }

# need PROGRAM PACKAGE: PROGRAM is on the PATH, or in an administrator's directory.
need() {
    PATH=$PATH:/usr/sbin:/sbin type -P "$1" >/dev/null ||
        fail "$1 is not here: install it with 'apt-get install $2'"
}

# need_space DIR MIB
need_space() {
    local have
    have=$(df --output=avail -B 1M "$1" | tail -n 1)
    [[ $have -ge $2 ]] ||
        fail "$1 has $have MiB left and $2 are needed: free some space, or set VBOARD_CACHE to another disk"
}

#!/bin/bash
# The bus goes to sleep, which stops the schedule; a wake-up of another node starts it again 800 ms
# behind the last pulse. A schedule that is running is left alone.
. tests/board/lib/base.sh
. tests/board/lib/lin.sh

vboardctl lin reset
vboardctl counter run 0
open_lin 0 commander
ask 0601 00 01 10020a00
ask 0606 00 01
wait_for 5 is 1 running_jobs

# Sleep: the schedule stops, then the command goes out, 3C with its first byte 0.
vcictl lin sleep lin0 >/dev/null
[ "$(running_jobs)" = 0 ]
sleep_was_sent() { vboardctl lin trace | grep -q ' lin0 0x3C lin0 00FFFFFFFFFFFFFF '; }
wait_for 5 sleep_was_sent
wait_for 5 console_shows 'VciLinMsgService::SleepCallBack timeout'

hear_rest # the sleep command
begin_records
for pulse in 1 2; do
    echo 0 >"$VBOARD_CONTROL/lin/wakeup" # as vboardctl does it, and at once
    sleep 0.3
done
hear 2500
running() { [ "$(running_jobs)" = 1 ]; }
wait_for 5 running
wait_for 5 console_shows 'DataRecordService::LinWakeupCb cb call'
[ "$(vboardctl lin trace | grep -c ' wakeup ')" = 2 ]
vboardctl lin trace | awk '$6 == "wakeup" { woke = $3; pulses++ } $6 == "0x50" && !first { first = $2 }
    END { printf "from the second pulse to the first frame: %.1f ms\n", (first - woke) / 1e6
          exit !(pulses == 2 && first - woke >= 790e6) }'

# Awake and running: a pulse changes nothing.
before=$(real_time_threads)
vboardctl lin 0 wakeup
sleep 1.5
[ "$before" = "$(real_time_threads)" ]
hear 300 0606 00 00
[ "$(compare_records 0)" -gt 10 ]

ask 090c 01 00 00
vcictl lin close lin0 >/dev/null
vboardctl lin reset

#!/usr/bin/env bash
# Fails when the library waits by the wall clock, which users and networks set, or asks for it other
# than to show it.
# usage: wall_clock.sh NM STATIC_LIBRARY
set -euo pipefail

"$1" --demangle --undefined-only "$2" | awk '
    /:$/ { object = $1; next }
    /steady_clock::now/ { monotonic = 1 }
    / (pthread_cond_timedwait|pthread_[a-z]*_timed|sem_timedwait|mq_timed)/ ||
    /system_clock::now| (clock_)?gettime| time$/ && object !~ /^(clock|time_mark)\./ {
        print object, $2
        wrong = 1
    }
    END { exit wrong || !monotonic }'

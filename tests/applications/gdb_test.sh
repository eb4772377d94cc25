#!/bin/bash
# gdb shows the link, the threads and the queues of a host whose server does not read.
# usage: gdb_test.sh FTC HOST
set -euo pipefail

type gdb || { echo "skipped: there is no gdb" && exit 77; }
ftc=("$1")
source "$(dirname "$0")/programs.sh"

expect_shown() { # regular expression for a whole line
  grep -qxE -- "$1" "$work/shown" || fail "gdb does not show <$1> but: $(<"$work/shown")"
}

start_server --port 0
kill -STOP "$server"
cat >"$work/commands" <<END
source $(dirname "$0")/../../tools/gdb/ftclient.py
set width 0
set print object off
set breakpoint pending on
tbreak CClientDataSource::AskData
run ${address/:/ }
up
print ((char*(*)(unsigned long, unsigned long))calloc)(1, 32000000)
print source.AskData(\$, 32000000)
print source.AskData("hello", 5)
print source.AskData("hello", 5)
info ftclient g_pClientCommThread
print \$engine->m_last_found->m_link
print \$ftobject(8).m_queue
print \$ftobject(2).m_timers.m_timers
print *(FTLinkInfo*)argv
END
DEBUGINFOD_URLS='' timeout "$limit" gdb -nx -batch -x "$work/commands" "$2" \
  >"$work/shown" 2>&1 </dev/null || fail "gdb fails: $(<"$work/shown")"
kill -CONT "$server"
end INT "$server" 0

host='127\.0\.0\.1:[0-9]+' packages='(01 00 00 00 00 00 00 05 28 9a 93 93 68 65 6c ?(6c 6f )?){2}'
timer='\{msg = FTMSG_TIMER\(TIMER_CHECK_(LINK|REPLY) after 2000 ms.* s on the tick clock\}'
expect_shown 'CClientCommThread at 0x[0-9a-f]+, \$engine = 0x[0-9a-f]+'
expect_shown "  01000000  LINK_KIND_OUT  up     $host  ${address//./\\.}  [0-9]+ +[1-3][0-9]{7}"
expect_shown '  8 +[0-9]+ +CFTMtSockSendThrd +0 +TIMER_SEND_CHECK'
expect_shown "\\\$[0-9]+ = up: 01000000, LINK_KIND_OUT, $host to $address"
expect_shown "\\\$[0-9]+ = .*priority 3 = 34 of 65536 bytes: $packages\|.*hello.*hel\| \.\.\.\}"
expect_shown "\\\$[0-9]+ = .*\{($timer(, )?){2}\}"
expect_shown '\$[0-9]+ = <error reading variable: not a string any more>'

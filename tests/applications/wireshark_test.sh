#!/bin/bash
# Wireshark's dissector shows what travelled on recorded links, and agrees with the library on
# checksums.
# usage: wireshark_test.sh FTC
set -euo pipefail

type tshark || { echo "skipped: there is no tshark" && exit 77; }
ftc=("$1")
source "$(dirname "$0")/programs.sh"
dissector=$(dirname "$0")/../../tools/wireshark/ftclient.lua

# As a client of its own make. The server ends the link over what is sent.
send_raw() { # bytes, for printf
  exec {link}<>"/dev/tcp/${tap/://}"
  printf "$1" >&"$link"
  timeout "$limit" cat <&"$link" >/dev/null || fail "the link does not end"
  exec {link}>&-
}

# The packages are looked at first: another protocol may have the ports that the system chose.
dissect() { # arguments of tshark...
  tshark -r "$work/links.pcapng" -X "lua_script:$dissector" -o tcp.try_heuristic_first:TRUE \
    -Y ftclient -T fields -E aggregator=, "$@" 2>"$work/errors" || fail "tshark: $(<"$work/errors")"
}

# A line for each direction of each link, with the values of all its packages.
show_links() {
  dissect -d "tcp.port==${address#*:},ftclient" -e tcp.stream -e ftclient.direction \
    -e ftclient.length -e ftclient.checksum.status -e ftclient.kind -e _ws.expert.severity |
    awk -F '\t' '{
      flow = $1 " " $2
      if (!(flow in count)) flows[++n] = flow
      ++count[flow]
      for (i = 3; i <= NF; i++) if ($i != "") values[flow, i] = values[flow, i] "," $i
    } END {
      for (k = 1; k <= n; k++) {
        flow = flows[k]
        print flow, values[flow, 3], values[flow, 4], values[flow, 5], values[flow, 6]
      }
    }' | sed 's/ ,/ /g; s/ *$//'
}

start_server --port 0
start /dev/null "${ftc[@]}" tap 127.0.0.1:0 "$address" --record "$work/links.pcapng"
recorder=$pid
await_line "$out" "listening on"
tap=${line#listening on }

folded='\x7f\xff\xff\xff\x7f\xff\xff\xff\x7f\xff\xff\xff' negative='\x80\0\0\0'
{
  printf '%b\n' '' HB "$negative" '\xff\xff\xff\xff\xff\xff\xff\xff' "$folded" \
    "$folded$negative" "$negative$folded"
  seq -s "$(printf '\xb0')" 40000 # in many segments
} | timeout "$limit" "${ftc[@]}" link "$tap" >/dev/null || fail "not all is answered"
timeout "$limit" "${ftc[@]}" balance "$tap" --ask 65 >/dev/null || fail "no answer"
heartbeat='\1\0\0\0\0\0\0\3\xb7\xbd\xff\xffHB\0'
damaged='\1\0\0\0\0\0\0\5\x28\x9a\x93\x94hello' unmarked='\2\0\0\0\0\0\0\3\x9e\x9d\x9c\xffabc'
send_raw "$heartbeat$damaged$unmarked"'\1\0\0\0\0\x4f\xff\xf4\1\2\3\4body'
send_raw "$heartbeat"'\1\0\0\0\xff\xff\xff\xff\1\2\3\4'
end INT "$recorder" 0
end INT "$server" 0

error=8388608 warning=6291456 note=4194304
echo_of="0,2,4,8,12,16,16,228893 1,1,1,1,1,1,1,1 data,data,data,data,data,data,data,data"
expect "links" "0 from client $echo_of
0 from server $echo_of
1 from client 2 1 balance question
1 from server 2 1 data
2 from client 3,5,3,5242868 1,0,1,2 heartbeat,data,data $error,$note,$warning
3 from client 3,4294967295 1,2 heartbeat $error" "$(show_links)"
expect "links that are recognised" $'0\n1\n2\n3' "$(dissect -e tcp.stream | sort -u)"
expect "summary" \
  '4 packages: heartbeat, 5 bytes "hello", wrong checksum, 3 bytes "abc", 5242868 bytes, too long' \
  "$(dissect -e _ws.col.Info -Y ftclient.length.too_long | sed 's/, incomplete.*//')"

#!/bin/bash
# Whatever systems server and client run on, the same sessions put the same bytes on the wire.
# usage: wire_test.sh WIRE_TAP NATIVE_FTC WINDOWS_FTC WINE_RUN
# WINE_RUN runs WIRE_TAP, which is a Windows program, and WINDOWS_FTC.
set -euo pipefail

case_name=wire
wire_tap=("$4" "$1")
linux=("$2")
windows=("$4" "$3")
. "$(dirname "$0")/ftc_runs.sh"

# Each session is shorter than the silence after which a heartbeat is sent.
echo_session() {
  { printf 'one\n\ngr\xc3\xbcn\n\xff\xfe\n' && print_large_line; } |
    timeout "$limit" "${client[@]}" link --wait "$limit" "$address"
}

balance_session() {
  timeout "$limit" "${client[@]}" balance "$address" --ask 255
}

push_session() {
  mkfifo input
  exec 9<>input
  start input "${client[@]}" link "$address"
  await_line "$out" LINK_EVENT_CLOSED
  exec 9>&-
  await_end "$pid" 0
}

# The files MODE.to_server and MODE.to_client are what a session with a server in this mode carries.
record() { # mode, arguments for it...
  local tap ftc_server
  start_listening "${server_ftc[@]}" serve --port 0 --mode "$@"
  ftc_server=$server
  start_listening "${wire_tap[@]}" "${address#*:}" "$1.to_server" "$1.to_client"
  tap=$server
  "$1_session" >"$1.output"
  kill -INT "$ftc_server" 2>/dev/null || true # after the last push it ends by itself
  await_end "$ftc_server" 0
  await_end "$tap" 0
}

# Records all sessions below a directory named for the pair; in a process of its own.
record_pair() { # names of arrays with server and client
  local -n server_ftc=$1 client=$2
  case_name="wire, server on $1 and client on $2"
  trap kill_running EXIT
  cd "$work/$1-$2"
  record echo
  record balance --answer quotes-2.example:9000
  record push --count 5 --rate 50 --size 3000
}

expect_recorded() { # file, bytes
  local size
  size=$(stat -c %s "$work/linux-linux/$1")
  ((size == $2)) || fail "$size bytes instead of $2 in $1"
}

pairs=()
for server_system in linux windows; do
  for client_system in linux windows; do
    mkdir "$work/$server_system-$client_system"
    record_pair $server_system $client_system &
    pairs+=($!)
  done
done
for pair in "${pairs[@]}"; do wait "$pair" || fail "a session went wrong"; done

for pair in linux-windows windows-linux windows-windows; do
  for file in {echo,balance,push}.to_{server,client}; do
    cmp "$work/linux-linux/$file" "$work/$pair/$file" ||
      fail "$file: server-client $pair puts other bytes on the wire than linux-linux"
  done
done

# Each package has 12 bytes more than its body.
expect_recorded echo.to_server $((5 * 12 + 3 + 0 + 5 + 2 + 306000))
expect_recorded echo.to_client $((5 * 12 + 3 + 0 + 5 + 2 + 306000))
expect_recorded balance.to_server $((12 + 2))
expect_recorded balance.to_client $((12 + 21))
expect_recorded push.to_server 0
expect_recorded push.to_client $((5 * (12 + 3000)))

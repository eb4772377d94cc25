#!/bin/bash
# Runs the program ftc as people run it, one case at a time.
# usage: ftc_test.sh CASE FTC [-- CLIENT]
# FTC and CLIENT are programs with what runs them. CLIENT links to the servers; the default is FTC.
set -euo pipefail

case_name=$1
ftc=("${@:2}")
client=("${ftc[@]}")
for ((i = 0; i < ${#ftc[@]}; i++)); do
  [[ ${ftc[i]} == -- ]] || continue
  client=("${ftc[@]:i+1}")
  ftc=("${ftc[@]:0:i}")
done
. "$(dirname "$0")/ftc_runs.sh"

start_server() { # arguments of ftc serve: $server, $server_out, $address
  start_listening "${ftc[@]}" serve "$@"
}

# Starts ftc link: $link, $link_out; descriptor 9 is the writing end of its input.
start_link() { # arguments of ftc link...
  mkfifo "$work/in"
  exec 9<>"$work/in" # to write alone would wait for the reader
  start "$work/in" "${client[@]}" link "$@"
  link=$pid link_out=$out
}

end_input_of_link() {
  exec 9>&-
  rm "$work/in"
}

# Runs the client to its end: $status and $output, standard error included.
run() { # arguments...
  status=0
  output=$(timeout "$limit" "${client[@]}" "$@" 2>&1) || status=$?
}

without_times() {
  sed -E 's/^[0-9:.]{12}  //' | grep -v '^waiting for the link'
}

expect() { # what, expected, actual
  [[ $2 == "$3" ]] || fail "$1: expected <$2>, got <$3>"
}

expect_holds() { # what, text, actual
  [[ $3 == *"$2"* ]] || fail "$1: <$2> is not in <$3>"
}

# Nothing listens there as long as the server has its port: no other test is given that one.
dead_address() {
  echo "127.0.0.2:${address#*:}"
}

case_demo() {
  run demo
  expect "status" 0 "$status"
  local steps='2. *LINK_EVENT_UP*5. *LINK_EVENT_CLOSED*6. *LINK_EVENT_UP*All 10 steps happened'
  [[ $output == *$steps* ]] || fail "the steps are not told: $output"
}

case_echo() {
  local mode answers expected
  for mode in 0 1; do
    start_server --port 0 --event-mode "$mode"
    answers=$(printf '1\n\ngr\xc3\xbcn\na\x01b\r\n\xff\xfe\n' |
      timeout "$limit" "${client[@]}" link "$address" | without_times)
    expected=$'LINK_EVENT_UP\n1 byte: 1\n0 bytes: \n5 bytes: gr\xc3\xbcn\n'
    expected+=$'4 bytes: hex 6101620d\n2 bytes: hex fffe'
    expect "answers in event mode $mode" "$expected" "$answers"
    print_large_line |
      timeout "$limit" "${client[@]}" link --hex --wait "$limit" "$address" >"$work/answer"
    print_large_line | head -c -1 | od -An -v -tx1 | tr -d ' \n' >"$work/body"
    tail -n 1 "$work/answer" | sed 's/.*  306000 bytes: hex //' | tr -d '\n' |
      cmp - "$work/body" || fail "the large body comes back changed"
    stop "$server"
  done
}

case_push() {
  local count size numbers
  while read -r count size; do
    start_server --port 0 --mode push --count "$count" --rate 200 --size "$size"
    start_link "$address"
    await_line "$link_out" LINK_EVENT_CLOSED
    await_end "$server" 0
    end_input_of_link
    await_end "$link" 0
    numbers=$(printf '%s\n' "${passed[@]}" |
      sed -nE "s/.*  $size bytes: push ([0-9]+) \.+$/\1/p")
    expect "pushed packages" "$(seq "$count")" "$numbers"
  done <<<$'20 100\n2 300000'
}

case_balance() {
  start_server --port 0 --mode balance --host 0.0.0.0
  local reached=127.0.0.2:${address#*:}
  run balance "$reached" --ask 010
  expect "reached address" "0 $reached" "$status $output"
  await_line "$server_out" "package of 2 bytes: hex 010a"
  stop "$server"

  start_server --port 0 --mode balance --event-mode 0 --answer $'a\tb'
  run balance "localhost:${address#*:}" --ask 255 --hex
  expect "answer that was set" "0 hex 610962" "$status $output"
  await_line "$server_out" "package of 2 bytes: hex 01ff"
  stop "$server"
}

case_no_answer() {
  start_server --port 0 --mode mute
  run link --wait 1 "$address" <<<hi
  expect "status of an unanswered request" 1 "$status"
  expect_holds "its reason" "1 sent, but 0 received" "$output"

  run link --connect-wait 1 "$(dead_address)" <<<hi
  expect "status without a link" 1 "$status"
  expect "what is told" \
    "ftc: connecting to $(dead_address)"$'\nftc: no link within 1 second' \
    "$(grep ^ftc: <<<"$output")"

  run balance a..b:1 --ask 1
  expect "unknown host" "1 ftc: unknown host 'a..b'" "$status $output"

  start /dev/null "${client[@]}" balance "$address" --ask 1
  local balance=$pid
  await_line "$server_out" "package of 2 bytes: hex 0101"
  kill_at_once "$server"
  await_end "$balance" 1
}

case_reconnect() {
  start_server --port 0
  start_link "$address"
  await_line "$link_out" LINK_EVENT_UP
  kill_at_once "$server"
  start_server --port "${address#*:}"
  await_line "$link_out" LINK_EVENT_CLOSED
  echo "sent without a link" >&9
  await_line "$link_out" LINK_EVENT_UP
  await_line "$link_out" "19 bytes: sent without a link"
  end_input_of_link
  await_end "$link" 0
  stop "$server"
}

case_failover() {
  start_server --port 0
  start_link "$(dead_address)" "$address"
  await_line "$link_out" LINK_EVENT_UP
  expect_holds "before the second server" LINK_EVENT_CONNECT_FAILED "${passed[*]:-}"
  echo "for the second server" >&9
  await_line "$link_out" "21 bytes: for the second server"
  end_input_of_link
  await_end "$link" 0
  stop "$server"
}

case_interrupt() {
  start_server --port 0
  start_link "$address"
  await_line "$link_out" LINK_EVENT_UP
  stop "$link"
  end_input_of_link
  await_line "$server_out" closed
  stop "$server"
}

case_terminate() {
  start_server --port 0
  kill -TERM "$server"
  await_line "$server_out" stopped
  await_end "$server" 0
}

expect_refused() { # part of the message, arguments of ftc...
  run "${@:2}"
  expect "status of ftc ${*:2}" 2 "$status"
  expect_holds "ftc ${*:2}" "$1" "$output"
}

case_refusals() {
  expect_refused "which command?"
  expect_refused "dance" dance
  expect_refused "--port is required" serve
  expect_refused "--port: '65536' is not a decimal number from 0 to 65535" serve --port 65536
  expect_refused "--port: '0x9' is not a decimal" serve --port 0x9
  expect_refused "--host: 'localhost' is not a dotted IPv4" serve --port 0 --host localhost
  expect_refused "--mode: loud not in" serve --port 0 --mode loud
  expect_refused "--rate: is for --mode push only" serve --port 0 --rate 1
  expect_refused "--answer: is for --mode balance only" serve --port 0 --mode push --answer x
  expect_refused "--size: '5242868' is not a decimal" serve --port 0 --mode push --size 5242868
  expect_refused "SERVER is required" link
  expect_refused "'127.0.0.1' has no port" link 127.0.0.1
  expect_refused "':1' has no host" link :1
  expect_refused "'0' is not a port" link 127.0.0.1:0
  expect_refused "'65536' is not a port" link 127.0.0.1:65536
  expect_refused "'127.0.0.256' is not a dotted IPv4" link 127.0.0.256:1
  expect_refused "'010.0.0.1' is not a dotted IPv4" link 127.0.0.1:1 010.0.0.1:1
  expect_refused "At Most 5 required" link 127.0.0.1:{1,2,3,4,5,6}
  expect_refused "--ask is required" balance localhost:1
  expect_refused "--ask: '256' is not a decimal" balance localhost:1 --ask 256
  expect_refused "'a b' is neither" balance "a b:1" --ask 1

  start_server --port 0
  run serve --port "${address#*:}"
  expect "port that is taken" \
    "1 ftc: cannot listen on $address: the port is in use" "$status $output"
  stop "$server"
  run serve --port 0 --host 192.0.2.1
  expect "another machine's address" \
    "1 ftc: cannot listen on 192.0.2.1:0: this machine does not have the address" "$status $output"
}

case_help() { # FTC_VERSION is what the program calls its version
  run --version
  expect "version" "0 ftc $FTC_VERSION" "$status $output"
  run link --help
  expect_holds "usage" "Usage: ftc link [OPTIONS] SERVER..." "$output"
}

# The examples take the client's place.

case_host() {
  start_server --port 0
  run 127.0.0.1 "${address#*:}"
  expect_holds "answer" $'answer: hello' "$output"
  stop "$server"
}

case_poll_loop() {
  local answers
  start_server --port 0
  answers=$(printf 'one\ntwo\nthree\n' | timeout "$limit" "${client[@]}" 127.0.0.1 "${address#*:}")
  expect "answers" $'link event 1\npackage: one\npackage: two\npackage: three' "$answers"
  stop "$server"
}

"case_$case_name"
expect_none_running

#!/bin/bash
# Runs the program ftc as people run it, one case at a time.
# usage: ftc_test.sh FTC CASE [HOST_EXAMPLE POLL_LOOP_EXAMPLE]
set -euo pipefail

ftc=$1
case_name=$2
host_example=${3:-}
poll_loop_example=${4:-}

limit=30 # seconds for anything that is waited for

work=$(mktemp -d)
declare -A running=() # process id → what it is
pipes=0

fail() { # what is wrong
  echo "ftc_test: $case_name: $1" >&2
  exit 1
}

clean_up() {
  local pid
  for pid in "${!running[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap clean_up EXIT

# Starts ftc in the background with its output in a pipe: $pid, and $out to read from.
start() { # input, arguments of ftc...
  local pipe=$work/out.$((++pipes))
  mkfifo "$pipe"
  "$ftc" "${@:2}" <"$1" >"$pipe" 9>&- &
  pid=$!
  running[$pid]="ftc ${*:2}"
  exec {out}<"$pipe"
}

# Reads up to the first line that holds the text: $line. What was passed over: $passed.
await_line() { # descriptor, text
  passed=()
  while IFS= read -r -t "$limit" -u "$1" line; do
    [[ $line == *"$2"* ]] && return
    passed+=("$line")
  done
  fail "'$2' was not printed after: ${passed[*]:-nothing}"
}

start_server() { # arguments of ftc serve: $server, $server_out, $address
  start /dev/null serve "$@"
  await_line "$out" "listening on"
  server=$pid server_out=$out address=${line#listening on }
}

# Starts ftc link: $link, $link_out; descriptor 9 is the writing end of its input.
start_link() { # arguments of ftc link...
  mkfifo "$work/in"
  exec 9<>"$work/in" # to write alone would wait for the reader
  start "$work/in" link "$@"
  link=$pid link_out=$out
}

end_input_of_link() {
  exec 9>&-
}

await_end() { # process id, exit status
  local status=0
  timeout "$limit" tail --pid="$1" -s 0.1 -f /dev/null || fail "${running[$1]} does not end"
  wait "$1" || status=$?
  ((status == $2)) || fail "${running[$1]} ended with status $status instead of $2"
  unset "running[$1]"
}

stop() { # process id, signal
  kill "-$2" "$1"
  await_end "$1" 0
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

# Runs ftc to its end: $status and $output, standard error included.
run() { # arguments of ftc...
  status=0
  output=$(timeout "$limit" "$ftc" "$@" 2>&1) || status=$?
}

# A port that nothing listens on.
find_dead_address() {
  start_server --port 0
  stop "$server" TERM
}

case_demo() {
  run demo
  expect "status" 0 "$status"
  local steps='2. *LINK_EVENT_UP*5. *LINK_EVENT_CLOSED*6. *LINK_EVENT_UP*All 10 steps happened'
  [[ $output == *$steps* ]] || fail "the steps are not told: $output"
}

case_echo() {
  local mode answers
  for mode in 0 1; do
    start_server --port 0 --event-mode "$mode"
    answers=$(printf 'one\n\ngr\xc3\xbcn\na\x01b\n' | timeout "$limit" "$ftc" link "$address")
    expect "answers in event mode $mode" \
      $'LINK_EVENT_UP\n3 bytes: one\n0 bytes: \n5 bytes: gr\xc3\xbcn\n3 bytes: hex 610162' \
      "$(without_times <<<"$answers")"
    answers=$(echo last | timeout "$limit" "$ftc" link --hex "$address")
    expect "hex answer" $'LINK_EVENT_UP\n4 bytes: hex 6c617374' "$(without_times <<<"$answers")"
    stop "$server" TERM
  done
}

case_push() {
  start_server --port 0 --mode push --count 20 --rate 200 --size 100
  start_link "$address"
  await_line "$link_out" LINK_EVENT_CLOSED
  await_end "$server" 0
  end_input_of_link
  await_end "$link" 0
  local numbers
  numbers=$(printf '%s\n' "${passed[@]}" | sed -nE 's/.*  100 bytes: push ([0-9]+) \.+$/\1/p')
  expect "pushed packages" "$(seq 20)" "$numbers"
}

case_balance() {
  start_server --port 0 --mode balance
  run balance "$address" --ask 255
  expect "own address" "0 $address" "$status $output"
  await_line "$server_out" "package of 2 bytes: hex 01ff"
  stop "$server" TERM

  start_server --port 0 --mode balance --event-mode 0 --answer $'a\tb'
  run balance "localhost:${address#*:}" --ask 0 --hex
  expect "answer that was set" "0 hex 610962" "$status $output"
  stop "$server" TERM
}

case_no_answer() {
  start_server --port 0 --mode mute
  status=0
  output=$(echo hi | timeout "$limit" "$ftc" link --wait 1 "$address" 2>&1) || status=$?
  expect "status of an unanswered request" 1 "$status"
  expect_holds "its reason" "1 sent, but 0 received" "$output"

  start /dev/null balance "$address" --ask 1
  local balance=$pid
  await_line "$server_out" "package of 2 bytes: hex 0101"
  kill -KILL "$server"
  await_end "$server" 137
  await_end "$balance" 1

  find_dead_address
  status=0
  output=$(echo hi | timeout "$limit" "$ftc" link --connect-wait 1 "$address" 2>&1) || status=$?
  expect "status without a link" 1 "$status"
  expect_holds "its reason" "no link within 1 seconds" "$output"
}

case_reconnect() {
  start_server --port 0
  start_link "$address"
  await_line "$link_out" LINK_EVENT_UP
  kill -KILL "$server"
  await_end "$server" 137
  start_server --port "${address#*:}"
  await_line "$link_out" LINK_EVENT_CLOSED
  echo "sent without a link" >&9
  await_line "$link_out" LINK_EVENT_UP
  await_line "$link_out" "19 bytes: sent without a link"
  end_input_of_link
  await_end "$link" 0
  stop "$server" INT
}

case_interrupt() {
  start_server --port 0
  start_link "$address"
  await_line "$link_out" LINK_EVENT_UP
  stop "$link" INT
  end_input_of_link
  await_line "$server_out" closed
  stop "$server" INT
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
  expect_refused "--port: Value 65536 not in range" serve --port 65536
  expect_refused "--port: Value 9x not in range" serve --port 9x
  expect_refused "--host: 'localhost' is no dotted IPv4" serve --port 0 --host localhost
  expect_refused "--mode: loud not in" serve --port 0 --mode loud
  expect_refused "--rate: is for --mode push only" serve --port 0 --rate 1
  expect_refused "--answer: is for --mode balance only" serve --port 0 --mode push --answer x
  expect_refused "--size: Value 5242868 not in range" serve --port 0 --mode push --size 5242868
  expect_refused "servers is required" link
  expect_refused "'127.0.0.1' has no port" link 127.0.0.1
  expect_refused "':1' has no host" link :1
  expect_refused "'0' is no port" link 127.0.0.1:0
  expect_refused "'65536' is no port" link 127.0.0.1:65536
  expect_refused "'127.0.0.256' is no dotted IPv4" link 127.0.0.256:1
  expect_refused "'010.0.0.1' is no dotted IPv4" link 127.0.0.1:1 010.0.0.1:1
  expect_refused "At Most 5 required" link 127.0.0.1:{1,2,3,4,5,6}
  expect_refused "--ask is required" balance localhost:1
  expect_refused "--ask: Value 256 not in range" balance localhost:1 --ask 256
  expect_refused "'a b' is neither" balance "a b:1" --ask 1

  start_server --port 0
  run serve --port "${address#*:}"
  expect "status for a port that is taken" 1 "$status"
  expect_holds "its reason" "$address cannot be listened on" "$output"
  stop "$server" TERM
}

case_examples() {
  start_server --port 0
  local port=${address#*:} answers
  answers=$(timeout "$limit" "$host_example" 127.0.0.1 "$port")
  expect "answer to the host" "answer: hello" "$answers"
  answers=$(printf 'one\ntwo\nthree\n' | timeout "$limit" "$poll_loop_example" 127.0.0.1 "$port")
  expect "answers to the loop" $'link event 1\npackage: one\npackage: two\npackage: three' "$answers"
  stop "$server" TERM
}

"case_$case_name"
((${#running[@]} == 0)) || fail "still running: ${running[*]}"

#!/bin/bash
# Runs the program ftc as people run it, one case at a time.
# usage: ftc_test.sh CASE FTC [-- CLIENT]
# FTC and CLIENT are programs with what runs them. CLIENT links to the servers; the default is FTC.
set -euo pipefail

# Signals reach a Windows program only when this script is in its Wine session.
if [[ "$* " == *"/wine-run "* && -z ${FTCLIENT_WINE_SESSION:-} ]]; then
  exec "$(dirname "$0")/../../scripts/wine-session" "$0" "$@"
fi

# A window is shown on a display of its own.
if [[ $1 == glib_window && -z ${FTC_TEST_DISPLAY:-} ]]; then
  type xvfb-run xauth xdotool || { echo "skipped: a program is missing" && exit 77; }
  FTC_TEST_DISPLAY=own exec xvfb-run -a "$0" "$@"
fi

case_name=$1
mapfile -t ftc < <(printf '%s\n' "${@:2}" | sed '/^--$/,$d')
mapfile -t client < <(printf '%s\n' "${@:2}" | sed '1,/^--$/d')
((${#client[@]} > 0)) || client=("${ftc[@]}")
source "$(dirname "$0")/programs.sh"

# Starts ftc link: $link, $link_out; descriptor 9 is the writing end of its input.
start_link() { # arguments of ftc link...
  mkfifo "$work/in"
  exec 9<>"$work/in" # to write alone would wait for the reader
  start "$work/in" "${client[@]}" link "$@"
  link=$pid link_out=$out
}

# Runs the client to its end: $status and $output, standard error included.
run() { # arguments...
  status=0
  output=$(timeout "$limit" "${client[@]}" "$@" 2>&1) || status=$?
}

case_demo() {
  local steps='2. *LINK_EVENT_UP*5. *LINK_EVENT_CLOSED*6. *LINK_EVENT_UP*All 10 steps happened'
  run demo
  [[ "$status $output" == 0*$steps* ]] || fail "the steps are not told: $status $output"
}

expect_answers() { # expected lines of ftc link
  expect "answers" "$1" "$(sed -nE '/  waiting for the link/d; s/^[0-9:.]{12}  //p' <<<"$output")"
}

case_echo() {
  local long=$(seq -s ' ' 50000)
  start_server --port 0
  run link "$address" < <(printf '1\n\ngr\xc3\xbcn\na\x00b\x1a\x01\r\n\xff\xfe\n\xc2\x9b\n%s\n' "$long")
  local expected=$'LINK_EVENT_UP\n1 byte: 1\n0 bytes: \n5 bytes: gr\xc3\xbcn\n'
  expected+=$'6 bytes: hex 6100621a010d\n2 bytes: hex fffe\n2 bytes: hex c29b\n'"${#long} bytes: $long"
  expect_answers "$expected"
  end INT "$server" 0
}

case_json() {
  type jq || { echo "skipped: jq is missing" && exit 77; }
  start_server --port 0
  run link --json "$address" < <(printf 'a"b\\c\tgr\xc3\xbcn\n\x00\xff\n')
  local bodies=$'\ta"b\\\\c\\tgrün\n' objects
  objects=$(grep '^{' <<<"$output" | jq -r 'select(.event != "connecting") |
    [.event, .text // .hex // .package_bytes // .server] | @tsv' | LC_ALL=C sort)
  expect "objects" $'end\t13\npackage\t00ff\npackage'"${bodies}"$'request\t00ff\nrequest'"${bodies}up"$'\t'"$address" "$objects"
  end INT "$server" 0
}

case_bench() {
  type jq || { echo "skipped: jq is missing" && exit 77; }
  start_server --port 0
  run bench "$address" --json --warm-up 0 --count 500 --in-flight 20 --size 1000
  expect "figures" true "$(grep '^{' <<<"$output" | jq '.round_trips == 500 and .min_us > 0 and
    .min_us <= .p50_us and .p50_us <= .p99_us and .p99_us <= .p99_9_us and .p99_9_us <= .max_us and
    (.sent_bytes_per_second / .per_second | round) == 1000')"
  end INT "$server" 0
  start_server --port 0 --mode push --rate 500
  run bench "$address"
  [[ "$status $output" == "1 "*"$address does not echo: "*"; answered 64 bytes: push 1 "* ]] ||
    fail "a server that pushes: $status $output"
  end INT "$server" 0
  echo 'on any request, answer request; answer request' >"$work/script"
  start_server --port 0 --script "$work/script"
  run bench "$address" --size 0 --warm-up 0 --count 500
  [[ "$status $output" == "1 "*"it answered too often" ]] || fail "two answers: $status $output"
  end INT "$server" 0
}

case_manual() {
  type groff || { echo "skipped: groff is missing" && exit 77; }
  local option command
  run manual
  expect "warnings of groff" "" "$(groff -ww -z -man -Tutf8 <<<"$output" 2>&1)"
  for command in $("${client[@]}" --help | sed '1,/^Subcommands:/d; /^$/,$d' | awk '{print $1}'); do
    for option in "ftc $command" $("${client[@]}" "$command" --help | grep -oE '^  --[a-z-]+'); do
      grep -qe "${option//-/\\\\-}" <<<"$output" || fail "the manual lacks $option of $command"
    done
  done
}

case_completion() {
  local words offered
  run completion bash
  eval "$output"
  while IFS=@ read -r words offered; do
    read -ra COMP_WORDS <<<"$words"
    [[ $words != *" " ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _ftc
    expect "words for <$words>" "$offered" "${COMPREPLY[*]}"
  done <<'END'
ftc b@balance bench
ftc serve --mode @echo push mute balance
ftc serve --mode = p@push
ftc serve --port @
ftc link --js@--json
ftc completion z@zsh
END
}

# Looks at the terminal until it shows all the texts: $screen.
await_screen() { # texts...
  local text end=$((SECONDS + limit))
  for text in "$@"; do
    until screen=$("${tmux[@]}" capture-pane -p) && [[ $screen == *"$text"* ]]; do
      ((SECONDS < end)) || fail "the terminal does not show '$text': $screen"
    done
  done
}

case_live_view() {
  type tmux || { echo "skipped: tmux is missing" && exit 77; }
  tmux=(tmux -S "$work/tmux" -f /dev/null)
  local act="trap : INT; \"\$@\"; echo ended \$?; stty -a | grep -o 'icanon.* echo '"
  start_server --port 0
  trap '"${tmux[@]}" kill-server; kill -KILL "${!running[@]}" || true; rm -rf "$work"' EXIT
  # The system refuses to connect to the first server, and the library writes a line about that.
  LC_ALL=C.UTF-8 "${tmux[@]}" new-session -d -x 90 -y 30 \
    bash -c "$act; read; $act; exec cat" bash "${ftc[@]}" link 255.255.255.255:1 "$address"
  await_screen "BeginConnect failed" "1 link, 0 lost, 1 failed attempt" "$address (server 2 of 2)"
  "${tmux[@]}" send-keys grünxö BSpace BSpace Enter unfinished
  await_screen $'  5 bytes: grün\n' "> unfinished" "1 package " " 5 bytes "
  "${tmux[@]}" resize-window -x 60 -y 15
  "${tmux[@]}" send-keys C-u more C-d
  await_screen "BeginConnect failed" "2 packages" $'ended 0\nicanon'
  "${tmux[@]}" send-keys Enter
  await_screen "1 link" $'\n>'
  kill -QUIT "$(pgrep -f "^${ftc[*]} link .*$address")"
  await_screen $'enough.\nbash' $'ended 131\nicanon'
  end INT "$server" 0
}

case_push() {
  start_server --port 0 --mode push --count 20 --rate 200 --size 100
  start_link "$address"
  await_line "$link_out" LINK_EVENT_CLOSED
  await_end "$server" 0
  exec 9>&-
  await_end "$link" 0
  expect "pushed packages" "$(seq 20)" \
    "$(printf '%s\n' "${passed[@]}" | sed -nE 's/.*  100 bytes: push ([0-9]+) \.+$/\1/p')"
}

case_balance() {
  start_server --port 0 --mode balance --host 0.0.0.0
  local reached=127.0.0.2:${address#*:}
  run balance "$reached" --ask 010
  expect "reached address" "0 $reached" "$status $output"
  await_line "$server_out" "package of 2 bytes: hex 010a"
  end INT "$server" 0

  start_server --port 0 --mode balance --event-mode 0 --answer $'a\tb'
  run balance "localhost:${address#*:}" --ask 255 --hex
  expect "answer that was set" "0 hex 610962" "$status $output"
  end INT "$server" 0
}

case_failover() {
  start_server --port 0
  local first=$server first_address=$address
  start_server --port 0
  start_link --hex "$first_address" "$address"
  await_line "$link_out" LINK_EVENT_UP
  end KILL "$first" 137
  await_line "$link_out" LINK_EVENT_CLOSED
  echo "no link" >&9
  await_line "$link_out" LINK_EVENT_UP
  await_line "$link_out" "7 bytes: hex 6e6f206c696e6b"
  end INT "$link" 0
  await_line "$server_out" closed
  # A Windows program is told of the end of its console, and these have none.
  end "$([[ -n ${FTCLIENT_WINE_SESSION:-} ]] && echo INT || echo TERM)" "$server" 0
  await_line "$server_out" stopped
}

# One link that the client ends, and one on which it sends a heartbeat and a request.
expect_session() { # third request of the first link, its answers
  run link "$address" <<<$'one\ntwo\n'"$1"
  expect_answers "$2"
  exec 8<>"/dev/tcp/${address/://}"
  printf '\1\0\0\0\0\0\0\3\xb7\xbd\xff\xffHB\0\1\0\0\0\0\0\0\3\x9e\x9d\x9c\xffabc' >&8
  expect "bytes up to the server's end" 300012 "$(timeout "$limit" wc -c <&8)"
  exec 8>&-
}

# A scripted session passes through a tap, and the recording takes the server's place.
case_tap() {
  local answers=$'LINK_EVENT_UP\n2 bytes: hex 0061\n3 bytes: ...\n5 bytes: later' server_address last began
  cat >"$work/script" <<'END'
on request "one", answer hex 0061; after 300 ms send "later"  # a comment
on request beginning "tw", answer 3 bytes; send damaged "x"
on request "abc", answer 300000 bytes; close
on any request, send damaged "y"
END
  start_server --port 0 --script "$work/script"
  server_address=$address
  start /dev/null "${ftc[@]}" tap 127.0.0.1:0 "$address" --record "$work/recording"
  local tap=$pid tap_out=$out
  await_line "$tap_out" "listening on"
  address=${line#listening on }
  expect_session three "$answers"
  await_line "$tap_out" "closed by the application: -> 3 packages (47 bytes), <- 5 packages (72 "
  [[ ${passed[*]} == *"1 up: "*" -> $server_address "* &&
    ${passed[*]} == *"<- WRONG CHECKSUM 87FFFFFE, right is 87FFFFFF: package of 1 byte: x "* ]] ||
    fail "the tap tells something else: ${passed[*]}"
  end INT "$tap" 0
  end INT "$server" 0
  for last in three four; do
    began=${EPOCHREALTIME/[.,]/}
    start_server --port 0 --replay "$work/recording" --once --speed 0.5
    expect_session "$last" "$answers"
    ((${EPOCHREALTIME/[.,]/} - began > 500000)) || fail "the replay does not take its time"
    await_end "$server" "$([[ $last == three ]] && echo 0 || echo 1)"
    await_line "$server_out" "5 of 5 steps played"
  done
  [[ ${passed[*]} == *"request 3 differs, recorded was 5 bytes: three"* ]] ||
    fail "the different request is not named: ${passed[*]}"
}

# Status and text of each outcome, then the arguments; the input is one line.
case_replies() { # FTC_VERSION is what the program calls its version
  local reply arguments dead
  start_server --port 0 --mode mute
  # Nothing listens there as long as the server has its port: no other test is given that one.
  dead=127.0.0.2:${address#*:}
  while IFS=@ read -r reply arguments; do
    run $arguments <<<hi
    [[ "$status $output" == "${reply%% *} "*"${reply#* }"* ]] ||
      fail "ftc $arguments: expected <$reply>, got <$status $output>"
  done <<END
2 which command?@
2 --port is required@serve
2 --port: '65536' is not a decimal number from 0 to 65535@serve --port 65536
2 --host: 'localhost' is not a dotted IPv4@serve --port 0 --host localhost
2 --rate: is for --mode push only@serve --port 0 --rate 1
2 --answer: is for --mode balance only@serve --port 0 --mode push --answer x
2 --size: '5242868' is not a decimal@serve --port 0 --mode push --size 5242868
2 '127.0.0.1' has no port@link 127.0.0.1
2 ':1' has no host@link :1
2 '0' is not a port@link 127.0.0.1:0
2 '010.0.0.1' is not a dotted IPv4@link 127.0.0.1:1 010.0.0.1:1
2 At Most 5 required@link 1.1.1.1:1 1.1.1.1:1 1.1.1.1:1 1.1.1.1:1 1.1.1.1:1 1.1.1.1:1
2 --ask: '256' is not a decimal@balance localhost:1 --ask 256
2 'a/b' is neither@balance a/b:1 --ask 1
0 ftc $FTC_VERSION@--version
0 Usage: ftc link [OPTIONS] SERVER...@link --help
1 1 sent, but 0 received@link --wait 1 $address
1 ftc: connecting to $dead@link --connect-wait 1 $dead
1 ftc: no link within 1 second@link --connect-wait 1 $dead
1 ftc: no answer from $dead@balance $dead --ask 1
1 ftc: unknown host 'a..b'@balance a..b:1 --ask 1
1 ftc: cannot listen on $address: the port is in use@serve --port ${address#*:}
1 ftc: cannot listen on 192.0.2.1:0: this machine does not have the address@serve --port 0 --host 192.0.2.1
END
  cat <&"$server_out" >/dev/null &
  start <(yes) "${client[@]}" link "$address" # more than can be sent
  await_line "$out" LINK_EVENT_UP
  limit=10 end INT "$pid" 0
  end INT "$server" 0
}

# Applications that take a server's address and port.
run_application() { # input, expected output
  start_server --port 0
  run "${address%:*}" "${address#*:}" <<<"$1"
  expect "status and output" "0 $2" "$status $output"
  end INT "$server" 0
}

case_host() { run_application "" "answer: hello"; }
# What a server leaves unanswered is asked again when the link to the next one is up.
case_epoll_loop() {
  start_server --port 0 --mode mute
  local mute=$server mute_out=$server_out servers="${address/:/ }"
  start_server --port 0
  start <(printf 'one\ntwo') "${client[@]}" $servers ${address/:/ }
  await_line "$mute_out" "2 two"
  end KILL "$mute" 137
  await_line "$out" "package: 2 two"
  expect "events and answers" "link event 1 link event 3 link event 1 package: 1 one" "${passed[*]}"
  await_end "$pid" 0
  end INT "$server" 0
}

case_server() { # which is the client's program here
  mkfifo "$work/open"
  exec 8<>"$work/open"
  start "$work/open" "${client[@]}" 0
  server=$pid client=("${ftc[@]}")
  await_line "$out" "listening on"
  start_link "${line#listening on }"
  echo hello >&9
  await_line "$link_out" "answer to hello"
  await_line "$link_out" push
  exec 8>&-
  await_line "$link_out" LINK_EVENT_CLOSED
  await_end "$server" 0
  end INT "$link" 0
}

case_glib_window() {
  local title='^Linked to .*, packages: ' host
  start_server --port 0
  start /dev/null "${client[@]}" "${address%:*}" "${address#*:}"
  host=$pid
  timeout "$limit" xdotool search --sync --onlyvisible --name "$title" \
    windowfocus key h e l l o Return || fail "no link"
  timeout "$limit" xdotool search --sync --name "${title}1" || fail "no answer"
  end INT "$host" 0
  end INT "$server" 0
}

case_msvc_abi() { run_application "" ""; }

"case_$case_name"
((${#running[@]} == 0)) || fail "still running: ${running[*]}"

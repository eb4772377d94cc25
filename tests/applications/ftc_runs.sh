# Programs in the background, and what they print. Sourced by the scripts that run ftc; these set
# case_name. Arguments are those of the script.

limit=30 # seconds for anything that is waited for

# Signals reach a Windows program only when this script is in its Wine session.
if [[ "$* " == *"/wine-run "* && -z ${FTCLIENT_WINE_SESSION:-} ]]; then
  exec "$(dirname "${BASH_SOURCE[0]}")/../../scripts/wine-session" "$0" "$@"
fi

work=$(mktemp -d)
declare -A running=() # process id → what it is
pipes=0

fail() { # what is wrong
  echo "$(basename "$0"): $case_name: $1" >&2
  exit 1
}

kill_running() {
  local pid
  for pid in "${!running[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
}

clean_up() {
  kill_running
  rm -rf "$work"
}
trap clean_up EXIT

# Starts a program in the background with its output in a pipe: $pid, and $out to read from.
start() { # input, program and its arguments...
  local pipe=$work/out.$BASHPID.$((++pipes))
  mkfifo "$pipe"
  "${@:2}" <"$1" >"$pipe" 9>&- &
  pid=$!
  running[$pid]=${*:2}
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

# Starts what prints 'listening on ADDRESS': $server, $server_out, $address.
start_listening() { # program and its arguments...
  start /dev/null "$@"
  await_line "$out" "listening on"
  line=${line%$'\r'}
  server=$pid server_out=$out address=${line#listening on }
}

await_end() { # process id, exit status
  local status=0
  timeout "$limit" tail --pid="$1" -s 0.1 -f /dev/null || fail "${running[$1]} does not end"
  wait "$1" || status=$?
  ((status == $2)) || fail "${running[$1]} ended with status $status instead of $2"
  unset "running[$1]"
}

stop() { # process id
  kill -INT "$1"
  await_end "$1" 0
}

kill_at_once() { # process id
  kill -KILL "$1"
  await_end "$1" 137
}

expect_none_running() {
  ((${#running[@]} == 0)) || fail "still running: ${running[*]}"
}

# One line with each byte but the line end, 1200 times over.
print_large_line() {
  local escapes i
  printf -v escapes '\\x%02x' {0..9} {11..255}
  for ((i = 0; i < 1200; i++)); do printf '%b' "$escapes"; done
  echo
}

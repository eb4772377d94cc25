# Programs in the background of a test, which sources this file: ${ftc[@]} is the program ftc, with
# what runs it.

limit=30 # seconds for anything that is waited for
work=$(mktemp -d)
declare -A running=() # process id → what it is

trap 'kill -KILL "${!running[@]}" 2>/dev/null || true; rm -rf "$work"' EXIT

fail() { # what is wrong
  echo "$(basename "$0"):${case_name:+ $case_name:} $1" >&2
  exit 1
}

expect() { # what, expected, actual
  [[ $2 == "$3" ]] || fail "$1: expected <${2:0:900}>, got <${3:0:900}>"
}

# Starts a program in the background with its output in a pipe: $pid, and $out to read from.
start() { # input, program and its arguments...
  rm -f "$work/out" && mkfifo "$work/out"
  "${@:2}" <"$1" >"$work/out" 8>&- 9>&- &
  pid=$!
  running[$pid]=${*:2}
  exec {out}<"$work/out"
}

start_server() { # arguments of ftc serve: $server, $server_out, $address
  start /dev/null "${ftc[@]}" serve "$@"
  server=$pid server_out=$out
  await_line "$out" "listening on"
  address=${line#listening on }
}

# Reads up to the first line that holds the text: $line. What was passed over: $passed.
await_line() { # descriptor, text
  passed=()
  while IFS=$'\r' read -r -t "$limit" -u "$1" line; do
    [[ $line == *"$2"* ]] && return
    passed+=("$line")
  done
  fail "'$2' was not printed after: ${passed[*]:-nothing}"
}

await_end() { # process id, exit status
  local status=0
  timeout "$limit" tail --pid="$1" -s 0.1 -f /dev/null || fail "${running[$1]} does not end"
  wait "$1" || status=$?
  expect "status of ${running[$1]}" "$2" "$status"
  unset "running[$1]"
}

end() { kill "-$1" "$2" && await_end "$2" "$3"; } # signal, process id, exit status

#!/bin/bash
# Has every contender do small jobs with every body compared, and packages damaged in the pushes: one
# that loses, changes, reorders or does not verify bodies fails.
# usage: check_test.sh DIRECTORY     where the programs are
set -euo pipefail

programs=$1
faults=0

coproc SERVER { exec "$programs/versus_server"; }
read -r port <&"${SERVER[0]}"

for contender in ftclient thread asio asio-batch libuv zmq limit; do
  for job in "push 16 5000" "push 1024 5000" "push 65530 300" "push 1048576 30" \
    "pipeline 64 5000" "pipeline 16384 3000" "pipeline 1048576 150" "rtt 1024 200"; do
    read -r kind size count <<<"$job"
    for bodies in text random; do
      "$programs/versus_$contender" --check --port "$port" --job "$kind" --size "$size" \
        --count "$count" --bodies "$bodies" >/dev/null || {
        echo "check_test: $contender fails: $job $bodies"
        faults=$((faults + 1))
      }
    done
  done
done
((faults == 0)) && echo "check_test: every contender does every job"

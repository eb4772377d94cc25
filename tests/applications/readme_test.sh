#!/bin/bash
# The README shows the host that is built, and the documents' links lead somewhere.
# usage: readme_test.sh [ROOT]
set -euo pipefail

cd "${1:-$(dirname "$0")/../..}"

faults=0

fault() { # what is wrong
  echo "$1"
  faults=$((faults + 1))
}

first_cpp_block() { # file
  awk '/^```cpp$/ { inside = 1; next } /^```/ && inside { exit } inside' "$1"
}

# Prints the targets of links to files, from the root.
links_in() { # file
  grep -oE '\]\([^)#]+' "$1" | cut -c 3- | grep -vE '^[a-z]+:' | sed "s|^|$(dirname "$1")/|"
}

diff -u examples/host.cpp <(first_cpp_block README.md) ||
  fault "README.md: the host is not the text of examples/host.cpp"

for document in README.md docs/*.md; do
  while read -r target; do
    [[ -e $target ]] || fault "$document: $target does not exist"
  done < <(links_in "$document")
done

if ((faults > 0)); then
  echo "readme_test: $faults faults"
  exit 1
fi
echo "readme_test: passed"

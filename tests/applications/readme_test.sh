#!/bin/bash
# What the documents show is true: code compiles, the README's host is the one that is built, worked
# values come out as printed, links lead somewhere, and each header of the library is described.
# usage: readme_test.sh [ROOT]
set -euo pipefail

cd "${1:-$(dirname "$0")/../..}"
work=$(mktemp -d) wire=docs/wire-format.md faults=0 compiled=0 values=0
trap 'rm -rf "$work"' EXIT

fault() { # what is wrong
  echo "$1"
  faults=$((faults + 1))
}

write_blocks() { # language, file, prefix: a file PREFIX.NUMBER for each block of code
  awk -v fence="\`\`\`$1" -v prefix="$3." '
    $0 == fence { inside = 1; ++n; next } /^```/ { inside = 0 } inside { print > (prefix n) }' "$2"
}

# Each block is a whole source file. One for a system or toolkit that is missing here is skipped.
compile_block() { # file, document
  local flags compiler=("${CXX:-c++}") first=$(grep -m 1 '^#include <' "$1")
  [[ $first != *windows.h* ]] || compiler=(i686-w64-mingw32-g++-posix)
  flags=$(pkg-config --cflags Qt5Core 2>/dev/null || true)
  compiler+=(-std=c++17 -fsyntax-only -fPIC -I . ${flags//-I/-isystem } -x c++)
  "${compiler[@]}" - <<<"$first" 2>/dev/null || { echo "$2: skipped: $first" && return; }
  "${compiler[@]}" -Wall -Wextra -Werror "$1" || fault "$2: block ${1##*.} does not compile"
  compiled=$((compiled + 1))
}

expect_sum() { # as printed, body
  local sum=$(printf %b "$(sed 's/../\\x&/g' <<<"$2")" | "$work/sum")
  [[ $1 == "$sum" ]] || fault "$wire: $1 of <$2>, but its code makes $sum"
  values=$((values + 1))
}

for document in README.md docs/*.md; do
  write_blocks cpp "$document" "$work/$(basename "$document")"
  while IFS='#' read -r target anchor; do
    [[ -n $target ]] && target=$(dirname "$document")/$target || target=$document
    [[ -e $target ]] || fault "$document: $target does not exist"
    [[ -z $anchor ]] || sed -n 's/^##* //p' "$target" | tr 'A-Z ' 'a-z-' |
      tr -cd 'a-z0-9_\n-' | grep -x -- "$anchor" >/dev/null || fault "$document: no #$anchor"
  done < <(grep -oE '\]\([^)]+' "$document" | cut -c 3- | grep -vE '^[a-z]+:')
done
for block in "$work"/*.md.*; do compile_block "$block" "$(basename "${block%.*}")"; done
diff -u examples/host.cpp "$work/README.md.1" || fault "README.md: not the text of host.cpp"
for header in platform/*.h 00shcode/*/*.h sockif/*.h client/*.h; do
  grep -q "^| .*\`${header%.h}\`" docs/architecture.md || fault "architecture.md: no ${header%.h}"
done

# Each diagnostic line has a row with its number and the fixed parts of its text; no row is left over.
lines=docs/troubleshooting.md numbers=()
while read -r call; do
  number=$(sed -nE 's/^[^"0-9]*("[a-z.]*", )?([0-9]+),.*/\2/p' <<<"$call")
  numbers+=($number)
  rows=$(grep -E "^\| [a-z.]+ \| ${number:-[0-9]+} \|" $lines) || fault "$lines: no $number"
  while read -r part; do
    [[ $rows == *"$part"* ]] || fault "$lines: ${number:-no row} with <$part>"
  done < <(sed -E 's/"[a-z]+\.(cpp|h)"//' <<<"$call" | grep -oE '"[^"]{8,}"' |
    sed -E 's/"|\\n//g; s/%[a-z]+/\n/g')
done < <(cat 00shcode/*/*log.cpp | tr -d '\n' | tr ';' '\n' |
  grep -oE '(>WriteLog|LinkDown|CreateThreadError)\(([a-z]+|kSource|"[a-z.]+"), .*')
(($(grep -cE '^\| [a-z.]+ \| [0-9]+ \|' $lines) == ${#numbers[@]})) || fault "$lines: a row too many"

write_blocks c $wire "$work/sum"
cat "$work/sum.1" - <<'END' | "${CC:-cc}" -include stdint.h -include stdio.h -o "$work/sum" -x c -
int main(void) {
  uint8_t body[64], sum[4];
  check_sum(sum, body, fread(body, 1, sizeof body, stdin));
  printf("%02X%02X%02X%02X", sum[0], sum[1], sum[2], sum[3]);
}
END
bytes='[0-9A-F]{2}( +[0-9A-F]{2})+'
while IFS='|' read -r text package; do
  ((16#${package:8:8} * 2 == ${#package} - 24)) || fault "$wire: length of <$package>"
  [[ $text != \"* ||
    $(printf %s "${text//\"/}" | od -An -tx1 | tr -d ' ' | tr a-f A-F) == "${package:24}" ]] ||
    fault "$wire: body of $text"
  expect_sum "${package:16:8}" "${package:24}"
done < <(sed -nE "s/^(\| (.*) \| )?(01 00 00 00 +$bytes)( \|)?$/\2|\3/p" $wire | tr -d ' ')
rows=$(grep -E "^\| ($bytes) \| ($bytes) \|" $wire | tr -d ' ')
while IFS='|' read -r _ body sum _; do expect_sum "$sum" "$body"; done <<<"$rows"
echo "readme_test: $faults faults in $compiled blocks of code and $values worked values"
((faults == 0 && compiled > 0 && values >= 14))

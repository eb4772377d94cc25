#!/bin/bash
# Every measurement in short: no link and no answer is missing, and what lost links took comes back.
# usage: check_test.sh DIRECTORY     where the program is
set -euo pipefail

"$1/growth" links --links 1,20 --rates 0,50 --seconds 0.2
"$1/growth" bodies --sizes 1,2037,5000000 --seconds 0.2
"$1/growth" --json loss --links 3

#!/bin/sh
# Counts the primes below a limit, in ten blocks of trial division.
#
#     primes DECK      the deck is a text file whose first word is the limit
#
# STEM.dat gets one line for each block, with its end and the primes below that. Exit codes: 0 good, 1 wrong deck or usage,
# 3 stopped on request, nothing written.
#
# By hand it just does its work, also where there is no tlmctl. As a job it reports how far it is, and ends when it is asked
# to: tlmctl finds out which of the two it is.
set -eu
[ $# -eq 1 ] || { echo 'usage: primes DECK' >&2; exit 1; }
report() { if command -v tlmctl >/dev/null; then tlmctl report "$@"; fi; }
report attach

limit=
read -r limit rest <"$1" || true  # also if no line end follows
case $limit in
  '' | *[!0-9]*) echo "$1:1: the limit has to be a number" >&2; exit 1 ;;
esac
limit=$(echo "$limit" | sed 's/^0*\(.\)/\1/')  # leading zeros would make it octal
stem=$(basename "$1")
stem=${stem%.*}
trap 'rm -f "$stem.part"' EXIT
: >"$stem.part"

count=0
for block in 1 2 3 4 5 6 7 8 9 10; do
  if [ "$(report stop-requested)" = yes ]; then exit 3; fi
  from=$((limit * (block - 1) / 10))
  to=$((limit * block / 10))
  found=$(awk -v from=$from -v to=$to 'BEGIN {
    for (n = from < 2 ? 2 : from; n < to; n++) {
      for (d = 2; d * d <= n; d++) if (n % d == 0) break
      if (d * d > n) count++
    }
    print count + 0
  }')
  count=$((count + found))
  echo "$to $count" >>"$stem.part"
  report progress $((block * 10)) || true  # it returns at once when a stop is requested
done

mv "$stem.part" "$stem.dat"  # whole at once, so that a reader never sees a part
report results
report succeeded

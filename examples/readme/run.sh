#!/bin/sh
# run.sh PROGRAM BASE: runs a README example in a temporary directory (which
# is also its ORV_HOME), with BASE.in on standard input when there is one,
# and compares what it prints with BASE.out.
set -eu
prog=$1; base=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
input=/dev/null
if [ -f "$base.in" ]; then input=$base.in; fi
(cd "$tmp" && ORV_HOME="$tmp" "$prog" <"$input" >"$tmp/stdout")
diff -u "$base.out" "$tmp/stdout"

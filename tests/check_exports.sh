#!/bin/sh
# Fails when a library exports a C++ (mangled) symbol: the ABI is C only.
status=0
for lib in "$@"; do
  bad=$(nm -D --defined-only "$lib" | awk '{print $NF}' | grep '^_Z' | head -20)
  if [ -n "$bad" ]; then
    echo "$lib exports C++ symbols:"; echo "$bad"; status=1
  fi
  count=$(nm -D --defined-only "$lib" | wc -l)
  echo "$lib: $count exported symbols"
done
exit $status

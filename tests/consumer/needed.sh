#!/bin/bash
# usage: needed.sh LIBRARY NAME...
# The library asks the loader for libraries of these names only.
set -euo pipefail
library=$1
shift
for needed in $(readelf --dynamic "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
  case " $* " in
    *" ${needed%%.so*} "*) continue ;;
  esac
  case $needed in
    ld-linux*) ;;
    *)
      echo "needed at the start: $needed"
      exit 1
      ;;
  esac
done

#!/bin/bash
# Fails when a file of a layer includes a header of a layer that it may not
# see. The build refuses such an include in a source file already; this also
# covers headers that no source file of their own layer includes.
#   includes_point_down.sh SOURCE_DIR MANIFEST
# MANIFEST: one line per layer, "folder seen-folder...", written by the build.
set -euo pipefail
src=$1/src
manifest=$2
status=0
checked=0
while read -r folder seen; do
  [ -n "$folder" ] || continue
  if [ "$folder" = platform ]; then
    files=$(find "$src/platform" -maxdepth 1 -type f \( -name '*.h' -o -name '*.cpp' \))
  else
    files=$(find "$src/$folder" -type f \( -name '*.h' -o -name '*.cpp' \))
  fi
  for file in $files; do
    checked=$((checked + 1))
    while IFS= read -r included; do
      target=${included%%/*}
      [ "$target" = platform ] && [ "${included#platform/win32/}" != "$included" ] && target=platform/win32
      case " $seen $folder " in
        *" $target "*) ;;
        *) echo "${file#$src/} includes $included: $folder may not see $target"; status=1 ;;
      esac
    done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([a-z0-9_]*\/[^"]*\)".*/\1/p' "$file")
  done
done < "$manifest"
if [ $checked -eq 0 ]; then
  echo "no files checked: wrong source directory or manifest" >&2
  exit 2
fi
[ $status -eq 0 ] && echo "every include of $checked files points to its own layer or one below"
exit $status

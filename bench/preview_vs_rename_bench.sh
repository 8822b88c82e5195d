#!/usr/bin/env bash
# Whole process against whole process: previewing a regex substitution with
# captures over 100,000 names with `seqmate-cli --json`, against perl's
# file-rename in dry-run mode (names read from standard input) on the same files.
#   bench/preview_vs_rename_bench.sh BUILD_DIR
set -euo pipefail
build=$(cd "${1:-build-bench}" && pwd)
cli=$build/seqmate-cli
files=${PREVIEW_BENCH_FILES:-100000}
runs=${PREVIEW_BENCH_RUNS:-3}
if ! command -v file-rename >/dev/null; then
  echo "preview_vs_rename: file-rename is not installed (scripts/install-deps --bench)"; exit 0
fi
work=$(mktemp -d "$build/preview-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/plates"
(cd "$work/plates" && seq -f 'Plate_V1.%06g.exr' 1 "$files" | xargs touch)

now() { date +%s.%N; }
median() { sort -g | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }
ours=() theirs=()
for _ in $(seq "$runs"); do
  t0=$(now)
  HOME=$work "$cli" -t find-replace -s 'find=(\w+)\.(\d+)' -s 'replace=$2_$1' -s regex=1 \
    -s matchCase=1 --json "$work/plates" > /dev/null
  t1=$(now)
  find "$work/plates" -type f | file-rename -n 's/(\w+)\.(\d+)/$2_$1/' > /dev/null
  t2=$(now)
  ours+=("$(awk "BEGIN{print $t1 - $t0}")"); theirs+=("$(awk "BEGIN{print $t2 - $t1}")")
done
m1=$(printf '%s\n' "${ours[@]}" | median); m2=$(printf '%s\n' "${theirs[@]}" | median)
printf 'seqmate-cli preview: median %.2f s; file-rename -n: median %.2f s; ratio %.2f (%d names)\n' \
  "$m1" "$m2" "$(awk "BEGIN{print $m1 / $m2}")" "$files"

#!/usr/bin/env bash
# Commit benchmark: the whole `seqmate-cli --apply -y` run (adding, preview,
# commit, journal on) against a plain C++ loop of lstat + rename(2) over the
# same files, in the same run, on the disk and on tmpfs; and the default
# against `--jobs 1` (one move after another), which local disks must not beat.
#   bench/commit_bench.sh BUILD_DIR
# Environment: COMMIT_BENCH_FILES (100000), COMMIT_BENCH_FOLDERS (1: the files spread over this
# many folders), COMMIT_BENCH_RUNS (5: this machine is shared and noisy),
# COMMIT_BENCH_DISK (a folder on the disk; default BUILD_DIR), COMMIT_BENCH_TMPFS (/dev/shm).
set -euo pipefail
build=$(cd "${1:-build-bench}" && pwd)
cli=$build/seqmate-cli
loop=$build/bench/rename_loop
files=${COMMIT_BENCH_FILES:-100000}
folders=${COMMIT_BENCH_FOLDERS:-1}
runs=${COMMIT_BENCH_RUNS:-5}
places=("${COMMIT_BENCH_DISK:-$build}" "${COMMIT_BENCH_TMPFS:-/dev/shm}")
[ -x "$cli" ] && [ -x "$loop" ] || { echo "commit_bench: build seqmate-cli and rename_loop first" >&2; exit 2; }

# Work folders carry this run's id, so that an interrupted run still removes them.
cleanup() { for place in "${places[@]}"; do rm -rf "$place"/commit-bench-$$-*; done; }
trap cleanup EXIT
trap 'exit 130' INT TERM HUP

now() { date +%s.%N; }
median() { sort -g | awk '{v[NR]=$1} END {print (NR%2) ? v[(NR+1)/2] : (v[NR/2]+v[NR/2+1])/2}'; }

# One timed run: "cli", "jobs1" (seqmate-cli --jobs 1) or "loop", scenario
# "prefix" or "case", in a fresh folder of $folders folders.
timed() {
    local who=$1 scenario=$2 root=$3 work f
    work=$(mktemp -d "$root/commit-bench-$$-XXXXXX")
    mkdir "$work/files" "$work/home"
    local stem=shot. task=(-t prefix -s prefix=x_)
    if [ "$scenario" = case ]; then stem=SHOT.; task=(-t lower); fi
    local dirs=("$work/files")
    if ((folders > 1)); then
        dirs=()
        for ((f = 1; f <= folders; f++)); do dirs+=("$work/files/$(printf 'shot%03d' "$f")"); done
    fi
    for f in "${dirs[@]}"; do
        mkdir -p "$f"
        "$loop" make "$f" "$stem" $((files / ${#dirs[@]}))
    done
    sync -f "$work/files" 2>/dev/null || true
    local t0 t1 jobs=()
    [ "$who" = jobs1 ] && jobs=(--jobs 1)
    t0=$(now)
    if [ "$who" != loop ]; then
        HOME=$work/home XDG_DATA_HOME=$work/home/.local/share XDG_CONFIG_HOME=$work/home/.config \
            "$cli" "${task[@]}" "${jobs[@]}" --apply -y "$work/files" >/dev/null 2>"$work/err" \
            || { echo "commit_bench: seqmate-cli failed:" >&2; tail -5 "$work/err" >&2; exit 1; }
    else
        for f in "${dirs[@]}"; do
            if [ "$scenario" = case ]; then
                "$loop" case "$f" 2>/dev/null
            else
                "$loop" prefix "$f" x_ 2>/dev/null
            fi
        done
    fi
    t1=$(now)
    local expect=x_shot.000001.exr
    [ "$scenario" = case ] && expect=shot.000001.exr
    [ -e "${dirs[0]}/$expect" ] || { echo "commit_bench: $who did not rename ($scenario)" >&2; exit 1; }
    rm -rf "$work"
    awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f\n", b - a }'
}

# Ratios of the medians, and "paired": the median of each round's own ratio of
# the default to the loop. A round runs all three back to back, so the ratio
# follows the machine's load when it drifts during the run (it is shared).
# jobs1: the default against --jobs 1 (1.00 until moves run at once; on a
# local disk it should stay at or below 1.05).
printf '%-10s %-7s %10s %10s %10s %7s %7s %7s  (%s files in %s folder(s), median of %s runs)\n' \
    place scenario loop_s cli_s jobs1_s ratio paired jobs1 "$files" "$folders" "$runs"
for place in "${places[@]}"; do
    fs=$(df --output=fstype "$place" | tail -1)
    for scenario in prefix case; do
        declare -A times=([cli]= [jobs1]= [loop]=)
        order=(cli jobs1 loop)
        for ((r = 0; r < runs; r++)); do
            # Rotate the order so that no contestant always runs on a warmer cache.
            for ((k = 0; k < 3; k++)); do
                w=${order[(k + r) % 3]}
                times[$w]+="$(timed "$w" $scenario "$place") "
            done
        done
        read -ra cli_times <<<"${times[cli]}"
        read -ra loop_times <<<"${times[loop]}"
        l=$(printf '%s\n' ${times[loop]} | median)
        c=$(printf '%s\n' ${times[cli]} | median)
        j=$(printf '%s\n' ${times[jobs1]} | median)
        paired=$(for ((r = 0; r < runs; r++)); do
            awk -v c="${cli_times[r]}" -v l="${loop_times[r]}" 'BEGIN { print c / l }'
        done | median)
        printf '%-10s %-7s %10.3f %10.3f %10.3f %7.2f %7.2f %7.2f  loop: %s cli: %s jobs1: %s\n' \
            "$fs" "$scenario" "$l" "$c" "$j" "$(awk -v c="$c" -v l="$l" 'BEGIN { print c / l }')" \
            "$paired" "$(awk -v c="$c" -v j="$j" 'BEGIN { print c / j }')" \
            "${times[loop]}" "${times[cli]}" "${times[jobs1]}"
        unset times
    done
done

# What making each journal record durable would cost: the loop on the disk with
# two records per rename (before and after), by way of syncing them.
disk=${places[0]}
echo
echo "journal records on $(df --output=fstype "$disk" | tail -1), microseconds per rename:"
for sync in none write fdatasync fsync; do
    n=$files
    case $sync in fdatasync | fsync) n=$((files < 3000 ? files : 3000)) ;; esac
    work=$(mktemp -d "$disk/commit-bench-$$-XXXXXX")
    mkdir "$work/files"
    "$loop" make "$work/files" shot. "$n"
    t0=$(now)
    "$loop" prefix "$work/files" x_ "$sync" "$work/journal" 2>/dev/null
    t1=$(now)
    rm -rf "$work"
    awk -v a="$t0" -v b="$t1" -v n="$n" -v s="$sync" 'BEGIN { printf "  %-10s %8.1f  (%d renames)\n", s, (b - a) * 1e6 / n, n }'
done

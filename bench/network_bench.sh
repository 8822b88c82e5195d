#!/usr/bin/env bash
# Network-storage benchmark: renaming on a mount that waits on every request,
# as a file server across a network does (bench/latencyfs), where round trips
# rather than the processor set the time. `seqmate-cli --apply` (by default,
# and with `--jobs 1`, which moves one file after another) against a
# sequential lstat + rename(2) loop over an identical tree made in the same
# run: in many folders (which can be worked on at once), in one large folder
# (where the kernel lets one rename at a time in), and on a mount that refuses
# rename flags and hard links, as SMB does. Prints medians, ratios against the
# loop, requests per file, and the targets with pass or fail.
#   bench/network_bench.sh BUILD_DIR
# Environment: NETWORK_BENCH_FOLDERS (100) folders of NETWORK_BENCH_FOLDER_FILES (100) files,
# NETWORK_BENCH_ONE_FOLDER (2000 files), NETWORK_BENCH_BARE_FOLDERS (20) folders of
# NETWORK_BENCH_FOLDER_FILES on the mount without rename flags and links (0 leaves a layout
# out), NETWORK_BENCH_RUNS (3 runs of each; the 100 x 100 loop alone takes ~40 s a run),
# NETWORK_BENCH_DELAY_US (1000 per request), NETWORK_BENCH_OPTIONS (more mount options for
# every layout: "entry_timeout=S,attr_timeout=S" sets how long the kernel trusts what it
# looked up, 1 s by default), NETWORK_BENCH_CLI (another seqmate-cli to measure, to compare
# builds), NETWORK_BENCH_DIR (default BUILD_DIR).
set -euo pipefail
build=$(cd "${1:-build-bench}" && pwd)
cli=${NETWORK_BENCH_CLI:-$build/seqmate-cli}
loop=$build/bench/rename_loop
latencyfs=$build/bench/latencyfs
folders=${NETWORK_BENCH_FOLDERS:-100}
perFolder=${NETWORK_BENCH_FOLDER_FILES:-100}
oneFolder=${NETWORK_BENCH_ONE_FOLDER:-2000}
bareFolders=${NETWORK_BENCH_BARE_FOLDERS:-20}
runs=${NETWORK_BENCH_RUNS:-3}
delay=${NETWORK_BENCH_DELAY_US:-1000}
extra=${NETWORK_BENCH_OPTIONS:-}
place=${NETWORK_BENCH_DIR:-$build}
[ -x "$cli" ] && [ -x "$loop" ] || { echo "network_bench: build seqmate-cli and rename_loop first" >&2; exit 2; }

skip() { echo "network_bench: $*; skipped"; exit 0; }
[ -x "$latencyfs" ] || skip "latencyfs was not built (it needs libfuse3-dev: scripts/install-deps --bench)"
[ -c /dev/fuse ] || skip "/dev/fuse is missing"

work=$(mktemp -d "$place/network-bench-$$-XXXXXX")
mnt=$work/mnt
mkdir "$mnt" "$work/home"
fsPid=

# Unmounts and waits for latencyfs, which writes its counts on the way out.
unmount() {
    if mountpoint -q "$mnt"; then fusermount3 -u "$mnt" 2>/dev/null || umount "$mnt"; fi
    [ -z "$fsPid" ] || wait "$fsPid" || true
    fsPid=
}
# Never leave the mount behind, also after a failure or Ctrl-C; the work folder
# is removed only once nothing is mounted in it.
cleanup() {
    if mountpoint -q "$mnt"; then fusermount3 -u -z "$mnt" 2>/dev/null || umount -l "$mnt" || true; fi
    [ -z "$fsPid" ] || { kill "$fsPid" 2>/dev/null; wait "$fsPid" 2>/dev/null; } || true
    if mountpoint -q "$mnt"; then echo "network_bench: $mnt is still mounted" >&2; else rm -rf "$work"; fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM HUP

# Mounts BACKING at $mnt, the requests counted into STATS at unmount, with
# OPTIONS more mount options.
mountFs() {
    local more=${3:-}${3:+${extra:+,}}$extra
    local options="delay_us=$delay,stats=$2${more:+,$more}"
    "$latencyfs" "$1" "$mnt" -f -o "$options" 2>"$work/latencyfs.err" &
    fsPid=$!
    for ((i = 0; i < 500; i++)); do
        mountpoint -q "$mnt" && return 0
        kill -0 "$fsPid" 2>/dev/null || break
        sleep 0.01
    done
    return 1
}

mkdir "$work/probe"
if ! mountFs "$work/probe" "$work/probe.stats"; then
    unmount
    skip "cannot mount the latency file system ($(head -1 "$work/latencyfs.err"))"
fi
unmount

now() { date +%s.%N; }
median() { sort -g | awk '{v[NR]=$1} END {print (NR%2) ? v[(NR+1)/2] : (v[NR/2]+v[NR/2+1])/2}'; }

# One timed run of WHO (loop, cli or jobs1) on a fresh tree of COUNT folders of
# PER files behind a fresh mount with OPTIONS, so that every run starts with
# cold caches. Sets runSecs and runRequests (in this shell, so that the traps
# see the mount).
timed() {
    local who=$1 count=$2 per=$3 options=$4 back=$work/back f t0 t1
    rm -rf "$back"
    mkdir "$back"
    for ((f = 1; f <= count; f++)); do
        mkdir "$back/$(printf 'shot%03d' "$f")"
        "$loop" make "$back/$(printf 'shot%03d' "$f")" frame. "$per"
    done
    mountFs "$back" "$work/stats" "$options" || { echo "network_bench: the mount failed" >&2; exit 1; }
    local cliRun=(env HOME="$work/home" XDG_DATA_HOME="$work/home/.local/share"
        XDG_CONFIG_HOME="$work/home/.config" "$cli")
    [ "$who" = jobs1 ] && cliRun+=(--jobs 1)
    t0=$(now)
    if [ "$who" = loop ]; then
        for f in "$mnt"/*/; do "$loop" prefix "$f" x_ 2>/dev/null; done
    else
        "${cliRun[@]}" -t prefix -s prefix=x_ --apply -y "$mnt" >/dev/null 2>"$work/err" ||
            { echo "network_bench: seqmate-cli failed:" >&2; tail -5 "$work/err" >&2; exit 1; }
    fi
    t1=$(now)
    unmount
    local renamed
    renamed=$(find "$back" -type f -name 'x_frame.*' | wc -l)
    [ "$renamed" -eq $((count * per)) ] ||
        { echo "network_bench: $who renamed $renamed of $((count * per)) files" >&2; exit 1; }
    runSecs=$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }')
    runRequests=$(awk '$1 == "total" {print $2}' "$work/stats")
}

ratio() { # WHO: its median against the loop's
    [ -n "${med[$1]:-}" ] || { echo n/a; return; }
    awk -v a="${med[$1]}" -v b="${med[loop]}" 'BEGIN { printf "%.2f", a / b }'
}

hasJobs=no
HOME=$work/home "$cli" --help 2>&1 | grep -q -- '--jobs' && hasJobs=yes
[ "$hasJobs" = yes ] || echo "network_bench: $cli has no --jobs: its --jobs 1 runs are left out"
verdicts=()

# One layout: LABEL, COUNT folders of PER files, mount OPTIONS, the contestants
# besides the loop, and TARGET, the most the default may take of the loop's
# time ("-" for none).
layout() {
    local label=$1 count=$2 per=$3 options=$4 target=$6 w r k
    local who=(loop $5)
    [ "$hasJobs" = yes ] || who=("${who[@]/jobs1/}")
    read -ra who <<<"${who[*]}"
    ((count > 0 && per > 0)) || return 0
    local files=$((count * per))
    declare -A secs=() reqs=()
    for ((r = 0; r < runs; r++)); do
        # Rotate the order so that no contestant always runs first on a quieter machine.
        for ((k = 0; k < ${#who[@]}; k++)); do
            w=${who[(k + r) % ${#who[@]}]}
            timed "$w" "$count" "$per" "$options"
            secs[$w]+="$runSecs " reqs[$w]+="$runRequests "
        done
    done
    declare -gA med=()
    local -A perFile=()
    for w in "${who[@]}"; do
        med[$w]=$(printf '%s\n' ${secs[$w]} | median | awk '{ printf "%.2f", $1 }')
        perFile[$w]=$(awk -v q="$(printf '%s\n' ${reqs[$w]} | median)" -v n="$files" \
            'BEGIN { printf "%.1f", q / n }')
    done
    printf '%-24s %6d %8s %8s %6s %8s %6s   %s %s %s\n' "$label" "$files" \
        "${med[loop]}" "${med[cli]}" "$(ratio cli)" "${med[jobs1]:-n/a}" "$(ratio jobs1)" \
        "${perFile[loop]}" "${perFile[cli]}" "${perFile[jobs1]:-n/a}"
    for w in "${who[@]}"; do echo "    $w runs: ${secs[$w]}"; done
    if [ "$target" != - ]; then
        local verdict=fail
        awk -v r="$(ratio cli)" -v t="$target" 'BEGIN { exit !(r <= t) }' && verdict=pass
        verdicts+=("$(printf '%-24s default %sx of the loop, target <= %sx: %s' "$label" \
            "$(ratio cli)" "$target" "$verdict")")
    fi
}

echo "network_bench: $delay us per request${extra:+ ($extra)}, median of $runs runs"
printf '%-24s %6s %8s %8s %6s %8s %6s   %s\n' layout files loop_s cli_s ratio jobs1_s ratio \
    'requests per file: loop cli jobs1'
layout "$folders x $perFolder" "$folders" "$perFolder" "" "cli jobs1" 0.15
layout "1 x $oneFolder" 1 "$oneFolder" "" "cli" 1.0
layout "$bareFolders x $perFolder, no flags/links" "$bareFolders" "$perFolder" \
    "norenameflags,nolinks" "cli jobs1" -
((${#verdicts[@]} == 0)) || { echo "targets:"; printf '  %s\n' "${verdicts[@]}"; }

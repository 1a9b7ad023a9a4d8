#!/bin/bash
# Moves a copy of a real tree through the running daemon and compares checksums after each step. Runs in tests/sandbox,
# which removes every file it creates. `./dev demo` builds and starts it.
set -euo pipefail
export LC_ALL=C

if [[ $# -ne 1 || -z ${FILE_MIGRATE_SANDBOX-} ]]; then
    echo "demo: run ./dev demo" >&2
    exit 2
fi

readonly DAEMON=$1/service/file_migrate_orvane
readonly CTL=$1/ctl/orvanectl
readonly SOCKET=/dev/unix/socket/file_migrate_orvane
readonly HERE=/data/demo
readonly THERE=$FILE_MIGRATE_SECOND_FS/demo
readonly SCRATCH=$FILE_MIGRATE_SECOND_FS/demo-files # checksums and the daemon's log

die() {
    echo "demo: $*" >&2
    if [[ -s $SCRATCH/log ]]; then
        echo "the end of the daemon's log:" >&2
        tail -n 20 "$SCRATCH/log" >&2
    fi
    exit 1
}

start_daemon() {
    "$DAEMON" 2>"$SCRATCH/log" &
    daemon=$!
    trap 'kill "$daemon"' EXIT
    for _ in {1..100}; do
        if [[ -S $SOCKET ]]; then return; fi
        sleep 0.05
    done
    die "the daemon did not create its socket"
}

# Copies time-zone files and headers of the system, up to half of the free space on the smaller file system.
copy_real_tree() {
    local budget size source
    budget=$(df -k --output=avail /data "$FILE_MIGRATE_SECOND_FS" | tail -n 2 | sort -n | head -n 1)
    budget=$((budget / 2))
    mkdir "$HERE" "$THERE" "$HERE/tree"
    while read -r size source; do
        if ((size <= budget)); then
            mkdir -p "$HERE/tree${source%/*}"
            cp -a "$source" "$HERE/tree$source"
            budget=$((budget - size))
        fi
    done < <(du -sk /usr/share/zoneinfo /usr/include/* 2>/dev/null)
}

count() { find "$1" -type "$2" | wc -l; }

checksums() { (cd "$1" && find . -type f -print0 | sort -z | xargs -0 -r sha256sum); }

row() { printf '%-30s %7s %7s %8s %8s  %s\n' "$@"; }

# show WHAT TREE [MICROSECONDS]: print the row of a step. TREE is where the files are after it.
show() {
    local kilobytes verdict=equal seconds=-
    kilobytes=$("$CTL" du "$2") || die "du failed"
    checksums "$2" >"$SCRATCH/now"
    cmp -s "$SCRATCH/sent" "$SCRATCH/now" || verdict=DIFFERENT
    if [[ $# -eq 3 ]]; then seconds=$(($3 / 1000000)).$(printf %03d $(($3 / 1000 % 1000))); fi
    row "$1" "$(count "$2" f)" "$(count "$2" l)" "$((kilobytes / 1024)) MB" "$seconds" \
        "$verdict"
    if [[ $verdict != equal ]]; then
        diff "$SCRATCH/sent" "$SCRATCH/now" | head -n 10 >&2
        die "$2 differs from the original"
    fi
}

# migrate WHAT COMMAND SOURCE DESTINATION
migrate() {
    local start=${EPOCHREALTIME/./}
    "$CTL" "$2" "$3" "$4" || die "$2 $3 $4 failed"
    show "$1" "$4" $((${EPOCHREALTIME/./} - start))
}

migrate_all() {
    checksums "$HERE/tree" >"$SCRATCH/sent"
    row step files links size seconds checksums
    show "real files, copied" "$HERE/tree"
    migrate "moved" move "$HERE/tree" "$HERE/moved"
    "$CTL" mkdir "$HERE/children" || die "mkdir failed"
    migrate "moved child by child" move-children "$HERE/moved" "$HERE/children"
    links=$(count "$HERE/children" l)
    migrate "moved to the other fs" move "$HERE/children" "$THERE/tree"
    links=$((links - $(count "$THERE/tree" l)))
    migrate "moved back from it" move "$THERE/tree" "$HERE/back"
}

provoke_failure() {
    local status=0
    echo "\$ orvanectl move $HERE/back $HERE/missing/back"
    "$CTL" move "$HERE/back" "$HERE/missing/back" || status=$?
    [[ $status -eq 1 ]] || die "a move into a missing directory ended with status $status, not 1"
    echo "\$ orvanectl records -v"
    "$CTL" records -v >"$SCRATCH/records" || die "the records cannot be read"
    cat "$SCRATCH/records"
    grep -q "likely cause: .*$HERE/missing does not exist" "$SCRATCH/records" || die "its cause was not recorded"
}

mkdir "$SCRATCH"
start_daemon
copy_real_tree
migrate_all
echo
echo "The move to the other file system dropped $links symbolic links: it copies files and directories only."
echo
echo "A migration that fails, and its record:"
provoke_failure
echo
echo "All checksums equal: $(wc -l <"$SCRATCH/sent") files, migrated 4 times."

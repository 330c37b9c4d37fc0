#!/bin/sh
# zemdc -c -d against gzip -d -c and bzip2 -d -c on compressed Silesia files: best of three wall
# times each, side by side in one run. Run it alone on the machine.
# Usage: scripts/cli_bench.sh [ZEMDC [SILESIA_DIR]]
set -eu
Z=${1:-build/release/tools/cli/zemdc}
DIR=${2:-/tmp/silesia}
T=$(mktemp -d)
trap 'rm -rf "$T"' EXIT

best3() {  # the best wall time of three runs of "$@", in seconds
    best=
    for _ in 1 2 3; do
        s=$(date +%s.%N)
        "$@" > /dev/null
        t=$(echo "$(date +%s.%N) - $s" | bc)
        if [ -z "$best" ] || [ "$(echo "$t < $best" | bc)" = 1 ]; then best=$t; fi
    done
    echo "$best"
}

printf '%-10s %-4s %8s %9s %9s %7s\n' file fmt MB "zemdc s" "ref s" "x ref"
for f in "$DIR"/*; do
    name=$(basename "$f")
    gzip -6 -c "$f" > "$T/$name.gz"
    bzip2 -9 -c "$f" > "$T/$name.bz2"
    mb=$(echo "scale=1; $(wc -c < "$f") / 1000000" | bc)
    for fmt in gz bz2; do
        ref=gzip
        [ $fmt = bz2 ] && ref=bzip2
        ours=$(best3 "$Z" -c -d "$T/$name.$fmt")
        theirs=$(best3 $ref -d -c "$T/$name.$fmt")
        printf '%-10s %-4s %8s %9.3f %9.3f %7.2f\n' "$name" $fmt "$mb" "$ours" "$theirs" "$(echo "$theirs / $ours" | bc -l)"
    done
done

#!/bin/sh
# The zemdc tool against the reference tools, both ways, for every format this build writes or
# reads; then the file habits (-k, -f, -c, -t, standard input, mode and time, no partial output).
# Usage: cli_test.sh PATH_TO_ZEMDC
set -u
Z=$1
W=$(mktemp -d)
trap 'rm -rf "$W"' EXIT
cd "$W" || exit 1
fails=0
fail() { echo "FAIL: $*"; fails=$((fails + 1)); }

# Made-up inputs: empty, one byte, text with repeats, and a larger mixed one.
: > empty
printf 'x' > one
seq 1 200000 | awk '{ print $1, $1 * 7 % 13, "the quick brown fox", $1 % 97 }' > text
{ cat text; cat "$Z"; seq 1 400000; cat "$Z"; } > large

ref_compress() { case $1 in gz) gzip -c "$2" ;; lz4) lz4 -q -c "$2" ;; bz2) bzip2 -c "$2" ;; lzo) lzop -c "$2" ;; esac; }
ref_decompress() { case $1 in gz) gzip -d -c ;; lz4) lz4 -q -d -c ;; bz2) bzip2 -d -c ;; lzo) lzop -d -c ;; esac; }

for f in gz lz4 bz2 lzo; do
    # A format counts as written (or read) when the tool handles the empty file that way.
    writes=0; reads=0
    "$Z" -F $f -c empty > probe.$f 2>/dev/null && writes=1
    ref_compress $f empty > probe.$f && "$Z" -d -c probe.$f > /dev/null 2>&1 && reads=1
    echo "format $f: writes=$writes reads=$reads"
    for d in empty one text large; do
        if [ $writes = 1 ]; then
            for l in 1 6 9; do
                "$Z" -F $f -$l -c $d > ours.$f || fail "$f -$l: compress $d"
                ref_decompress $f < ours.$f | cmp -s - $d || fail "$f -$l: reference tool does not read ours ($d)"
            done
        fi
        if [ $reads = 1 ]; then
            ref_compress $f $d > theirs.$f
            "$Z" -d -c theirs.$f | cmp -s - $d || fail "$f: we do not read the reference tool's $d"
            "$Z" -t theirs.$f || fail "$f: -t on a good file"
            # Two members or frames in a row read as one.
            cat theirs.$f theirs.$f > twice.$f
            cat $d $d > twice
            "$Z" -d -c twice.$f | cmp -s - twice || fail "$f: concatenated streams ($d)"
        fi
    done
    [ $reads = 1 ] || continue
    # Truncated and damaged inputs: one line on stderr, exit 1, no output file, the input kept.
    ref_compress $f large > bad.$f
    size=$(wc -c < bad.$f)
    head -c $((size - 5)) bad.$f > cut.$f
    "$Z" -d cut.$f 2> err; rc=$?
    [ $rc = 1 ] || fail "$f: truncated input gives exit $rc"
    [ "$(wc -l < err)" = 1 ] || fail "$f: truncated input gives $(wc -l < err) lines"
    grep -q "cut.$f" err || fail "$f: the message does not name the file"
    [ -e cut ] && fail "$f: a truncated input left an output file"
    [ -e cut.$f ] || fail "$f: a failed input was removed"
    cp bad.$f flip.$f
    printf '\377\377\377\377\377\377\377\377' | dd of=flip.$f bs=1 seek=$((size / 2)) conv=notrunc 2>/dev/null
    "$Z" -t flip.$f 2> err && fail "$f: -t passes a damaged file"
    [ "$(wc -l < err)" = 1 ] || fail "$f: a damaged file gives $(wc -l < err) lines"
    "$Z" -d flip.$f 2>/dev/null; [ $? = 1 ] || fail "$f: damaged input does not exit 1"
    [ -e flip ] && fail "$f: a damaged input left an output file"
done

# The file habits, on whichever format the tool writes (gzip when it can).
f=gz; "$Z" -c empty > /dev/null 2>&1 || f=lz4
cp text t1; chmod 640 t1; touch -d '2021-03-04 05:06:07' t1
"$Z" -F $f t1 || fail "compress t1"
[ -e t1 ] && fail "the input stays without -k"
[ "$(stat -c %a t1.$f)" = 640 ] || fail "mode not kept"
[ "$(stat -c %Y t1.$f)" = "$(date -d '2021-03-04 05:06:07' +%s)" ] || fail "mtime not kept"
"$Z" -d t1.$f && cmp -s t1 text || fail "decompress t1"
[ "$(stat -c %Y t1)" = "$(date -d '2021-03-04 05:06:07' +%s)" ] || fail "mtime not kept on decompression"
"$Z" -k -F $f t1 && [ -e t1 ] || fail "-k"
"$Z" -d t1.$f 2> err; [ $? = 2 ] || fail "existing output without -f is not a warning"
grep -q 'already exists' err || fail "no 'already exists' message"
[ -e t1.$f ] || fail "the input went although nothing was written"
"$Z" -d -f t1.$f && cmp -s t1 text || fail "-f does not overwrite"
"$Z" -c -F $f t1 > t1.out && [ -e t1 ] || fail "-c removed its input"
"$Z" -d < t1.out | cmp -s - text || fail "standard input to standard output"
"$Z" -F $f < t1 | "$Z" -d | cmp -s - text || fail "a pipe both ways"
"$Z" -d nosuch.$f 2> err; [ $? = 1 ] || fail "a missing file is not an error"
"$Z" -d text 2> err; [ $? = 2 ] || fail "an unknown suffix is not a warning"
"$Z" -d -c text > /dev/null 2> err; [ $? = 1 ] || fail "plain text decodes"
ls -a | grep -q zemdc- && fail "a temporary file was left behind"
"$Z" --version > /dev/null && "$Z" -h > /dev/null || fail "--version, -h"
"$Z" --bogus 2>/dev/null; [ $? = 1 ] || fail "an unknown option is not an error"

[ $fails = 0 ] && echo "all passed"
[ $fails = 0 ]

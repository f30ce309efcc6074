#!/usr/bin/env bash
# usage: parallel.sh SCRIPT INPUT DIR PARTS [OPTION...]
# Works on PARTS parts of the file INPUT with GNU parallel, and leaves the results in DIR. OPTIONs
# go to `kestrel run`. After any failure start it again: complete parts are not done again.
#
# Environment: KESTREL, the command (kestrel); PARALLEL, more options for GNU parallel, such as
# "--sshloginfile machines" for machines that share INPUT, SCRIPT and DIR.
set -euo pipefail
if [ $# -lt 4 ]; then
    sed -n '2,4s/^# //p' "$0" >&2
    exit 2
fi
script=$1 input=$2 out=$3 parts=$4
shift 4
kestrel=${KESTREL:-kestrel}

# The check needs the options that name tables, too.
tables=() isValue=false
for option; do
    if $isValue || [[ $option == --table* ]]; then tables+=("$option"); fi
    [[ $option == --table || $option == --table-key || $option == --table-type ]] &&
        isValue=true || isValue=false
done
"$kestrel" check --distributable ${tables[@]+"${tables[@]}"} "$script"
seq "$parts" | parallel --will-cite --quote --retries 5 \
    "$kestrel" run "$script" --records "$input" --part "{}/$parts" --out "$out" "$@"

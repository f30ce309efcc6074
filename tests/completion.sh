#!/bin/bash
# Completes command lines as a user would in bash, and compares the words offered.
# usage: completion.sh COMMAND    (COMMAND is the kestrel to run)
. <("$1" completion bash) || exit 1
failures=0
# The words offered for the last of the arguments must have all of `$1`.
expect() {
    local wanted=$1 word
    shift
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    _kestrel
    for word in $wanted; do
        [[ " ${COMPREPLY[*]} " == *" $word "* ]] && continue
        failures=$((failures + 1))
        echo "$*: offers ${COMPREPLY[*]}, not $word"
    done
}
expect "run test query debug repl" kestrel ""
expect "profile prompt" kestrel p
expect "--records --coverage" kestrel run --
expect "csv tsv jsonl lines" kestrel run a.ks --format ""
expect "tree portable native" kestrel profile --tier ""
cd / && expect "tmp" kestrel run --records tm
exit $((failures > 0))

#!/bin/bash
# Runs the console examples of a document: in a block of ```console, the line that begins with "$ "
# is a command and the lines after it are what it prints.
# usage: console.sh COMMAND DOCUMENT    (COMMAND is the kestrel to run)
PATH=$(dirname "$1"):$PATH
blocks=0
failures=0
command=
expected=
state=outside
while IFS= read -r line; do
    case $state in
        outside)
            [ "$line" = '```console' ] && state=command
            ;;
        command)
            command=${line#'$ '}
            expected=
            state=output
            ;;
        output)
            if [ "$line" != '```' ]; then
                expected+=$line$'\n'
                continue
            fi
            state=outside
            blocks=$((blocks + 1))
            # The dot keeps the line ends that $() would drop.
            actual=$(bash -c "$command" </dev/null; echo .)
            if [ "$actual" != "$expected." ]; then
                failures=$((failures + 1))
                printf '%s\nprints:\n%s\ninstead of:\n%s\n' "$command" "${actual%.}" "$expected"
            fi
            ;;
    esac
done <"$2"
[ "$state" = outside ] && [ "$blocks" -gt 0 ] && [ "$failures" = 0 ]

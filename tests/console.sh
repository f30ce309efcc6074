#!/bin/bash
# Runs the examples of a document, in a folder of their own:
#   ```console       a line that begins with "$ " is a command, which goes on after a "\" or "|" at the
#                    end of the line and within single quotes; the lines after it are its output.
#                    Commands that begin with a program that is not installed are left out.
#   ```kestrel       a script; the block ```output after it is its output, messages last. A
#                    script without one prints nothing.
#   ```kestrel NAME  a script that is kept as the file NAME, for later commands
# usage: console.sh COMMAND DOCUMENT FILE...
# (COMMAND is the kestrel to run; the FILEs are copied to the folder)
PATH=$(dirname "$1"):$PATH
document=$2
unset KESTREL_INCLUDE
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
shift 2
[ $# = 0 ] || cp "$@" "$work" || exit 1
blocks=0
failures=0
command=
text=
script=
state=outside

# The output of `command` must be $1.
check() {
    if [[ $command =~ ^(mlr|jq)\  ]] && ! command -v "${BASH_REMATCH[1]}" >/dev/null; then
        echo "not installed: $command"
        command=
        return
    fi
    blocks=$((blocks + 1))
    # The dot keeps the line ends that $() would drop.
    local actual=$(cd "$work" && bash -c "$command" </dev/null; echo .)
    # A last line end may be missing.
    if [ "$actual" != "$1." ] && [ "$actual" != "${1%$'\n'}." ]; then
        failures=$((failures + 1))
        printf '%s\n%sprints:\n%s\ninstead of:\n%s\n' "$command" "$script" "${actual%.}" "$1"
    fi
    command=
    script=
}

goesOn() {
    local quotes=${command//[!\']/}
    [[ $command == *[\\\|] || $((${#quotes} % 2)) = 1 ]]
}

while IFS= read -r line; do
    if [ "$state" != outside ] && [ "$line" = '```' ]; then
        case $state in
            console | output) check "$text" ;;
            kestrel)
                script=$text
                printf '%s' "$text" >"$work/script.ks"
                command='kestrel run script.ks 2>.messages; cat .messages'
                ;;
            *) printf '%s' "$text" >"$work/${state#kestrel }" ;;
        esac
        state=outside
    elif [ "$state" = outside ]; then
        text=
        case $line in
            '```console' | '```output' | '```kestrel'*)
                state=${line#'```'}
                [ -n "$script" ] && [ "$state" != output ] && check ''
                ;;
        esac
    elif [ "$state" = console ] && goesOn; then
        command+=$'\n'$line
    elif [ "$state" = console ] && [ "${line:0:2}" = '$ ' ]; then
        [ -n "$command" ] && check "$text"
        text=
        command=${line#'$ '}
    else
        text+=$line$'\n'
    fi
done <"$document"
[ -n "$script" ] && check ''
[ "$state" = outside ] && [ "$blocks" -gt 0 ] && [ "$failures" = 0 ]

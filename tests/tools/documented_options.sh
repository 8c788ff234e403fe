#!/bin/bash
# Checks that the man page and the bash completion know the commands and options of the program's own help, and
# that the man page knows no others.
#
#   documented_options.sh VRX MAN_PAGE COMPLETION
set -u
PATH=$(dirname "$1"):$PATH
page=$(sed 's/\\-/-/g' "$2")
source "$3"

words() { tr ' ' '\n' <<<"$1" | sed '/^$/d' | sort -u; }

failures=0
# Compares two lists of words in any order.
expect_same() {
    local difference
    difference=$(diff <(words "$2") <(words "$3")) && return
    echo "$1 (<: in the help, >: in the other):"
    echo "$difference"
    failures=$((failures + 1))
}

options_of_help() { "$@" --help | sed '1,/^Options:/d;/^$/,$d' | grep -o -- '^ .*--[a-z][a-z-]*' | sed 's/.*--/--/' | grep -vx -- --help; }
section() { sed -n "/^\.S[HS] $1\$/,/^\.S[HS]/p" <<<"$page"; }
options_in() { grep -A1 '^\.TP' | grep '^\.B' | grep -o -- '--[a-z][a-z-]*'; }
complete_line() {
    COMP_WORDS=(vrx "$@")
    COMP_CWORD=$#
    _vrx
    echo "${COMPREPLY[@]}"
}

# The commands that the help of "vrx [COMMAND...]" lists.
commands_of_help() { vrx "$@" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z0-9]\+\).*/\1/p'; }

names=$(commands_of_help | xargs)
[[ -n $names ]] || { echo "vrx --help names no commands"; exit 1; }
expect_same "completion of vrx" "--help --version $names" "$(complete_line "")"
expect_same "completion of a command's beginning" "serve" "$(complete_line serv)"

# Those with commands of their own are described by them: "check plugin".
commands=()
for name in $names; do
    nested=$(commands_of_help "$name" | xargs)
    [[ -n $nested ]] || commands+=("$name")
    for second in $nested; do commands+=("$name $second"); done
    [[ -z $nested ]] || expect_same "completion of vrx $name" "--help $nested" "$(complete_line "$name" "")"
done
expect_same "the man page's commands" "${commands[*]}" "$(sed -n '/^\.SH COMMANDS/,/^\.SH EXIT/s/^\.SS //p' <<<"$page" | xargs)"

for command in "${commands[@]}"; do
    read -ra line <<<"$command"
    options=$(options_of_help vrx "${line[@]}" | xargs)
    [[ -n $options ]] || { echo "vrx $command --help names no options"; exit 1; }
    described=$(section "$command" | options_in | xargs)
    if [[ " $options " == *" --servport "* ]]; then
        described+=" $(section "SERVER OPTIONS" | options_in | xargs)"
    fi
    expect_same "the man page on vrx $command" "$options" "$described"
    expect_same "completion of vrx $command --" "--help $options" "$(complete_line "${line[@]}" --)"
done
exit $((failures > 0))

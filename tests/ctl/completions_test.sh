#!/bin/bash
# The completions and the man page list exactly the sub-commands and long options of the tool's help.
set -euo pipefail
cd "$(dirname "$0")/../.."

listed() {
    local command
    for command in $("$1" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'); do
        echo "$command '$("$1" "$command" --help | grep -oP '^  (-.,)?\K--(?!help)[a-z-]+' | paste -sd ' ')'"
    done
}
for command in '' $("$1" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'); do
    if "$1" $command --help | grep -nE '^.{81}'; then echo "the help of '$command' is wider than 80 columns" && exit 1; fi
done
table=$(listed "$1")
diff <(echo "$table") <(sed -n "s/^    \[\(.*\)\]='/\1 '/p" packaging/completion/orvanectl.bash)
diff <(echo "$table") <(sed -n "/^takes=(/,/^)/s/^    //p" packaging/completion/_orvanectl)
for word in $(tr -d \' <<<"$table"); do
    grep -qE "(^.It Cm|Fl) ${word#-}( |$)" docs/man/orvanectl*.1 || { echo "the man pages lack $word" && exit 1; }
done
for word in $(sed -n '/^inline.*RECORD_TYPES\[\]/,/};/s/[^"]*"\([A-Za-z_]*\)"[^"]*/\1 /gp' wire/record_format.h); do
    for file in packaging/completion/*; do
        grep -qE "[ '(]$word( |'|$)" "$file" || { echo "$file lacks the type $word" && exit 1; }
    done
done

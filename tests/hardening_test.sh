#!/bin/bash
# Every flag that hardens a program has reached the programs named in the arguments.
set -euo pipefail

for program in "$@"; do
    facts=$(readelf -hldW --dyn-syms "$program")
    code=$(objdump -d --no-show-raw-insn "$program")
    # shows WHAT TEXT PATTERN
    shows() { grep -qE -- "$3" <<<"$2" || { echo "$program: $1 is missing" && exit 1; }; }
    shows "a position-independent image" "$facts" 'Type: +DYN'
    shows "a table of calls that is read-only" "$facts" 'GNU_RELRO'
    shows "the resolution of all calls at the start" "$facts" 'FLAGS.* NOW|BIND_NOW'
    shows "a stack without code" "$facts" 'GNU_STACK .* RW  '
    shows "the stack protector" "$facts" '__stack_chk_fail'
    shows "a fortified function" "$facts" ' __[a-z]+_chk[@ ]'
    if [[ $facts == *X86-64* ]]; then
        # A frame of more than a page is taken page by page, with a probe of each.
        if grep -E 'sub +\$0x(100[1-9a-f]|10[1-9a-f].|1[1-9a-f]..|[2-9a-f]...|[0-9a-f]{5,8}),%rsp' <<<"$code"; then
            echo "$program: the probe of each page of a large frame is missing"
            exit 1
        fi
        # Some C libraries' start files lack the property, so the image as a whole does not have it.
        shows "the mark at the start of a function" "$(grep -A1 'TAVO.*>:$' <<<"$code")" 'endbr64'
    fi
done

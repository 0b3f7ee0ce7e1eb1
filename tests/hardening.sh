#!/usr/bin/env bash
# What the linker and the compiler did to make the library ($1) safe, read from the library.
set -euo pipefail
library=$1 failures=0
dynamic=$(readelf -dW "$library") segments=$(readelf -lW "$library")

# demand WHAT TEXT PATTERN: the text matches the pattern. refuse: it does not.
demand() { [[ $2 =~ $3 ]] || { echo "not so: $1" && failures=1; }; }
refuse() { [[ ! $2 =~ $3 ]] || { echo "not so: $1" && failures=1; }; }
# The machine code of function $1 of the module; that of the TLS library was made by others.
code() { objdump -dC --no-show-raw-insn "$library" | awk -v name="<brivasign::$1" \
  'index($0, name) && / <.*>:$/ { p = 1 } !NF { p = 0 } p'; }

demand "relocations are read-only" "$segments" 'GNU_RELRO'
demand "all names are bound at once" "$dynamic" 'FLAGS_1.* NOW'
refuse "no text relocations" "$dynamic" 'TEXTREL'
refuse "no folder to look for libraries" "$dynamic" 'RPATH|RUNPATH'
demand "the stack is not executable" "$segments" $'GNU_STACK[^\n]* RW  '
refuse "nothing is writable and executable" "$segments" 'RWE'
demand "stack protector" "$(code 'readReply[')" '__stack_chk_fail'
demand "_FORTIFY_SOURCE" "$(code 'writeLog(')" '__fprintf_chk'
exit "$failures"

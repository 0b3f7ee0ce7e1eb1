#!/usr/bin/env bash
# Holds the documents to what they promise: no link is dead where they are installed, every return
# code has its row, and every command runs, or documented_commands tells why it cannot.
source "$(dirname "$0")/support.sh"
tests=$(cd "$(dirname "$0")" && pwd)
sources=${tests%/tests/*}
setUp "$1" libp11-kit-dev test -d /usr/include/p11-kit-1
complain() { echo "$1" && failed=yes; }

# What is installed, and no more.
mkdir docs && cp "$sources/README.md" . && cp "$sources"/docs/*.{md,png} docs
for document in README.md docs/*.md; do
  while read -r link; do
    target=$(dirname "$document")/${link%%#*} heading='.*'
    [[ $link != '#'* ]] || target=$document
    [[ $link != *'#'* ]] || heading=$(tr - . <<<"${link#*#}")
    [[ $target == *.png && -s $target ]] || grep -qixE "#+ $heading" "$target" ||
      complain "$document: dead link $link"
  done < <(grep -oE '\]\([^):]+\)' "$document" | sed 's/^](//; s/)$//')
done
while read -r _ name value; do
  for library in pkcs11-brivasign{,-standard}; do
    ! grep -rqw "$name" "$sources/src/$library" ||
      grep -q "^| ${value%UL} | $name |" <(sed -n "/^## .$library.$/,/^## /p" docs/return-codes.md) ||
      complain "$library: no row for $name"
  done
done < <(grep '^#define CKR_' "$sources/include/pkcs11t.h")

# Does with the command $2 what documented_commands says, $1.
follow() {
  case $1 in
    both) follow here "$2" && follow here "${2/-standard/}" ;;
    here) eval "$2" >out 2>&1 || complain "fails: $2: $(tail -n 5 out)" ;;
    beside)
      eval "exec $2" >beside 2>&1 < <(yes) &
      helperPids=$!
      until grep -qs listening beside || ! kill -0 "$helperPids" 2>/dev/null; do sleep 0.1; done
      ;;
    *.sh | .ci/run)
      for word in $2; do
        [[ $word != -* && $word != "${2%% *}" ]] ||
          grep -qF -e "$word" "$sources/$1" "$tests/support.sh" || complain "$1 does not run: $2"
      done
      ;;
  esac
}

# Indented lines, and what else is set as code.
mapfile -t shown < <(awk 'sub(/^    /, "") { print; next }
  { while (match($0, /`[^`]+`/)) {
      print substr($0, RSTART + 1, RLENGTH - 2); $0 = substr($0, RSTART + RLENGTH) } }' \
  README.md docs/*.md | sed 's/  *# .*//')
mapfile -t rows < <(grep -v '^#' "$tests/documented_commands")
rm -r Library && mkdir build && PATH+=:$1
ln -s "$sources"/{examples,scripts} . && ln -s "$1" build/release
for code in "${shown[@]}"; do
  for index in "${!rows[@]}"; do
    # shellcheck disable=SC2053  # it is a pattern
    [[ $code == ${rows[index]%% => *} ]] || continue
    used[index]=yes
    follow "${rows[index]##* => }" "$code"
    continue 2
  done
  # A program of this system, by its path or with arguments.
  [[ $code != [a-z.]*[\ /]* || $code == *.so ]] || ! type -P "${code%% *}" >/dev/null ||
    complain "who runs it? $code"
done
for index in "${!rows[@]}"; do [[ ${used[index]-} ]] || complain "not shown: ${rows[index]}"; done
[[ -z ${failed-} ]] || fail "the documents promise too much"

#!/usr/bin/env bash
# The install script of a release ($1) with the module $2 and its diagnosis $3: what it leaves
# behind under a hostile umask, among folders of others.
set -euo pipefail
module=lib/pkcs11/$(basename "$2") documents=share/doc/pkcs11-brivasign
modules=share/p11-kit/modules scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
umask 077
prefix="$scratch/a prefix & \\more|" self=$(id -u):$(id -g) other=$(id -u):$(id -g)
mkdir -p "$prefix"/{lib,$documents} "$scratch"/release/{bin,lib/pkcs11,$documents,$modules}
touch "$prefix"/{lib/libother.so,$documents/obsolete.md}
[[ $self != 0:0 ]] || { other=1:1 && chown $other "$prefix/lib"; }
chmod 2750 "$prefix/lib"
cd "$scratch/release"
cp "$1" install
cp "$2" lib/pkcs11
cp "$3" bin/brivasign-check
echo "module: /usr/local/$module" >$modules/brivasign.module
touch $documents/README.md

# expect STATUS TEXT ARGUMENT...: running the script with the arguments ends so and says TEXT.
expect() {
  local status=0 output
  output=$(./install "${@:3}" 2>&1) || status=$?
  [[ $status -eq $1 && $output == *"$2"* ]] ||
    { echo "${*:3}: status $status (not $1), says: $output" && exit 1; }
}
# expectFiles LINE...: the prefix holds just these: mode, owner, name.
expectFiles() {
  diff <(printf '%s\n' "$@") <(cd "$prefix" && find ./* | LC_ALL=C sort | xargs ls -dln |
    awk '{ print substr($1, 1, 10), $3 ":" $4, substr($NF, 3) }')
}

folder="drwxr-xr-x $self" file="-rw-r--r-- $self"
others=("drwxr-s--- $other lib" "-rw------- $self lib/libother.so" "drwx------ $self share"
  "drwx------ $self share/doc")
expect 2 usage --colour
expect 1 "no full path" --prefix here
expect 0 ", commit " --prefix "$prefix/"
exec 3<"$prefix/$module"
echo changed >>"$module"
expect 0 installed "--prefix=$prefix"
cmp "$2" - <&3 || { echo "the library changed under who uses it" && exit 1; }
expectFiles "$folder bin" "-rwxr-xr-x $self bin/brivasign-check" "${others[@]:0:2}" \
  "$folder lib/pkcs11" "$file $module" "${others[@]:2}" "$folder $documents" \
  "$file $documents/README.md" "$folder share/p11-kit" "$folder $modules" \
  "$file $modules/brivasign.module"
[[ $(<"$prefix/$modules/brivasign.module") == "module: $prefix/$module" ]]
expect 0 removed --uninstall --prefix "$prefix"
expectFiles "$folder bin" "${others[@]}"
printf '\177ELF' >bin/brivasign-check
expect 1 "cannot run" --prefix "$prefix"
expectFiles "$folder bin" "${others[@]}"

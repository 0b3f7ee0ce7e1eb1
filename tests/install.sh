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
  diff <(printf '%s\n' "$@") \
    <(find "$prefix" -mindepth 1 -printf '%m %U:%G %P\n' | LC_ALL=C sort -k 3)
}

expect 2 usage --colour
expect 1 "no full path" --prefix here
expect 0 ", commit " --prefix "$prefix/"
exec 3<"$prefix/$module"
echo changed >>"$module"
expect 0 installed "--prefix=$prefix"
cmp "$2" - <&3 || { echo "the library changed under who uses it" && exit 1; }
expectFiles "755 $self bin" "755 $self bin/brivasign-check" "2750 $other lib" \
  "600 $self lib/libother.so" "755 $self lib/pkcs11" "644 $self $module" "700 $self share" \
  "700 $self share/doc" "755 $self $documents" "644 $self $documents/README.md" \
  "755 $self share/p11-kit" "755 $self $modules" "644 $self $modules/brivasign.module"
[[ $(<"$prefix/$modules/brivasign.module") == "module: $prefix/$module" ]]
expect 0 removed --uninstall --prefix "$prefix"
left=("755 $self bin" "2750 $other lib" "600 $self lib/libother.so"
  "700 $self share" "700 $self share/doc")
expectFiles "${left[@]}"
printf '\177ELF' >bin/brivasign-check
expect 1 "cannot run" --prefix "$prefix"
expectFiles "${left[@]}"

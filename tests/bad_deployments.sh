#!/usr/bin/env bash
# What is wrong with a deployment stops the build with a sentence that comes last; a build tells what
# it was made for.
set -euo pipefail
cmake=$1 source=$2 binary=$3
export pki=$4 hosts=d/environments.txt anchors=d/trust-anchors
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

# expect SENTENCE COMMAND...: the command fails and SENTENCE stands in the last line of its errors.
# Without SENTENCE, it succeeds.
expect() {
  local failed=""
  "${@:2}" >out 2>err || failed=yes
  [[ ${1:+yes} == "$failed" && $(grep . err | tail -n 1) == *"$1"* ]] || {
    echo "${*:2}: should say: $1"$'\n'"says: $(cat err)" && exit 1
  }
}

edit() { perl -pi -e "$1" "$hosts"; }
while IFS='|' read -r change sentence; do
  rm -rf d && cp -r "$source/src/service/deployment" d && eval "$change"
  expect "$sentence" "$cmake" -DDEPLOYMENT_DIR="$scratch/d" -DDEPLOYMENT_SOURCE="$scratch/out.cpp" \
    -P "$source/cmake/deployment.cmake"
done <<'TABLE'
rm -r d|no such deployment folder
rm $hosts|environments.txt: not found
edit 's/443/http/ if $. == 3'|environments.txt:3: expected
edit 's/^.* // if $. == 4'|environments.txt:4: expected
edit 's/443/0/ if $. == 4'|environments.txt:4: "0" is no port
edit 's/443/65536/ if $. == 5'|environments.txt:5: "65536" is no port
edit '$_ = "" if $. == 6'|environments.txt:5: ends after 3
echo "x 1" >>$hosts|environments.txt:7: a fifth
echo damaged >$anchors/05.pem|05.pem:1: expected one
perl -pi -e 's/M/A/ if $. == 2' $anchors/06*|06-isrg-root-x1.pem:1: the certificate is damaged
cp "$pki/server.pem" $anchors/05.pem|05.pem:1: the certificate of no CA
mv $anchors/06* $anchors/06.PEM|06.PEM: is no *.pem
rm $anchors/*|trust-anchors: holds no
touch $anchors/.DS_Store|
edit 's/.*/# [a; comment/ if $. == 1'|
edit 's/$/\n \t\r/ if $. == 3; s/443/65535/ if $. == 5; s/qu/q_/ if $. == 6'|
TABLE
[[ $(sed -nE 's/^ *[{]"([^"]*)", "([^"]*)", "([^"]*).*/\1 \2 \3/p' out.cpp) == \
  "development.quorvent.invalid 443 maquinaIdDes
homologation.quorvent.invalid 443 maquinaIdHom
production.quorvent.invalid 65535 maquinaId
test.q_orvent.invalid 443 maquinaIdTes" ]]

# configure SENTENCE ARGUMENT...: a new build with these arguments is refused with SENTENCE.
configure() { expect "$1" "$cmake" -S "$source" -B b -DORVIX_DEVELOPMENT=OFF "${@:2}"; }
configure "-DORVIX_DEPLOYMENT: unknown to this build, whose own options are ORVIX_" \
  -DORVIX_DEPLOYMENT=d
configure "-DOPENSSL_ROOTDIR: unknown" -DOPENSSL_ROOTDIR=/
configure "$scratch/e\": no such" -DORVIX_DEPLOYMENT_DIR:PATH=e
configure "" -DORVIX_DEPLOYMENT_DIR=d -DOPENSSL_ROOT_DIR= -DORVIX_CHECK_HOST_NAME=OFF
# The first of May 2021.
"$cmake" -DNOW=1619827200 -P b/summary.cmake >summary
diff - summary <<TEXT
Release build of the deployment in $scratch/d
  $scratch/b/$(cd "$binary" && echo pkcs11-brivasign.*)
  $scratch/b/$(cd "$binary" && echo pkcs11-brivasign-standard.*)
  $scratch/b/brivasign-check
  development: development.quorvent.invalid:443
  homologation: homologation.quorvent.invalid:443
  production: production.quorvent.invalid:65535
  test: test.q_orvent.invalid:443
  trust anchors: 12; the first to expire is 03-homologation-root.pem, on 2021-05-05
    expired on 2019-03-14: 05-homologation-issuing-v3.pem
    expired on 2019-06-17: 04-homologation-intermediate-v2.pem
    expires within 90 days, on 2021-05-05: 03-homologation-root.pem
  The host name is not checked (ORVIX_CHECK_HOST_NAME is off): whoever holds any certificate of
  these anchors, and can redirect the connection, is taken for the service.
  Hosts under .invalid are placeholders: nothing can be signed with this build.
TEXT

expect "placeholder hosts" "$cmake" --install "$binary" --prefix "$scratch/installed"
[[ ! -e installed ]] || { echo "something was installed" && exit 1; }

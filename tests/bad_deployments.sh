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
# ca CHANGE [ARGUMENT...]: adds a CA that openssl makes with these arguments, changed by Perl.
ca() {
  openssl req -x509 -key "$pki/ca.key" -subj /CN=x "${@:2}" -out new.pem 2>/dev/null
  perl -0pe "$1" new.pem >$anchors/05.pem
}
script=(-P "$source/cmake/deployment.cmake")
# Ends what reads a pipe for ever. Nothing is denied to root.
user=(perl -e 'alarm 30; exec @ARGV')
[[ $(id -u) -ne 0 ]] || user+=(setpriv "--bounding-set=-dac_override,-dac_read_search")
while IFS='|' read -r change sentence; do
  rm -rf d && cp -r "$source/src/service/deployment" d && eval "$change"
  expect "$sentence" "${user[@]}" "$cmake" -DDEPLOYMENT_DIR="$scratch/d" \
    -DDEPLOYMENT_SOURCE="$scratch/out.cpp" "${script[@]}"
  chmod -R u+rwX d 2>/dev/null || true
done <<'TABLE'
rm -r d|d: does not exist
rm $hosts|environments.txt: does not exist
rm $hosts; mkfifo $hosts|environments.txt: is a named pipe
rm $hosts; mkdir $hosts|environments.txt: is a folder
chmod 0 $hosts|environments.txt: is a file that
ln -sf nowhere $hosts|environments.txt: is a link
: >$hosts|environments.txt: is empty
echo '#' >$hosts|environments.txt:1: ends after 0
perl -0pi -e 's/^/\xEF\xBB\xBF/' $hosts|environments.txt:1: begins with a byte order mark
perl -0pi -e 's/(.)/$1\0/sg' $hosts|environments.txt:1: is in UTF-16
edit 's/443/http/ if $. == 3'|environments.txt:3: "http" is no port
edit 's/^.* // if $. == 4'|environments.txt:4: expected "<host> <port>", found "443"
edit 's,^,https://, if $. == 3'|: leave out the scheme
edit 's/ 443/:443/ if $. == 3'|: write a blank in place of the colon
edit 's/$/ # why/ if $. == 3'|: a comment needs a line
edit 's/ 443/\xC2\xA0443/ if $. == 3'|: it holds what is no printable ASCII
edit 's/^[a-z.]*/..../ if $. == 3'|environments.txt:3: "...." is no host name
edit 's/^/-/ if $. == 6'|environments.txt:6: "-test.quorvent.invalid" is no host name
edit 's/^[a-z.]*/192.0.2.1/ if $. == 3'|environments.txt:3: "192.0.2.1" is an IP address
edit 's/443/0443/ if $. == 4'|environments.txt:4: "0443" is no port
edit 's/443/0/ if $. == 4'|environments.txt:4: "0" is no port
edit 's/443/65536/ if $. == 5'|environments.txt:5: "65536" is no port
edit '$_ = "" if $. == 6'|environments.txt:5: ends after 3
echo "x 1" >>$hosts|environments.txt:7: a fifth
rm -r $anchors|trust-anchors: does not exist
rm -r $anchors; : >$anchors|trust-anchors: is no folder
chmod 0 $anchors|trust-anchors: is a folder that
rm $anchors/*|trust-anchors: holds no *.pem
rm $anchors/0[136]*|trust-anchors: holds no self-signed
mv $anchors/06* $anchors/06.PEM|06.PEM: is not called
cp $anchors/06* "$anchors/a;b.pem"|a;b.pem: a file name with ;
mkfifo $anchors/05.pem|05.pem: is a named pipe
ln -s nowhere $anchors/05.pem|05.pem: is a link
echo damaged >$anchors/05.pem|05.pem: holds no certificate
cp "$pki/ca.key" $anchors/05.pem|but one "-----BEGIN
cat $anchors/06* $anchors/07* >$anchors/05.pem|05.pem: holds 2 certificates
ca '' -outform DER|05.pem: is in DER
ca 's/^/ /mg'|05.pem: is indented
ca 's/M/!/'|05.pem: is damaged
ca 's/-----END.*//'|05.pem: is damaged
perl -pi -e 's/M/A/ if $. == 2' $anchors/06*|06-isrg-root-x1.pem: the certificate is damaged; openssl
ca 's/.{9}(?=\n-----END)/AAAAAAAAA/'|05.pem: the certificate is damaged; its signature
cp "$pki/server.pem" $anchors/05.pem|: its basicConstraints
ca '' -addext keyUsage=digitalSignature|: its keyUsage
ca '' -addext extendedKeyUsage=clientAuth|: its extendedKeyUsage
openssl genrsa -out d/ca.key 1024 2>/dev/null; pki=d ca ''|05.pem: its RSA key has 1024 bits
touch $anchors/.DS_Store|
edit 's/.*/# [a; comment/ if $. == 1'|
rm $anchors/09* $anchors/1*; edit 's/$/\n \t\r/ if $. == 3; s/443/65535/ if $. == 5; s/qu/q_/ if $. == 6'|
TABLE
expect "DEPLOYMENT_DIR and DEPLOYMENT_SOURCE must" "$cmake" "${script[@]}"
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
configure "$scratch/e: does not exist" -DORVIX_DEPLOYMENT_DIR:PATH=e
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
  trust anchors: 8; the first to expire is 03-homologation-root.pem, on 2021-05-05
    expired on 2019-03-14: 05-homologation-issuing-v3.pem
    expired on 2019-06-17: 04-homologation-intermediate-v2.pem
    expires within 90 days, on 2021-05-05: 03-homologation-root.pem
    not valid before 2024-03-13: 08-lets-encrypt-r10.pem
  The host name is not checked (ORVIX_CHECK_HOST_NAME is off): whoever holds any certificate of
  these anchors, and can redirect the connection, is taken for the service.
  Placeholder hosts: nothing can be signed in development, homologation, production, test.
TEXT

expect "placeholder hosts" "$cmake" --install "$binary" --prefix "$scratch/installed"
[[ ! -e installed ]] || { echo "something was installed" && exit 1; }

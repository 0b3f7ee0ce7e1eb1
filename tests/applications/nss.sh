#!/usr/bin/env bash
# NSS knows the keys of both certificates, signs a message, and authenticates itself to a server.
source "$(dirname "$0")/support.sh"
setUp "$1" libnss3-tools command -v certutil
makeNssDatabase
expectLines certutil 2 '^Quorvent:.* u,u,u$' "there should be two certificates with keys"

sign=(cmsutil -S -d sql:nssdb -N "$nickname" -i contract.txt -o signed.cms)
runSigning at-once "${sign[@]}" || fail "cmsutil does not sign"
run openssl cms -verify -inform DER -in signed.cms -CAfile local-pki/ca.pem -out verified.txt ||
  fail "the message is not valid"
run cmp verified.txt contract.txt || fail "the message differs"
! runSigning refuse "${sign[@]}" || fail "cmsutil takes a refusal for a signature"

startTlsServer -www
for version in 1.2 1.3; do
  connect=(tstclnt -d sql:nssdb -n "$nickname" -h 127.0.0.1 -p "$TLS_PORT"
    -V "tls$version:tls$version")
  runSigning at-once "${connect[@]}" <request || fail "tstclnt is not let in with TLS $version"
  expectText tstclnt "Protocol  : TLSv$version"
  expectText tstclnt "Subject: C=BR, O=Quorvent Local, CN=Maria Exemplo"
  ! runSigning refuse "${connect[@]}" <request || fail "a refusal is let in with TLS $version"
done

#!/usr/bin/env bash
# GnuTLS lists certificates and keys, exports by identifier, and authenticates itself to a server.
source "$(dirname "$0")/support.sh"
setUp "$1" gnutls-bin command -v gnutls-cli

run p11tool --provider "$HOME/$MODULE" --list-all-certs || fail "the certificates cannot be listed"
expectLines p11tool 2 'URL:.*type=cert' "there should be two certificates"
expectText p11tool "ID: e9:03:00:00:00:00:00:00"
run p11tool --provider "$HOME/$MODULE" --list-privkeys || fail "the keys cannot be listed"
expectLines p11tool 2 'URL:.*type=private' "there should be two keys"
run p11tool --provider "$HOME/$MODULE" --outder --outfile maria.cer --export "$URI;type=cert" ||
  fail "nothing can be exported"
run cmp maria.cer local-pki/users/1001.cer || fail "the certificates differ"
! run p11tool --provider "$HOME/$MODULE" --test-sign "$URI;type=private" || fail "it signs now"
runSigning at-once certtool --provider "$HOME/$MODULE" --p7-sign --load-privkey "$URI;type=private" \
  --load-certificate local-pki/users/1001.pem --infile contract.txt --outfile signed.p7 ||
  fail "certtool does not sign"
run openssl cms -verify -inform PEM -in signed.p7 -CAfile local-pki/ca.pem || fail "it is not valid"

startTlsServer -www
runSigning at-once gnutls-cli --provider "$HOME/$MODULE" --x509cafile local-pki/ca.pem \
  --x509certfile "$URI;type=cert" --x509keyfile "$URI;type=private" --port "$TLS_PORT" 127.0.0.1 \
  --priority NORMAL:-VERS-TLS1.3 <request || fail "gnutls-cli is not let in"
expectText gnutls-cli "Subject: C=BR, O=Quorvent Local, CN=Maria Exemplo"

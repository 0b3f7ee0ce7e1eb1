#!/usr/bin/env bash
# GnuTLS finds a key by the token's name, tests it, and authenticates itself to a server, as
# OpenConnect does with it.
source "$(dirname "$0")/support.sh"
setUp "$1" gnutls-bin command -v gnutls-cli

requests=1 runSigning at-once p11tool --provider "$HOME/$MODULE" --test-sign "$URI;type=private" ||
  fail "the key does not pass its test"

startTlsServer -www
for version in 1.2 1.3; do
  runSigning at-once gnutls-cli --provider "$HOME/$MODULE" --x509cafile local-pki/ca.pem \
    --x509certfile "$URI;type=cert" --x509keyfile "$URI;type=private" --port "$TLS_PORT" \
    --priority "NORMAL:-VERS-ALL:+VERS-TLS$version" 127.0.0.1 <request ||
    fail "gnutls-cli is not let in under TLS $version"
  expectText gnutls-cli "Subject: C=BR, O=Quorvent Local, CN=Maria Exemplo"
done

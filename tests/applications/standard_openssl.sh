#!/usr/bin/env bash
# OpenSSL's engine signs and authenticates, alone and in stunnel and osslsigncode.
source "$(dirname "$0")/support.sh"
setUp "$1" libengine-pkcs11-openssl openssl engine pkcs11
export PKCS11_MODULE_PATH=$HOME/$MODULE

runSigning at-once openssl dgst -engine pkcs11 -keyform engine -sign "$URI;type=private" -sha256 \
  -out pkcs.sig contract.txt || fail "the engine does not sign"
run openssl dgst -sha256 -verify maria.pub -signature pkcs.sig contract.txt ||
  fail "the signature is not valid"
startTlsServer -www
for version in tls1_2 tls1_3; do
  runSigning at-once openssl s_client -engine pkcs11 -keyform engine -key "$URI;type=private" \
    -cert local-pki/users/1001.pem -CAfile local-pki/ca.pem -verify_return_error "-$version" \
    -connect "127.0.0.1:$TLS_PORT" <<<"Q" || fail "s_client is not let in with $version"
done

if command -v osslsigncode >/dev/null; then
  # The least that is taken for an archive of Windows: no file, 44 bytes in all.
  printf 'MSCF\0\0\0\0\54\0\0\0\0\0\0\0\44\0\0\0\0\0\0\0\3\1%018d' 0 | tr 0 '\0' >empty.cab
  runSigning at-once osslsigncode sign -pkcs11module "$HOME/$MODULE" -key "$URI;type=private" \
    -certs local-pki/users/1001.pem -in empty.cab -out signed.cab || fail "osslsigncode does not sign"
fi

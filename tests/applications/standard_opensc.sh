#!/usr/bin/env bash
# OpenSC's pkcs11-tool lists everything, logs in, passes its own tests, and signs through p11-kit's
# server, which has the library in another process.
source "$(dirname "$0")/support.sh"
setUp "$1" opensc command -v pkcs11-tool

runTool --list-objects || fail "the objects cannot be listed"
expectLines pkcs11-tool 6 ' Object; ' "there should be three objects of each of two certificates"
requests=6 runSigning at-once pkcs11-tool --module "./$MODULE" --test --login ||
  fail "its tests find errors"
expectText pkcs11-tool "No errors"
expectLines pkcs11-tool 6 ': OK$' "signatures and digests should be tested"
# It tries once more in parts.
! requests=2 runSigning refuse pkcs11-tool --module "./$MODULE" --sign --id "$ID" --mechanism RSA-PKCS-PSS \
  --hash-algorithm SHA256 --input-file contract.sha256 --output-file refused.sig ||
  fail "a refusal is taken for a signature"

client=$(find /usr/lib -name p11-kit-client.so -print -quit)
if [[ -z $client ]] || ! p11-kit server --help >/dev/null 2>&1; then exit; fi
p11-kit server -f -n "$HOME/p11-kit" --provider "$HOME/$MODULE" pkcs11: >server.lines &
helperPids=$!
until [[ -S $HOME/p11-kit ]]; do sleep 0.1; done
export P11_KIT_SERVER_ADDRESS=unix:path=$HOME/p11-kit
runSigning at-once pkcs11-tool --module "$client" --sign --id "$ID" --mechanism RSA-PKCS-PSS \
  --hash-algorithm SHA256 --input-file contract.sha256 --output-file pss.sig ||
  fail "nothing is signed through p11-kit"
run openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32 \
  -verify maria.pub -signature pss.sig contract.txt || fail "the PSS signature is not valid"

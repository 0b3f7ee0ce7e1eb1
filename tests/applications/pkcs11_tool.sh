#!/usr/bin/env bash
# OpenSC's pkcs11-tool shows the token, reads and signs by identifier.
source "$(dirname "$0")/support.sh"
setUp "$1" opensc command -v pkcs11-tool

runTool --list-slots || fail "the slots cannot be listed"
expectLines pkcs11-tool 1 'token label *: Quorvent$' "there should be one token, Quorvent"
runTool --list-mechanisms || fail "the mechanisms cannot be listed"
expectLines pkcs11-tool 2 '^  RSA-PKCS\(-PSS\)\{0,1\}, .*sign' "there should be two mechanisms"
! runTool -O --type cert || listed="Certificate Object" # OpenSC 0.26 passes a template
expectText pkcs11-tool "${listed-CKR_ARGUMENTS_BAD}"

runTool --read-object --type cert --id "$ID" --output-file maria.cer || fail "nothing can be read"
run cmp maria.cer local-pki/users/1001.cer || fail "the certificates differ"

runSigning at-once pkcs11-tool --module "./$MODULE" --sign --id "$ID" --mechanism RSA-PKCS \
  --input-file contract.digest-info --output-file pkcs.sig || fail "RSA-PKCS does not sign"
run openssl dgst -sha256 -verify maria.pub -signature pkcs.sig contract.txt ||
  fail "the RSA-PKCS signature is not valid"
runSigning at-once pkcs11-tool --module "./$MODULE" --sign --id "$ID" --mechanism RSA-PKCS-PSS \
  --hash-algorithm SHA256 --input-file contract.sha256 --output-file pss.sig ||
  fail "RSA-PKCS-PSS does not sign"
run openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32 \
  -verify maria.pub -signature pss.sig contract.txt || fail "the PSS signature is not valid"

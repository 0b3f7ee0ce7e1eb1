#!/usr/bin/env bash
# What OpenSC's pkcs11-tool does beside what the demo shows.
source "$(dirname "$0")/support.sh"
setUp "$1" opensc command -v pkcs11-tool

! runTool -O --type cert || listed="Certificate Object" # OpenSC 0.26 passes a template
expectText pkcs11-tool "${listed-CKR_ARGUMENTS_BAD}"
runTool --read-object --type cert --id "$ID" --output-file maria.cer || fail "nothing can be read"
run cmp maria.cer local-pki/users/1001.cer || fail "the certificates differ"

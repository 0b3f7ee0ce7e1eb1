#!/usr/bin/env bash
# Java's SunPKCS11 lists two keys and signs an archive.
source "$(dirname "$0")/support.sh"
setUp "$1" default-jdk-headless jar --version
printf 'name = Quorvent\nlibrary = %s\n' "$HOME/$MODULE" >quorvent.cfg
store=(-keystore NONE -storetype PKCS11 -storepass 1234
  -providerClass sun.security.pkcs11.SunPKCS11 -providerArg quorvent.cfg)

run keytool -J-Duser.language=en "${store[@]}" -list || fail "the keys cannot be listed"
expectLines keytool 2 'PrivateKeyEntry' "there should be two keys"
alias=$(sed -n 's/^\(.*Maria Exemplo\), *PrivateKeyEntry.*/\1/p' keytool.lines)
run jar --create --file contract.jar contract.txt || fail "there is nothing to sign"
runSigning at-once jarsigner -J-Duser.language=en "${store[@]}" contract.jar "$alias" ||
  fail "jarsigner does not sign"
run jarsigner -J-Duser.language=en -verify -verbose -certs contract.jar || fail "it is not valid"
expectText jarsigner "jar verified."
expectText jarsigner "CN=Maria Exemplo"

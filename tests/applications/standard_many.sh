#!/usr/bin/env bash
# Programs that ask for a few objects at a time see all of forty certificates.
source "$(dirname "$0")/support.sh"
setUp "$1" python3-pykcs11 /usr/bin/python3 -c 'import PyKCS11'

for ((number = 1; number <= 38; ++number)); do
  openssl req -x509 -newkey rsa:1024 -nodes -keyout /dev/null -subj "/CN=Person $number" \
    -outform DER -out "$PRODUCT_FOLDER/certificados/$number.cer" 2>openssl.log ||
    fail "a certificate cannot be made"
done
module=$(realpath "$MODULE")

if command -v certutil >/dev/null; then
  makeNssDatabase
  expectLines certutil 40 '^Quorvent:.* u,u,u$' "NSS should see forty certificates with keys"
fi
run ssh-keygen -D "$module" || fail "ssh-keygen reads no key"
expectLines ssh-keygen 40 '^ssh-rsa ' "ssh-keygen should read forty keys"
if command -v p11tool >/dev/null; then
  run p11tool --provider "$module" --list-all-certs pkcs11:token=Quorvent || fail "p11tool lists none"
  expectLines p11tool 40 'URL:.*type=cert' "p11tool should list forty certificates"
fi

cat >sign.py <<'TEXT'
import sys, PyKCS11
library = PyKCS11.PyKCS11Lib()
library.load(sys.argv[1])
session = library.openSession(library.getSlotList(tokenPresent=True)[0])
print(len(session.findObjects()), "objects")
key = session.findObjects([(PyKCS11.CKA_CLASS, PyKCS11.CKO_PRIVATE_KEY),
                           (PyKCS11.CKA_ID, bytes.fromhex("e903000000000000"))])[0]
pss = PyKCS11.RSA_PSS_Mechanism(PyKCS11.CKM_SHA256_RSA_PKCS_PSS, PyKCS11.CKM_SHA256,
                                PyKCS11.CKG_MGF1_SHA256, 32)
open("pss.sig", "wb").write(bytes(session.sign(key, open("contract.txt", "rb").read(), pss)))
TEXT
runSigning at-once /usr/bin/python3 sign.py "$module" || fail "PyKCS11 does not sign"
expectText /usr/bin/python3 "120 objects"
run openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32 \
  -verify maria.pub -signature pss.sig contract.txt || fail "the PSS signature is not valid"

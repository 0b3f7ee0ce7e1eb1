#!/usr/bin/env bash
# Poppler's pdfsig signs a document and finds the signature valid.
source "$(dirname "$0")/support.sh"
setUp "$1" poppler-utils command -v pdfsig
makeNssDatabase

cat >draft.pdf <<'TEXT'
%PDF-1.4
1 0 obj <</Type /Catalog /Pages 2 0 R>> endobj
2 0 obj <</Type /Pages /Kids [3 0 R] /Count 1>> endobj
3 0 obj <</Type /Page /Parent 2 0 R /MediaBox [0 0 200 100]>> endobj
trailer <</Root 1 0 R /Size 4>>
TEXT
# This brings the table of the objects' places.
run pdftocairo -pdf draft.pdf contract.pdf || fail "the document cannot be completed"
# Older ones have a first request to learn the length.
requests="1 or 2" runSigning at-once pdfsig -nssdir sql:nssdb -add-signature -nick "$nickname" \
  contract.pdf signed.pdf || fail "pdfsig does not sign"
run pdfsig -nssdir sql:nssdb signed.pdf || fail "pdfsig cannot read what it has signed"
expectText pdfsig "Common Name: Maria Exemplo"
expectText pdfsig "Signature is Valid"

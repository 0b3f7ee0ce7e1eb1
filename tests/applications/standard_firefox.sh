#!/usr/bin/env bash
# Firefox opens a page whose parts come over four connections at once, each of which demands a
# certificate, from a server that answers none before all four stand.
LIBRARY=pkcs11-brivasign-standard
applications=$(realpath "$(dirname "$0")")
source "$applications/support.sh"
setUp "$1" firefox-esr command -v firefox-esr
# It selects any certificate that fits.
rm "$PRODUCT_FOLDER/certificados/1002.cer"

makeFirefox
python3 "$applications/tls_server.py" "$TLS_PORT" local-pki >server.lines 2>server.errors &
helperPids=$!
until grep -q listening server.lines; do sleep 0.1; done
startService at-once
run "${browser[@]}" "$HOME/seen.png" "https://127.0.0.1:$TLS_PORT/" || fail "the browser shows nothing"
stopService
expectLines server 5 '^TLSv1.3 Maria Exemplo$' "each of five connections should bring the certificate"

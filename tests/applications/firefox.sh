#!/usr/bin/env bash
# Firefox, told by a policy to load the module, opens a page of a server that demands a certificate,
# and shows what it shows when the page is a file.
source "$(dirname "$0")/support.sh"
setUp "$1" firefox-esr command -v firefox-esr
# It selects any certificate that fits.
rm "$PRODUCT_FOLDER/certificados/1002.cer"

makeFirefox
echo "<body bgcolor=lime><h1>Let in</h1>" >page.html
startTlsServer -WWW
runSigning at-once "${browser[@]}" "$HOME/seen.png" "https://127.0.0.1:$TLS_PORT/page.html" ||
  fail "the browser shows nothing"
run "${browser[@]}" "$HOME/expected.png" "file://$HOME/page.html" || fail "the page cannot be shown"
run cmp seen.png expected.png || fail "the browser shows something else than the page"

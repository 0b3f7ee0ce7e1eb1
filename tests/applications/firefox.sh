#!/usr/bin/env bash
# Firefox, told by a policy to load the module, opens a page of a server that demands a certificate,
# and shows what it shows when the page is a file.
source "$(dirname "$0")/support.sh"
setUp "$1" firefox-esr command -v firefox-esr
# It selects any certificate that fits.
rm "$PRODUCT_FOLDER/certificados/1002.cer"

# A copy with a policy of its own, that of the system stays as it is.
cp -rs /usr/lib/firefox-esr firefox
rm -r firefox/distribution firefox/firefox-esr
mkdir firefox/distribution profile
cp /usr/lib/firefox-esr/firefox-esr firefox
cat >firefox/distribution/policies.json <<TEXT
{"policies": {"SecurityDevices": {"Add": {"Quorvent": "$HOME/$MODULE"}},
  "Certificates": {"Install": ["$HOME/local-pki/ca.pem"]},
  "Preferences": {"security.default_personal_cert": {"Value": "Select Automatically"}}}}
TEXT
echo "<body bgcolor=lime><h1>Let in</h1>" >page.html
# It waits for ever for a page that it cannot show.
browser=(timeout 30 firefox/firefox-esr --headless --profile profile --window-size 400 --screenshot)

startTlsServer -WWW
runSigning at-once "${browser[@]}" "$HOME/seen.png" "https://127.0.0.1:$TLS_PORT/page.html" ||
  fail "the browser shows nothing"
run "${browser[@]}" "$HOME/expected.png" "file://$HOME/page.html" || fail "the page cannot be shown"
run cmp seen.png expected.png || fail "the browser shows something else than the page"

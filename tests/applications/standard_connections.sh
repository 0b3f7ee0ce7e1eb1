#!/usr/bin/env bash
# Firefox and Chromium open a page whose parts come over four connections at once, each of which
# demands a certificate, from a server that answers none before all four stand. OpenConnect, which
# then finds no VPN there, authenticates itself too.
applications=$(realpath "$(dirname "$0")")
source "$applications/support.sh"
setUp "$1" firefox-esr command -v firefox-esr
# It selects any certificate that fits.
rm "$PRODUCT_FOLDER/certificados/1002.cer"

makeFirefox
# Fails unless the command gets $1 connections or more let in, as the owner of the certificate.
visit() {
  : >server.lines
  python3 "$applications/tls_server.py" "$TLS_PORT" local-pki >server.lines 2>server.errors &
  helperPids=$!
  until grep -q listening server.lines; do sleep 0.1; done
  startService at-once
  run "${@:2}" || echo "it ends with status $?"
  stopService
  kill "$helperPids"
  [[ $(grep -c '^TLSv1.3 Maria Exemplo$' server.lines) -ge $1 ]] || fail "$2 does not bring the certificate"
}

visit 5 "${browser[@]}" "$HOME/seen.png" "https://127.0.0.1:$TLS_PORT/"

# shellcheck disable=SC2016  # of the inner shell
# Before a folder, one of the system, and a command: the command sees the first in place of the second.
seeing=(unshare --map-root-user --mount bash -c 'mount --bind "$0" "$1" && exec "${@:2}"')
if command -v chromium >/dev/null; then
  mkdir -p .pki chromium/policies/managed
  makeNssDatabase
  mv nssdb .pki
  printf '{"AutoSelectCertificateForUrls": ["{\\"pattern\\":\\"*\\",\\"filter\\":{}}"]}' \
    >chromium/policies/managed/select.json
  visit 5 "${seeing[@]}" chromium /etc/chromium timeout 60 chromium --headless --no-sandbox \
    --screenshot=chromium.png "https://127.0.0.1:$TLS_PORT/"
fi
if command -v openconnect >/dev/null; then
  mkdir modules
  echo "module: $HOME/$MODULE" >modules/quorvent.module
  visit 1 "${seeing[@]}" modules /usr/share/p11-kit/modules timeout 20 openconnect --authenticate \
    --cafile local-pki/ca.pem --non-inter --certificate "$URI" "https://127.0.0.1:$TLS_PORT/"
fi

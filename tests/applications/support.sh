# shellcheck shell=bash
# What the tests of applications share, besides what they share with the demo.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/demo-support.sh"

# Enters a home folder with the programs of the build folder $1. The test is skipped where there is
# no Debian package $2, which is installed if the rest, a command, succeeds.
setUp() {
  if ! "${@:3}" >/dev/null 2>&1; then
    ! apt-cache show "$2" >/dev/null 2>&1 ||
      fail "$2 is not installed, but scripts/install-dependencies --applications can do it"
    echo "skipped: $2 cannot be installed on this system"
    exit 77 # which ctest takes for "skipped"
  fi
  enterHome "$1"
  readonly TLS_PORT=$((port + 8))
  exec </dev/null
  makeContract
  openssl x509 -in local-pki/users/1001.pem -noout -pubkey >maria.pub
}

# Fails unless $1 has said $2.
expectText() { grep -qF -e "$2" "$1.lines" || fail "$1 should have said: $2"; }

# Runs a command that needs Maria's signature, with a service of the approval mode $1 for it alone.
runSigning() {
  local status=0
  startService "$1"
  run "${@:2}" || status=$?
  stopService
  expectLines service "${requests-1}" ' request .*: filed, .* certificate: 1001, ' \
    "the service should be asked for ${requests-1} of Maria's signatures"
  return "$status"
}

# Starts a server that lets in only whom the local CA knows, and answers with its view of the
# connection. The arguments are more options of s_server.
startTlsServer() {
  : >tls.lines
  openssl s_server -accept "127.0.0.1:$TLS_PORT" -Verify 1 -verify_return_error \
    -CAfile local-pki/ca.pem -cert local-pki/server.pem -key local-pki/server.key "$@" \
    >tls.lines 2>&1 &
  helperPids+=" $!"
  until grep -q '^ACCEPT' tls.lines; do
    kill -0 "${helperPids##* }" || fail "the TLS server cannot run on port $TLS_PORT"
    sleep 0.1
  done
}

# Makes nssdb, a database of NSS that knows the module and trusts the local CA, and prepares
# nickname, what NSS calls Maria's certificate.
makeNssDatabase() {
  mkdir nssdb
  certutil -N -d sql:nssdb --empty-password
  certutil -A -d sql:nssdb -n local-ca -t CT,C,C -i local-pki/ca.pem
  modutil -force -dbdir sql:nssdb -add Quorvent -libfile "$HOME/$MODULE" >/dev/null
  run certutil -L -d sql:nssdb -h Quorvent || fail "the certificates cannot be listed"
  nickname=$(sed -n 's/^\(Quorvent:.*Maria Exemplo\) .*/\1/p' certutil.lines)
  [[ -n $nickname ]] || fail "Maria's certificate is not listed"
}

# Makes firefox, a copy of the browser that knows the module, trusts the local CA and selects a
# certificate by itself, and prepares browser, the command that shows an address in a file.
makeFirefox() {
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
  # It waits for ever for a page that it cannot show.
  # shellcheck disable=SC2034  # for the tests
  browser=(timeout 30 firefox/firefox-esr --headless --profile profile --window-size 400 --screenshot)
}

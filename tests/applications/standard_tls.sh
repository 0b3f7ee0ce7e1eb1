#!/usr/bin/env bash
# stunnel and OpenVPN authenticate themselves to a server.
source "$(dirname "$0")/support.sh"
setUp "$1" stunnel4 command -v stunnel4
# Nobody else is there during this test.
readonly STUNNEL_PORT=$((TLS_PORT - 1)) VPN_PORT=$((TLS_PORT - 2))

startTlsServer -www
cat >stunnel.conf <<TEXT
foreground = yes
pid =
engine = pkcs11
engineCtrl = MODULE_PATH:$HOME/$MODULE
[local]
client = yes
engineId = pkcs11
accept = 127.0.0.1:$STUNNEL_PORT
connect = 127.0.0.1:$TLS_PORT
cert = $HOME/local-pki/users/1001.pem
key = $URI;type=private
CAfile = $HOME/local-pki/ca.pem
verifyChain = yes
TEXT
stunnel4 stunnel.conf >stunnel.lines 2>&1 &
helperPids+=" $!"
until grep -q "Configuration successful" stunnel.lines; do
  kill -0 "${helperPids##* }" || { cat stunnel.lines && fail "stunnel does not start"; }
  sleep 0.1
done
# shellcheck disable=SC2016  # of the inner shell
runSigning at-once bash -c 'exec 3<>"/dev/tcp/127.0.0.1/$0" && cat request >&3 && cat <&3' \
  "$STUNNEL_PORT" || fail "stunnel is not let in"
expectText bash "Subject: C=BR, O=Quorvent Local, CN=Maria Exemplo"

command -v openvpn >/dev/null || exit 0
openvpn --show-pkcs11-ids "$HOME/$MODULE" >ids.lines
vpn=(--dev null --proto udp --ca local-pki/ca.pem --ifconfig-noexec --route-noexec)
openvpn "${vpn[@]}" --tls-server --dh none --local 127.0.0.1 --lport "$VPN_PORT" \
  --cert local-pki/server.pem --key local-pki/server.key >server.lines 2>&1 &
helperPids+=" $!"
runSigning at-once timeout -s INT 20 openvpn "${vpn[@]}" --tls-client --nobind \
  --remote 127.0.0.1 "$VPN_PORT" --pkcs11-providers "$HOME/$MODULE" --pkcs11-id \
  "$(sed -n 's/^ *Serialized id: *\(.*E903000000000000\)$/\1/p' ids.lines)" \
  --inactive 3 --tls-exit || true
expectText timeout "Initialization Sequence Completed"

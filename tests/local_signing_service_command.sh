#!/usr/bin/env bash
# The command line of the local signing service: every misuse is one clear line and status 2.
set -euo pipefail
service=$1 pki=$2 port=$3
scratch=$(mktemp -d)
trap 'kill %1 2>/dev/null || true; rm -rf "$scratch"' EXIT

# expect STATUS TEXT ARGUMENT...: running with the arguments ends so and says TEXT.
expect() {
  local status=0 output
  output=$("$service" "${@:3}" 2>&1) || status=$?
  if [[ $status -ne $1 || $output != *"$2"* ]]; then
    echo "${*:3}: status $status (not $1), says: $output" && exit 1
  fi
}

# await TEXT: waits until the service says TEXT.
await() { until grep -qs -e "$1" "$scratch/out"; do sleep 0.05; done; }

cp -r "$pki" "$scratch/pki"
rm "$scratch/pki/server.key"
expect 0 "--approval" --help
expect 0 "local-signing-service 2." --version
expect 2 "--pki"
expect 2 "--colour" --pki "$pki" --colour
expect 2 "--approval" --pki "$pki" --approval perhaps
expect 2 "--port" --pki "$pki" --port 70000
expect 2 "--approval" --pki "$pki" --approval=after=2m
expect 2 "--stall" --pki "$pki" --stall
expect 2 "from 0 to 3600000" --pki "$pki" --stall 3600001
expect 2 "--ending" --pki "$pki" --ending loudly
expect 2 "nowhere" --pki "$scratch/nowhere"
expect 2 "server.key" --pki "$scratch/pki"

"$service" --pki "$pki" --port "$port" --close-after 8 --ending reset >"$scratch/out" &
await "listening, address: https://127.0.0.1:$port"
expect 2 "stop the program that listens there" --pki "$pki" --port "$port"
[[ $(openssl s_client -quiet -connect "localhost:$port" 2>&1 <<<$'GET /\r\n\r\n') =~ read:errno=(104|54)$ ]]
kill %1
wait %1
grep -q " connection 1: error 400, line: GET /, reason: .*HTTP" "$scratch/out"
grep -q " connection 1: dropped, reason: as asked, by a reset after byte 8$" "$scratch/out"

mkfifo "$scratch/typed"
: >"$scratch/out"
"$service" --pki "$pki" --port "$port" --approval ask <"$scratch/typed" >"$scratch/out" 2>"$scratch/asked" &
exec 3>"$scratch/typed"
await "listening"
body='{"certificadoId":1001,"desafio":"ZGF0YQ==","pid":"7","executavel":"app"}'
printf 'POST /brivasign-api/api/drivers/assinatura HTTP/1.1\r\nContent-Length: %s\r\n\r\n%s' ${#body} \
  "$body" | openssl s_client -quiet -connect "localhost:$port" >/dev/null 2>&1
printf 'yes\ny\n' >&3
exec 3>&-
await " refusing, reason: standard input"
kill %1
wait %1
[[ $(grep -o 'approve? \[y/n\]' "$scratch/asked" | wc -l) -eq 2 ]]
grep -q " request 1: approved$" "$scratch/out"

"$service" --pki "$pki" --port "$port" --stall 0 --json >"$scratch/out" &
await '"event":"listening"'
! openssl s_client -connect "localhost:$port" >/dev/null 2>&1 </dev/null || exit 1
kill %1
wait %1
grep -qE '^\{"time":"[^"]+Z","connection":1,"event":"stalled","reason":"--stall 0"}$' "$scratch/out"

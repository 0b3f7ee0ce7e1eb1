#!/usr/bin/env bash
# A deployment folder with a fault stops the configuration with a message that names the place.
set -euo pipefail
cmake=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
good=$source/src/service/deployment

# expect MESSAGE: the deployment in $scratch/d is refused with MESSAGE in the output.
expect() {
  if output=$("$cmake" -DDEPLOYMENT_DIR="$scratch/d" -DDEPLOYMENT_SOURCE="$scratch/out.cpp" \
    -P "$source/cmake/deployment.cmake" 2>&1); then
    echo "accepted, but should say: $1" && exit 1
  fi
  # Messages are wrapped: compare them without their line breaks.
  [[ $(tr -s '\n ' ' ' <<<"$output") == *"$1"* ]] || {
    echo "should say: $1"$'\n'"says: $output" && exit 1
  }
}
renew() { rm -rf "$scratch/d" && cp -r "$good" "$scratch/d"; }

expect "no such deployment folder"
renew && rm "$scratch/d/environments.txt" && expect "environments.txt: not found"
renew && sed -i 3s/443/http/ "$scratch/d/environments.txt" && expect "environments.txt:3: expected"
renew && sed -i '4s/^.* //' "$scratch/d/environments.txt" && expect "environments.txt:4: expected"
renew && sed -i '$d' "$scratch/d/environments.txt" && expect "environments.txt:5: ends after 3"
renew && echo "x 1" >>"$scratch/d/environments.txt" && expect "environments.txt:7: a fifth"
renew && echo damaged >"$scratch/d/trust-anchors/05.pem" && expect "05.pem:1: expected one"
renew && rm "$scratch/d/trust-anchors/"* && expect "trust-anchors: holds no"
renew && sed -i '1s/.*/# [a; comment/' "$scratch/d/environments.txt" &&
  "$cmake" -DDEPLOYMENT_DIR="$scratch/d" -DDEPLOYMENT_SOURCE="$scratch/out.cpp" \
    -P "$source/cmake/deployment.cmake"
[[ $(grep -oE '"[a-z]+.quorvent.invalid", "443", "[A-Za-z]+"' "$scratch/out.cpp" | tr -d '\n",') == \
  "development.quorvent.invalid 443 maquinaIdDeshomologation.quorvent.invalid 443 maquinaIdHom$(:
  )production.quorvent.invalid 443 maquinaIdtest.quorvent.invalid 443 maquinaIdTes" ]]

#!/usr/bin/env bash
# A person decides on pkcs11-tool's requests on the service's page, in Chromium.
source "$(dirname "$0")/support.sh"
tests=$(cd "$(dirname "$0")" && pwd)
setUp "$1" chromium-driver sh -c "command -v chromedriver && /usr/bin/python3 -c 'import selenium'"
startService phone
page=$(sed -n 's/.* phone, page: //p' service.lines)
ln -s "$tests/phone.py" .
run ./phone.py "$page" "./$MODULE" "$ID" ${PICTURE:+"$PICTURE"} ||
  fail "the page is not what it should be"
stopService
expectLines service 3 ' request [145]: approved$' "the first and the last two should be approved"
expectLines service 2 ' request [23]: refused$' "the others should be refused"

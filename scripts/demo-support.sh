# shellcheck shell=bash
# What scripts/demo and tests/applications work with: a home folder, showing commands and what they
# print, the signing service, and the desktop. All of it keeps its files in the current folder.

case $(uname) in
  Darwin) readonly MODULE=${LIBRARY-pkcs11-brivasign}-local.dylib ;;
  *) readonly MODULE=${LIBRARY-pkcs11-brivasign}-local.so ;;
esac

# What Maria's objects are found by: her certificate's number, 1001, as it lies in memory, low byte
# first.
# shellcheck disable=SC2034  # for the scripts
readonly ID=e903000000000000

readonly PRODUCT_FOLDER="Library/Application Support/Orvix"
readonly LOG=$PRODUCT_FOLDER/orvix.log

servicePid=
relayPid=
# What else is to be stopped at the end.
helperPids=

# Enters a new temporary folder that serves as the home folder until the script ends, with what an
# installation would put there: the certificates and the programs are those of the build folder $1.
enterHome() {
  scratch=$(mktemp -d)
  trap leaveHome EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
  trap 'exit 129' HUP
  cd "$scratch" || exit
  export HOME=$scratch
  mkdir -p "$PRODUCT_FOLDER/certificados"
  cp "$1"/local-pki/users/*.cer "$PRODUCT_FOLDER/certificados"
  echo demo-machine >"$PRODUCT_FOLDER/maquinaId"
  # Where the module looks for the service in the production environment, the third one.
  port=$(sed -n '/^localhost /s///p' "$1/local-pki/deployment/environments.txt" | sed -n 3p)
  # Short names for the commands shown.
  ln -s "$1/$MODULE" "$1/local-signing-service" "$1/local-pki" .
}

# Stops what is still running and removes the home folder.
leaveHome() {
  stopEverything
  cd /
  rm -rf "$scratch"
}

# Makes a file to sign, and what the mechanisms sign of it: RSA-PKCS-PSS the hash, RSA-PKCS the hash
# after the name of its algorithm in DER.
makeContract() {
  printf 'Maria pays Joao 100.\n' >contract.txt
  openssl dgst -sha256 -binary contract.txt >contract.sha256
  {
    printf '\060\061\060\015\006\011\140\206\110\001\145\003\004\002\001\005\000\004\040'
    cat contract.sha256
  } >contract.digest-info
}

# Tells what is on standard input, set off from what is around it.
say() {
  printf '\n'
  cat
  printf '\n'
}

# Shows the lines of standard input with who prints them, $1, and keeps them in $1.lines.
relay() {
  local line
  while IFS= read -r line; do
    printf '    %11s | %s\n' "$1" "$line"
    printf '%s\n' "$line" >>"$1.lines"
  done
}

# Shows a command as one would type it.
showCommand() {
  local line='  $' word
  for word in "$@"; do
    word=$(printf '%q' "$word")
    # A long command goes on in the next line, but an option's value stays with it.
    if [[ $word == -* && $((${#line} + ${#word})) -gt 76 ]]; then
      printf '%s \\\n' "$line"
      line='     '
    fi
    line+=" $word"
  done
  printf '%s\n' "$line"
}

# Runs a command visibly.
run() {
  showCommand "$@"
  : >"$1.lines"
  "$@" 2>&1 | relay "$1"
}

# Runs pkcs11-tool with the module visibly.
runTool() {
  run pkcs11-tool --module "./$MODULE" "$@"
}

# Ends the script because of $1, and shows the module's log, which may tell more.
fail() {
  [[ ! -s $LOG ]] || relay orvix.log <"$LOG"
  printf '\n%s failed: %s.\n' "$(basename "$0")" "$1" >&2
  exit 1
}

# Fails with the message $4 unless $1.lines holds exactly $2 lines, say 1 or "1 or 2", that match
# $3.
expectLines() {
  local count
  count=$(grep -c -e "$3" "$1.lines") || true
  [[ " $2 " == *" $count "* ]] || fail "$4"
}

# Starts the signing service with the approval mode $1.
startService() {
  local command=(./local-signing-service --pki local-pki --approval "$1")
  : >service.lines
  [[ -p service.pipe ]] || mkfifo service.pipe
  relay service <service.pipe &
  relayPid=$!
  showCommand "${command[@]}"
  "${command[@]}" >service.pipe 2>&1 &
  servicePid=$!
  until grep -q " listening, .*:$port," service.lines; do
    if ! kill -0 "$servicePid" 2>/dev/null; then
      wait "$relayPid"
      fail "the signing service cannot run on port $port, where the module looks for it"
    fi
    sleep 0.1
  done
}

# Stops the signing service and waits until everything it has said is shown.
stopService() {
  kill "$servicePid" || true
  wait "$servicePid" || fail "the signing service ended with an error"
  servicePid=
  wait "$relayPid"
  relayPid=
}

# Stops what is still running, in whatever state it is.
stopEverything() {
  local pid
  for pid in $helperPids $servicePid $relayPid; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
}

# Puts an osascript into the folder $1 that shows the module's notifications here. The real one
# would show them on the desktop of a Mac, and is missing elsewhere.
makeDesktop() {
  mkdir "$1"
  cat >"$1/osascript" <<'TEXT'
#!/bin/sh
# Called with: -e 'display notification "TEXT" with title "TITLE"'
text=$(printf '%s\n' "$2" | sed 's/^display notification "\(.*\)" with title "\(.*\)"$/\2: \1/')
printf '    %11s | %s\n' desktop "$text" >&3
printf '%s\n' "$text" >>"$HOME/desktop.lines"
TEXT
  chmod +x "$1/osascript"
}

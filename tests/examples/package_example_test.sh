#!/usr/bin/env bash
# The two examples for package authors against the simulated cloud: the requests they make, with whose token, and what
# an ordinary user gets. Runs inside scripts/sandbox; everything it starts ends with it.
set -uo pipefail

work=$(mktemp -d)
sim= failures=0
end() { [ -z "$sim" ] || { kill "$sim" && wait "$sim"; } 2>/dev/null; rm -rf "$work"; }
trap end EXIT
die() { echo "package_example_test: $*"; exit 1; }
expect() {  # expect WHAT WANTED GOT
  [ "$2" = "$3" ] && return
  printf 'FAILED: %s\n  wanted: %s\n  got:    %s\n' "$1" "$2" "$3"
  failures=$((failures + 1))
}
program=$VARNKIVO_BUILD/examples/package/varnkivo-package
script=$(realpath "$(dirname "$0")/../../examples/package/package.sh")
export PATH=/usr/varn/bin:$PATH
private=/usr/varn/etc/varnholt-account/private url=https://account.kivo.example/photos/albums
ordinary=(setpriv --reuid=1000 --regid=1000 --clear-groups)

"$VARNKIVO_BUILD/sim/varnkivo-sim" --trust-into --account 'ann@example.com:correct horse:1001' >"$work/sim" &
sim=$!
until [ -s "$work/sim" ]; do kill -0 $sim || die 'the simulator did not start'; sleep 0.05; done
control=$(sed 's/.*"control":"\([^"]*\)".*/\1/' "$work/sim")

# calls STATUS ANSWERS WHAT SEEN COMMAND...: runs the command, while the service answers so, and ends with the status.
# SEEN is the "Authorization" of each call that it makes, NEW standing for the token stored afterwards.
stored() { python3 -c 'import json; print(json.load(open("'$private'/photos_token.json"))["access_token"])'; }
calls() {
  local answer
  curl -sf -X DELETE "$control/journal" -o "$work/control" || die 'the journal cannot be emptied'
  for answer in $2; do
    curl -sf -o "$work/control" "$control/faults" -d "{\"path\":\"photos/albums\",\"status\":$answer,\"body\":\"\",\"skip_handler\":true}"
  done
  "${@:5}" >"$work/out" 2>"$work/err"
  expect "the exit code of ${*:5} ($3)" "$1" $?
  expect "the calls of ${*:5} ($3)" "${4/NEW/$(stored 2>/dev/null)}" "$(curl -sf "$control/journal" | python3 -c '
import json, sys
for entry in json.load(sys.stdin):
    request = entry.get("request", {})
    if entry["complaint"]: print("complaint:", entry["complaint"], end=" ")
    if request.get("target") == "/photos/albums":
        print(*[value[7:] for name, value in request["headers"] if name.lower() == "authorization"], end=" ")')"
}

for example in "$program" "$script"; do
  [ "$example" = "$program" ] && none=1 denied=1 || { none=3 denied=7; }
  calls $none '' 'signed out' '' "$example" photos $url
  echo 'correct horse' | varnkivo login --email ann@example.com --password-stdin >"$work/out" || die 'nobody can sign in'
  calls 0 200 'none yet' 'NEW ' "$example" photos $url
  expect 'what it prints' "photos called $url: 200" "$(cat "$work/out" "$work/err")"
  first=$(stored)
  calls 0 200 'the same again' "$first " "$example" photos $url
  calls 0 '401 200' 'refused, and a new one' "$first NEW " "$example" photos $url
  [ "$first" != "$(stored)" ] || expect 'a new token' 'another one' "$first"
  calls 1 500 'a service that fails' 'NEW ' "$example" photos $url
  calls 1 '' 'no service' '' "$example" photos https://127.0.0.1:9/
  calls $denied '' 'an ordinary user' '' "${ordinary[@]}" "$example" photos $url
  # How an administrator hands one to a program of an ordinary user.
  calls 0 '' 'handed on' '' varnkivo exec --package photos -- "${ordinary[@]}" sh -c 'id -u; echo "$VARNKIVO_ACCESS_TOKEN"'
  expect 'a program that an administrator runs' $'1000\n'"$(stored)" "$(cat "$work/out")"
  varnkivo logout --local --yes >"$work/out" || die 'nobody can sign out'
done

[ $failures = 0 ] || die "$failures expectations were not met"
echo 'package_example_test: everything was as it should be'

#!/usr/bin/env bash
# The console from outside, as a browser would use it, against the simulated cloud: a sign-in and a sign-out with all
# their hops, and every request that must not get through. Runs inside scripts/sandbox; everything it starts ends with it.
set -uo pipefail

work=$(mktemp -d)
sim= console= failures=0
end() { for id in $sim $console; do kill "$id" && wait "$id"; done 2>/dev/null; rm -rf "$work"; }
trap end EXIT
die() { echo "console_test: $*"; exit 1; }

expect() {  # expect WHAT WANTED GOT
  [ "$2" = "$3" ] && return
  printf 'FAILED: %s\n  wanted: %s\n  got:    %s\n' "$1" "$2" "$3"
  failures=$((failures + 1))
}
first_line() {  # first_line FILE PID: waits for it
  until [ -s "$1" ]; do kill -0 "$2" || return 1; sleep 0.05; done
  head -n 1 "$1"
}
"$VARNKIVO_BUILD/sim/varnkivo-sim" --trust-into --account 'ann@example.com:correct horse:1001' >"$work/sim" &
sim=$!
control=$(first_line "$work/sim" $sim | sed 's/.*"control":"\([^"]*\)".*/\1/') || die 'the simulator did not start'
"$VARNKIVO_BUILD/examples/console/varnkivo-console" --port 0 >"$work/console" 2>"$work/log" &
console=$!
url=$(first_line "$work/console" $console) || die 'the console did not start'
site=${url%/} port=${site##*:}

# get JAR ARGUMENT...: one request, no redirect followed; prints "STATUS REDIRECT". The answer is in page and head.
get() { curl -s -m 30 -b "$work/$1" -c "$work/$1" -o "$work/page" -D "$work/head" -w '%{http_code} %{redirect_url}' "${@:2}"; }
token() { get "$1" "$url" >/dev/null; sed -n '0,/name="csrf"/s/.*name="csrf" value="\([0-9a-f]*\)".*/\1/p' "$work/page"; }
post() { get "$1" "$site$2" --data-urlencode "csrf=$(token "$1")" "${@:3}"; }
# page JAR WHAT TEXT...: the start page shows each text; one after "no " it must not.
page() {
  local text
  get "$1" "$url" >/dev/null
  for text in "${@:3}"; do
    expect "$2: $text" "$([[ $text == no\ * ]] && echo 1 || echo 0)" "$(grep -qF -- "${text#no }" "$work/page"; echo $?)"
  done
}
# Begins a sign-in and answers it at the identity host with the form fields given; prints where the browser is led back.
answer() {
  local begun landed
  begun=$(post "$1" /sign-in)
  landed=$(curl -s -o "$work/ignored" -w '%{redirect_url}' "${@:2}" "${begun#303 }")
  curl -s -o "$work/ignored" -w '%{redirect_url}' "$landed"
}
ann=(--data-urlencode email=ann@example.com --data-urlencode 'password=correct horse') eve=(-d email=eve@example.com -d password=p)
fault() { curl -s "$control/faults" -d "{\"path\":\"$1\",$2}" >/dev/null; }  # what the cloud answers there once
requests() { curl -s "$control/journal" | tr -d ' \n'; curl -s -X DELETE "$control/journal" >/dev/null; }
# Whether the device is signed in, as another program on it sees that.
account() { /usr/varn/bin/varnkivo is-signed-in >/dev/null 2>&1 && echo in || echo out; }

# ---- the page, and requests that are not answered
[ "$(get ann "$url")" = '200 ' ] || die "the first page cannot be had: $(cat "$work/log")"
for header in "Content-Security-Policy: default-src 'none'" 'Referrer-Policy: same-origin' 'Cache-Control: no-store' \
  'X-Content-Type-Options: nosniff' "Set-Cookie: varnkivo_console_$port=.*; Path=/; HttpOnly; SameSite=Lax"; do
  expect "$header" 1 "$(grep -ci "^$header" "$work/head")"
done
expect 'other addresses' 000 "$(curl -s -o "$work/ignored" -w '%{http_code}' "http://127.0.0.2:$port/")"
get passing "$url" -H 'Sec-Fetch-Site: cross-site' >/dev/null
expect 'no session for a page elsewhere' 0 "$(grep -ci '^Set-Cookie' "$work/head")"
key=$(token ann)
form=(--data-urlencode "csrf=$key")
refused() { expect "$1" "$2" "$(get ann "${@:3}")"; }
refused 'a foreign host name' '400 ' "$url" -H 'Host: kivo.attacker.example'
refused 'no host' '400 ' "$url" -H 'Host;'
refused 'no form token' '403 ' "$site/sign-in" -d ''
refused 'a part of the form token' '403 ' "$site/sign-in" -d "csrf=${key:0:31}"
refused 'a token in the query' '400 ' "$site/sign-in?csrf=$key" -d ''
refused 'a foreign origin' '400 ' "$site/sign-in" "${form[@]}" -H 'Origin: https://attacker.example'
refused 'a long form' '413 ' "$site/sign-in" "${form[@]}" -d "x=$(printf '%5000s' '' | tr ' ' x)"
token eve >/dev/null
expect 'the form token of another session' '403 ' "$(get eve "$site/sign-in" "${form[@]}")"
own() { get ann "$site/sign-in" "${form[@]}" -H "Origin: $site" | cut -d' ' -f1; }
expect 'its own origin' 303 "$(own)"
curl -s -o "$work/ignored" "$url?[1-70]"
expect 'a pending sign-in outlives 70 other sessions' 303 "$(own)"
token eve >/dev/null

# ---- answers that must not sign anybody in, and the one that does
back=$(answer ann "${ann[@]}")
requests >/dev/null
expect 'a state of nobody' '400 ' "$(get ann "$site/callback?code=abc&state=0123456789abcdef0123456789abcdef.$port")"
expect 'another browser' '400 ' "$(get eve "$back")"
expect 'no cookie' '400 ' "$(get nobody "$back")"
expect 'HEAD' 400 "$(curl -s -I -b "$work/ann" -o /dev/null -w '%{http_code}' "$back")"
expect 'the account host was asked nothing' '[]' "$(requests)"
expect 'the answer' "303 $url in" "$(get ann "$back") $(account)"
expect 'the same answer again' '400 ' "$(get ann "$back")"
expect 'a second sign-in' "303 $url" "$(post ann /sign-in)"
page eve 'the message of another browser' 'no role="alert"'
page ann 'a second sign-in' 'is signed in already'
page ann 'signed in' '<dd id="account-email">ann@example.com</dd>' 'id="sign-out"' 'valid until' 'no role="alert"'

# Nothing secret leaves the device: not in a page, not in what the program prints.
private=/usr/varn/etc/varnholt-account/private
secrets=$(sed -n 's/^lu_auth_key="\(.*\)"/\1/p' $private/user.conf
  python3 -c 'import json; d = json.load(open("'$private'/lum_token.json")); print(*(d[k] for k in d if k.endswith("_token")), sep="\n")')
expect 'the secrets that are looked for' 4 "$(grep -c . <<<"$secrets")"
for secret in $secrets "$(sed 's/.*code=\([^&]*\).*/\1/' <<<"$back")"; do
  expect "the secret ${secret:0:6}..." '' "$(grep -lF -- "$secret" "$work/page" "$work/head" "$work/log")"
done
cp -p $private/lum_token.json "$work/token"
for content in '{"created_at":9223372036854775807,"expires_in":9223372036854775807}' "$(printf '[%.0s' {1..5000})"; do
  echo "$content" >$private/lum_token.json
  page ann "${content:0:60}" '<dd id="token-state">not readable'
done
cp -p "$work/token" $private/lum_token.json

# ---- the sign-out, refused at first
fault device/api/logout '"status":200,"body":"{\"code\":\"badauth\"}","skip_handler":true'
expect 'a refusal keeps the account' "303 $url in" "$(post ann /sign-out) $(account)"
page ann 'a refusal' 'role="alert"><p>Signing out failed' 'id="sign-out-local"'
requests >/dev/null
expect 'only here, and nobody is told' "303 $url out []" "$(post ann /sign-out -d local=1) $(account) $(requests)"

# ---- what fails half-way leaves nothing, what comes second changes nothing, and what takes its time is waited for
back=$(answer ann "${ann[@]}")
fault oauth2/api/v1/device/core/authkey/exchange '"status":503,"body":"","skip_handler":true'
expect 'a failing half' "303 $url " "$(get ann "$back") $(ls $private | grep -E '^user.conf|token')"
page ann 'a failing half' 'role="alert"><p>Signing in failed'
curl -s "$control/accounts" -d '{"email":"eve@example.com","password":"p","user_id":"1002","full_name":"<b>\"Eve\" & co</b>"}' >/dev/null
second=$(answer ann "${ann[@]}")
expect 'the first of two' "303 $url" "$(get eve "$(answer eve "${eve[@]}")")"
expect 'the second of two' "303 $url" "$(get ann "$second")"
page ann 'the second of two' 'has been signed in meanwhile' 'eve@example.com' '&#60;b&#62;&#34;Eve&#34; &#38; co&#60;/b&#62;'
expect 'the sign-out' "303 $url out" "$(post eve /sign-out) $(account)"
back=$(answer ann "${ann[@]}")
fault oauth2/token '"delay_ms":3000'
curl -s -b "$work/ann" -o "$work/ignored" -w '%{http_code}' "$back" >"$work/slow" &
slow=$!
sleep 0.5
expect 'meanwhile' '503 ' "$(get eve "$url")"
kill -TERM $console
wait $slow
expect 'the slow sign-in, in spite of a signal' '303 in' "$(cat "$work/slow") $(account)"
wait $console
expect 'the end' 0 $?
console=
[ $failures = 0 ] || { cat "$work/log"; die "$failures expectations were not met"; }
echo 'console_test: everything was as it should be'

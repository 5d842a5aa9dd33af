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
shows() { if ! grep -qF -- "$2" "$work/page"; then expect "$1" "a page with \"$2\"" "$(sed '1,/<body>/d' "$work/page")"; fi; }
hides() { if grep -qF -- "$2" "$work/page"; then expect "$1" "no \"$2\"" "$(grep -F -- "$2" "$work/page")"; fi; }
first_line() {  # first_line FILE PID: waits for it
  for _ in $(seq 200); do
    if [ -s "$1" ]; then head -n 1 "$1"; return; fi
    kill -0 "$2" || return 1
    sleep 0.05
  done
  return 1
}
# Whether the device is signed in, as another program on it sees that.
account() { /usr/varn/bin/varnkivo is-signed-in >/dev/null 2>&1 && echo in || echo out; }

"$VARNKIVO_BUILD/sim/varnkivo-sim" --trust-into --account 'ann@example.com:correct horse:1001' >"$work/sim" &
sim=$!
control=$(first_line "$work/sim" $sim | sed 's/.*"control":"\([^"]*\)".*/\1/') || die 'the simulator did not start'
"$VARNKIVO_BUILD/examples/console/varnkivo-console" --port 0 >"$work/console" 2>"$work/log" &
console=$!
url=$(first_line "$work/console" $console) || die 'the console did not start'
site=${url%/} port=${site##*:}

# get JAR ARGUMENT...: one request, no redirect followed; prints "STATUS REDIRECT". The answer is in page and head.
get() {
  local jar=$1
  shift
  curl -s -m 30 -b "$work/$jar" -c "$work/$jar" -o "$work/page" -D "$work/head" -w '%{http_code} %{redirect_url}' "$@"
}
token() {
  get "$1" "$url" >/dev/null
  sed -n 's/.*name="csrf" value="\([0-9a-f]*\)".*/\1/p' "$work/page" | head -n 1
}
post() { local jar=$1 path=$2; shift 2; get "$jar" "$site$path" --data-urlencode "csrf=$(token "$jar")" "$@"; }
# Begins a sign-in and answers it at the identity host with the form fields given; prints where the browser is led back.
answer() {
  local jar=$1 begun landed
  shift
  begun=$(post "$jar" /sign-in)
  landed=$(curl -s -o "$work/ignored" -w '%{redirect_url}' "$@" "${begun#303 }")
  curl -s -o "$work/ignored" -w '%{redirect_url}' "$landed"
}
allow=(--data-urlencode email=ann@example.com --data-urlencode 'password=correct horse')

# ---- the page and what goes with it
[ "$(get ann "$url")" = '200 ' ] || die "the first page cannot be had: $(cat "$work/log")"
shows 'signed out' 'id="sign-in"'
hides 'signed out' 'id="account-email"'
for header in "Content-Security-Policy: default-src 'none'" 'Referrer-Policy: same-origin' \
  'Cache-Control: no-store' 'X-Content-Type-Options: nosniff' "Set-Cookie: varnkivo_console_$port="; do
  grep -qiF "$header" "$work/head" || expect 'a header' "$header" "$(cat "$work/head")"
done
expect 'the cookie' 1 "$(grep -ciE '^Set-Cookie: .*; Path=/; HttpOnly; SameSite=Lax' "$work/head")"
get ann "$url" >/dev/null
expect 'the cookie is kept' 0 "$(grep -ci '^Set-Cookie' "$work/head")"
expect 'other addresses' 000 "$(curl -s -o "$work/ignored" -w '%{http_code}' "http://127.0.0.2:$port/")"
for bad in 80 1023 65536 -1 8380x ''; do
  expect "the port \"$bad\"" 2 "$("$VARNKIVO_BUILD/examples/console/varnkivo-console" --port "$bad" 2>/dev/null; echo $?)"
done
expect 'a second console on the port' 1 "$("$VARNKIVO_BUILD/examples/console/varnkivo-console" --port "$port" 2>/dev/null; echo $?)"

# ---- requests that are not answered
key=$(token ann)
refused() { expect "$1" "$2" "$(get ann "${@:3}")"; }
form=(--data-urlencode "csrf=$key")
refused 'a foreign host name' '400 ' "$url" -H 'Host: kivo.attacker.example'
refused 'a foreign port' '400 ' "$url" -H 'Host: 127.0.0.1:1'
refused 'no host' '400 ' "$url" -H 'Host;'
exec 4<>"/dev/tcp/127.0.0.1/$port"
printf 'GET / HTTP/1.1\r\nHost: 127.0.0.1:%s\r\nHost: kivo.attacker.example\r\n\r\n' "$port" >&4
expect 'two hosts' 'HTTP/1.1 400 Bad Request' "$(head -n 1 <&4 | tr -d '\r')"
exec 4>&-
refused 'another name of the same host' '400 ' "${url/127.0.0.1/localhost}"
refused 'no form token' '403 ' "$site/sign-in" -d ''
refused 'a wrong form token' '403 ' "$site/sign-in" -d "csrf=${key//[0-8]/9}"
refused 'a part of the form token' '403 ' "$site/sign-in" -d "csrf=${key:0:31}"
refused 'a token in the query' '400 ' "$site/sign-in?csrf=$key" -d ''
refused 'two tokens' '403 ' "$site/sign-in" "${form[@]}" -d csrf=0
refused 'a foreign origin' '400 ' "$site/sign-in" "${form[@]}" -H 'Origin: https://attacker.example'
refused 'an origin that is hidden' '400 ' "$site/sign-in" "${form[@]}" -H 'Origin: null'
refused 'a long form' '413 ' "$site/sign-in" "${form[@]}" -d "x=$(printf '%5000s' '' | tr ' ' x)"
refused 'PUT' '400 ' -X PUT "$site/sign-in" "${form[@]}"
refused 'sign-in by GET' '404 ' "$site/sign-in?csrf=$key"
expect 'the form token of another browser' '403 ' "$(get eve "$site/sign-in" "${form[@]}")"
token eve >/dev/null
expect 'the form token of another session' '403 ' "$(get eve "$site/sign-in" "${form[@]}")"
expect 'its own origin' 303 "$(get ann "$site/sign-in" "${form[@]}" -H "Origin: $site" | cut -d' ' -f1)"

# ---- what looks in passing, and what a page elsewhere asks for, takes nobody's place
get passing "$url" -H 'Sec-Fetch-Site: cross-site' >/dev/null
expect 'no session for a page elsewhere' 0 "$(grep -ci '^Set-Cookie' "$work/head")"
shows 'a page elsewhere' 'href="/"'
for from in none same-origin; do
  get "passing-$from" "$url" -H "Sec-Fetch-Site: $from" >/dev/null
  expect "a session for $from" 1 "$(grep -ci '^Set-Cookie' "$work/head")"
done
curl -s -o "$work/ignored" "$url?[1-70]"
expect 'a pending sign-in outlives them' 303 "$(get ann "$site/sign-in" "${form[@]}" | cut -d' ' -f1)"

# ---- the authorization request
begun=$(post ann /sign-in)
for part in '303 https://identity.kivo.example/oauth2/auth?' response_type=code client_id=kivo-device \
  redirect_uri=https%3A%2F%2Faccount.kivo.example%2Fdevice%2Flogin%2Fcallback 'scope=openid%20' 'audience=https' \
  code_challenge_method=S256; do
  [[ $begun == *"$part"* ]] || expect 'the authorization request' "$part" "$begun"
done
[[ $begun =~ [?\&]state=[0-9a-f]{32}\.$port(\&|$) ]] || expect 'the state' "32 digits, .$port" "$begun"
[[ $begun =~ [?\&]code_challenge=[A-Za-z0-9_-]{43}(\&|$) ]] || expect 'the challenge' '43 characters' "$begun"

# ---- answers that must not sign anybody in
expect 'no state' '400 ' "$(get ann "$site/callback?code=abc")"
expect 'no code' '400 ' "$(get ann "$site/callback?state=${begun##*state=}")"
expect 'a state of nobody' '400 ' "$(get ann "$site/callback?code=abc&state=0123456789abcdef0123456789abcdef.$port")"
back=$(answer ann "${allow[@]}")
[[ $back == "$site/callback?code="* ]] || expect 'the browser is led back' "$site/callback?code=..." "$back"
curl -s -X DELETE "$control/journal" >/dev/null
expect 'another browser' '400 ' "$(get eve "$back")"
expect 'no cookie' '400 ' "$(get nobody "$back")"
expect 'HEAD' 400 "$(curl -s -I -b "$work/ann" -o /dev/null -w '%{http_code}' "$back")"
expect 'a state with an end too many' '400 ' "$(get ann "${back}0")"
expect 'the account host was asked nothing' '[]' "$(curl -s "$control/journal" | tr -d ' \n')"
expect 'nobody is signed in' out "$(account)"

# ---- the sign-in
expect 'the answer' "303 $url" "$(get ann "$back")"
expect 'the device is signed in' in "$(account)"
expect 'the same answer again' '400 ' "$(get ann "$back")"
get ann "$url" >/dev/null
for text in '<dd id="account-email">ann@example.com</dd>' '<dd id="account-id">1001</dd>' 'Ann Example' 'id="sign-out"' \
  'valid until' '/usr/varn/bin/varnkivo --report_info'; do
  shows 'signed in' "$text"
done
hides 'signed in' 'role="alert"'
hides 'signed in' 'id="sign-in"'
expect 'a second sign-in' "303 $url" "$(post ann /sign-in)"
get ann "$url" >/dev/null
shows 'a second sign-in' 'is signed in already'
get ann "$url" >/dev/null
hides 'the message, once shown' 'role="alert"'
get eve "$url" >/dev/null
hides 'the message of another browser' 'role="alert"'

# Nothing secret leaves the device: not in a page, not in what the program prints.
private=/usr/varn/etc/varnholt-account/private
secrets=$(sed -n 's/^lu_auth_key="\(.*\)"/\1/p' $private/user.conf
  python3 -c 'import json; d = json.load(open("'$private'/lum_token.json")); print(*(d[k] for k in d if k.endswith("_token")), sep="\n")')
expect 'the secrets that are looked for' 4 "$(grep -c . <<<"$secrets")"
get ann "$url" >/dev/null
for secret in $secrets "$(sed 's/.*code=\([^&]*\).*/\1/' <<<"$back")"; do
  if grep -qF -- "$secret" "$work/page" "$work/head" "$work/log"; then expect 'a secret' 'nowhere' "${secret:0:6}..."; fi
done

# ---- the sign-out, refused at first
expect 'no token' '403 ' "$(get ann "$site/sign-out" -d local=1)"
curl -s "$control/faults" -d '{"path":"device/api/logout","status":200,"body":"{\"code\":\"badauth\"}","skip_handler":true}' >/dev/null
expect 'a refusal' "303 $url" "$(post ann /sign-out)"
expect 'a refusal keeps the account' in "$(account)"
get ann "$url" >/dev/null
shows 'a refusal' 'role="alert"><p>Signing out failed'
shows 'a refusal' 'id="sign-out-local"'
curl -s -X DELETE "$control/journal" >/dev/null
expect 'only here' "303 $url" "$(post ann /sign-out -d local=1)"
expect 'only here' out "$(account)"
expect 'nobody was told' '[]' "$(curl -s "$control/journal" | tr -d ' \n')"
get ann "$url" >/dev/null
hides 'after it' 'role="alert"'
shows 'after it' 'id="sign-in"'

# ---- refused consent, a failing exchange, and the whole way once more
expect 'a refused consent' "303 $url" "$(get ann "$(answer ann -d decision=deny)")"
get ann "$url" >/dev/null
shows 'a refused consent' 'was not allowed'
expect 'a refused consent' out "$(account)"
back=$(answer ann "${allow[@]}")
curl -s "$control/faults" -d '{"path":"oauth2/token","status":400,"body":"{\"error\":\"invalid_grant\"}","skip_handler":true}' >/dev/null
expect 'a failing exchange' "303 $url" "$(get ann "$back")"
get ann "$url" >/dev/null
shows 'a failing exchange' 'role="alert"><p>Signing in failed'
expect 'a failing exchange' out "$(account)"
curl -s "$control/accounts" -d '{"email":"eve@example.com","password":"p","user_id":"1002","full_name":"<b>\"Eve\" & co</b>"}' >/dev/null
get eve "$(answer eve -d email=eve@example.com -d password=p)" >/dev/null
get eve "$url" >/dev/null
shows 'a name with signs of HTML' '&#60;b&#62;&#34;Eve&#34; &#38; co&#60;/b&#62;'
expect 'signed out with the account centre' "303 $url" "$(post eve /sign-out)"
expect 'signed out with the account centre' out "$(account)"

# ---- a sign-in that fails half-way leaves nothing, one that comes second changes nothing
back=$(answer ann "${allow[@]}")
curl -s "$control/faults" -d '{"path":"oauth2/api/v1/device/core/authkey/exchange","status":503,"body":"","skip_handler":true}' >/dev/null
expect 'a failing half' "303 $url" "$(get ann "$back")"
get ann "$url" >/dev/null
shows 'a failing half' 'role="alert"><p>Signing in failed'
expect 'a failing half' '' "$(ls $private | grep -E '^user.conf|token')"
second=$(answer eve -d email=eve@example.com -d password=p)
expect 'the first of two' "303 $url" "$(get ann "$(answer ann "${allow[@]}")")"
expect 'the second of two' "303 $url" "$(get eve "$second")"
get eve "$url" >/dev/null
shows 'the second of two' 'has been signed in meanwhile'
shows 'the second of two' '<dd id="account-email">ann@example.com</dd>'

# ---- token files as they can be
now=$(date +%s)
cp -p $private/lum_token.json "$work/token"
while IFS='|' read -r wanted content; do
  echo "$content" >$private/lum_token.json
  expect "the page with $content" '200 ' "$(get ann "$url")"
  shows "${content:0:60}" "<dd id=\"token-state\">$wanted"
done <<TOKENS
valid until|{"created_at":"$now","expires_in":"3600"}
expired|{"created_at":1,"expires_in":3600}
not readable|{"created_at":9223372036854775807,"expires_in":9223372036854775807}
not readable|{"created_at":1,"expires_in":2147483648}
not readable|[]
not readable|$(printf '[%.0s' {1..5000})
TOKENS
cp -p "$work/token" $private/lum_token.json
expect 'the sign-out' "303 $url" "$(post ann /sign-out)"

# ---- while a sign-in takes its time, the page says so instead of waiting with it
curl -s "$control/faults" -d '{"path":"oauth2/token","delay_ms":4000}' >/dev/null
back=$(answer ann "${allow[@]}")
curl -s -b "$work/ann" -o "$work/ignored" -w '%{http_code}' "$back" >"$work/slow" &
slow=$!
sleep 0.5
expect 'meanwhile' '503 ' "$(get eve "$url")"
shows 'meanwhile' 'talking to the account centre'
wait $slow
expect 'the slow sign-in' 303 "$(cat "$work/slow")"
expect 'the slow sign-in' in "$(account)"
expect 'the sign-out' "303 $url" "$(post ann /sign-out)"

kill -TERM $console
wait $console
expect 'the end' 0 $?

"$VARNKIVO_BUILD/examples/console/varnkivo-console" --port "$port" >"$work/console" 2>>"$work/log" &
console=$!
first_line "$work/console" $console >/dev/null || die 'the console did not start again'
curl -s "$control/faults" -d '{"path":"oauth2/token","delay_ms":20000}' >/dev/null
curl -s -b "$work/ann" -o "$work/ignored" "$(answer ann "${allow[@]}")" &
slow=$!
sleep 0.5
kill -TERM $console
sleep 0.5
expect 'it waits for the sign-in' 0 "$(kill -0 $console; echo $?)"
kill -TERM $console
wait $console
expect 'the end at once' 143 $?
wait $slow
console=
if [ $failures != 0 ]; then
  cat "$work/log"
  die "$failures expectations were not met"
fi
echo 'console_test: everything was as it should be'

#!/usr/bin/env bash
# The man page and the completions against what the tool itself prints with --help: every verb and option of the one is
# in the others, and the shells offer exactly them.
#
#   describe_test.sh TOOL FOLDER   FOLDER has varnkivo.1, varnkivo.bash, _varnkivo and varnkivo.fish
set -euo pipefail
tool=$1 folder=$2
failures=0
fail() { echo "describe_test: $*"; failures=$((failures + 1)); }
sorted() { tr -s ' ' '\n' | grep . | LC_ALL=C sort -u; }

# The words of --help below "Subcommands:" or "Options:"; those of an option all, "-h,--help" as two.
verbs_of() { "$tool" $1 --help | awk '/^[A-Z].*:$/ { on = $0 == "Subcommands:" } on && /^  [^ ]/ { print $1 }'; }
options_of() {
  "$tool" $1 --help | awk '/^[A-Z].*:$/ { on = $0 == "Options:" } on && /^  -/ { gsub(",", " "); for (i = 1; $i ~ /^-/; i++) print $i }'
}
paths=('')
for ((i = 0; i < ${#paths[@]}; i++)); do
  for verb in $(verbs_of "${paths[i]}"); do paths+=("${paths[i]:+${paths[i]} }$verb"); done
done
[ ${#paths[@]} -ge 12 ] || fail "only ${#paths[@]} verbs are found in --help: ${paths[*]}"

page=$(MANWIDTH=200 MANROFFOPT=-rHY=0 man --warnings -l "$folder/varnkivo.1" 2>"${TMPDIR:-/tmp}/describe.$$" | col -bx)
said=$(cat "${TMPDIR:-/tmp}/describe.$$"); rm -f "${TMPDIR:-/tmp}/describe.$$"
[ -z "$said" ] || fail "man complains: $said"
# What the page says of one verb: from its heading to the next.
part() { awk -v head="   varnkivo${1:+ $1}" '$0 == head { on = 1; next } /^(   )?[^ ]/ { on = 0 } on' <<<"$page"; }

bash -n "$folder/varnkivo.bash" || fail 'bash cannot read its completion'
offered_by_bash() (  # offered_by_bash WORD...: the last one is being typed
  # shellcheck disable=SC1091
  source "$folder/varnkivo.bash"
  COMP_WORDS=(varnkivo "$@") COMP_CWORD=$# COMPREPLY=()
  _varnkivo
  printf '%s\n' "${COMPREPLY[@]}"
)
offered_by_fish() { XDG_CONFIG_HOME=/nonexistent fish -N -c "source '$folder/varnkivo.fish'; complete -C 'varnkivo $*'" | cut -f1; }
# The completion system of zsh needs a terminal; its pieces are caught instead.
offered_by_zsh() {
  zsh -f -c '_describe() { eval "print -l -- \${(@)${@[-1]}%%:*}" }; _files() { print FILE }; _message() { : }
    _normal() { print "NORMAL $words" }; compadd() { shift; print -l -- $@ }
    words=(varnkivo "${@[2,-1]}"); CURRENT=$#words; source "$1"' zsh "$folder/_varnkivo" "$@"
}
expect() {  # expect SHELL WANTED OFFERED WORDS
  [ "$(sorted <<<"$2")" = "$(sorted <<<"$3")" ] ||
    fail "$1 offers after \"varnkivo $4\": $(head -n 40 <<<"$3" | tr '\n' ' '); --help has: $(tr '\n' ' ' <<<"$2")"
}

for path in "${paths[@]}"; do
  verbs=$(verbs_of "$path") options=$(options_of "$path")
  shown=$(if [ -n "$path" ]; then part "$path"; else cat <<<"$page"; fi)
  [ -n "$shown" ] || fail "the man page has no part about \"$path\""
  for word in $verbs; do grep -q "^   varnkivo ${path:+$path }$word\$" <<<"$page" || fail "the man page lacks \"$path $word\""; done
  for word in $options; do
    [ "${path:+$word}" = --help ] || [ "${path:+$word}" = -h ] || grep -qE "(^| )$word(,| |\$)" <<<"$shown" ||
      fail "the man page lacks $word of \"$path\""
  done
  # shellcheck disable=SC2086  # the words of a verb
  expect bash "$options" "$(offered_by_bash $path -)" "$path -"
  # shellcheck disable=SC2086
  [ -z "$verbs" ] || expect bash "$verbs" "$(offered_by_bash $path '' | grep -v '^-')" "$path"
  if command -v fish >/dev/null; then
    expect fish "$options" "$(offered_by_fish "$path -")" "$path -"
    [ -z "$verbs" ] || expect fish "$verbs" "$(offered_by_fish "$path ")" "$path"
  fi
  if command -v zsh >/dev/null; then
    # shellcheck disable=SC2086
    expect zsh "$verbs $options" "$(offered_by_zsh $path -)" "$path -"
  fi
done

# Values: a closed set, a file, and what cannot be known.
expect bash 'token json env header' "$(offered_by_bash token --format '')" 'token --format'
expect bash '/etc/passwd' "$(offered_by_bash login --password-file /etc/passw | grep -x /etc/passwd)" 'login --password-file /etc/passw'
expect bash '' "$(offered_by_bash login --email '')" 'login --email'
[ "$(offered_by_bash exec -- tru | grep -cx true)" -ge 1 ] || fail 'bash offers no commands to exec'
if command -v fish >/dev/null; then
  expect fish 'token json env header' "$(offered_by_fish 'token --format ')" 'token --format'
  [ "$(offered_by_fish 'exec -- tru' | grep -cx true)" -ge 1 ] || fail 'fish offers no commands to exec'
fi
if command -v zsh >/dev/null; then
  zsh -n "$folder/_varnkivo" || fail 'zsh cannot read its completion'
  expect zsh 'token json env header' "$(offered_by_zsh token --format '')" 'token --format'
  expect zsh FILE "$(offered_by_zsh login --password-file '')" 'login --password-file'
  expect zsh 'NORMAL curl -s' "$(offered_by_zsh exec -- curl -s)" 'exec -- curl -s'
fi

[ "$failures" = 0 ] && echo "describe_test: ${#paths[@]} verbs, with $(for shell in bash fish zsh; do command -v $shell >/dev/null && echo -n "$shell "; done)and man"
exit $((failures > 0))

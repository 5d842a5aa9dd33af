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

page=$(MANWIDTH=200 MANROFFOPT=-rHY=0 man --warnings -l "$folder/varnkivo.1" 2>&1 | col -bx)
# What the page says of one verb: from its heading to the next.
part() { awk -v head="   varnkivo${1:+ $1}" '$0 == head { on = 1; next } /^(   )?[^ ]/ { on = 0 } on' <<<"$page"; }

has() { command -v "$1" >/dev/null; }
bash_offers() (  # WORD...: the last one is being typed, as below
  # shellcheck disable=SC1091
  source "$folder/varnkivo.bash"
  COMP_WORDS=(varnkivo "$@") COMP_CWORD=$# COMPREPLY=()
  _varnkivo
  printf '%s\n' "${COMPREPLY[@]}"
)
fish_offers() { XDG_CONFIG_HOME=/nonexistent fish -N -c "source '$folder/varnkivo.fish'; complete -C 'varnkivo $*'" | cut -f1; }
# The completion system of zsh needs a terminal; its pieces are caught instead.
zsh_offers() {
  zsh -f -c '_describe() { eval "print -l -- \${(@)${@[-1]}%%:*}" }; _files() { print FILE }; _message() { : }
    _normal() { print "NORMAL $words" }; compadd() { shift; print -l -- $@ }
    words=(varnkivo "${@[2,-1]}"); CURRENT=$#words; source "$1"' zsh "$folder/_varnkivo" "$@"
}
expect() {  # expect SHELL WANTED WORD...
  local offered
  has "$1" || return 0
  offered=$("$1_offers" "${@:3}")
  [ "$(sorted <<<"$2")" = "$(sorted <<<"$offered")" ] ||
    fail "$1 offers after \"varnkivo ${*:3}\": $(head -n 40 <<<"$offered" | tr '\n' ' '); wanted: $(tr '\n' ' ' <<<"$2")"
}

for path in "${paths[@]}"; do
  verbs=$(verbs_of "$path") options=$(options_of "$path")
  shown=$(if [ -n "$path" ]; then part "$path"; else cat <<<"$page"; fi)
  for word in $verbs; do grep -q "^   varnkivo ${path:+$path }$word\$" <<<"$page" || fail "the man page lacks \"$path $word\""; done
  for word in $options; do
    [ "${path:+$word}" = --help ] || [ "${path:+$word}" = -h ] || grep -qE "(^| )$word(,| |\$)" <<<"$shown" ||
      fail "the man page lacks $word of \"$path\""
  done
  # shellcheck disable=SC2086  # the words of a verb
  for shell in bash fish; do expect $shell "$options" $path -; done
  # shellcheck disable=SC2086
  expect zsh "$verbs $options" $path -
done

# Values: a closed set, a file, and what cannot be known.
for shell in bash fish zsh; do expect $shell 'token json env header' token --format ''; done
expect bash "$(compgen -f /etc/passw)" login --password-file /etc/passw
expect bash '' login --email ''
expect zsh FILE login --password-file ''
expect zsh 'NORMAL curl -s' exec -- curl -s
[ "$(bash_offers exec -- tru | grep -cx true)" -ge 1 ] || fail 'bash offers no commands to exec'

[ "$failures" = 0 ] && echo "describe_test: ${#paths[@]} verbs, with $(for shell in bash fish zsh; do has $shell && echo -n "$shell "; done)and man"
exit $((failures > 0))

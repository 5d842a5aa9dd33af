#!/usr/bin/env bash
# Installs the build into a scratch folder and looks at what would ship: the public headers and nothing internal, a
# hardened library without a search path of the build machine, and a program that compiles and links against it with
# nothing but pkg-config's flags.
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "install_test: $*"; exit 1; }

cmake --install "$build" --prefix "$work" >"$work/log" || fail "installation fails: $(cat "$work/log")"
library=$(find "$work" -name 'libvarnkivo.so.1')
[ -n "$library" ] || fail "libvarnkivo.so.1 is not installed"
for template in pkce_login.conf pkce_register.conf; do
  cmp -s "config/$template" "$work/etc.defaults/varnholt-account/config/$template" || fail "$template is not installed"
done

(cd "$work/include/varnkivo" && find . -type f -printf '%P\n' | LC_ALL=C sort) >"$work/installed"
(cd include && find . -maxdepth 1 -name '*.h' -printf '%P\n' | LC_ALL=C sort) >"$work/public"
diff "$work/public" "$work/installed" || fail "the installed headers are not the public ones"

while IFS= read -r file; do
  dynamic=$(readelf -dW "$file")
  ! grep -E 'RPATH|RUNPATH' <<<"$dynamic" || fail "${file#"$work"} has a search path of its own"
  grep -q 'BIND_NOW\|Flags:.* NOW' <<<"$dynamic" || fail "${file#"$work"} is not bound at start"
  readelf -lW "$file" | grep -q GNU_RELRO || fail "${file#"$work"} has no read-only relocations"
  ! readelf -lW "$file" | grep -E 'GNU_STACK.*E' | grep -q RWE || fail "${file#"$work"} has an executable stack"
done < <(find "$work" -type f \( -name '*.so.*' -o -path '*bin/*' \) -exec sh -c 'head -c 4 "$1" | grep -q ELF' _ {} \; -print)

needed=$(readelf -dW "$library" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p')
grep -q '^libvarnplatform\.so\.1$' <<<"$needed" || fail "the platform is not linked by its name: $needed"
! grep -E 'cpr|boost' <<<"$needed" || fail "a library that no device has is needed: $needed"

cat >"$work/program.cc" <<'END'
#include <varnkivo/varnkivo.h>

#include <cstdio>
int main() { return std::printf("%s\n", GetKivoErrorMsg(0)) > 0 ? 0 : 1; }
END
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$work" -name varnkivo.pc)")
read -r -a flags <<<"$(pkg-config --cflags --libs varnkivo)"
folder=$(dirname "$library")
"${CXX:-g++}" -std=c++17 "$work/program.cc" -o "$work/program" -Iplatform/include "${flags[@]}" "-Wl,-rpath-link,$folder"
[ "$(LD_LIBRARY_PATH=$folder "$work/program")" = Success ] || fail "a program linked against the installation does not run"
echo "install_test: $(wc -l <"$work/installed") headers, $(basename "$(readlink -f "$library")"), a program linked"

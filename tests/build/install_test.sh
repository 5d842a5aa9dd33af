#!/usr/bin/env bash
# Installs the build into a scratch folder, moves that, and looks at what would ship: the public headers and nothing
# internal, a hardened library without a search path of the build machine, and a project (consumer/) that is built
# against it once with nothing but pkg-config's flags and once with nothing but find_package, and runs.
set -euo pipefail
build=$1
consumer=$PWD/tests/build/consumer
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "install_test: $*"; exit 1; }

cmake --install "$build" --prefix "$scratch/first" >"$scratch/log" || fail "installation fails: $(cat "$scratch/log")"
work=$scratch/moved
mv "$scratch/first" "$work"
! grep -rlIF "$scratch" "$work" || fail "a file names the folder that it was installed to first"
library=$(find "$work" -name 'libvarnkivo.so.1')
[ -n "$library" ] || fail "libvarnkivo.so.1 is not installed"
[ -x "$work/sbin/varnddnsinfo" ] || fail "varnddnsinfo is not installed"
for template in pkce_login.conf pkce_register.conf; do
  cmp -s "config/$template" "$work/etc.defaults/varnholt-account/config/$template" || fail "$template is not installed"
done

(cd "$work/include/varnkivo" && find . -type f -printf '%P\n' | LC_ALL=C sort) >"$scratch/installed"
(cd include && find . -maxdepth 1 -name '*.h' -printf '%P\n' | LC_ALL=C sort) >"$scratch/public"
diff "$scratch/public" "$scratch/installed" || fail "the installed headers are not the public ones"

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

PKG_CONFIG_PATH=$(dirname "$(find "$work" -name varnkivo.pc)")
export PKG_CONFIG_PATH
version=$(pkg-config --modversion varnkivo)
in_installation() { LD_LIBRARY_PATH=$(dirname "$library") "$@"; }
says() {  # says EXPECTED COMMAND...
  local expected=$1 said
  shift
  said=$(in_installation "$@") || fail "${*#"$scratch"/} ends with $?"
  [ "$said" = "$expected" ] || fail "${*#"$scratch"/} prints \"$said\" instead of \"$expected\""
}
check_programs() {  # check_programs FOLDER
  says "$version -1 14 1" "$1/device"
  says '0 900150983cd24fb0d6963f7d28e17f72 Wrong JSON format 4096' "$1/plain"
}

by_pkg_config=$scratch/by-pkg-config
mkdir "$by_pkg_config"
read -r -a flags <<<"$(pkg-config --cflags --libs varnkivo)"
"${CXX:-c++}" -std=c++17 "$consumer/device.cc" -o "$by_pkg_config/device" "${flags[@]}"
"${CC:-cc}" -std=c99 "$consumer/plain.c" -o "$by_pkg_config/plain" "${flags[@]}"
check_programs "$by_pkg_config"

by_cmake=$scratch/by-cmake
{ cmake -S "$consumer" -B "$by_cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work" -DCMAKE_BUILD_TYPE=Release &&
    cmake --build "$by_cmake"; } >"$scratch/log" 2>&1 || fail "a CMake project does not build: $(cat "$scratch/log")"
check_programs "$by_cmake"

# The tool tells when the library that it finds is not the one it was made with.
says "varnkivo $version" "$work/bin/varnkivo" version
echo 'const char* VARNKIVOVersionGet(void) { return "9.8.7"; }' >"$scratch/other.c"
"${CC:-cc}" -shared -fPIC "$scratch/other.c" -o "$scratch/other.so"
says "varnkivo $version"$'\nlibvarnkivo 9.8.7' env LD_PRELOAD="$scratch/other.so" "$work/bin/varnkivo" version
echo "install_test: $(wc -l <"$scratch/installed") headers, $(basename "$(readlink -f "$library")"), four programs linked"

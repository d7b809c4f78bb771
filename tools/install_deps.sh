#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when they are
# missing, and does nothing when everything is there:
# - the compiler, CMake and GoogleTest;
# - libmseed (miniSEED output) and mseed2sac (an independent reader in tests);
# - libxml2 (the StationXML writer) and xmllint (the tests validate with it);
# - GNU parallel (the archive driver) and gnuplot (quick-look pictures);
# - man-db and groff for the manual page test, numpy and pandas for the test
#   that runs the README's loading recipes;
# - with --fuzz also clang 14 and its libFuzzer runtime;
# - with --browser also Chromium, in which the tests open the report pages
#   (headless; without it those tests are skipped unless CI is set).
# Both may be given: tools/install_deps.sh --fuzz --browser
set -euo pipefail

fuzz=0
browser=0
for arg in "$@"; do
  case $arg in
  --fuzz) fuzz=1 ;;
  --browser) browser=1 ;;
  *) echo "usage: tools/install_deps.sh [--fuzz] [--browser]" >&2; exit 1 ;;
  esac
done

need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
command -v make >/dev/null || need+=(make)
command -v pkg-config >/dev/null || need+=(pkg-config)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
[ -f /usr/include/libmseed.h ] || need+=(libmseed-dev)
command -v mseed2sac >/dev/null || need+=(mseed2sac)
[ -f /usr/include/libxml2/libxml/xmlwriter.h ] || need+=(libxml2-dev)
command -v xmllint >/dev/null || need+=(libxml2-utils)
# GNU parallel: moreutils ships another program under the same name.
parallel --version 2>/dev/null | grep '^GNU parallel' >/dev/null || need+=(parallel)
# The archive driver's tests end a whole session with pkill.
command -v pkill >/dev/null || need+=(procps)
command -v gnuplot >/dev/null || need+=(gnuplot-nox)
# The install test renders the manual page.
command -v man >/dev/null || need+=(man-db)
command -v groff >/dev/null || need+=(groff)
# Debian's own interpreter: a python3 earlier on the PATH (pyenv, a venv) may
# lack these modules, so the tests call /usr/bin/python3.
[ -x /usr/bin/python3 ] || need+=(python3)
/usr/bin/python3 -c 'import numpy' >/dev/null 2>&1 || need+=(python3-numpy)
/usr/bin/python3 -c 'import pandas' >/dev/null 2>&1 || need+=(python3-pandas)
if [ "$fuzz" = 1 ]; then
  # The fuzz targets: clang 14 with libFuzzer and the sanitizer runtimes.
  command -v clang++-14 >/dev/null || need+=(clang-14)
  ls /usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || need+=(libclang-rt-14-dev)
fi
if [ "$browser" = 1 ]; then
  command -v chromium >/dev/null || need+=(chromium)
fi
[ ${#need[@]} -eq 0 ] && exit 0

if [ "$(id -u)" != 0 ]; then
  echo "missing packages: ${need[*]} (install them with apt-get as root)" >&2
  exit 1
fi
apt-get update
DEBIAN_FRONTEND=noninteractive apt-get install -y "${need[@]}"

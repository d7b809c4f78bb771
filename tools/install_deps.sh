#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when they are
# missing: the compiler and CMake, GoogleTest, man-db and groff for the manual
# page test, and with --fuzz also clang 14 and its libFuzzer runtime.
# Does nothing when everything is there.
set -euo pipefail

need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
command -v make >/dev/null || need+=(make)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
# The install test renders the manual page.
command -v man >/dev/null || need+=(man-db)
command -v groff >/dev/null || need+=(groff)
if [ "${1:-}" = "--fuzz" ]; then
  # The fuzz targets: clang 14 with libFuzzer and the sanitizer runtimes.
  command -v clang++-14 >/dev/null || need+=(clang-14)
  ls /usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || need+=(libclang-rt-14-dev)
fi
[ ${#need[@]} -eq 0 ] && exit 0

if [ "$(id -u)" != 0 ]; then
  echo "missing packages: ${need[*]} (install them with apt-get as root)" >&2
  exit 1
fi
apt-get update
DEBIAN_FRONTEND=noninteractive apt-get install -y "${need[@]}"

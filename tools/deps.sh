#!/usr/bin/env bash
# Installs the Debian packages a make target needs when they are missing.
# Usage: tools/deps.sh GROUP...   (groups below; the one list of what we need)
# On Debian and Ubuntu it runs apt-get, as root or through sudo, without asking.
# Anywhere else it names the packages and fails, so nothing half-builds.
set -euo pipefail

packages_of() {
  case "$1" in
    build)    echo cmake ninja-build g++ make pkg-config libgtest-dev libgmock-dev \
                   libbenchmark-dev nlohmann-json3-dev libxml2-dev ;;
    demo)     echo libxml2-utils ;;
    coverage) echo gcovr ;;
    fuzz)     echo clang libclang-rt-14-dev ;;
    package)  echo dpkg-dev file ;;
    windows)  echo g++-mingw-w64-x86-64-posix googletest wine64 ;;
    *) echo "deps.sh: unknown group '$1'" >&2; exit 2 ;;
  esac
}

wanted=()
for group in "$@"; do
  for p in $(packages_of "$group"); do wanted+=("$p"); done
done
[ ${#wanted[@]} -gt 0 ] || exit 0

if ! command -v dpkg-query >/dev/null 2>&1 || ! command -v apt-get >/dev/null 2>&1; then
  echo "This system has no apt-get. Install these packages (or their equivalents) and run make again:" >&2
  echo "  ${wanted[*]}" >&2
  exit 1
fi

missing=()
for p in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -gt 0 ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
  as_root=()
elif command -v sudo >/dev/null 2>&1; then
  as_root=(sudo)
else
  echo "Missing packages: ${missing[*]}" >&2
  echo "Install them as root (apt-get install ${missing[*]}) and run make again." >&2
  exit 1
fi

echo "Installing missing packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# A fresh machine has no package lists yet; an old list may name gone versions.
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"

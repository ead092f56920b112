#!/usr/bin/env bash
# The Debian packages of a build: packed with CPack, extracted with dpkg-deb -x
# into a temporary root (nothing installed, no root needed), checked for what
# each promises, and the demo round trip run from the extracted files alone.
# Usage: tests/packaging/package_test.sh BUILD_DIR
set -euo pipefail

build=$(cd "${1:?usage: package_test.sh BUILD_DIR}" && pwd)
top=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "package_test: FAILED: $*" >&2
  exit 1
}

cpack -G DEB -B "$work/out" --config "$build/CPackConfig.cmake" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log" >&2; fail "cpack"; }
server_deb=$(echo "$work"/out/batchserver_*.deb)
sapsim_deb=$(echo "$work"/out/batchserver-sapsim_*.deb)
[ -f "$server_deb" ] && [ -f "$sapsim_deb" ] || fail "expected two packages, got: $(ls "$work/out")"

# Names and dependencies: the server needs adduser for its postinst; neither
# package needs the other.
check_depends() {
  local deb=$1 package=$2 depends
  shift 2
  [ "$(dpkg-deb -f "$deb" Package)" = "$package" ] || fail "$deb is not $package"
  depends=", $(dpkg-deb -f "$deb" Depends),"
  for want in "$@"; do
    case "$depends" in *", $want "* | *", $want,"*) ;; *) fail "$package Depends lacks $want:$depends" ;; esac
  done
  case "$depends" in *batchserver*) fail "$package depends on the other package:$depends" ;; esac
}
check_depends "$server_deb" batchserver adduser libc6 libstdc++6
check_depends "$sapsim_deb" batchserver-sapsim libc6 libstdc++6

# Each package holds its own files and none of the other's.
check_contents() {
  local deb=$1
  shift
  dpkg-deb -c "$deb" | awk '{print $6}' >"$work/contents"
  for entry in "$@"; do
    case "$entry" in
      !*) ! grep -qx ".${entry#!}" "$work/contents" || fail "$deb holds ${entry#!}" ;;
      *) grep -qx ".$entry" "$work/contents" || fail "$deb lacks $entry" ;;
    esac
  done
}
check_contents "$server_deb" /usr/bin/batchserver /usr/bin/batchctl /etc/batchserver/batchserver.ini \
  "/usr/lib/systemd/system/batchserver@.service" /usr/share/doc/batchserver/operations.md \
  '!/usr/bin/sapsim' '!/usr/lib/librfcsim.so'
check_contents "$sapsim_deb" /usr/bin/sapsim /usr/lib/librfcsim.so /usr/share/batchserver-sapsim/system.json \
  /usr/share/batchserver-sapsim/batches/orders.csv '!/usr/bin/batchserver' '!/etc/batchserver/batchserver.ini'

root="$work/root"
dpkg-deb -x "$server_deb" "$root"
dpkg-deb -x "$sapsim_deb" "$root"

# The INI is a conffile; the postinst makes the service user and the three
# directories. It runs here against stand-ins that record what they are asked.
dpkg-deb -e "$server_deb" "$work/control"
grep -qx /etc/batchserver/batchserver.ini "$work/control/conffiles" || fail "the INI is no conffile"
mkdir "$work/stubs"
for tool in getent adduser install systemctl; do
  printf '#!/bin/sh\necho "%s $*" >>"%s"\n%s\n' "$tool" "$work/calls" \
    "$([ "$tool" = getent ] && echo 'exit 2' || echo 'exit 0')" >"$work/stubs/$tool"
  chmod +x "$work/stubs/$tool"
done
PATH="$work/stubs:$PATH" sh "$work/control/postinst" configure || fail "postinst configure"
for call in "getent passwd batchserver" \
  "adduser --system --group --quiet --home /var/lib/batchserver --no-create-home batchserver" \
  "install -d -o batchserver -g batchserver -m 0755 /var/lib/batchserver" \
  "install -d -o batchserver -g batchserver -m 0750 /var/log/batchserver" \
  "install -d -o batchserver -g batchserver -m 2770 /var/lib/batchserver/xml"; do
  grep -qxF "$call" "$work/calls" || fail "postinst did not run: $call (ran: $(cat "$work/calls"))"
done

# What the unit and the INI name exists in the packages or is made by postinst.
unit="$root/usr/lib/systemd/system/batchserver@.service"
ini="$root/etc/batchserver/batchserver.ini"
for key in ExecStart ExecStop; do
  program=$(sed -n "s/^$key=\([^ ]*\).*/\1/p" "$unit")
  [ -x "$root$program" ] || fail "$key names $program, which the packages do not hold"
done
grep -qx 'WorkingDirectory=/var/lib/batchserver' "$unit" || fail "unit: WorkingDirectory"
grep -qx 'User=batchserver' "$unit" || fail "unit: User"
grep -qx "ExecStart=/usr/bin/batchserver %i /etc/batchserver/batchserver.ini" "$unit" || fail "unit: ExecStart"
grep -qx $'sap.library=/usr/lib/librfcsim.so\r' "$ini" || fail "INI: sap.library (CR LF kept?)"
grep -qx $'sap.path=/var/log/batchserver\r' "$ini" || fail "INI: sap.path"
grep -qx $'xml.path=/var/lib/batchserver/xml\r' "$ini" || fail "INI: xml.path"

# The round trip from the extracted files: programs, library, INI, system file
# and sample batches all come from the temporary root.
DEMO_DIR="$work/demo" DEMO_INSTANCE="PKGTEST$$" DEMO_INI="$ini" \
  DEMO_SYSTEM="$root/usr/share/batchserver-sapsim/system.json" \
  DEMO_BATCHES="$root/usr/share/batchserver-sapsim/batches" \
  "$top/examples/demo.sh" "$root/usr" >"$work/demo.out" 2>&1 || { cat "$work/demo.out" >&2; fail "demo"; }
grep -q "^sap.library=$root/usr/lib/librfcsim.so" "$work/demo/batchserver.ini" ||
  fail "the demo did not load the extracted library"
for xml in "$work"/demo/xml/*.xml; do
  [ "$(tail -c 8 "$xml")" = "</BATCH>" ] || fail "$xml is not a whole document"
done
echo "package_test: both packages hold their files and run the demo round trip"

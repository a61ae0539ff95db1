#!/usr/bin/env bash
# Builds the Debian package from the build folder, checks its control fields
# and file list, runs lintian, validates the unit, the autostart entry and the
# man pages, checks where a /usr/local install puts the polkit action, then
# runs the installed programs from a temporary root: their versions, a
# schedule added and listed, and the agent's hand-over on private buses.
# Exit 77 (skipped) where a packaging tool is missing.
set -uo pipefail
build=$1
source=$2
work=$(mktemp -d /tmp/halyard-package-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
need() { command -v "$1" >/dev/null || { echo "SKIP: $1 is not installed"; exit 77; }; }
need cpack; need dpkg-deb; need dpkg-shlibdeps

(cd "$build" && cpack -G DEB -B "$work/package" >"$work/cpack.log" 2>&1) || { cat "$work/cpack.log"; exit 1; }
deb=$(ls "$work"/package/halyard-backgrounder_*.deb) || exit 1

# Control fields: the name, the version of the project, library dependencies
# computed from the binaries.
field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = halyard-backgrounder ] || fail "Package is '$(field Package)'"
[ "$(field Version)" = "$("$build/src/tools/halyardctl" --version | cut -d' ' -f2)" ] || fail "Version is '$(field Version)'"
for dependency in libqt6core6 libqt6dbus6 libmount1 libcctz2 libc6 zip unzip xdg-utils; do
  field Depends | grep -q "\b$dependency\b" || fail "Depends lacks $dependency: $(field Depends)"
done

# The file list, and no set-user-id file anywhere in the package.
dpkg-deb -c "$deb" >"$work/contents"
for path in usr/bin/halyard-backgrounder usr/bin/halyardctl usr/share/halyard/strings/en.strings \
            usr/lib/systemd/user/halyard-backgrounder.service \
            usr/lib/systemd/user/graphical-session.target.wants/halyard-backgrounder.service \
            etc/xdg/autostart/halyard-backgrounder.desktop \
            usr/share/polkit-1/actions/com.vantrel.halyard.wake-to-sync.policy \
            usr/share/man/man1/halyard-backgrounder.1.gz usr/share/man/man1/halyardctl.1.gz \
            usr/share/bash-completion/completions/halyardctl usr/share/zsh/vendor-completions/_halyardctl \
            usr/share/doc/halyard-backgrounder/copyright; do
  grep -q " \./$path\b" "$work/contents" || fail "the package lacks /$path"
done
awk '$1 ~ /^-..[sS]/ {print $NF}' "$work/contents" | grep . && fail "set-user-id files in the package"

if command -v lintian >/dev/null; then
  lintian --fail-on error --tag-display-limit 0 "$deb" 2>&1 | grep -v 'root privileges' >"$work/lintian.log"
  grep -q '^E:' "$work/lintian.log" && { cat "$work/lintian.log"; fail "lintian reports errors"; }
else
  echo "lintian not installed: package not linted"
fi

root=$work/root
dpkg-deb -x "$deb" "$root" || fail "dpkg-deb -x"

if command -v desktop-file-validate >/dev/null; then
  desktop-file-validate "$root/etc/xdg/autostart/halyard-backgrounder.desktop" || fail "autostart entry"
fi
if command -v systemd-analyze >/dev/null; then
  # Checked against the extracted tree, where its program and man pages are.
  PATH=$root/usr/bin:$PATH MANPATH=$root/usr/share/man \
    systemd-analyze verify --man=no "$root/usr/lib/systemd/user/halyard-backgrounder.service" >"$work/verify.log" 2>&1 \
    || { grep -v 'is not executable' "$work/verify.log" | grep . && fail "systemd-analyze verify"; }
else
  echo "systemd-analyze not installed: unit not verified"
fi
# The polkit action lets pkexec run the template the package installs.
template=/usr/libexec/halyard/WakeToSyncToolTemplate
[ -x "$root$template" ] || fail "the package lacks $template"
grep -q "exec.path\">$template<" "$root/usr/share/polkit-1/actions/com.vantrel.halyard.wake-to-sync.policy" \
  || fail "the polkit action does not name $template"
# From source into /usr/local: polkit reads actions from /usr/share alone.
DESTDIR=$work/local cmake --install "$build" --prefix /usr/local >"$work/local.log" 2>&1 || { cat "$work/local.log"; exit 1; }
grep -q "exec.path\">/usr/local${template#/usr}<" "$work/local/usr/share/polkit-1/actions/com.vantrel.halyard.wake-to-sync.policy" \
  || fail "a /usr/local install puts no polkit action where polkit reads it"
for page in halyard-backgrounder halyardctl; do
  warnings=$(zcat "$root/usr/share/man/man1/$page.1.gz" | groff -ww -man -Tutf8 2>&1 >/dev/null)
  [ -z "$warnings" ] || fail "$page(1): $warnings"
done

# The installed programs run from the temporary root and find their strings
# beside them.
export XDG_DATA_HOME=$work/data XDG_CONFIG_HOME=$work/config
unset HALYARD_RESOURCE_DIR
agent=$root/usr/bin/halyard-backgrounder
ctl=$root/usr/bin/halyardctl
"$agent" --version | grep -q '^halyard-backgrounder [0-9]' || fail "halyard-backgrounder --version"
"$ctl" --version | grep -q '^halyardctl [0-9]' || fail "halyardctl --version"
"$ctl" schedule add --type 4 --hours 2 --minutes 30 >/dev/null || fail "schedule add"
"$ctl" schedule list | grep -q 'No description' || fail "schedule list does not show the installed strings"
rm -rf "$XDG_DATA_HOME"

"$source/scripts/demo" "$agent" "$ctl" >"$work/demo.log" 2>&1 || { cat "$work/demo.log"; fail "the installed agent's hand-over"; }

[ "$failures" -eq 0 ] && echo "package $(basename "$deb"): all checks passed"
exit $((failures > 0))

#!/bin/sh
# Puts Halcyrix Online, started from this folder, into the user's menu; --remove takes it out.
set -eu
here=$(cd "$(dirname "$0")" && pwd -P)
share=${XDG_DATA_HOME:-$HOME/.local/share}
entry=$share/applications/halcyrix-updater.desktop
icon=$share/icons/hicolor/scalable/apps/halcyrix-updater.svg
fail() { printf 'install.sh: %s\n' "$*" >&2; exit 1; }

case $here in
    *[\"\`\$\\%]*) fail "$here: a menu entry cannot name this folder" ;;
esac
case $# in
    0)
        mkdir -p "${entry%/*}" "${icon%/*}"
        cp "$here/halcyrix-updater.svg" "$icon"
        sed '/Exec=/d' "$here/halcyrix-updater.desktop" >"$entry"
        printf 'Exec="%s/halcyrix-updater"\nTryExec=%s/halcyrix-updater\n' "$here" "$here" >>"$entry"
        echo "Halcyrix Online is in the menu."
        ;;
    *)
        [ "$*" = --remove ] || fail "Usage: install.sh [--remove]"
        [ ! -e "$entry" ] || grep -qxF "TryExec=$here/halcyrix-updater" "$entry" ||
            fail "the menu entry belongs to another folder: $entry"
        rm -f "$entry" "$icon"
        echo "Halcyrix Online is no longer in the menu."
        ;;
esac

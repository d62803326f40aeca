#!/usr/bin/env bash
# check-package.sh DEB: the package passes lintian without errors, carries the desktop entry, icons,
# valid AppStream metadata, guide and manual page, and its own binary, unpacked into a scratch
# folder, runs the self-test and draws the icon.
set -euo pipefail
deb=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

echo "-- lintian"
lintian --fail-on error "$deb"

dpkg-deb -x "$deb" "$scratch"
root=$scratch/usr
id=local.tallowick.Tallowick
for file in bin/tallowick share/applications/$id.desktop share/metainfo/$id.metainfo.xml \
    share/doc/tallowick/Guide.md share/doc/tallowick/copyright share/doc/tallowick/changelog.gz \
    share/man/man1/tallowick.1.gz; do
    [ -f "$root/$file" ] || { echo "missing from the package: /usr/$file" >&2; exit 1; }
done
for size in 16 22 24 32 48 64 128 256 512 1024; do
    icon=$root/share/icons/hicolor/${size}x${size}/apps/$id.png
    file "$icon" | grep -q "PNG image data, $size x $size," || { echo "bad icon: $icon" >&2; exit 1; }
done

echo "-- appstreamcli"
appstreamcli validate --no-net "$root/share/metainfo/$id.metainfo.xml"

echo "-- the packaged program"
"$root/bin/tallowick" --version
"$root/bin/tallowick" --self-test | tail -n 1
QT_QPA_PLATFORM=offscreen "$root/bin/tallowick" --make-icon "$scratch/icon.png"
file "$scratch/icon.png" | grep -q "PNG image data, 1024 x 1024," || { echo "the packaged --make-icon failed" >&2; exit 1; }
echo "package checked: $(basename "$deb")"

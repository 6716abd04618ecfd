#!/usr/bin/env bash
# The Debian package as a person gets it: built by CPack from this build tree, checked by
# lintian, the desktop entry and metainfo checked by their validators, then unpacked and run.
#   package_check.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd "$build" && cpack -G DEB -B "$work" >/dev/null)
deb=$(ls "$work"/quonbrix_*_amd64.deb)

desktop-file-validate "$source/resources/app.quonbrix.QuonBrix.desktop"
appstreamcli validate --no-net --pedantic "$build/packaging/app.quonbrix.QuonBrix.metainfo.xml"
lintian --fail-on error "$deb" 2>&1 | grep -v 'running with root privileges' || true
lintian --fail-on error "$deb" >/dev/null 2>&1 || { echo "lintian reports errors"; exit 1; }

root=$work/root
dpkg-deb -x "$deb" "$root"
version=$("$root/usr/bin/quonbrix" --version)
[[ $version =~ ^quonbrix\ [0-9]+\.[0-9]+\.[0-9]+$ ]] || { echo "unexpected --version: $version"; exit 1; }
for f in usr/share/applications/app.quonbrix.QuonBrix.desktop \
         usr/share/icons/hicolor/scalable/apps/app.quonbrix.QuonBrix.svg \
         usr/share/icons/hicolor/48x48/apps/app.quonbrix.QuonBrix.png \
         usr/share/man/man1/quonbrix.1.gz usr/libexec/quonbrix/quonbrix-popover \
         usr/libexec/quonbrix/quonbrix-update; do
    [ -e "$root/$f" ] || { echo "missing from the package: $f"; exit 1; }
done

# The packaged copy leaves updates to the package manager, and finds its update helper.
cat >"$work/feed.xml" <<'XML'
<?xml version="1.0"?><rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle"><channel>
<item><title>QuonBrix 99.0</title><sparkle:version>99.0</sparkle:version>
<enclosure url="https://example.invalid/q" length="10" type="application/octet-stream" sparkle:edSignature="c2ln"/></item>
</channel></rss>
XML
out=$(QUON_BRIX_UPDATE_FEED="file://$work/feed.xml" "$root/usr/bin/quonbrix" update --check 2>&1)
grep -q "Version 99.0 is available — update with your package manager" <<<"$out" ||
    { echo "update --check from the package said: $out"; exit 1; }

# The login entry the app writes is one the desktop accepts.
XDG_CONFIG_HOME=$work/config "$root/usr/bin/quonbrix" autostart on >/dev/null
desktop-file-validate "$work/config/autostart/app.quonbrix.QuonBrix.desktop"
echo "package ok: $(basename "$deb"), $version"

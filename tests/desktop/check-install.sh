#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks what a desktop reads
# from it: the desktop entry is valid and names the installed program, icon and
# MIME type, and the MIME database maps "*.sqb" (in any case) to that type.
set -euo pipefail
build="$1"
prefix="$(mktemp -d)"
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null

entry="$prefix/share/applications/com.corvane.Seqmate.desktop"
desktop-file-validate "$entry"
grep -qx 'MimeType=application/x-seqmate-batch;' "$entry"
grep -qx 'Icon=com.corvane.Seqmate' "$entry"
test -s "$prefix/share/icons/hicolor/scalable/apps/com.corvane.Seqmate.svg"
test -s "$prefix/share/icons/hicolor/256x256/apps/com.corvane.Seqmate.png"
test -x "$prefix/bin/seqmate-bugreporter"
test -x "$prefix/bin/seqmate-cli"
if [ -x "$build/seqmate" ]; then test -x "$prefix/bin/seqmate"; fi

update-mime-database "$prefix/share/mime" 2>/dev/null
# shared-mime-info globs match without regard to case unless told otherwise.
grep -q '^[0-9]*:application/x-seqmate-batch:\*\.sqb' "$prefix/share/mime/globs2"
! grep -q 'x-seqmate-batch:.*:cs' "$prefix/share/mime/globs2"
echo "desktop integration: ok"

#!/usr/bin/env bash
# usage: playground.sh PAGE
# Uses the page in a browser; skipped where there is no page or no browser.
set -euo pipefail
[ -f "$1" ] || { echo "playground.sh: 'make playground' has made no $1, skipped"; exit 77; }
browser=$(command -v chromium || command -v google-chrome || true)
if [ -z "$browser" ] || ! command -v node > /dev/null; then
    echo "playground.sh: chromium or nodejs is not installed, skipped"
    exit 77
fi
exec node "$(dirname "$0")/playground.js" "$1" "$browser"

#!/usr/bin/env bash
# Takes the pictures of the report server's pages: docs/pictures/*.png. Look at them before you commit them.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build tests browser
scripts/build.sh --tests linux page_server
mkdir -p docs/pictures
testing/browser/alone.sh python3 -B testing/browser/pictures.py build/linux/tests/page_server docs/pictures
ls -l docs/pictures

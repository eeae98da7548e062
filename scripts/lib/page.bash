# SPDX-License-Identifier: Apache-2.0
# Pages that the tool writes, of a failed sale and of acceptance runs, and the browser that looks at them.

# The log, and the page made of it, in this directory.
failed_sale() { # directory
  build/vorn sale --sim credit --amount 12.34 --date 2026-01-15 --time 09:30:00 --unpredictable 5A17C3E9 \
    --wrong-issuer-key --log-dir "$1/logs" >"$1/sale.txt" 2>&1 || true # refused, as it is meant to be
  build/vorn decode "$1/logs/ICC_COMM_VORN.log" --html "$1/page.html" --force
}

browse() { # chromium's arguments...
  local profile status=0
  profile=$(mktemp -d)
  timeout 1200 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --hide-scrollbars \
    --user-data-dir="$profile" "$@" 2>/dev/null || status=$?
  rm -rf "$profile"
  return $status
}

# The pages of two acceptance runs, plain.html and differs.html, in this directory.
acceptance() { # directory
  cat >"$1/five.json" <<'END'
{"format": "vorn-acceptance", "version": 1, "observations": {"slots.psam2": "0B", "power.contact.time": 900,
  "frames.longest": 1024, "malformed.check": "silent", "malformed.two": "first"}}
END
  local status=0
  build/vorn accept --sim debit --html "$1/plain.html" >"$1/plain.txt"
  build/vorn accept --sim debit --like "$1/five.json" --html "$1/differs.html" >"$1/differs.txt" || status=$?
  [ "$status" = 27 ]
}

# SPDX-License-Identifier: Apache-2.0
# A page of a failed sale, and the browser that looks at it.

# The log, and the page made of it, in this directory.
failed_sale() { # directory
  build/vorn sale --sim credit --amount 12.34 --date 2026-01-15 --time 09:30:00 --unpredictable 5A17C3E9 \
    --wrong-issuer-key --log-dir "$1/logs" >"$1/sale.txt" 2>&1 || true # refused, as it is meant to be
  build/vorn decode "$1/logs/ICC_COMM_VORN.log" --html "$1/page.html" --force
}

browse() { # chromium's arguments...
  local profile status=0
  profile=$(mktemp -d)
  timeout 120 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --hide-scrollbars \
    --user-data-dir="$profile" "$@" 2>/dev/null || status=$?
  rm -rf "$profile"
  return $status
}

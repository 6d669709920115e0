#!/bin/sh
# prodconfig-verdict passes a clean --print and fails a refused serial (prodconfig exits 0), even with
# warnings hidden. Usage: verdict.sh WRAPPER PRODCONFIG [EMULATOR...]; as root, on a private empty tmpfs.
set -eu
if [ "$(id -u)" = 0 ] && [ -d /factory_data ] && [ -z "${VERDICT_SANDBOX-}" ]; then
    VERDICT_SANDBOX=1 exec unshare -m --propagation private \
        sh -c 'mount -t tmpfs none /factory_data && exec sh "$@"' sh "$0" "$@"
fi
dir=$(mktemp -d) && trap 'rm -rf "$dir"' EXIT && cp "$1" "$dir/prodconfig-verdict" && tool=$2 && shift 2
printf '#!/bin/sh\nexec %s "$@"\n' "$* $tool" >"$dir/prodconfig" && chmod +x "$dir/prodconfig"
sh "$dir/prodconfig-verdict" --print 2>/dev/null || { echo "a clean --print failed"; exit 1; }
! QT_LOGGING_RULES='*.warning=false' sh "$dir/prodconfig-verdict" -s 12345678901 2>/dev/null ||
    { echo "a refused serial passed"; exit 1; }

#!/bin/sh
# prodconfig-verdict passes a clean --print and fails a run that refuses a serial yet exits 0, even with
# warnings hidden. Usage: verdict.sh WRAPPER PRODCONFIG [EMULATOR...]; as root the runs see an empty tmpfs
# at /factory_data in a mount namespace of their own, so that this machine's partition plays no part.
set -eu
if [ "$(id -u)" = 0 ] && [ -d /factory_data ] && [ -z "${VERDICT_SANDBOX-}" ]; then
    VERDICT_SANDBOX=1 exec unshare -m --propagation private \
        sh -c 'mount -t tmpfs none /factory_data && exec sh "$@"' sh "$0" "$@"
fi
dir=$(mktemp -d) && trap 'rm -rf "$dir"' EXIT
cp "$1" "$dir/prodconfig-verdict" && tool=$2 && shift 2
printf '#!/bin/sh\nexec %s "$@"\n' "$* $tool" >"$dir/prodconfig" && chmod +x "$dir/prodconfig"
sh "$dir/prodconfig-verdict" --print 2>/dev/null || { echo "a clean --print failed"; exit 1; }
if QT_LOGGING_RULES='*.warning=false' sh "$dir/prodconfig-verdict" -s 12345678901 2>/dev/null; then
    echo "a refused serial passed"; exit 1
fi

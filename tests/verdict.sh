#!/bin/sh
# prodconfig-verdict passes a clean --print and --help, fails a refused serial (prodconfig exits 0), even with
# warnings hidden, and a print without a settings file. Usage: verdict.sh WRAPPER PRODCONFIG [EMULATOR...]; as
# root, on a private empty tmpfs.
set -eu
if [ "$(id -u)" != 0 ]; then
    echo "skipped: needs root for a private /factory_data"
    exit 0
fi
if [ -z "${VERDICT_SANDBOX-}" ]; then
    VERDICT_SANDBOX=1 exec unshare -m --propagation private sh -c '
        made= && { [ -d /factory_data ] || { mkdir /factory_data && made=1; }; }
        mount -n -t tmpfs none /factory_data && sh "$@"; status=$?
        umount -n /factory_data; [ -z "$made" ] || rmdir /factory_data; exit $status' sh "$0" "$@"
fi
dir=$(mktemp -d) && trap 'rm -rf "$dir"' EXIT && cp "$1" "$dir/prodconfig-verdict" && tool=$2 && shift 2
printf '#!/bin/sh\nexec %s "$@"\n' "$* $tool" >"$dir/prodconfig" && chmod +x "$dir/prodconfig"
! sh "$dir/prodconfig-verdict" --print 2>/dev/null || { echo "a print without a settings file passed"; exit 1; }
sh "$dir/prodconfig-verdict" --help >/dev/null 2>&1 || { echo "--help failed"; exit 1; }
: >/factory_data/settings.ini
sh "$dir/prodconfig-verdict" --print 2>/dev/null || { echo "a clean --print failed"; exit 1; }
! QT_LOGGING_RULES='*.warning=false' sh "$dir/prodconfig-verdict" -s 12345678901 2>/dev/null ||
    { echo "a refused serial passed"; exit 1; }
